// relay.h - the UDP relay listener of run mode -R.
//
// A relay datagram (tRelayReq) is a packed record in host byte order:
//   0  reserved byte      1  type (2 PLAY_KEYEVENT, 10 PLAY_KEYTONE, 99 VX_REQ_SEND)
//   2  repeat (int32)     6  count (int32)
//   type 2:  10 + 104*i  groups of {keys[100], keyDelayMs u16, stepDelayMs u16}, at most 9
//   type 10: 10 + 4*i    entries of {toneType char, toneIndex char, toneWord u16}, at most 20;
//            90 interval (int32)
// The listener never answers.
#ifndef VX_SHELL_RELAY_H
#define VX_SHELL_RELAY_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

enum {
    PLAY_KEYEVENT = 2,
    PLAY_KEYTONE = 10,
    VX_REQ_SEND = 99, // 'c'
};

#pragma pack(push, 1)
struct tRelayKeyGroup {
    char keys[100];
    uint16_t keyDelayMs;
    uint16_t stepDelayMs;
};
struct tRelayKeyTone {
    char toneType;
    char toneIndex;
    uint16_t toneWord;
};
struct tRelayReq {
    uint8_t reserved0;
    uint8_t type;
    int32_t repeat;
    int32_t count;
    union {
        tRelayKeyGroup groups[9];
        struct {
            tRelayKeyTone tones[20];
            int32_t interval;
        } keyTone;
    } body;
};
#pragma pack(pop)
static_assert(offsetof(tRelayReq, type) == 1, "type at 1");
static_assert(offsetof(tRelayReq, repeat) == 2, "repeat at 2");
static_assert(offsetof(tRelayReq, count) == 6, "count at 6");
static_assert(offsetof(tRelayReq, body) == 10, "groups and tones at 10");
static_assert(sizeof(tRelayKeyGroup) == 104, "a key group takes 104 bytes");
static_assert(offsetof(tRelayReq, body.keyTone.interval) == 90, "interval at 90");
static_assert(sizeof(tRelayReq) == 946, "nine groups end at 946");

// Largest datagram read; a longer one is cut.
constexpr int kRelayMaxDatagram = 1023;

// IPv4 datagram socket bound to ip (null: any address) and the low 16 bits
// of port. The socket, or -1 if it cannot be made, or -2 if the bind fails.
int Create_UDP_SOCK(const char* ip, int port);
// sendto of len bytes to ip:port, flags always 0. What sendto returned
// (-1 with EINVAL for an address that is no IPv4 text).
ssize_t Send_UDP_SendTo(int sock, const void* buf, size_t len, int flags, const char* ip, int port);
// Acts on one received datagram of len bytes, reading nothing beyond them.
// 0 tells the thread to stop (VX_REQ_SEND), any other value to go on.
int vxReqReqHandler(const unsigned char* msg, int len);
void* vxRelayReqThread(void* arg);

// 1 when every token of the key list is a key of the table and the text
// behind a 'd' holds only letters, digits, '_' or '-'. Such a list gives
// command text that the system shell runs as the keys and pauses it names,
// and nothing else. An empty list passes (it gives no command).
int vxRelayKeysAreSafe(const char* keys);

#endif // VX_SHELL_RELAY_H
