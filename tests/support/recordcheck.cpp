#include "recordcheck.h"

#include "clientfixture.h"

#include <gtest/gtest.h>

void expectRecord(const Datagram& d, int32_t channel, const Expect& e)
{
    EXPECT_EQ(d.reqNo(), e.reqNo);
    ASSERT_EQ(d.size(), e.length) << "reqNo " << e.reqNo;
    EXPECT_EQ(d.channel(), channel) << "reqNo " << e.reqNo;
    std::vector<bool> named(e.length, false);
    auto mark = [&](size_t offset, size_t width) {
        for (size_t i = offset; i < offset + width && i < named.size(); ++i)
            named[i] = true;
    };
    for (const Word& w : e.words) {
        EXPECT_EQ(d.word(w.offset), w.value) << "reqNo " << e.reqNo << " word at " << w.offset;
        mark(w.offset, 4);
    }
    for (const Text& t : e.texts) {
        ASSERT_LT(t.text.size(), t.width);
        std::vector<uint8_t> want(t.width, 0);
        std::copy(t.text.begin(), t.text.end(), want.begin());
        EXPECT_EQ(d.raw(t.offset, t.width), want) << "reqNo " << e.reqNo << " text at " << t.offset;
        mark(t.offset, t.width);
    }
    for (const Bytes& b : e.raw) {
        EXPECT_EQ(d.raw(b.offset, b.bytes.size()), b.bytes) << "reqNo " << e.reqNo << " bytes at " << b.offset;
        mark(b.offset, b.bytes.size());
    }
    for (size_t i = sizeof(tMediaReq); i < e.length && i < d.size(); ++i)
        if (!named[i] && d.bytes[i] != 0) {
            ADD_FAILURE() << "reqNo " << e.reqNo << ": unnamed byte at " << i << " is " << int(d.bytes[i]);
            break;
        }
}

void expectLines(const std::vector<std::string>& got, const std::vector<Line>& want)
{
    ASSERT_EQ(got.size(), want.size()) << ::testing::PrintToString(got);
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_TRUE(isCheckLine(got[i], want[i].cond, want[i].fn))
            << "line " << i << ": " << got[i] << " wanted " << want[i].cond << "(" << want[i].fn << ":N)";
}
