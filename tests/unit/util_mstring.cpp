// String helpers: the two line readers, the key lookup, the word-list
// matchers and the comparison variants.
#include "mstring.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Reader = char* (*)(const char*, char*, int);

// Every line a reader gives over a text. A destination byte that the reader
// did not write stays '#'; strgets leaves a full line unterminated, so the
// line is cut at `size` here.
std::vector<std::string> readAll(Reader reader, const char* text, int size)
{
    std::vector<std::string> lines;
    std::vector<char> buf(static_cast<size_t>(size) + 2);
    const char* pos = text;
    for (int guard = 0; guard < 50; ++guard) {
        std::fill(buf.begin(), buf.end(), '#');
        const char* next = reader(pos, buf.data(), size);
        if (next == nullptr)
            return lines;
        EXPECT_GT(next, pos) << "a reader must move on";
        buf[static_cast<size_t>(size)] = '\0';
        lines.emplace_back(buf.data());
        pos = next;
    }
    ADD_FAILURE() << "reader did not end";
    return lines;
}

TEST(LineReaders, Strgets)
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
        {"\r\n\r\n", 255, {""}}, // only line ends: one empty line at the NUL
        {"", 255, {}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(readAll(strgets, c.text, c.size), c.lines) << c.text;
    char buf[8];
    memset(buf, '#', sizeof buf);
    strgets("abc\nd", buf, 3);
    EXPECT_EQ(buf[3], '#') << "no terminator behind a full line";
    const char* text = "xy";
    EXPECT_EQ(strgets(text, buf, 5), text + 2) << "the NUL's position at the end";
    EXPECT_EQ(strgets(nullptr, buf, 5), nullptr);
    // Without a destination it still steps line by line.
    const char* two = "a\n\nb";
    EXPECT_EQ(strgets(two, nullptr, 0), two + 3);
}

TEST(LineReaders, Sgets)
{
    struct Case {
        const char* text;
        int size;
        std::vector<std::string> lines;
    } cases[] = {
        {"a\r\nb\n\rc\rd", 255, {"a\r\n", "b\n\r", "c\r", "d"}},
        {"a\n\nb", 255, {"a\n", "\n", "b"}},
        {"\n\r\n", 255, {"\n\r", "\n"}},
        {"abcdef\nxy", 3, {"abc", "xy"}}, // the rest of the line is skipped
        {"ab\r\nc", 3, {"ab\r", "c"}},     // the line end counts toward size
        {"", 255, {}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(readAll(sgets, c.text, c.size), c.lines) << c.text;
    const char* text = "a\nb\n";
    EXPECT_EQ(sgets(text, nullptr, 0), text + 2);
    EXPECT_EQ(sgets(text + 2, nullptr, 0), nullptr) << "the end, with nothing stored";
    char buf[4];
    sgets("abcdef", buf, 3);
    EXPECT_STREQ(buf, "abc") << "always terminated";
}

TEST(LineReaders, Strgetint)
{
    struct Case {
        const char* text;
        const char* key;
        char sep;
        int result;
    } cases[] = {
        {"title\n  Volume = 12\n", "volume", '=', 12},
        {"Volume = 12\n", "Volume", '=', -1},                  // the first line never counts
        {"x\nVolumeMax = 1\nVolume = 2\n", "Volume", '=', -1}, // ends at the first line with the key
        {"x\nother=1\n\n\tgain:\n -7 trailing", "GAIN", ':', -7},
        {"x\nkey 5", "key", '=', -1},
        {"x\ny\n", "key", '=', -1},
        {"x\nkey\n=\n 42", "key", '=', 42}, // blanks and line ends may stand around
    };
    for (const Case& c : cases)
        EXPECT_EQ(strgetint(c.text, c.key, c.sep), c.result) << c.text;
    EXPECT_EQ(strgetint(nullptr, "k", '='), -1);
}

TEST(WordLists, Matchers)
{
    EXPECT_EQ(strmcmp("ab", "a", "ab", nullptr), 1);
    EXPECT_EQ(strmcmp2("ab", "a", "ab", nullptr), 0);
    EXPECT_EQ(strmcmp("", "x", "", nullptr), 1);
    EXPECT_EQ(strmcmp("y", "x", "", nullptr), -1);
    EXPECT_EQ(strmcmp2("abc", "", nullptr), 0);
    EXPECT_EQ(strmcmp2("ab", "abc", "b", nullptr), -1);
    EXPECT_EQ(strmcasecmp("AB", "a", "abc", "aB", nullptr), 2);
    EXPECT_EQ(strmcmp("AB", "ab", nullptr), -1);
    EXPECT_EQ(strmcmp("x", nullptr), -1);
    EXPECT_EQ(strmcmp(nullptr, "x", nullptr), -1);

    const char* const withGap[] = {"a", "", "b", nullptr};
    const char* const plain[] = {"one", "Two", "three", nullptr};
    struct Case {
        const char* str;
        const char* const* list;
        int exact, folded;
    } cases[] = {
        {"b", withGap, -1, -1}, // the list ends at the empty string
        {"a", withGap, 0, 0},
        {"", withGap, -1, -1},  // an empty word matches nothing
        {"two", plain, -1, 1},
        {"THREE", plain, -1, 2},
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
        int cmp1, prefix, prefixFolded;
    } cases[] = {
        {"abc", "ab", 99, -1, -1}, {"ab", "abc", -99, 0, 0},     {"", "abc", -97, 0, 0},
        {"", "", 0, 0, 0},         {"aB", "Abc", 32, -1, 0},     {"\xff", "a", 0xff - 'a', -1, -1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(strcmp1(c.a, c.b), c.cmp1) << c.a << " vs " << c.b;
        EXPECT_EQ(strcmp2(c.a, c.b), c.prefix) << c.a << " vs " << c.b;
        EXPECT_EQ(strcasecmp2(c.a, c.b), c.prefixFolded) << c.a << " vs " << c.b;
    }
}

TEST(Comparisons, StrcasestrAndStrprint)
{
    const char* h = "xABc";
    EXPECT_EQ(mstring::strcasestr(h, "abC"), h + 1);
    EXPECT_EQ(mstring::strcasestr("", ""), nullptr) << "empty haystack: null even for an empty needle";
    EXPECT_EQ(mstring::strcasestr(h, ""), h);
    EXPECT_EQ(mstring::strcasestr(h, "abcd"), nullptr);
    const char* rep = "aaab";
    EXPECT_EQ(mstring::strcasestr(rep, "AAB"), rep + 1);

    char* s = strprint("%s-%d", "a", 42);
    EXPECT_STREQ(s, "a-42");
    free(s);
    s = strprint("%s", std::string(5000, 'x').c_str());
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(strlen(s), 4094u);
    free(s);
}

} // namespace
