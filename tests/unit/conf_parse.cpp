// mCONF_ParseLine: the line kinds, the cut of key, value and comment, the
// escapes of names and keys, and the bounds of its buffers.
#include "mconf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

constexpr const char* kNone = nullptr; // no comment expected

struct Parsed {
    int result = -2;
    bool hasKey = false, hasValue = false, hasComment = false;
    std::string key, value, comment;
};

Parsed parse(const char* line, const char* seps = "=", bool wantComment = true)
{
    char* key = reinterpret_cast<char*>(0x1);
    char* value = reinterpret_cast<char*>(0x1);
    char* comment = reinterpret_cast<char*>(0x1);
    Parsed p;
    p.result = mCONF_ParseLine(line, &key, &value, wantComment ? &comment : nullptr, seps);
    p.hasKey = key != nullptr;
    p.hasValue = value != nullptr;
    p.hasComment = wantComment && comment != nullptr;
    if (key != nullptr)
        p.key = key;
    if (value != nullptr)
        p.value = value;
    if (p.hasComment)
        p.comment = comment;
    free(key);
    free(value);
    if (wantComment)
        free(comment);
    return p;
}

struct ItemCase {
    const char* line;
    const char* key;
    const char* value;
    const char* comment; // kNone: none
};

// The item lines of the format, and the neighbours that tell the rules apart.
const ItemCase kItems[] = {
    {"k=v", "k", "v", kNone},
    {"  k = v ; c", "k", "v", " c"},
    {"k=\"a b\"\t;c", "k", "a b", "c"},
    {"k='say \"hi\"'", "k", "say \"hi\"", kNone},
    {"k=\"it's; #=%\"", "k", "it's; #=%", kNone},
    {"k=a b", "k", "a", kNone},
    {"k=a #c", "k", "a", "c"},
    {"k=#c", "k", "", "c"},
    {"k=", "k", "", kNone},
    {"k=   ", "k", "", kNone},
    {"k=;", "k", "", ""},
    {"k=\"abc", "k", "abc", kNone},
    {"k=\"a\"junk;c", "k", "a", "c"},
    {"k=\"a\" ; c ; d # e ", "k", "a", " c ; d # e "},
    {"a b=1", "a", "1", kNone},
    {"=1", "", "1", kNone},
    {"k%20x=1", "k x", "1", kNone},
    {"k%3D=1", "k=", "1", kNone},
    {"k%3d%5b=1", "k=[", "1", kNone},
    {"k=%41", "k", "%41", kNone},
    {"k=v;%41", "k", "v", "%41"},
    {"a %zz=1", "a", "1", kNone}, // the dropped text is not decoded
    {"\tk\t=\t'x y'\t#\tz", "k", "x y", "\tz"},
    {"k==v", "k", "=v", kNone},
    {"k=a=b", "k", "a=b", kNone},
    {"k=\"\"", "k", "", kNone},
    {"k='a\"b' # c", "k", "a\"b", " c"},
    {"k=a;b;c", "k", "a", "b;c"},
    {"k#=v", "k#", "v", kNone},
    {"k%00x=v", "k", "v", kNone}, // a NUL ends the key there
    {"k=v\r;c", "k", "v", kNone}, // CR is a line end
    {"k=\"a\r\nb\";c", "k", "a\r\nb", "c"}, // a quoted value ends only at its quote or NUL
    {"k=v\x01w", "k", "v\x01w", kNone},     // other control bytes are ordinary
};

TEST(ParseLine, Items)
{
    for (const ItemCase& c : kItems) {
        const Parsed p = parse(c.line);
        ASSERT_EQ(p.result, 1) << c.line;
        EXPECT_EQ(p.key, c.key) << c.line;
        EXPECT_TRUE(p.hasValue) << c.line;
        EXPECT_EQ(p.value, c.value) << c.line;
        EXPECT_EQ(p.hasComment, c.comment != kNone) << c.line;
        if (c.comment != kNone) {
            EXPECT_EQ(p.comment, c.comment) << c.line;
        }
        // Without a comment out-parameter the rest stays the same.
        const Parsed q = parse(c.line, "=", false);
        EXPECT_EQ(q.result, 1) << c.line;
        EXPECT_EQ(q.key, c.key) << c.line;
        EXPECT_EQ(q.value, c.value) << c.line;
    }
}

TEST(ParseLine, Heads)
{
    struct Case {
        const char* line;
        int result;
        const char* name;
    } cases[] = {
        {"[net]", 0, "net"},
        {"  [net] trailing ; junk", 0, "net"},
        {"[a b]", 0, "a b"},
        {"[a%5Db]  ;x", 0, "a]b"},
        {"[a%5db]", 0, "a]b"},
        {"[%5B%5D]", 0, "[]"},
        {"[a=b;c#d]", 0, "a=b;c#d"},
        {"[a%00b]", 0, "a"},
        {"[]", 0, ""},
        {"[[x]", 0, "[x"},
        {"[abc", -1, nullptr},
        {"[", -1, nullptr},
        {"[a%zz]", -1, nullptr},
        {"[a%5", -1, nullptr},
        {"[a%", -1, nullptr},
        {"[a\r]", -1, nullptr},
        {"[a%5D", -1, nullptr}, // the escaped ']' does not end the name
    };
    for (const Case& c : cases) {
        const Parsed p = parse(c.line);
        EXPECT_EQ(p.result, c.result) << c.line;
        if (c.result == 0) {
            EXPECT_EQ(p.key, c.name) << c.line;
            EXPECT_FALSE(p.hasValue) << c.line;
            EXPECT_FALSE(p.hasComment) << c.line;
        } else {
            EXPECT_FALSE(p.hasKey || p.hasValue || p.hasComment) << c.line;
        }
    }
}

TEST(ParseLine, LinesThatGiveNothing)
{
    const char* lines[] = {
        "", "   ", "\t", "\r\n", "# k=v", "  ; k=v", ";", "#", "nokey", "k%zz=1", "k%4=1", "k%=1",
        "k%g0=1", "k\r=v", "a b c", "%3D", "\n=1",
    };
    for (const char* line : lines) {
        const Parsed p = parse(line);
        EXPECT_EQ(p.result, -1) << line;
        EXPECT_FALSE(p.hasKey || p.hasValue || p.hasComment) << line;
    }
}

TEST(ParseLine, NullArguments)
{
    char* key = reinterpret_cast<char*>(0x1);
    char* value = reinterpret_cast<char*>(0x1);
    char* comment = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(mCONF_ParseLine(nullptr, &key, &value, &comment, "="), -1);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(comment, nullptr);
    EXPECT_EQ(mCONF_ParseLine("k=v", nullptr, &value, &comment, "="), -1);
    EXPECT_EQ(mCONF_ParseLine("k=v", &key, nullptr, &comment, "="), -1);
    EXPECT_EQ(key, nullptr);
    // No separator set: no item, but a head is still a head.
    EXPECT_EQ(parse("k=v", nullptr).result, -1);
    EXPECT_EQ(parse("[g]", nullptr).result, 0);
}

TEST(ParseLine, OtherSeparatorSets)
{
    struct Case {
        const char* line;
        const char* seps;
        const char* key;
        const char* value;
    } cases[] = {
        {"a:b=c", ":=", "a", "b=c"},
        {"a=b:c", ":=", "a", "b:c"},
        {"key: value", ":", "key", "value"},
        {"k=v", ":", nullptr, nullptr},
    };
    for (const Case& c : cases) {
        const Parsed p = parse(c.line, c.seps);
        if (c.key == nullptr) {
            EXPECT_EQ(p.result, -1) << c.line;
            continue;
        }
        ASSERT_EQ(p.result, 1) << c.line;
        EXPECT_EQ(p.key, c.key) << c.line;
        EXPECT_EQ(p.value, c.value) << c.line;
    }
}

// A line far beyond the reader's 255 bytes, given straight to the parser:
// each field is cut at 259 bytes and the scan still finds what follows.
TEST(ParseLine, LongFieldsAreCutNotOverrun)
{
    const std::string longKey(400, 'k');
    const std::string longValue(400, 'v');
    const std::string longComment(400, 'c');
    Parsed p = parse((longKey + "=" + longValue + " ;" + longComment).c_str());
    ASSERT_EQ(p.result, 1);
    EXPECT_EQ(p.key, std::string(259, 'k'));
    EXPECT_EQ(p.value, std::string(259, 'v'));
    EXPECT_EQ(p.comment, std::string(259, 'c'));

    p = parse(("k=\"" + longValue + "\";tail").c_str());
    ASSERT_EQ(p.result, 1);
    EXPECT_EQ(p.value.size(), 259u);
    EXPECT_EQ(p.comment, "tail");

    std::string escapes;
    for (int i = 0; i < 300; ++i)
        escapes += "%41";
    p = parse(("[" + escapes + "]").c_str());
    ASSERT_EQ(p.result, 0);
    EXPECT_EQ(p.key, std::string(259, 'A'));
    p = parse((escapes + "%zz=1").c_str());
    EXPECT_EQ(p.result, -1) << "a bad escape past the cut still voids the line";
}

} // namespace
