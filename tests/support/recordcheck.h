// recordcheck.h - assertions on request records as they left the client, and
// on the log lines of a refusal, for the table-driven tests of the request
// families.
#ifndef VX_TEST_RECORDCHECK_H
#define VX_TEST_RECORDCHECK_H

#include "fakeservice.h"

#include <cstdint>
#include <string>
#include <vector>

// A payload word that the row names: 32-bit value at a byte offset.
struct Word {
    size_t offset;
    int32_t value;
};

// A text field that the row names: the bytes of `text` at `offset`, then
// zeros up to `width` (the last byte of the field always 0).
struct Text {
    size_t offset;
    size_t width;
    std::string text;
};

// A raw byte field that the row names.
struct Bytes {
    size_t offset;
    std::vector<uint8_t> bytes;
};

// What the record of one operation must hold.
struct Expect {
    int32_t reqNo;
    size_t length;
    std::vector<Word> words;
    std::vector<Text> texts;
    std::vector<Bytes> raw;
};

// Asserts reqNo, length, channel, every named field, and that every payload
// byte (offset 120 on) that no field names is 0: the library sends zeros in
// the bytes that a request does not use.
void expectRecord(const Datagram& d, int32_t channel, const Expect& e);

// One expected log line: "<cond>(<fn>:<line>)\n".
struct Line {
    std::string cond;
    std::string fn;
};

// Asserts that `got` is exactly `want`, in order.
void expectLines(const std::vector<std::string>& got, const std::vector<Line>& want);

#endif // VX_TEST_RECORDCHECK_H
