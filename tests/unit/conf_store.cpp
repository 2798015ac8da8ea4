// mCONF's store: lookups, updates in place, "COMMAND", typed reads, the index
// against a plain model, and the file calls.
#include "../../conf/confstore.h"
#include "mconf.h"
#include "mfile.h"
#include "vxtest.h"

#include <climits>
#include <csignal>
#include <sstream>
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

// Runs fn in a child (for limits and identities): its exit status. The
// child ends with exit, so that coverage counts of a coverage build are kept.
int inChild(const std::function<int()>& fn)
{
    const pid_t pid = fork();
    if (pid == 0)
        exit(fn());
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
    // The library's own steps: groups added through a lone group, or through
    // a later group of a store, keep the lists and the lookups whole.
    tConfGroup* lone = mCONF_AddGroup(nullptr, "lone");
    mCONF_AddItem(lone, "k", "1", nullptr);
    mCONF_AddItem(lone, "k", "2", nullptr);
    EXPECT_EQ(mCONF_AddGroup(lone, "tail"), lone->next);
    EXPECT_EQ(items(lone) + lone->next->name, "k=2 tail");
    mCONF_Free(lone);
    root = mCONF_New();
    tConfGroup* a = mCONF_AddGroup(root, "a");
    mCONF_AddGroup(root, "b");
    tConfGroup* c = mCONF_AddGroup(a, "c");
    EXPECT_EQ(mCONF_AddGroup(a, "b"), mCONF_GetGroup(root, "b"));
    EXPECT_EQ(mCONF_GetGroup(root, "c"), c);
    EXPECT_EQ(mCONF_GetGroup(c, "a"), nullptr) << "a lookup from a later group walks from there";
    mCONF_Free(root);
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

// mCONF_FileWrite of "[g] k=v" in a fresh directory d: the setting up, the
// path written, whether another user writes it (or, with a file-size limit,
// a full disk is met), the result and code, and then "file=content" ('*' is
// the new text) of each file named.
const struct {
    const char* setUp; // "file=content" writes, "name>target" links, "name/" a directory
    const char* path;
    char who; // 'r' this process, 'n' another user, 'f' a full disk
    int result, code;
    const char* after;
} kWrites[] = {
    {"a=old", "a", 'r', 0, 0, "a=*"},
    {"a=old link>a", "link", 'r', 0, 0, "a=*"},
    {"dangling>new", "dangling", 'r', 0, 0, "new=*"},
    {"a=old a+b", "a", 'r', 0, 0, "b=*"},
    {"loop>loop", "loop", 'r', -1, 1, ""},
    {"d/", "d", 'r', -1, 1, ""},
    {"", "no/a", 'r', -1, 1, ""},
    {"a=old", "a", 'f', -1, 2, "a=old"},
    {"sub/ sub/a=old", "sub/a", 'n', 0, 0, "sub/a=*"},
};

TEST(ConfFiles, ReadAndWrite)
{
    const std::string text = "[g]\r\nk=\"v\"\r\n\r\n";
    EXPECT_EQ(mCONF_FileRead("/no/such/file"), nullptr);
    EXPECT_EQ(vFILE_Errno, 1);
    for (const auto& w : kWrites) {
        TempDir t;
        chmod(t.path.c_str(), 0755);
        const std::string d = t.path + "/";
        std::istringstream steps(w.setUp);
        for (std::string s; steps >> s;) {
            const size_t at = std::min(s.find_first_of("=>+"), s.size() - 1); // else "dir/"
            const std::string name = d + s.substr(0, at), rest = s.substr(at + 1);
            if (s[at] == '=')
                writeFile(name, rest);
            else if (s[at] == '>')
                symlink(rest.c_str(), name.c_str());
            else if (s[at] == '+')
                link(name.c_str(), (d + rest).c_str());
            else
                mkdir(name.c_str(), 0755);
            chmod(name.c_str(), s[at] == '/' ? 0755 : 02646);
        }
        auto write = [&] {
                      tConfGroup* root = mCONF_BufRead("[g]\nk=v\n");
                      const struct rlimit lim = {8, 8};
                      signal(SIGXFSZ, SIG_IGN);
                      if ((w.who == 'n' && (setgid(65534) != 0 || setuid(65534) != 0)) ||
                          (w.who == 'f' && setrlimit(RLIMIT_FSIZE, &lim) != 0))
                          return 99;
                      const int result = (mCONF_FileWrite(root, (d + w.path).c_str()) + 1) * 10 + vFILE_Errno;
                      mCONF_Free(root);
                      return result;
        };
        EXPECT_EQ(w.who == 'r' ? write() : inChild(write), (w.result + 1) * 10 + w.code) << w.setUp << " " << w.path;
        std::istringstream after(w.after);
        for (std::string check; after >> check;) {
            const std::string name = d + check.substr(0, check.find('='));
            EXPECT_EQ(readFile(name), check.back() == '*' ? text : check.substr(check.find('=') + 1)) << check;
            // An old file keeps its mode (a write by another user drops set-group-ID).
            struct stat st;
            const mode_t kept = w.who == 'n' ? 0777 : 07777;
            EXPECT_TRUE(strstr(w.setUp, (check.substr(0, check.find('=') + 1)).c_str()) == nullptr ||
                        (stat(name.c_str(), &st) == 0 && (st.st_mode & kept) == (02646 & kept)))
                << check << " keeps its mode";
        }
    }
}
