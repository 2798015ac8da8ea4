// mCONF text form: reader/writer cases as pairs of files, the writer's
// canonical form and escapes, and the byte-identical round trip of
// canonical texts on seeded random stores.
#include "../../conf/confstore.h"
#include "mconf.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <random>
#include <string>
#include <vector>

using confsupport::readFile;

namespace {

std::string write(tConfGroup* root)
{
    char* text = mCONF_BufWrite(root);
    EXPECT_NE(text, nullptr);
    std::string s = text != nullptr ? text : "";
    free(text);
    return s;
}

std::string readAndWrite(const std::string& text)
{
    tConfGroup* root = mCONF_BufRead(text.c_str());
    EXPECT_NE(root, nullptr);
    std::string out = write(root);
    mCONF_Free(root);
    return out;
}

// Shows control bytes, so that a failed comparison can be read.
std::string visible(const std::string& s)
{
    std::string v;
    for (unsigned char c : s) {
        if (c == '\r')
            v += "\\r";
        else if (c == '\n')
            v += "\\n\n";
        else if (c == '\t')
            v += "\\t";
        else if (c < 0x20 || c >= 0x7f) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", c);
            v += hex;
        } else
            v += static_cast<char>(c);
    }
    return v;
}

// ---- Pairs of files ---------------------------------------------------------
// tests/data/conf/NAME.in is read and written; the text must equal NAME.out.
// NAME.out, read and written once more, must equal NAME.out2 if that exists
// (the known losses of a second reading), else NAME.out itself.

const std::string kDataDir = VX_TEST_DATA_DIR "/conf";

std::vector<std::string> caseNames()
{
    std::vector<std::string> names;
    if (DIR* d = opendir(kDataDir.c_str())) {
        while (struct dirent* e = readdir(d)) {
            const std::string n = e->d_name;
            if (n.size() > 3 && n.compare(n.size() - 3, 3, ".in") == 0)
                names.push_back(n.substr(0, n.size() - 3));
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ConfPair : public ::testing::TestWithParam<std::string> {};

TEST_P(ConfPair, ReadsAndWritesTheExpectedText)
{
    const std::string base = kDataDir + "/" + GetParam();
    bool ok = false;
    const std::string input = readFile(base + ".in", &ok);
    ASSERT_TRUE(ok);
    const std::string expected = readFile(base + ".out", &ok);
    ASSERT_TRUE(ok) << "missing " << base << ".out";

    const std::string got = readAndWrite(input);
    EXPECT_EQ(got, expected) << "got:\n" << visible(got) << "\nexpected:\n" << visible(expected);

    // The file reader gives the same store.
    tConfGroup* fromFile = mCONF_FileRead((base + ".in").c_str());
    ASSERT_NE(fromFile, nullptr);
    EXPECT_EQ(write(fromFile), expected);
    mCONF_Free(fromFile);

    bool hasSecond = false;
    const std::string second = readFile(base + ".out2", &hasSecond);
    const std::string again = readAndWrite(expected);
    EXPECT_EQ(again, hasSecond ? second : expected) << "second reading:\n" << visible(again);
}

INSTANTIATE_TEST_SUITE_P(Data, ConfPair, ::testing::ValuesIn(caseNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

TEST(ConfPairs, ThereAreCases) { EXPECT_GE(caseNames().size(), 10u); }

// ---- The writer -----------------------------------------------------------

TEST(ConfWriter, CanonicalForm)
{
    struct Item {
        const char* group;
        const char* key;
        const char* value;
        const char* comment;
    };
    struct Case {
        const char* what;
        std::vector<Item> items; // key null: only make the group
        const char* text;
    } cases[] = {
        {"empty store", {}, ""},
        {"group without items", {{"a", nullptr, nullptr, nullptr}}, "[a]\r\n\r\n"},
        {"only root items", {{"", "k", "v", "c"}, {nullptr, "q", "w", nullptr}}, ""},
        {"item and comment", {{"g", "k", "v", "c"}}, "[g]\r\nk=\"v\"\t;c\r\n\r\n"},
        {"empty comment", {{"g", "k", "v", ""}}, "[g]\r\nk=\"v\"\t;\r\n\r\n"},
        {"empty value", {{"g", "k", "", nullptr}}, "[g]\r\nk=\"\"\r\n\r\n"},
        {"escapes in names and keys", {{"a [b]", "k [x] y", "v [ ]", " ; "}},
         "[a%20%5Bb%5D]\r\nk%20%5Bx%5D%20y=\"v [ ]\"\t; ; \r\n\r\n"},
        {"'%' and '=' are not escaped", {{"50%", "a=b%", "%20", nullptr}}, "[50%]\r\na=b%=\"%20\"\r\n\r\n"},
        {"quotes copied unchanged", {{"g", "k", "say \"hi\"", "it's"}}, "[g]\r\nk=\"say \"hi\"\"\t;it's\r\n\r\n"},
        {"groups and items in order",
         {{"b", "2", "x", nullptr}, {"a", "1", "y", nullptr}, {"b", "1", "z", nullptr}, {"b", "2", "w", "late"}},
         "[b]\r\n2=\"w\"\r\n1=\"z\"\r\n\r\n[a]\r\n1=\"y\"\r\n\r\n"},
        {"COMMAND duplicates", {{"COMMAND", "x", "1", nullptr}, {"COMMAND", "x", "2", nullptr}},
         "[COMMAND]\r\nx=\"1\"\r\nx=\"2\"\r\n\r\n"},
    };
    for (const Case& c : cases) {
        tConfGroup* root = mCONF_New();
        for (const Item& it : c.items) {
            if (it.key == nullptr)
                mCONF_AddGroup(root, it.group);
            else
                mCONF_SetValue(root, it.group, it.key, it.value, it.comment);
        }
        EXPECT_EQ(write(root), c.text) << c.what;
        mCONF_Free(root);
    }
    char* empty = mCONF_BufWrite(nullptr);
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    free(empty);
}

TEST(ConfWriter, SizeIsExactForLongFields)
{
    // Fields far beyond the line limit are written whole (the reader would
    // cut them); the measuring pass must agree with the writing pass.
    tConfGroup* root = mCONF_New();
    const std::string big(100000, 'v');
    const std::string name(3000, ']');
    mCONF_SetValue(root, name.c_str(), std::string(2000, ' ').c_str(), big.c_str(), big.c_str());
    const std::string text = write(root);
    EXPECT_EQ(text.size(), 1 + 3 * 3000 + 3 + 3 * 2000 + 2 + 100000 + 1 + 2 + 100000 + 2 + 2);
    mCONF_Free(root);
}

TEST(ConfReader, ReadBufTakesItemsIntoOneGroup)
{
    const char* text = "top=1\n[a]\nx=2 ;dropped\n[b]\nx=3\ny='q r'\n# c\n";
    tConfGroup* root = readBuf(text, "only");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(write(root), "[only]\r\ntop=\"1\"\r\nx=\"3\"\r\ny=\"q r\"\r\n\r\n");
    EXPECT_EQ(mCONF_GetGroup(root, "a"), nullptr) << "heads are ignored";
    EXPECT_EQ(mCONF_GetItem(mCONF_GetGroup(root, "only"), "x")->comment, nullptr);
    mCONF_Free(root);

    // A null group name puts them in the root, which is not written.
    root = readBuf(text, nullptr);
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(mCONF_GetValue(root, nullptr, "y"), "q r");
    EXPECT_EQ(write(root), "");
    mCONF_Free(root);

    root = readBuf(nullptr, "g");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(write(root), "[g]\r\n\r\n");
    mCONF_Free(root);
}

TEST(ConfReader, NullAndOddTexts)
{
    tConfGroup* root = mCONF_BufRead(nullptr);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->next, nullptr);
    mCONF_Free(root);
    // Only line ends, a lone '[' at the very end, a '%' at the very end.
    for (const char* text : {"\r\n\r\n\n", "[", "[g]\nk%", "[g]\nk=\"", "[g%", "\t \t"}) {
        root = mCONF_BufRead(text);
        ASSERT_NE(root, nullptr) << text;
        mCONF_Free(root);
    }
}

TEST(ConfReader, ItemsAheadOfAHeadAreLostOnWrite)
{
    tConfGroup* root = mCONF_BufRead("early=1\n[g]\nk=v\n");
    EXPECT_STREQ(mCONF_GetValue(root, "", "early"), "1");
    mCONF_SetValue(root, "g", "k", "w", nullptr);
    EXPECT_EQ(write(root), "[g]\r\nk=\"w\"\r\n\r\n");
    mCONF_Free(root);
}

// ---- Round trip -------------------------------------------------------------
// A canonical text read and written again is byte-identical when names hold
// no '%', CR, LF; keys no '%', '=', tab, CR, LF and do not start with ';' or
// '#'; values no '"', CR, LF; comments no CR, LF; and no line passes 255
// bytes. Random stores within those bounds, seeded so a failure repeats.

struct RandomText {
    std::mt19937 rng;
    explicit RandomText(unsigned seed) : rng(seed) {}

    size_t below(size_t n) { return rng() % n; }

    // A byte from 1..255 that is not in `banned`; bias towards the bytes
    // that matter to the format.
    char byte(const char* banned)
    {
        static const char interesting[] = "[] \t;#='\"%=\x01\x7f\xe9\xff";
        for (;;) {
            const char c = below(3) == 0 ? interesting[below(sizeof interesting - 1)]
                                         : static_cast<char>(1 + below(255));
            if (strchr(banned, c) == nullptr)
                return c;
        }
    }

    std::string text(size_t maxLen, const char* banned)
    {
        std::string s;
        const size_t n = below(maxLen + 1);
        for (size_t i = 0; i < n; ++i)
            s += byte(banned);
        return s;
    }
};

size_t escapedSize(const std::string& s)
{
    size_t n = 0;
    for (char c : s)
        n += (c == '[' || c == ']' || c == ' ') ? 3 : 1;
    return n;
}

struct Snapshot {
    std::vector<std::string> lines; // one line per group and item
};

Snapshot snapshot(tConfGroup* root)
{
    Snapshot s;
    for (tConfGroup* g = root->next; g != nullptr; g = g->next) {
        s.lines.push_back(std::string("group ") + g->name);
        for (tConfItem* it = g->items; it != nullptr; it = it->next)
            s.lines.push_back(std::string(it->key) + "\x1f" + it->value + "\x1f" +
                              (it->comment != nullptr ? std::string("c:") + it->comment : std::string("none")));
    }
    return s;
}

TEST(ConfRoundTrip, CanonicalTextIsAFixedPoint)
{
    for (unsigned seed = 1; seed <= 60; ++seed) {
        RandomText r(seed);
        tConfGroup* root = mCONF_New();
        const size_t groups = 1 + r.below(12);
        for (size_t g = 0; g < groups; ++g) {
            std::string name;
            do {
                name = g % 4 == 0 ? "COMMAND" : r.text(40, "%\r\n");
            } while (name.empty());
            const size_t items = r.below(15);
            if (items == 0) {
                ASSERT_NE(mCONF_AddGroup(root, name.c_str()), nullptr);
            }
            for (size_t i = 0; i < items; ++i) {
                std::string key;
                do {
                    key = r.below(10) == 0 ? std::string() : r.text(30, "%=\t\r\n");
                } while (!key.empty() && (key[0] == ';' || key[0] == '#'));
                if (r.below(4) == 0 && i > 0)
                    key = "dup"; // repeated keys: updates, or more lines in COMMAND
                const std::string value = r.text(r.below(6) == 0 ? 200 : 40, "\"\r\n");
                const bool hasComment = r.below(2) == 0;
                const std::string comment = r.text(40, "\r\n");
                // Keep every output line within 255 bytes.
                const size_t line = escapedSize(key) + 3 + value.size() + (hasComment ? 2 + comment.size() : 0);
                if (line > 255 || escapedSize(name) + 2 > 255)
                    continue;
                ASSERT_NE(mCONF_SetValue(root, name.c_str(), key.c_str(), value.c_str(),
                                         hasComment ? comment.c_str() : nullptr),
                          nullptr);
            }
        }
        // Root items are never written.
        mCONF_SetValue(root, "", "rootkey", "rootvalue", nullptr);

        const std::string first = write(root);
        tConfGroup* back = mCONF_BufRead(first.c_str());
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(snapshot(back).lines, snapshot(root).lines) << "seed " << seed;
        EXPECT_EQ(write(back), first) << "seed " << seed << "\n" << visible(first);
        EXPECT_EQ(back->items, nullptr);
        mCONF_Free(back);
        mCONF_Free(root);
    }
}

} // namespace
