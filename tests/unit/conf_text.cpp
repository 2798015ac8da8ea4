// mCONF's text form: pairs of files under tests/data/conf/ (NAME.in read,
// written, must equal NAME.out; NAME.out read again equals NAME.out2 if
// present, else itself), the line parser's own rules, and the writer's
// bounds.
#include "mconf.h"
#include "vxtest.h"

#include <filesystem>

namespace {

std::string canonical(tConfGroup* root)
{
    char* text = mCONF_BufWrite(root);
    std::string s = text != nullptr ? text : "(null)";
    free(text);
    mCONF_Free(root);
    return s;
}

std::string text(const char* s) { return s != nullptr ? s : "(null)"; }

} // namespace

TEST(ConfText, DataPairs)
{
    int pairs = 0;
    for (const auto& e : std::filesystem::directory_iterator(VX_TEST_DATA_DIR "/conf")) {
        if (e.path().extension() != ".in")
            continue;
        ++pairs;
        const std::string base = e.path().parent_path() / e.path().stem(), out = readFile(base + ".out");
        EXPECT_EQ(canonical(mCONF_BufRead(readFile(base + ".in").c_str())), out) << base;
        EXPECT_EQ(canonical(mCONF_FileRead((base + ".in").c_str())), out) << base;
        const std::string second = std::filesystem::exists(base + ".out2") ? readFile(base + ".out2") : out;
        EXPECT_EQ(canonical(mCONF_BufRead(out.c_str())), second) << base;
    }
    EXPECT_GT(pairs, 0) << "no pairs of files found";
}

TEST(ConfText, ParseLineAndWriter)
{
    // The rules the pairs of files do not show: separator sets, quotes, CR
    // and NUL in fields, and the arguments. Each row: line, separators,
    // result, then key (also a head's name), value and comment, null: none.
    const std::tuple<const char*, const char*, int, const char*, const char*, const char*> kLines[] = {
        {"  k = v ; c", "=", 1, "k", "v", " c"},
        {"k=\"a b\"\t;c", "=", 1, "k", "a b", "c"},
        {"k=a b #c", "=", 1, "k", "a", "c"},
        {"k=#c", "=", 1, "k", "", "c"},
        {"k=;", "=", 1, "k", "", ""},
        {"k=\"abc", "=", 1, "k", "abc", nullptr},
        {"k=\"a\"junk;c", "=", 1, "k", "a", "c"},
        {"a b=1", "=", 1, "a", "1", nullptr},
        {"=1", "=", 1, "", "1", nullptr},
        {"k%20x=%41", "=", 1, "k x", "%41", nullptr},
        {"k%zz=1", "=", -1, nullptr, nullptr, nullptr},
        {"nokey", "=", -1, nullptr, nullptr, nullptr},
        {"k=\"it's; #=%\"", "=", 1, "k", "it's; #=%", nullptr},
        {"k='say \"hi\"' ;c", "=", 1, "k", "say \"hi\"", "c"},
        {"k=\"a\" ; c ; d # e ", "=", 1, "k", "a", " c ; d # e "},
        {"k=\"a\r\nb\";c", "=", 1, "k", "a\r\nb", "c"},
        {"k=v\r;c", "=", 1, "k", "v", nullptr},
        {"k%00x=v", "=", 1, "k", "v", nullptr},
        {"k%3d%5B=1", "=", 1, "k=[", "1", nullptr},
        {"k==v", "=", 1, "k", "=v", nullptr},
        {"a:b=c", ":=", 1, "a", "b=c", nullptr},
        {"key: value", ":", 1, "key", "value", nullptr},
        {"[a%00b] ;x", "=", 0, "a", nullptr, nullptr},
        {"[[x]", nullptr, 0, "[x", nullptr, nullptr},
        {"k=v", nullptr, -1, nullptr, nullptr, nullptr},
        {"k=v", ":", -1, nullptr, nullptr, nullptr},
        {"k%4=1", "=", -1, nullptr, nullptr, nullptr},
        {"[a%5D", "=", -1, nullptr, nullptr, nullptr},
        {"[a\r]", "=", -1, nullptr, nullptr, nullptr},
        {nullptr, "=", -1, nullptr, nullptr, nullptr},
    };
    for (const auto& [line, seps, result, key, value, comment] : kLines) {
        for (bool wantComment : {true, false}) {
            char *k = nullptr, *v = nullptr, *c = nullptr;
            const int got = mCONF_ParseLine(line, &k, &v, wantComment ? &c : nullptr, seps);
            EXPECT_EQ(seq({got}) + text(k) + "|" + text(v) + "|" + text(c),
                      seq({result}) + text(key) + "|" + text(value) + "|" + text(wantComment ? comment : nullptr))
                << text(line);
            for (char* p : {k, v, c})
                free(p);
        }
    }
    char *pk = nullptr, *pv = nullptr, *pc = nullptr;
    EXPECT_EQ(mCONF_ParseLine("k=v", nullptr, &pv, nullptr, "=") + mCONF_ParseLine("k=v", &pk, nullptr, nullptr, "="),
              -2);
    // A field beyond the reader's 255 bytes is cut at 259; the scan goes on.
    const std::string k(400, 'k'), val(400, 'v'), c(400, 'c');
    EXPECT_EQ(mCONF_ParseLine((k + "=\"" + val + "\" ;" + c).c_str(), &pk, &pv, &pc, "="), 1);
    EXPECT_EQ(std::string(pk) + pv + pc, k.substr(141) + val.substr(141) + c.substr(141));
    for (char* p : {pk, pv, pc})
        free(p);
    // Fields beyond the line limit are written whole: measuring and writing
    // agree on the size.
    tConfGroup* root = mCONF_New();
    const std::string big(100000, 'v');
    mCONF_SetValue(root, std::string(3000, ']').c_str(), std::string(2000, ' ').c_str(), big.c_str(), big.c_str());
    TempDir t;
    EXPECT_EQ(mCONF_FileWrite(root, (t.path + "/big").c_str()) + mCONF_FileWrite(root, "/"), -1);
    EXPECT_EQ(readFile(t.path + "/big").size(), 1 + 3 * 3000 + 3 + 3 * 2000 + 2 + 100000 + 1 + 2 + 100000 + 2 + 2);
    EXPECT_EQ(canonical(root), readFile(t.path + "/big"));
    EXPECT_EQ(mCONF_FileRead(nullptr), nullptr);
    const char* in = "top=1\n[a]\nx=2 ;dropped\n[b]\nx=3\ny='q r'\n";
    EXPECT_EQ(canonical(readBuf(in, "only")), "[only]\r\ntop=\"1\"\r\nx=\"3\"\r\ny=\"q r\"\r\n\r\n");
    root = readBuf(in, nullptr);
    EXPECT_STREQ(mCONF_GetValue(root, nullptr, "y"), "q r");
    EXPECT_EQ(canonical(root), "");
    EXPECT_EQ(canonical(nullptr) + canonical(mCONF_BufRead(nullptr)), "");
}
