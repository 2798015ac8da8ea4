// vxsim: decoding of request datagrams into one readable line.
//
// The service's request records are described here once, as data: one row per
// request number with its name, its full record length and its payload fields.
// The printer walks that table; nothing in it knows a record by code.
#ifndef VX_SIM_DECODE_H
#define VX_SIM_DECODE_H

#include <stddef.h>
#include <stdint.h>

// Offsets of the common record head.
constexpr size_t kHeadReqNo = 0;
constexpr size_t kHeadSockPath = 8;
constexpr size_t kSockPathWidth = 108;
constexpr size_t kHeadChannel = 116;
constexpr size_t kHeadLength = 120;

enum SimFieldType : uint8_t {
    kFieldI32,  // 32-bit signed word, little-endian
    kFieldText, // character field of `width` bytes, NUL-terminated when shorter
    kFieldKey,  // raw bytes of `width`, printed in hexadecimal
};

struct SimField {
    uint16_t offset;
    SimFieldType type;
    uint16_t width; // bytes; 4 for a word
    const char* name;
};

struct SimRequest {
    int32_t reqNo;
    const char* name;
    uint16_t length; // full record length as the service expects it
    const SimField* fields;
    size_t fieldCount;
};

// A line under construction in a caller's fixed buffer. Appends never write
// past `size` (the text is cut and `cut` set instead) and keep it
// NUL-terminated.
struct SimText {
    char* buf;
    size_t size;
    size_t len;
    bool cut;
};

void simTextInit(SimText* t, char* buf, size_t size);
void simTextAdd(SimText* t, const char* s);
void simTextAddN(SimText* t, const char* s, size_t n);
void simTextAddChar(SimText* t, char c);
// Appends the decimal form of v.
void simTextAddInt(SimText* t, long long v);

// The row of a request number, or null for a number the service doesn't know.
const SimRequest* simFindRequest(int32_t reqNo);

// Reads a little-endian 32-bit word at `off`; the caller has checked the bound.
int32_t simReadI32(const uint8_t* data, size_t off);

// Appends `text` of at most `len` bytes quoted and escaped: printable ASCII as
// it is, `"` and `\` escaped, everything else as \n, \t, \r or \xHH. Stops at
// the first NUL.
void simAddQuoted(SimText* out, const uint8_t* text, size_t len);

// Appends the decoded description of one datagram of `len` bytes, without the
// time stamp: "reqNo=15 setAudioMode channel=0 len=144 from="/tmp/vx/app1"
// mode=2 ...". `from` is the datagram's source path, null for an unbound
// sender; the head's sockPath is shown as well when it differs. Never reads
// beyond `len`.
void simDescribeRequest(SimText* out, const uint8_t* data, size_t len, const char* from);

// A buffer of this size holds the description of any datagram whole.
constexpr size_t kSimDescribeMax = 8192;

#endif // VX_SIM_DECODE_H
