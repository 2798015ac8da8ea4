// The string helpers (line readers, word lists, comparisons), the file
// helpers with their result codes, and the log routines.
#include "mfile.h"
#include "mlog.h"
#include "mstring.h"
#include "vxtest.h"

#include <regex>

namespace {

// Every line a reader gives, joined by '|'.
std::string readAll(char* (*reader)(const char*, char*, int), const char* text, int size)
{
    std::string lines;
    std::vector<char> buf(static_cast<size_t>(size) + 1, '\0');
    for (const char* pos = text; pos != nullptr && *pos != '\0';)
        if ((pos = reader(pos, buf.data(), size)) != nullptr)
            lines += std::string(buf.data()) + "|";
    return lines;
}

// mFILE_ReadAlloc's size, -1 when it handed out no block.
int readAlloc(const std::string& path)
{
    char* block = reinterpret_cast<char*>(0x1);
    const int n = mFILE_ReadAlloc(path.c_str(), &block);
    const bool whole = block != nullptr && static_cast<int>(strlen(block)) == n;
    free(block);
    return whole ? n : -1;
}

} // namespace

TEST(Strings, ReadersWordListsAndComparisons)
{
    // Whether sgets (else strgets) reads, the text, the size, the lines.
    const std::tuple<bool, const char*, int, const char*> cases[] = {
        {false, "a\r\n\r\nb", 255, "a|b|"},
        {false, "abcdef\nx", 3, "abc|x|"},
        {false, "a\rb\nc\r\nd\n\re", 255, "a|b|c|d|e|"},
        {false, "", 255, ""},
        {true, "a\r\nb\n\rc\rd", 255, "a\r\n|b\n\r|c\r|d|"},
        {true, "a\n\nb", 255, "a\n|\n|b|"},
        {true, "abcdef\nxy", 3, "abc|xy|"},
        {true, "ab\r\nc", 3, "ab\r|c|"},
    };
    for (const auto& [sgetsReader, text, size, lines] : cases)
        EXPECT_EQ(readAll(sgetsReader ? sgets : strgets, text, size), lines) << text;
    char buf[8] = "#######";
    strgets("abc\nd", buf, 3);
    EXPECT_EQ(buf[3], '#') << "no terminator behind a full line";
    const std::tuple<const char*, const char*, char, int> ints[] = {
        {"title\n  Volume = 12\n", "volume", '=', 12},
        {"Volume = 12\n", "Volume", '=', -1},
        {"x\nVolumeMax = 1\nVolume = 2\n", "Volume", '=', -1},
        {"x\nkey\n=\n -42", "KEY", '=', -42},
    };
    for (const auto& [text, key, sep, want] : ints)
        EXPECT_EQ(strgetint(text, key, sep), want) << text;
    const char* const withGap[] = {"a", "", "b", nullptr};
    const char* const plain[] = {"one", "Two", nullptr};
    EXPECT_EQ(seq({strmcmp("ab", "a", "ab", nullptr), strmcmp2("ab", "abc", "a", nullptr),
                   strmcasecmp("AB", "a", "abc", "aB", nullptr), strmcmp(nullptr, "x", nullptr), strmcmpa("two", plain),
                   strmcasecmpa("two", plain)}),
              "1 1 2 -1 -1 1 ");
    EXPECT_EQ(strmcmpa("b", withGap), -1) << "the list ends at the empty string";
    const std::tuple<const char*, const char*, int, int, int> cmps[] = {{"abc", "ab", 99, -1, -1},
                                                                        {"ab", "abc", -99, 0, 0},
                                                                        {"aB", "Abc", 32, -1, 0},
                                                                        {"\xff", "a", 0xff - 'a', -1, -1}};
    for (const auto& [a, b, cmp1, prefix, folded] : cmps)
        EXPECT_EQ(seq({strcmp1(a, b), strcmp2(a, b), strcasecmp2(a, b)}), seq({cmp1, prefix, folded})) << a << " " << b;
    const char* h = "xaaBc";
    EXPECT_EQ(mstring::strcasestr(h, "AbC"), h + 2);
    char* s = strprint("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(strlen(s), 4094u);
    free(s);
    // Null and empty texts: no reading through, the documented results.
    const char* none = nullptr;
    EXPECT_EQ(std::vector<long>(
                  {strmcmp2(none, "a", none), strmcasecmpa(none, plain), strgetint(none, "k", '='),
                   strgetint("x\nk 1", "k", '='), strcmp1(none, "a"), strcmp2("a", none), (long)sgets(none, nullptr, 0),
                   (long)sgets("a\n", nullptr, 0), (long)strgets(none, nullptr, 0), strgets(h, nullptr, 0) - h,
                   (long)mstring::strcasestr(none, "a"), (long)mstring::strcasestr("", ""), (long)(*&strprint)(none)}),
              std::vector<long>({-1, -1, -1, -1, -97, -1, 0, 0, 0, 5, 0, 0, 0}));
}

TEST(Files, ResultsCodesAndFreeNames)
{
    TempDir t;
    writeFile(t.path + "/r", "0123456789");
    static char buf[64];
    // What, the call, its result, vFILE_Errno after (77 where the call leaves
    // it alone), the content of dir/f after the call (null: not looked at).
    const std::tuple<const char*, std::function<int(const std::string&)>, int, int, const char*> cases[] = {
        {"write", [](auto& d) { return mFILE_Write((d + "/f").c_str(), "new", 3); }, 0, 0, "new"},
        {"append", [](auto& d) { return mFILE_Append((d + "/f").c_str(), "+x", 2); }, 0, 0, "new+x"},
        {"write nothing", [](auto& d) { return mFILE_Write((d + "/f").c_str(), "x", -4); }, 0, 0, ""},
        {"write again", [](auto& d) { return mFILE_Write((d + "/f").c_str(), "new", 3); }, 0, 0, "new"},
        {"write no dir", [](auto& d) { return mFILE_Write((d + "/no/f").c_str(), "x", 1); }, -1, 1, nullptr},
        {"append full", [](auto&) { return mFILE_Append("/dev/full", "x", 1); }, -1, 2, nullptr},
        {"size", [](auto& d) { return mFILE_Size((d + "/r").c_str()); }, 10, 77, nullptr},
        {"size missing", [](auto& d) { return mFILE_Size((d + "/m").c_str()); }, -1, 1, nullptr},
        {"check", [](auto& d) { return mFILE_Check((d + "/r").c_str()) * 10 + mFILE_Check(nullptr); }, 10, 77, nullptr},
        {"read part", [](auto& d) { return mFILE_Read((d + "/r").c_str(), buf, 4); }, 4, 0, nullptr},
        {"read more", [](auto& d) { return mFILE_Read((d + "/r").c_str(), buf, 32); }, 10, 0, nullptr},
        {"read none", [](auto& d) { return mFILE_Read((d + "/r").c_str(), buf, -3); }, -3, 0, nullptr},
        {"read dir", [](auto& d) { return mFILE_Read(d.c_str(), buf, 4); }, -1, 2, nullptr},
        {"read2 dir", [](auto& d) { return mFILE_Read2(d.c_str(), buf, 4); }, 0, 0, nullptr},
        {"read2 missing", [](auto& d) { return mFILE_Read2((d + "/m").c_str(), buf, 4); }, -1, 1, nullptr},
        {"alloc", [](auto& d) { return readAlloc(d + "/r"); }, 10, 0, nullptr},
        {"alloc missing", [](auto& d) { return readAlloc(d + "/m"); }, -1, 10, nullptr},
        {"alloc dir", [](auto& d) { return readAlloc(d); }, -1, 2, nullptr},
        {"open w", [](auto& d) { return close(mFILE_Open((d + "/f").c_str(), 'w')); }, 0, 77, ""},
        {"open missing", [](auto& d) { return mFILE_Open((d + "/m").c_str(), 'r'); }, -1, 77, nullptr},
    };
    for (const auto& [what, call, result, code, content] : cases) {
        vFILE_Errno = 77;
        EXPECT_EQ(seq({call(t.path), mFILE_Errno()}), seq({result, code})) << what;
        EXPECT_TRUE(content == nullptr || readFile(t.path + "/f") == content) << what;
    }
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    EXPECT_EQ(mFILE_WriteFd(fds[1], "abcdef", 6), 6);
    close(fds[1]);
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, 10), 6) << "stops at the end with what came";
    close(fds[0]);
    vFILE_Errno = 77;
    char* block = nullptr;
    EXPECT_EQ(std::vector<long>({mFILE_ReadFd(fds[0], nullptr, 4), mFILE_WriteFd(fds[1], buf, 0), mFILE_Check(nullptr),
                                 mFILE_Open(nullptr, 'r'), mFILE_ReadAlloc(nullptr, &block), vFILE_Errno,
                                 (long)mFILE_MksTemp(nullptr, 'X'), mFILE_OpenTmp(buf, '@')}),
              std::vector<long>({0, 0, 0, -1, 0, 77, 0, -1}));
    for (const char* f : {"/a0b0", "/k0", "/k1", "/k2", "/k3", "/k4", "/k5", "/k6", "/k7", "/k8", "/k9"})
        writeFile(t.path + f, "");
    const std::pair<const char*, const char*> names[] = {{"/plain", nullptr},
                                                         {"/d@/f@", "/d0/f0"},
                                                         {"/a@b@", "/a0b1"},
                                                         {"/~~~~~~~~~~", "/0000000000"},
                                                         {"/k@", nullptr}};
    for (const auto& [pattern, name] : names) {
        std::string p = t.path + pattern;
        EXPECT_EQ(mFILE_MksTemp(&p[0], pattern[1] == '~' ? '~' : '@') != nullptr, name != nullptr) << pattern;
        EXPECT_EQ(p, t.path + (name != nullptr ? name : pattern));
    }
    std::string p = t.path + "/tmp@@";
    EXPECT_EQ(mFILE_Close(mFILE_OpenTmp(&p[0], '@')), 0);
    EXPECT_EQ(p, t.path + "/tmp00");
}

TEST(Log, LinesDumpsAndClock)
{
    testing::internal::CaptureStdout();
    logPrt("%s", "");
    logPrt(">>> %s, n:%d", "x", 5);
    const unsigned char bytes[] = {0x00, 0x0f, 0xab};
    hex_dump(3, bytes);
    fflush(stdout);
    EXPECT_TRUE(std::regex_match(testing::internal::GetCapturedStdout(),
                                 std::regex(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] >>> x, n:5\n\t 0 \t f \t ab \n)")));
    const int32_t first = getTimeMs();
    msleep(100);
    EXPECT_GE(getTimeMs() - first, 99);
    EXPECT_LT(first, 2000);
}
