// The relay listener's input from the network: the first byte picks the way.
//   0: vxReqReqHandler on the datagram. Commands for the system shell are
//      caught here (these definitions replace the shell's own): each must be
//      plain key text within the relay's 256 bytes.
//   1: getKeyEventString on a key list, with the buffer size and delay of
//      the next four bytes: the text stays in its buffer, is terminated, and
//      counts the tokens as the list has them.
#include "keyevent.h"
#include "params.h"
#include "relay.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

int vxRunShellCommand(const char* cmd)
{
    for (size_t i = 0; i < 256; ++i) {
        if (cmd[i] == '\0')
            return 0;
        if (strchr("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 ;_-*#'", cmd[i]) == nullptr ||
            (cmd[i] == '\'' && strncmp(cmd + i, "'#'", 3) != 0 && (i < 2 || strncmp(cmd + i - 2, "'#'", 3) != 0)))
            abort(); // network text reached the shell unchecked
    }
    abort(); // ran past the command buffer
}

int vxScriptPause(uint32_t) { return 0; }

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_regi_sock = -1; // the tone requests go nowhere
    return freopen("/dev/null", "w", stdout) == nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5)
        return 0;
    if (data[0] == 0) {
        // The datagram alone, exactly its bytes: any read beyond them is caught.
        const int len = size > 4096 ? 4096 : static_cast<int>(size) - 1;
        if ((vxReqReqHandler(data + 1, len) == 0) != (len >= 2 && data[2] == VX_REQ_SEND))
            abort();
        return 0;
    }
    const int dstSize = (data[1] | data[2] << 8) % 600;
    const uint16_t delay = static_cast<uint16_t>(data[3] | data[4] << 8);
    std::vector<char> keys(data + 5, data + size);
    keys.push_back('\0');
    int tokens = 0;
    for (size_t i = 0; keys[i] != '\0'; ++i)
        tokens += keys[i] != ',' && (i == 0 || keys[i - 1] == ',');
    std::vector<char> dst(static_cast<size_t>(dstSize) + 32, 'Z');
    int leftOut = -1;
    if (getKeyEventString(dst.data(), keys.data(), delay, dstSize, &leftOut) != tokens || leftOut < 0 ||
        leftOut > tokens || dst[static_cast<size_t>(dstSize)] != 'Z' ||
        (dstSize > 0 && tokens > 0 && memchr(dst.data(), '\0', static_cast<size_t>(dstSize)) == nullptr))
        abort();
    return 0;
}
