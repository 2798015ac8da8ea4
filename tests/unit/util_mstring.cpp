// String helpers: the two line readers, the key lookup, the word-list
// matchers and the comparison variants.
#include "mstring.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Every line a reader gives over a text (with the given size and a
// destination, or null), and what each call stored.
struct Reading {
    std::vector<std::string> lines;
    bool endedAtNul = false; // the last non-null result pointed at the NUL
};

template <class Reader>
Reading readAll(Reader reader, const char* text, int size, bool withDst, bool terminateLikeReader)
{
    Reading r;
    std::vector<char> buf(static_cast<size_t>(size > 0 ? size : 0) + 2, '#');
    const char* pos = text;
    for (int guard = 0; guard < 100; ++guard) {
        std::fill(buf.begin(), buf.end(), '#');
        const char* next = reader(pos, withDst ? buf.data() : nullptr, size);
        if (next == nullptr)
            return r;
        EXPECT_GT(next, pos) << "a reader must move on";
        // strgets leaves a full line unterminated: cut it at size ourselves.
        if (terminateLikeReader)
            buf[static_cast<size_t>(size)] = '\0';
        r.lines.emplace_back(withDst ? std::string(buf.data(), strnlen(buf.data(), buf.size())) : std::string());
        r.endedAtNul = *next == '\0';
        pos = next;
    }
    ADD_FAILURE() << "reader did not end";
    return r;
}

const char* callStrgets(const char* s, char* d, int n) { return strgets(s, d, n); }
const char* callSgets(const char* s, char* d, int n) { return sgets(s, d, n); }

TEST(Strgets, Lines)
{
    struct Case {
        const char* text;
        int size;
        std::vector<std::string> lines;
    } cases[] = {
        {"a\r\n\r\nb", 255, {"a", "b"}},
        {"\n\na", 255, {"a"}},
        {"abcdef\nx", 3, {"abc", "x"}}, // the cut bytes do not come back
        {"a\rb\nc\r\nd\n\re", 255, {"a", "b", "c", "d", "e"}},
        {"one\n", 255, {"one"}},
        {"\r\n\r\n", 255, {""}}, // only line ends: one empty line at the NUL
        {"abc", 3, {"abc"}},
        {"x\n\n\n", 255, {"x"}},
    };
    for (const Case& c : cases) {
        const Reading r = readAll(callStrgets, c.text, c.size, true, true);
        EXPECT_EQ(r.lines, c.lines) << c.text;
    }
    EXPECT_EQ(strgets(nullptr, nullptr, 5), nullptr);
    EXPECT_EQ(strgets("", nullptr, 5), nullptr);
}

TEST(Strgets, TerminatorOnlyBelowSize)
{
    char buf[8];
    memset(buf, '#', sizeof buf);
    const char* text = "abc\nd";
    const char* next = strgets(text, buf, 3);
    EXPECT_EQ(next, text + 4);
    EXPECT_EQ(buf[3], '#') << "a full line is not terminated";
    memset(buf, '#', sizeof buf);
    strgets("ab\n", buf, 3);
    EXPECT_STREQ(buf, "ab");
    // The position of the NUL when the text ends in a line, then null.
    next = strgets("xy", buf, 5);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(*next, '\0');
    EXPECT_EQ(strgets(next, buf, 5), nullptr);
}

TEST(Strgets, NullDestinationStillStepsByLine)
{
    const Reading r = readAll(callStrgets, "a\nb\n\nc", 5, false, false);
    EXPECT_EQ(r.lines.size(), 3u);
}

TEST(Sgets, Lines)
{
    struct Case {
        const char* text;
        int size;
        std::vector<std::string> lines;
    } cases[] = {
        {"a\r\nb\n\rc\rd", 255, {"a\r\n", "b\n\r", "c\r", "d"}},
        {"a\n\nb", 255, {"a\n", "\n", "b"}},
        {"\r\r", 255, {"\r", "\r"}},
        {"\n\r\n", 255, {"\n\r", "\n"}},
        {"abcdef\nxy", 3, {"abc", "xy"}}, // the rest of the line is skipped
        {"ab\r\nc", 3, {"ab\r", "c"}},     // line end counts toward size
        {"ab\r\nc", 2, {"ab", "c"}},
    };
    for (const Case& c : cases) {
        const Reading r = readAll(callSgets, c.text, c.size, true, false);
        EXPECT_EQ(r.lines, c.lines) << c.text;
    }
    EXPECT_EQ(sgets(nullptr, nullptr, 5), nullptr);
    EXPECT_EQ(sgets("", nullptr, 5), nullptr);
}

TEST(Sgets, NullDestination)
{
    const char* text = "a\nb\n";
    const char* next = sgets(text, nullptr, 0);
    EXPECT_EQ(next, text + 2);
    EXPECT_EQ(sgets(next, nullptr, 0), nullptr) << "end of text with nothing stored";
}

TEST(Sgets, AlwaysTerminates)
{
    char buf[4];
    memset(buf, '#', sizeof buf);
    sgets("abcdef", buf, 3);
    EXPECT_STREQ(buf, "abc");
    memset(buf, '#', sizeof buf);
    sgets("x", buf, 0);
    EXPECT_STREQ(buf, "");
}

TEST(Strgetint, Cases)
{
    struct Case {
        const char* text;
        const char* key;
        char sep;
        int result;
    } cases[] = {
        {"title\n  Volume = 12\n", "volume", '=', 12},
        {"Volume = 12\n", "Volume", '=', -1},            // the first line never counts
        {"x\nVolumeMax = 1\nVolume = 2\n", "Volume", '=', -1}, // ends at the first line with the key
        {"x\nother=1\n\n\tgain:\n -7 trailing", "GAIN", ':', -7},
        {"x\nkey=", "key", '=', 0},
        {"x\nkey 5", "key", '=', -1},
        {"x\ny\n", "key", '=', -1},
        {"", "key", '=', -1},
        {"x\nkey\n=\n 42", "key", '=', 42}, // blanks and line ends may stand around
    };
    for (const Case& c : cases)
        EXPECT_EQ(strgetint(c.text, c.key, c.sep), c.result) << c.text;
    EXPECT_EQ(strgetint(nullptr, "k", '='), -1);
    EXPECT_EQ(strgetint("x\nk=1", nullptr, '='), -1);
}

TEST(WordLists, VarargForms)
{
    EXPECT_EQ(strmcmp("ab", "a", "ab", nullptr), 1);
    EXPECT_EQ(strmcmp2("ab", "a", "ab", nullptr), 0);
    EXPECT_EQ(strmcmp("", "x", "", nullptr), 1);
    EXPECT_EQ(strmcmp("y", "x", "", nullptr), -1);
    EXPECT_EQ(strmcmp2("abc", "", nullptr), 0);
    EXPECT_EQ(strmcmp2("ab", "abc", "b", nullptr), -1);
    EXPECT_EQ(strmcasecmp("AB", "ab", nullptr), 0);
    EXPECT_EQ(strmcasecmp("AB", "a", "abc", "aB", nullptr), 2);
    EXPECT_EQ(strmcmp("AB", "ab", nullptr), -1);
    EXPECT_EQ(strmcmp("x", nullptr), -1);
    EXPECT_EQ(strmcmp2("x", nullptr), -1);
    EXPECT_EQ(strmcasecmp("x", nullptr), -1);
    EXPECT_EQ(strmcmp(nullptr, "x", nullptr), -1);
}

TEST(WordLists, ArrayForms)
{
    const char* const withGap[] = {"a", "", "b", nullptr};
    const char* const plain[] = {"one", "Two", "three", nullptr};
    const char* const empty[] = {nullptr};
    struct Case {
        const char* str;
        const char* const* list;
        int exact;
        int folded;
    } cases[] = {
        {"b", withGap, -1, -1}, // the list ends at the empty string
        {"a", withGap, 0, 0},
        {"", withGap, -1, -1},  // an empty word matches nothing
        {"Two", plain, 1, 1},
        {"two", plain, -1, 1},
        {"THREE", plain, -1, 2},
        {"four", plain, -1, -1},
        {"x", empty, -1, -1},
        {"x", nullptr, -1, -1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(strmcmpa(c.str, c.list), c.exact) << c.str;
        EXPECT_EQ(strmcasecmpa(c.str, c.list), c.folded) << c.str;
    }
}

TEST(Comparisons, Table)
{
    struct Case {
        const char* a;
        const char* b;
        int cmp1;
        int prefix;
        int prefixFolded;
    } cases[] = {
        {"abc", "ab", 99, -1, -1},
        {"ab", "abc", -99, 0, 0},
        {"abc", "abc", 0, 0, 0},
        {"", "abc", -97, 0, 0},
        {"", "", 0, 0, 0},
        {"aB", "Abc", 32, -1, 0},
        {"\xff", "a", 0xff - 'a', -1, -1}, // bytes count as unsigned
        {"AbC", "aBcD", 'A' - 'a', -1, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(strcmp1(c.a, c.b), c.cmp1) << c.a << " vs " << c.b;
        EXPECT_EQ(strcmp2(c.a, c.b), c.prefix) << c.a << " vs " << c.b;
        EXPECT_EQ(strcasecmp2(c.a, c.b), c.prefixFolded) << c.a << " vs " << c.b;
    }
}

TEST(Strcasestr, OwnRules)
{
    const char* h = "xABc";
    EXPECT_EQ(mstring::strcasestr(h, "abC"), h + 1);
    EXPECT_EQ(mstring::strcasestr("", ""), nullptr) << "empty haystack: null even for an empty needle";
    EXPECT_EQ(mstring::strcasestr(h, ""), h);
    EXPECT_EQ(mstring::strcasestr(h, "abcd"), nullptr);
    const char* rep = "aaab";
    EXPECT_EQ(mstring::strcasestr(rep, "AAB"), rep + 1);
    EXPECT_EQ(mstring::strcasestr(nullptr, "a"), nullptr);
    EXPECT_EQ(mstring::strcasestr(h, nullptr), nullptr);
    char buf[] = "Hello World";
    char* found = mstring::strcasestr(buf, "WORLD");
    ASSERT_EQ(found, buf + 6);
    *found = 'w'; // the non-const form hands out a writable pointer
}

TEST(Strprint, FormatsAndCuts)
{
    char* s = strprint("%s-%d", "a", 42);
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "a-42");
    free(s);
    const std::string longText(5000, 'x');
    s = strprint("%s", longText.c_str());
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(strlen(s), 4094u);
    free(s);
    s = strprint("%s", "");
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "");
    free(s);
}

} // namespace
