// vxsim: decoding of request datagrams into one readable line.
//
// The service's request records are described here once, as data: one row per
// request number with its name, its full record length and its payload fields.
// The printer walks that table; nothing in it knows a record by code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vxsim {

// Offsets of the common record head.
constexpr size_t kHeadReqNo = 0;
constexpr size_t kHeadSockPath = 8;
constexpr size_t kSockPathWidth = 108;
constexpr size_t kHeadChannel = 116;
constexpr size_t kHeadLength = 120;

enum class FieldType : uint8_t {
  I32,   // 32-bit signed word, host order
  Text,  // character field of `width` bytes, NUL-terminated when shorter
  Key,   // raw bytes of `width`, printed in hexadecimal
};

struct Field {
  uint16_t offset;
  FieldType type;
  uint16_t width;  // bytes; 4 for I32
  const char* name;
};

struct RequestDesc {
  int32_t reqNo;
  const char* name;
  uint16_t length;  // full record length as the service expects it
  const Field* fields;
  size_t fieldCount;
};

// The row of a request number, or null for a number the service doesn't know.
const RequestDesc* findRequest(int32_t reqNo);

// Reads a little-endian 32-bit word at `off`; the caller has checked the bound.
int32_t readI32(const uint8_t* data, size_t off);

// Appends `text` of at most `len` bytes quoted and escaped: printable ASCII as
// it is, `"` and `\` escaped, everything else as \n, \t, \r or \xHH. Stops at
// the first NUL.
void appendQuoted(std::string& out, const uint8_t* text, size_t len);

// The decoded description of one datagram of `len` bytes, without the time
// stamp: "reqNo=15 setAudioMode channel=0 len=144 from="/tmp/vx/app1" mode=2 ...".
// `from` is the datagram's source path, null for an unbound sender; the head's
// sockPath is shown as well when it differs. Never reads beyond `len`.
std::string describeRequest(const uint8_t* data, size_t len, const char* from);

}  // namespace vxsim
