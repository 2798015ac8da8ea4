// mCONF's store: lookups, updates in place, "COMMAND", typed reads, the index
// against a plain model, and the file calls.
#include "mconf.h"
#include "mfile.h"
#include "vxtest.h"

#include <climits>
#include <filesystem>
#include <map>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

std::string items(tConfGroup* g)
{
    std::string s;
    for (tConfItem* it = g != nullptr ? g->items : nullptr; it != nullptr; it = it->next)
        s += std::string(it->key) + "=" + it->value + (it->comment ? std::string(";") + it->comment : "") + " ";
    return s;
}

std::string captured(const std::function<void()>& fn)
{
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return unstamped(testing::internal::GetCapturedStdout());
}

// Runs fn in a child (for limits and identities): its exit status.
int inChild(const std::function<int()>& fn)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(fn());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(ConfStore, LookupsUpdatesAndCommand)
{
    tConfGroup* root = mCONF_New();
    EXPECT_EQ(mCONF_GetGroup(root, nullptr), root);
    EXPECT_EQ(mCONF_GetGroup(root, ""), root);
    mCONF_SetValue(root, nullptr, "r", "0", nullptr);
    tConfItem* first = mCONF_SetValue(root, "g", "a", "1", "first");
    mCONF_SetValue(root, "g", "b", "2", nullptr);
    EXPECT_EQ(mCONF_SetValue(root, "g", "a", mCONF_GetValue(root, "g", "b"), "second"), first);
    mCONF_SetValue(root, "COMMAND", "x", "1", nullptr);
    mCONF_SetValue(root, "COMMAND", "x", "2", nullptr);
    mCONF_SetValue(root, "command", "x", "1", nullptr);
    mCONF_SetValue(root, "command", "x", "2", nullptr);
    EXPECT_EQ(items(root), "r=0 ");
    EXPECT_EQ(items(mCONF_GetGroup(root, "g")), "a=2;first b=2 ");
    EXPECT_EQ(items(mCONF_GetGroup(root, "COMMAND")), "x=1 x=2 ");
    EXPECT_EQ(items(mCONF_GetGroup(root, "command")), "x=2 ");
    EXPECT_STREQ(mCONF_GetItem(mCONF_GetGroup(root, "COMMAND"), "x")->value, "1");
    // A null key or value still makes the group, and gives null.
    EXPECT_EQ(mCONF_SetValue(root, "made", nullptr, "v", nullptr), nullptr);
    EXPECT_NE(mCONF_GetGroup(root, "made"), nullptr);
    EXPECT_EQ(mCONF_GetGroup(root, "G"), nullptr);
    EXPECT_EQ(mCONF_SetValue(nullptr, "g", "k", "v", nullptr), nullptr);
    EXPECT_EQ(mCONF_GetItem(nullptr, "k"), nullptr);
    EXPECT_EQ(mCONF_GetValue(root, "g", nullptr), nullptr);
    EXPECT_EQ(captured([&] { printAllItemOfGroup(root, "g"); }), "group:g\n\t a=2\n\t b=2\n");
    EXPECT_EQ(captured([&] { EXPECT_EQ(printAllItemOfGroup(root, "none"), 0); }), "");
    mCONF_Free(root);
    EXPECT_EQ(mCONF_Free(nullptr), 0);
}

TEST(ConfStore, TypedReads)
{
    tConfGroup* root = mCONF_New();
    mCONF_SetValueInt(root, "g", "min", INT_MIN, nullptr);
    EXPECT_STREQ(mCONF_GetValue(root, "g", "min"), "-2147483648");
    mCONF_SetValue(root, "g", "n", "12abc", nullptr);
    EXPECT_EQ(captured([&] { EXPECT_EQ(mCONF_GetIntValue(root, "g", "n", 5), 12); }),
              "mCONF_GetIntValue, Section:g, Name:n, defaultValue:5, ptr:12abc.\n");
    EXPECT_EQ(captured([&] { EXPECT_EQ(mCONF_GetIntValue(root, "g", "x", 5), 5); }),
              "mCONF_GetIntValue, Section:g, Name:x, defaultValue:5, ptr is NULL.\n");
    const std::pair<const char*, int> hex[] = {{"0x1F", 31},    {"0X1f", 31},         {"0x", -5},
                                               {"1F", -5},      {"0x12Z3", 18},       {"0xffffffff", -1},
                                               {"00x1", -5},    {"0x123456789", 0x23456789}};
    for (const auto& h : hex) {
        mCONF_SetValue(root, "h", "v", h.first, nullptr);
        EXPECT_EQ(mCONF_GetHexaValue(root, "h", "v", -5), h.second) << h.first;
    }
    EXPECT_EQ(mCONF_GetHexaValue(root, "h", "none", -5), -5);
    char dst[16] = "untouched";
    EXPECT_STREQ(mCONF_GetStrValue(root, "g", "n", dst, "def"), "12abc");
    EXPECT_STREQ(mCONF_GetStrValue(root, "g", "x", dst, "def"), "def");
    EXPECT_EQ(mCONF_GetStrValue(root, "g", "x", dst, nullptr), nullptr);
    mCONF_Free(root);
}

// The index gives exactly what a plain model says, through seeded random
// sets across the size where a group goes from scanning to hashing.
TEST(ConfStore, IndexAgreesWithAModel)
{
    std::mt19937 rng(7);
    tConfGroup* root = mCONF_New();
    std::map<std::string, std::map<std::string, std::string>> model;
    for (int op = 0; op < 30000; ++op) {
        const std::string g = "g" + std::to_string(rng() % 300), k = "k" + std::to_string(rng() % 2000);
        mCONF_SetValue(root, g.c_str(), k.c_str(), std::to_string(op).c_str(), nullptr);
        model[g][k] = std::to_string(op);
    }
    for (int i = 0; i < 3000; ++i) {
        const std::string g = "g" + std::to_string(rng() % 310), k = "k" + std::to_string(rng() % 2010);
        const char* got = mCONF_GetValue(root, g.c_str(), k.c_str());
        const auto gi = model.find(g);
        const bool has = gi != model.end() && gi->second.count(k) > 0;
        EXPECT_EQ(got != nullptr ? got : "(null)", has ? gi->second[k] : "(null)") << g << " " << k;
    }
    mCONF_Free(root);
}

TEST(ConfFiles, ReadAndWrite)
{
    TempDir dir;
    const std::string f = dir.path + "/a.conf", canonical = "[g]\r\nk=\"v\"\r\n\r\n";
    tConfGroup* root = mCONF_BufRead("[g]\nk=v\n");
    EXPECT_EQ(mCONF_FileRead((dir.path + "/missing").c_str()), nullptr);
    EXPECT_EQ(vFILE_Errno, 1);
    writeFile(f, "old");
    chmod(f.c_str(), 02640);
    EXPECT_EQ(mCONF_FileWrite(root, f.c_str()), 0);
    EXPECT_EQ(readFile(f), canonical);
    struct stat st;
    stat(f.c_str(), &st);
    EXPECT_EQ(st.st_mode & 07777, 02640u);
    // A link is followed and stays a link; a dangling one makes its target.
    symlink("a.conf", (dir.path + "/link").c_str());
    symlink("new.conf", (dir.path + "/dangling").c_str());
    writeFile(f, "old");
    EXPECT_EQ(mCONF_FileWrite(root, (dir.path + "/link").c_str()), 0);
    EXPECT_EQ(mCONF_FileWrite(root, (dir.path + "/dangling").c_str()), 0);
    EXPECT_EQ(readFile(f) + readFile(dir.path + "/new.conf"), canonical + canonical);
    for (const std::string& bad : {dir.path + "/no/dir.conf", dir.path}) {
        EXPECT_EQ(mCONF_FileWrite(root, bad.c_str()), -1);
        EXPECT_EQ(vFILE_Errno, 1);
    }
    // A write that fails part-way (the file-size limit stands in for a full
    // disk) leaves the old file whole and no stray file beside it.
    writeFile(f, "old");
    EXPECT_EQ(inChild([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const struct rlimit lim = {64, 64};
                  setrlimit(RLIMIT_FSIZE, &lim);
                  mCONF_SetValue(root, "g", "k", std::string(200, 'x').c_str(), nullptr);
                  return mCONF_FileWrite(root, f.c_str()) == -1 && vFILE_Errno == 2 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(readFile(f), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), {}), 4);
    mCONF_Free(root);
}
