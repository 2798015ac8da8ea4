// Fuzzes the key-list text builder: any list, any delay, any destination
// size. The text must stay within its buffer, be terminated, count the
// tokens as the list has them, and leave out only a tail of the list.
#include "keyevent.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 0;
    return 0;
}

namespace {

// Tokens of the list as a split that merges commas sees them.
int countTokens(const char* s)
{
    int n = 0;
    bool inToken = false;
    for (; *s != '\0'; ++s) {
        if (*s == ',') {
            inToken = false;
        } else if (!inToken) {
            inToken = true;
            ++n;
        }
    }
    return n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4)
        return 0;
    const int dstSize = (data[0] | (data[1] << 8)) % 600;
    const uint16_t delay = static_cast<uint16_t>(data[2] | (data[3] << 8));
    std::vector<char> keys(data + 4, data + size);
    keys.push_back('\0');
    const int tokens = countTokens(keys.data());

    constexpr char kGuard = '\x5a';
    std::vector<char> dst(static_cast<size_t>(dstSize) + 32, kGuard);
    if (dstSize > 0)
        dst[0] = '\0';
    int leftOut = -1;
    const int n = getKeyEventString(dst.data(), keys.data(), delay, dstSize, &leftOut);
    if (n != tokens || leftOut < 0 || leftOut > n)
        abort();
    for (size_t i = static_cast<size_t>(dstSize); i < dst.size(); ++i)
        if (dst[i] != kGuard)
            abort(); // wrote past dstSize
    if (dstSize > 0 && memchr(dst.data(), '\0', static_cast<size_t>(dstSize)) == nullptr)
        abort();
    // Whatever was written is whole pieces: it ends with a pause.
    if (n > leftOut && dstSize > 0) {
        const size_t len = strlen(dst.data());
        char tail[16];
        snprintf(tail, sizeof tail, "usleep %d", delay * 1000);
        const size_t tl = strlen(tail);
        if (len < tl || strcmp(dst.data() + len - tl, tail) != 0)
            abort();
    }

    // One token alone, into a buffer of any size.
    const size_t tokSize = data[0] % 140;
    std::vector<char> tok(tokSize + 16, kGuard);
    getKeyEventStr(tok.data(), keys.data(), tokSize);
    for (size_t i = tokSize; i < tok.size(); ++i)
        if (tok[i] != kGuard)
            abort();
    return 0;
}
