// The UDP relay listener: one thread that acts on small datagrams of fixed
// layout from a remote sender, serially, and never answers.
//
// Limits, since no field of the format tells the length of what follows:
// a datagram is read only up to the bytes received (the buffer keeps older
// bytes beyond them, and those are never taken for part of the message).
// `count` is cut to what the format holds (9 key groups, 20 tone entries)
// and to the whole groups or entries received, with a log line when it
// claimed more. A key list with no terminator in its 100 bytes is read as
// those 100 bytes. A datagram too short for its type's head is dropped.
#include "relay.h"

#include "keyevent.h"
#include "mlog.h"
#include "params.h"
#include "shellcmd.h"
#include "vxclient.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr size_t kHeadSize = offsetof(tRelayReq, body);                                  // 10
constexpr int kMaxGroups = sizeof(tRelayReq::body.groups) / sizeof(tRelayKeyGroup);      // 9
constexpr int kMaxTones = sizeof(tRelayReq::body.keyTone.tones) / sizeof(tRelayKeyTone); // 20
// Command text of one group in the relay.
constexpr int kRelayCommandSize = 256;
// One datagram holds the listener at most kRelayBudgetMs: no pause (after a
// key, or between groups) is longer than kRelayPauseMaxMs, and the pauses
// are cut further to what is left of the budget. The description would let
// one datagram hold the listener for hours; the bound replaces that on purpose.
constexpr uint32_t kRelayPauseMaxMs = 30000;
constexpr uint32_t kRelayBudgetMs = 60000;
// Slots of the tone table: one per entry.
constexpr int kToneSlots = 50;
static_assert(kMaxTones <= kToneSlots, "every entry has its slot");

int32_t readInt32(const unsigned char* msg, size_t offset)
{
    int32_t v;
    memcpy(&v, msg + offset, sizeof v);
    return v;
}

// The number of items of `itemSize` bytes that the datagram holds whole
// from the head on, at most `max`.
int itemsReceived(int len, size_t itemSize, int max)
{
    const size_t avail = (static_cast<size_t>(len) - kHeadSize) / itemSize;
    return avail < static_cast<size_t>(max) ? static_cast<int>(avail) : max;
}

// `count` cut to what was received; logs when it claimed more.
int boundCount(const char* what, int32_t count, int received)
{
    if (count <= received)
        return count;
    logPrt(">>> ERR, %s, %s count:%d, but only %d received, so %d are handled.", "vxReqReqHandler", what, count,
           received, received);
    return received;
}

// Tokens of a key list as the split sees them: runs between commas.
uint32_t countTokens(const char* keys)
{
    uint32_t n = 0;
    for (const char* p = keys; *p != '\0'; ++p)
        n += *p != ',' && (p == keys || p[-1] == ',');
    return n;
}

bool isDssChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

int handleKeyEvent(const unsigned char* msg, int len)
{
    if (static_cast<size_t>(len) < kHeadSize) {
        logPrt(">>> ERR, %s, PLAY_KEYEVENT of %d bytes has no count, dropped.", "vxReqReqHandler", len);
        return 1;
    }
    if (readInt32(msg, offsetof(tRelayReq, repeat)) != 0)
        return 1;
    char command[kRelayCommandSize];
    memset(command, 0, sizeof command);
    const int32_t count = readInt32(msg, offsetof(tRelayReq, count));
    if (count < 1)
        return 1;
    const int groups = boundCount("PLAY_KEYEVENT", count, itemsReceived(len, sizeof(tRelayKeyGroup), kMaxGroups));

    uint32_t left = kRelayBudgetMs;
    bool cut = false;
    for (int i = 0; i < groups; ++i) {
        tRelayKeyGroup group;
        memcpy(&group, msg + kHeadSize + i * sizeof(tRelayKeyGroup), sizeof group);
        char keys[sizeof group.keys + 1];
        memcpy(keys, group.keys, sizeof group.keys);
        keys[sizeof group.keys] = '\0';

        // Text from the network reaches the shell only as commands of the
        // key table, whole.
        if (!vxRelayKeysAreSafe(keys)) {
            char shown[4 * sizeof keys];
            logPrt(">>> ERR, %s, PLAY_KEYEVENT group[%d] <%s> holds no valid key list, skipped.", "vxReqReqHandler", i,
                   vxPrintable(shown, sizeof shown, keys));
        } else {
            const uint32_t tokens = countTokens(keys);
            uint32_t delay = group.keyDelayMs < kRelayPauseMaxMs ? group.keyDelayMs : kRelayPauseMaxMs;
            if (tokens > 0 && delay * tokens > left)
                delay = left / tokens;
            cut = cut || delay != group.keyDelayMs;
            memset(command, 0, sizeof command);
            int leftOut = 0;
            if (getKeyEventString(command, keys, static_cast<uint16_t>(delay), sizeof command, &leftOut) > 0 &&
                leftOut == 0) {
                vxRunShellCommand(command);
                left -= delay * tokens;
            } else if (leftOut > 0) {
                logPrt(">>> ERR, %s, PLAY_KEYEVENT group[%d] does not fit in %d bytes, skipped.", "vxReqReqHandler", i,
                       kRelayCommandSize);
            }
        }
        if (i < groups - 1) {
            uint32_t step = group.stepDelayMs < kRelayPauseMaxMs ? group.stepDelayMs : kRelayPauseMaxMs;
            step = step < left ? step : left;
            cut = cut || step != group.stepDelayMs;
            left -= step;
            vxScriptPause(step);
        }
    }
    if (cut)
        logPrt(">>> ERR, %s, PLAY_KEYEVENT pauses cut to %u s each and %u s in all.", "vxReqReqHandler",
               kRelayPauseMaxMs / 1000, kRelayBudgetMs / 1000);
    return 1;
}

int handleKeyTone(const unsigned char* msg, int len)
{
    if (static_cast<size_t>(len) < offsetof(tRelayReq, count))
        return 1;
    const int32_t repeat = readInt32(msg, offsetof(tRelayReq, repeat));
    logPrt(">>> %s, Received PLAY_KEYTONE, repeat:%d.", "vxReqReqHandler", repeat);
    if (repeat != 0)
        return 1;
    if (static_cast<size_t>(len) < kHeadSize)
        return 1;
    const int32_t count = readInt32(msg, offsetof(tRelayReq, count));
    if (count < 1)
        return 1;
    const int tones = boundCount("PLAY_KEYTONE", count, itemsReceived(len, sizeof(tRelayKeyTone), kMaxTones));

    // toneWord is kept beside the name; nothing consumes it.
    struct Slot {
        char name[128];
        uint16_t word;
    };
    Slot slots[kToneSlots];
    memset(slots, 0, sizeof slots);
    for (int i = 0; i < tones; ++i) {
        tRelayKeyTone tone;
        memcpy(&tone, msg + kHeadSize + i * sizeof(tRelayKeyTone), sizeof tone);
        snprintf(slots[i].name, sizeof slots[i].name, "/sound/tone_%c_%c.wav", tone.toneType, tone.toneIndex);
        slots[i].word = tone.toneWord;
        playWavFile(g_regi_sock, g_regi_channel, slots[i].name, 1, 1, 0, 0, repeat, 0, 1);
    }
    return 1;
}

} // namespace

int vxRelayKeysAreSafe(const char* keys)
{
    if (keys == nullptr)
        return 0;
    char copy[sizeof(tRelayKeyGroup::keys) + 1];
    if (strnlen(keys, sizeof copy) >= sizeof copy)
        return 0;
    strcpy(copy, keys);
    char* save = nullptr;
    for (char* tok = strtok_r(copy, ",", &save); tok != nullptr; tok = strtok_r(nullptr, ",", &save)) {
        if (!vxIsKeyToken(tok))
            return 0;
        if (tok[0] == 'd')
            for (const char* p = tok + 1; *p != '\0'; ++p)
                if (!isDssChar(*p))
                    return 0;
    }
    return 1;
}

int Create_UDP_SOCK(const char* ip, int port)
{
    // Not inherited by the commands that the key scripts start.
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = ip != nullptr ? inet_addr(ip) : htonl(INADDR_ANY);
    if (bind(sock, reinterpret_cast<const struct sockaddr*>(&addr), sizeof addr) != 0) {
        close(sock);
        return -2;
    }
    return sock;
}

ssize_t Send_UDP_SendTo(int sock, const void* buf, size_t len, int flags, const char* ip, int port)
{
    (void)flags; // always 0
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (ip == nullptr || inet_pton(AF_INET, ip, &addr.sin_addr) != 1) {
        errno = EINVAL;
        return -1;
    }
    return sendto(sock, buf, len, 0, reinterpret_cast<const struct sockaddr*>(&addr), sizeof addr);
}

int vxReqReqHandler(const unsigned char* msg, int len)
{
    // A datagram of one byte carries no type: nothing to do.
    if (msg == nullptr || len < 2)
        return 1;
    switch (msg[offsetof(tRelayReq, type)]) {
    case PLAY_KEYEVENT:
        return handleKeyEvent(msg, len);
    case PLAY_KEYTONE:
        return handleKeyTone(msg, len);
    case VX_REQ_SEND:
        logPrt("Warnning !, Received VX_REQ_SEND, so Killed.");
        return 0;
    default:
        // 1, 11, 12, 20, 21, 22, 30, 31 are reserved; they and every other
        // value are ignored without a word.
        return 1;
    }
}

void* vxRelayReqThread(void*)
{
    static const char kName[] = "vxRelayReqThread";
    // Zeroed once; byte 1023 is never written.
    unsigned char buffer[kRelayMaxDatagram + 1];
    memset(buffer, 0, sizeof buffer);
    struct sockaddr_in from;
    socklen_t fromLen = sizeof from;

    const int sock = Create_UDP_SOCK(g_sShellIp, g_ShellPort);
    if (sock < 0) {
        logPrt("ERR, %s, Failed to create socket with ip:%s, port:%d.", kName, g_sShellIp, g_ShellPort);
        g_vx_RelayThId = 0;
        return nullptr;
    }
    while (g_regi_sock >= 1) {
        fromLen = sizeof from;
        errno = 0;
        const ssize_t n =
            recvfrom(sock, buffer, kRelayMaxDatagram, 0, reinterpret_cast<struct sockaddr*>(&from), &fromLen);
        if (n < 1) {
            logPrt("ERR, %s, recvfrom failed, [%s]", kName, strerror(errno));
            break;
        }
        if (vxReqReqHandler(buffer, static_cast<int>(n)) == 0)
            break;
    }
    close(sock);
    // Logged before the word is cleared: main ends the run once it sees 0.
    logPrt("%s is killed.", kName);
    g_vx_RelayThId = 0;
    return nullptr;
}
