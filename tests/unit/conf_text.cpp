// mCONF text form: reader/writer cases as pairs of files, the writer's
// canonical form and escapes, and the byte-identical round trip of
// canonical texts on seeded random stores.
#include "../../conf/confstore.h"
#include "mconf.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <random>
#include <string>
#include <vector>

using confsupport::canonicalText;
using confsupport::readFile;
using confsupport::visible;

namespace {

std::string readAndWrite(const std::string& text)
{
    tConfGroup* root = mCONF_BufRead(text.c_str());
    EXPECT_NE(root, nullptr);
    const std::string out = canonicalText(root);
    mCONF_Free(root);
    return out;
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
    const std::string expected = readFile(base + ".out", &ok);
    ASSERT_TRUE(ok) << "missing " << base << ".out";
    const std::string got = readAndWrite(input);
    EXPECT_EQ(got, expected) << "got:\n" << visible(got) << "\nexpected:\n" << visible(expected);

    tConfGroup* fromFile = mCONF_FileRead((base + ".in").c_str());
    EXPECT_EQ(canonicalText(fromFile), expected) << "the file reader gives the same";
    mCONF_Free(fromFile);

    bool hasSecond = false;
    const std::string second = readFile(base + ".out2", &hasSecond);
    const std::string again = readAndWrite(expected);
    EXPECT_EQ(again, hasSecond ? second : expected) << "second reading:\n" << visible(again);
}

INSTANTIATE_TEST_SUITE_P(Data, ConfPair, ::testing::ValuesIn(caseNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

TEST(ConfPairs, ThereAreCases) { EXPECT_GE(caseNames().size(), 10u); }

// ---- The writer and readBuf -------------------------------------------------

TEST(ConfWriter, CanonicalForm)
{
    struct Item {
        const char* group;
        const char* key; // null: only make the group
        const char* value;
        const char* comment;
    };
    struct Case {
        std::vector<Item> items;
        const char* text;
    } cases[] = {
        {{}, ""},
        {{{"a", nullptr, nullptr, nullptr}}, "[a]\r\n\r\n"},
        {{{"", "k", "v", "c"}, {nullptr, "q", "w", nullptr}}, ""}, // the root is not written
        {{{"g", "k", "v", "c"}, {"g", "e", "", ""}}, "[g]\r\nk=\"v\"\t;c\r\ne=\"\"\t;\r\n\r\n"},
        {{{"a [b]", "k [x] y", "v [ ]", " ; "}}, "[a%20%5Bb%5D]\r\nk%20%5Bx%5D%20y=\"v [ ]\"\t; ; \r\n\r\n"},
        {{{"50%", "a=b%", "%20", nullptr}}, "[50%]\r\na=b%=\"%20\"\r\n\r\n"}, // '%' and '=' stay
        {{{"g", "k", "say \"hi\"", "it's"}}, "[g]\r\nk=\"say \"hi\"\"\t;it's\r\n\r\n"},
        {{{"b", "2", "x", nullptr}, {"a", "1", "y", nullptr}, {"b", "1", "z", nullptr}, {"b", "2", "w", "late"}},
         "[b]\r\n2=\"w\"\r\n1=\"z\"\r\n\r\n[a]\r\n1=\"y\"\r\n\r\n"},
    };
    for (const Case& c : cases) {
        tConfGroup* root = mCONF_New();
        for (const Item& it : c.items) {
            if (it.key == nullptr)
                mCONF_AddGroup(root, it.group);
            else
                mCONF_SetValue(root, it.group, it.key, it.value, it.comment);
        }
        EXPECT_EQ(canonicalText(root), c.text);
        mCONF_Free(root);
    }
    char* empty = mCONF_BufWrite(nullptr);
    EXPECT_STREQ(empty, "");
    free(empty);

    // Fields beyond the line limit are written whole: measuring and writing
    // must agree on the size.
    tConfGroup* root = mCONF_New();
    const std::string big(100000, 'v');
    mCONF_SetValue(root, std::string(3000, ']').c_str(), std::string(2000, ' ').c_str(), big.c_str(), big.c_str());
    EXPECT_EQ(canonicalText(root).size(), 1 + 3 * 3000 + 3 + 3 * 2000 + 2 + 100000 + 1 + 2 + 100000 + 2 + 2);
    mCONF_Free(root);
}

TEST(ConfReader, ReadBufAndOddTexts)
{
    const char* text = "top=1\n[a]\nx=2 ;dropped\n[b]\nx=3\ny='q r'\n# c\n";
    tConfGroup* root = readBuf(text, "only");
    EXPECT_EQ(canonicalText(root), "[only]\r\ntop=\"1\"\r\nx=\"3\"\r\ny=\"q r\"\r\n\r\n") << "heads ignored";
    EXPECT_EQ(mCONF_GetGroup(root, "a"), nullptr);
    mCONF_Free(root);
    root = readBuf(text, nullptr);
    EXPECT_STREQ(mCONF_GetValue(root, nullptr, "y"), "q r") << "a null name means the root";
    mCONF_Free(root);
    root = readBuf(nullptr, "g");
    EXPECT_EQ(canonicalText(root), "[g]\r\n\r\n");
    mCONF_Free(root);

    const std::pair<const char*, const char*> odd[] = {
        {nullptr, ""}, {"", ""}, {"\r\n\r\n\n", ""}, {"[", ""}, {"[g%", ""}, {"\t \t", ""},
        {"[g]\nk%", "[g]\r\n\r\n"}, {"[g]\nk=\"", "[g]\r\nk=\"\"\r\n\r\n"},
    };
    for (const auto& c : odd) {
        root = mCONF_BufRead(c.first);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(canonicalText(root), c.second) << visible(c.first ? c.first : "(null)");
        mCONF_Free(root);
    }
}

// ---- Round trip -------------------------------------------------------------
// A canonical text read and written again is byte-identical when names hold
// no '%', CR, LF; keys no '%', '=', tab, CR, LF and do not start with ';' or
// '#'; values no '"', CR, LF; comments no CR, LF; and no line passes 255
// bytes. Random stores within those bounds, seeded so a failure repeats.

std::string randomText(std::mt19937& rng, size_t maxLen, const char* banned)
{
    static const char interesting[] = "[] \t;#='\"%\x01\x7f\xe9\xff";
    std::string s;
    for (size_t n = rng() % (maxLen + 1); s.size() < n;) {
        const char c = rng() % 3 == 0 ? interesting[rng() % (sizeof interesting - 1)] : static_cast<char>(1 + rng() % 255);
        if (strchr(banned, c) == nullptr)
            s += c;
    }
    return s;
}

size_t escapedSize(const std::string& s)
{
    return s.size() + 2 * static_cast<size_t>(std::count_if(s.begin(), s.end(), [](char c) { return strchr("[] ", c) && c; }));
}

// Groups and items with every field, comment or none, as lines.
std::vector<std::string> snapshot(tConfGroup* root)
{
    std::vector<std::string> lines;
    for (tConfGroup* g = root->next; g != nullptr; g = g->next) {
        lines.push_back(std::string("group ") + g->name);
        for (tConfItem* it = g->items; it != nullptr; it = it->next)
            lines.push_back(std::string(it->key) + "|" + it->value + "|" + (it->comment ? std::string("c:") + it->comment : "none"));
    }
    return lines;
}

TEST(ConfRoundTrip, CanonicalTextIsAFixedPoint)
{
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 rng(seed);
        tConfGroup* root = mCONF_New();
        for (unsigned g = 0, groups = 1 + rng() % 12; g < groups; ++g) {
            std::string name;
            while (name.empty())
                name = g % 4 == 0 ? "COMMAND" : randomText(rng, 40, "%\r\n");
            ASSERT_NE(mCONF_AddGroup(root, name.c_str()), nullptr);
            for (unsigned i = 0, items = rng() % 15; i < items; ++i) {
                std::string key = rng() % 10 == 0 ? "" : randomText(rng, 30, "%=\t\r\n");
                if (!key.empty() && (key[0] == ';' || key[0] == '#'))
                    continue;
                if (rng() % 4 == 0)
                    key = "dup"; // updates, or more lines in COMMAND
                const std::string value = randomText(rng, rng() % 6 == 0 ? 200 : 40, "\"\r\n");
                const std::string comment = randomText(rng, 40, "\r\n");
                const bool hasComment = rng() % 2 == 0;
                if (escapedSize(key) + 3 + value.size() + (hasComment ? 2 + comment.size() : 0) > 255 ||
                    escapedSize(name) + 2 > 255)
                    continue; // keep every line within 255 bytes
                ASSERT_NE(mCONF_SetValue(root, name.c_str(), key.c_str(), value.c_str(), hasComment ? comment.c_str() : nullptr), nullptr);
            }
        }
        mCONF_SetValue(root, "", "rootkey", "rootvalue", nullptr); // never written

        const std::string first = canonicalText(root);
        tConfGroup* back = mCONF_BufRead(first.c_str());
        EXPECT_EQ(snapshot(back), snapshot(root)) << "seed " << seed;
        EXPECT_EQ(canonicalText(back), first) << "seed " << seed << "\n" << visible(first);
        mCONF_Free(back);
        mCONF_Free(root);
    }
}

} // namespace
