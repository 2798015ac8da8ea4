// mCONF_ParseLine: the line kinds, the cut of key, value and comment, the
// escapes of names and keys, and the bounds of its buffers.
#include "mconf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

constexpr const char* kNone = nullptr; // the out-parameter stays null

struct Parsed {
    int result = -2;
    bool hasKey = false, hasValue = false, hasComment = false; // out-parameter not null
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
    p.key = p.hasKey ? key : "";
    p.value = p.hasValue ? value : "";
    p.comment = p.hasComment ? comment : "";
    free(key);
    free(value);
    if (wantComment)
        free(comment);
    return p;
}

void expectText(bool has, const std::string& got, const char* want, const char* line, const char* what)
{
    EXPECT_EQ(has, want != kNone) << what << " of " << line;
    if (has && want != kNone) {
        EXPECT_EQ(got, want) << what << " of " << line;
    }
}

struct Case {
    const char* line;
    int result;
    const char* key; // the name, for a head
    const char* value;
    const char* comment;
};

// The lines of the format, and the neighbours that tell the rules apart.
const Case kCases[] = {
    {"k=v", 1, "k", "v", kNone},
    {"  k = v ; c", 1, "k", "v", " c"},
    {"k=\"a b\"\t;c", 1, "k", "a b", "c"},
    {"k='say \"hi\"'", 1, "k", "say \"hi\"", kNone},
    {"k=\"it's; #=%\"", 1, "k", "it's; #=%", kNone},
    {"k=a b", 1, "k", "a", kNone},
    {"k=a #c", 1, "k", "a", "c"},
    {"k=#c", 1, "k", "", "c"},
    {"k=", 1, "k", "", kNone},
    {"k=;", 1, "k", "", ""},
    {"k=\"abc", 1, "k", "abc", kNone},
    {"k=\"a\"junk;c", 1, "k", "a", "c"},
    {"k=\"a\" ; c ; d # e ", 1, "k", "a", " c ; d # e "},
    {"a b=1", 1, "a", "1", kNone},
    {"a %zz=1", 1, "a", "1", kNone}, // the dropped text is not decoded
    {"=1", 1, "", "1", kNone},
    {"k%20x=1", 1, "k x", "1", kNone},
    {"k%3d%5B=1", 1, "k=[", "1", kNone},
    {"k%00x=v", 1, "k", "v", kNone}, // a NUL ends the key there
    {"k=%41;%42", 1, "k", "%41", "%42"},
    {"k==v", 1, "k", "=v", kNone},
    {"k#=v", 1, "k#", "v", kNone},
    {"\tk\t=\t'x y'\t#\tz", 1, "k", "x y", "\tz"},
    {"k=v\r;c", 1, "k", "v", kNone},                // CR is a line end
    {"k=\"a\r\nb\";c", 1, "k", "a\r\nb", "c"},      // a quote ends only at its quote or NUL
    {"k=v\x01w", 1, "k", "v\x01w", kNone},          // other control bytes are ordinary
    {"[net]", 0, "net", kNone, kNone},
    {"  [net] trailing ; junk", 0, "net", kNone, kNone},
    {"[a b]", 0, "a b", kNone, kNone},
    {"[a%5Db]  ;x", 0, "a]b", kNone, kNone},
    {"[%5b%5D]", 0, "[]", kNone, kNone},
    {"[a=b;c#d]", 0, "a=b;c#d", kNone, kNone},
    {"[a%00b]", 0, "a", kNone, kNone},
    {"[]", 0, "", kNone, kNone},
    {"[[x]", 0, "[x", kNone, kNone},
};

const char* const kNothing[] = {
    "", "   ", "\t", "\r\n", "# k=v", "  ; k=v", "nokey", "k%zz=1", "k%4=1", "k%=1", "k\r=v", "%3D", "\n=1",
    "[abc", "[", "[a%zz]", "[a%5", "[a%", "[a\r]", "[a%5D",
};

TEST(ParseLine, LineKinds)
{
    for (const Case& c : kCases) {
        for (bool wantComment : {true, false}) {
            const Parsed p = parse(c.line, "=", wantComment);
            ASSERT_EQ(p.result, c.result) << c.line;
            expectText(p.hasKey, p.key, c.key, c.line, "key");
            expectText(p.hasValue, p.value, c.value, c.line, "value");
            expectText(p.hasComment, p.comment, wantComment ? c.comment : kNone, c.line, "comment");
        }
    }
    for (const char* line : kNothing) {
        const Parsed p = parse(line);
        EXPECT_EQ(p.result, -1) << line;
        EXPECT_FALSE(p.hasKey || p.hasValue || p.hasComment) << line;
    }
}

TEST(ParseLine, ArgumentsAndSeparatorSets)
{
    char* key = reinterpret_cast<char*>(0x1);
    char* value = reinterpret_cast<char*>(0x1);
    char* comment = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(mCONF_ParseLine(nullptr, &key, &value, &comment, "="), -1);
    EXPECT_TRUE(key == nullptr && value == nullptr && comment == nullptr) << "set to null first";
    EXPECT_EQ(mCONF_ParseLine("k=v", nullptr, &value, &comment, "="), -1);
    EXPECT_EQ(mCONF_ParseLine("k=v", &key, nullptr, &comment, "="), -1);
    EXPECT_EQ(parse("k=v", nullptr).result, -1) << "no separator set, no item";
    EXPECT_EQ(parse("[g]", nullptr).result, 0);

    EXPECT_EQ(parse("a:b=c", ":=").value, "b=c") << "the first separator of the line";
    EXPECT_EQ(parse("a=b:c", ":=").value, "b:c");
    EXPECT_EQ(parse("key: value", ":").key, "key");
    EXPECT_EQ(parse("k=v", ":").result, -1);
}

// A line far beyond the reader's 255 bytes, given straight to the parser:
// each field is cut at 259 bytes and the scan still finds what follows.
TEST(ParseLine, LongFieldsAreCutNotOverrun)
{
    const std::string k(400, 'k'), v(400, 'v'), c(400, 'c');
    Parsed p = parse((k + "=" + v + " ;" + c).c_str());
    EXPECT_EQ(p.key, std::string(259, 'k'));
    EXPECT_EQ(p.value, std::string(259, 'v'));
    EXPECT_EQ(p.comment, std::string(259, 'c'));
    p = parse(("k=\"" + v + "\";tail").c_str());
    EXPECT_EQ(p.value.size(), 259u);
    EXPECT_EQ(p.comment, "tail");
    std::string escapes;
    for (int i = 0; i < 300; ++i)
        escapes += "%41";
    EXPECT_EQ(parse(("[" + escapes + "]").c_str()).key, std::string(259, 'A'));
    EXPECT_EQ(parse((escapes + "%zz=1").c_str()).result, -1) << "a bad escape past the cut still voids the line";
}

} // namespace
