// mCONF's store: lookups, updates in place, "COMMAND", typed reads, the index
// against a plain model, and the file calls.
#include "../../conf/confstore.h"
#include "mconf.h"
#include "mfile.h"
#include "vxtest.h"

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <map>
#include <poll.h>
#include <random>
#include <sstream>
#include <sys/fanotify.h>
#include <sys/mount.h>
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

} // namespace

TEST(ConfStore, LookupsUpdatesTypedReadsAndIndex)
{
    tConfGroup* root = mCONF_New();
    EXPECT_EQ(mCONF_GetGroup(root, nullptr), root);
    EXPECT_EQ(mCONF_GetGroup(root, ""), root);
    mCONF_SetValue(root, nullptr, "r", "0", nullptr);
    tConfItem* first = mCONF_SetValue(root, "g", "a", "1", "first");
    mCONF_SetValue(root, "g", "b", "2", nullptr);
    EXPECT_EQ(mCONF_SetValue(root, "g", "a", mCONF_GetValue(root, "g", "b"), "second"), first);
    for (const char* g : {"COMMAND", "command"})
        for (const char* v : {"1", "2"})
            mCONF_SetValue(root, g, "x", v, nullptr);
    EXPECT_EQ(items(root) + "| " + items(mCONF_GetGroup(root, "g")) + "| " + items(mCONF_GetGroup(root, "COMMAND")) +
                  "| " + items(mCONF_GetGroup(root, "command")),
              "r=0 | a=2;first b=2 | x=1 x=2 | x=2 ");
    EXPECT_STREQ(mCONF_GetItem(mCONF_GetGroup(root, "COMMAND"), "x")->value, "1");
    // A null key or value still makes the group, and gives null.
    EXPECT_EQ(mCONF_SetValue(root, "made", nullptr, "v", nullptr), nullptr);
    EXPECT_NE(mCONF_GetGroup(root, "made"), nullptr);
    EXPECT_EQ(std::vector<const void*>({mCONF_GetGroup(root, "G"), mCONF_SetValue(nullptr, "g", "k", "v", nullptr),
                                        mCONF_GetItem(nullptr, "k"), mCONF_GetValue(root, "g", nullptr)}),
              std::vector<const void*>(4, nullptr));
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
    // Typed reads.
    mCONF_SetValueInt(root, "g", "min", INT_MIN, nullptr);
    EXPECT_STREQ(mCONF_GetValue(root, "g", "min"), "-2147483648");
    mCONF_SetValue(root, "g", "n", "12abc", nullptr);
    EXPECT_EQ(captured([&] { EXPECT_EQ(mCONF_GetIntValue(root, "g", "n", 5), 12); }),
              "mCONF_GetIntValue, Section:g, Name:n, defaultValue:5, ptr:12abc.\n");
    EXPECT_EQ(captured([&] { EXPECT_EQ(mCONF_GetIntValue(root, "g", "x", 5), 5); }),
              "mCONF_GetIntValue, Section:g, Name:x, defaultValue:5, ptr is NULL.\n");
    const std::pair<const char*, int> hex[] = {
        {"0x1F", 31},   {"0X1f", 31},       {"0x", -5},   {"1F", -5},
        {"0x12Z3", 18}, {"0xffffffff", -1}, {"00x1", -5}, {"0x123456789", 0x23456789}};
    for (const auto& h : hex) {
        mCONF_SetValue(root, "h", "v", h.first, nullptr);
        EXPECT_EQ(mCONF_GetHexaValue(root, "h", "v", -5), h.second) << h.first;
    }
    EXPECT_EQ(mCONF_GetHexaValue(root, "h", "none", -5), -5);
    char dst[16] = "untouched";
    EXPECT_STREQ(mCONF_GetStrValue(root, "g", "n", dst, "def"), "12abc");
    EXPECT_STREQ(mCONF_GetStrValue(root, "g", "x", dst, "def"), "def");
    EXPECT_EQ(mCONF_GetStrValue(root, "g", "x", dst, nullptr), nullptr);
    // The index gives exactly what a plain model says, through seeded random
    // sets across the size where a group goes from scanning to hashing.
    std::mt19937 rng(7);
    std::map<std::string, std::map<std::string, std::string>> model;
    for (int op = 0; op < 30000; ++op) {
        const std::string g = "g" + std::to_string(rng() % 300), k = "k" + std::to_string(rng() % 2000);
        mCONF_SetValue(root, g.c_str(), k.c_str(), (model[g][k] = std::to_string(op)).c_str(), nullptr);
    }
    for (int i = 0; i < 3000; ++i) {
        const std::string g = "g" + std::to_string(rng() % 310), k = "k" + std::to_string(rng() % 2010);
        const char* got = mCONF_GetValue(root, g.c_str(), k.c_str());
        EXPECT_EQ(got != nullptr ? got : "(null)", model[g].count(k) > 0 ? model[g][k] : "(null)") << g << " " << k;
    }
    mCONF_Free(root);
}

namespace {

// mCONF_FileWrite of "[g] k=v" into a directory set up by steps, each
// "name=text", "name>target" (a link), "name+other" (a hard link) or "name/"
// (a directory), optionally ":mode:uid:gid" (octal mode). The writer is this
// process ('r'), another user ('n', uid 65534: rows that need root), this
// process with a file-size limit ('f', a full disk) or with its renames
// failing with ENOSPC or EXDEV ('S', 'X'; every error but EXDEV and EBUSY
// fails as ENOSPC does), or beside a file mounted over itself ('B', EBUSY).
// Then the result and code, and the
// content of each file named ('*' the new text); every old file keeps its
// mode, owner and group, and no stray file is left.
const struct {
    const char* setUp;
    const char* path;
    char who;
    int result, code;
    const char* after;
} kWrites[] = {
    {"a=old:2646", "a", 'r', 0, 0, "a=*"},
    {"a=old link>a", "link", 'r', 0, 0, "a=*"},
    {"dangling>new", "dangling", 'r', 0, 0, "new=*"},
    {"a=old a+b", "a", 'r', 0, 0, "b=*"},
    {"loop>loop", "loop", 'r', -1, 1, ""},
    {"d/", "d", 'r', -1, 1, ""},
    {"", "no/a", 'r', -1, 1, ""},
    {"a=old", "a", 'f', -1, 2, "a=old"},
    {"a=old", "a", 'S', -1, 2, "a=old"},
    {"a=old", "a", 'X', 0, 0, "a=*"},
    {"a=old", "a", 'B', 0, 0, "a=*"},
    {"sub/:755 sub/a=old:646", "sub/a", 'n', 0, 0, "sub/a=*"},
    // Links in a sticky world-writable directory: followed only where the
    // kernel would follow them (the caller's, or the directory owner's).
    {"x=old t/:1777 t/x>../x::65534", "t/x", 'r', -1, 1, "x=old"},
    {"x=old t/:1777 t/x>../x", "t/x", 'r', 0, 0, "x=*"},
    {"x=old t/:1777:65534 t/x>../x::65534", "t/x", 'r', 0, 0, "x=*"},
    {"x=old t/:777 t/x>../x::65534", "t/x", 'r', 0, 0, "x=*"},
    // No more than an in-place write would grant.
    {"d/:777 d/x=old:644", "d/x", 'n', -1, 1, "d/x=old"},
    {"d/:777 d/x=old:444:65534:65534", "d/x", 'n', -1, 1, "d/x=old"},
    {"d/:777 d/x=old:666", "d/x", 'n', 0, 0, "d/x=*"},
    {"d/:777 d/x=old:664:65534:0", "d/x", 'n', 0, 0, "d/x=*"},
};

int g_renameErrno = 0; // when set, libmconf's renames fail with it

} // namespace

// libmconf's rename, found in this program before the C library's.
extern "C" int rename(const char* from, const char* to) noexcept
{
    errno = g_renameErrno;
    return g_renameErrno == 0 ? renameat(AT_FDCWD, from, AT_FDCWD, to) : -1;
}

TEST(ConfFiles, Write)
{
    EXPECT_EQ(mCONF_FileRead("/no/such/file"), nullptr);
    EXPECT_EQ(vFILE_Errno, 1);
    tConfGroup* root = mCONF_BufRead("[g]\nk=v\n");
    for (const auto& w : kWrites) {
        if ((w.who == 'n' || w.who == 'B' || strchr(w.setUp, ':') != nullptr) && geteuid() != 0) {
            std::cerr << "skipped (needs root for a second user): " << w.setUp << "\n";
            continue;
        }
        TempDir t;
        chmod(t.path.c_str(), 0755);
        const std::string d = t.path + "/";
        std::map<std::string, struct stat> before;
        std::istringstream steps(w.setUp);
        for (std::string s; steps >> s;) {
            std::vector<std::string> f(4);
            std::istringstream parts(s);
            for (auto& p : f)
                std::getline(parts, p, ':');
            const size_t at = std::min(f[0].find_first_of("=>+"), f[0].size() - 1);
            const std::string name = d + f[0].substr(0, at), rest = f[0].substr(at + 1);
            if (f[0][at] == '=')
                writeFile(name, rest);
            else if (f[0][at] == '>')
                symlink(rest.c_str(), name.c_str());
            else if (f[0][at] == '+')
                link(name.c_str(), (d + rest).c_str());
            else
                mkdir(name.c_str(), 0755);
            if (!f[1].empty())
                chmod(name.c_str(), std::stoi(f[1], nullptr, 8));
            lchown(name.c_str(), atoi(f[2].c_str()), atoi(f[3].c_str()));
        }
        for (const auto& e : std::filesystem::recursive_directory_iterator(t.path))
            lstat(e.path().c_str(), &before[e.path()]);
        if (w.who == 'B')
            mount((d + w.path).c_str(), (d + w.path).c_str(), nullptr, MS_BIND, nullptr);
        g_renameErrno = w.who == 'S' ? ENOSPC : w.who == 'X' ? EXDEV : 0;
        const pid_t pid = fork();
        if (pid == 0) { // ends with exit: a coverage build keeps the child's counts
            const struct rlimit lim = {8, 8};
            signal(SIGXFSZ, SIG_IGN);
            if ((w.who == 'n' && (setgroups(0, nullptr) != 0 || setresgid(65534, 65534, 65534) != 0 ||
                                  setresuid(65534, 65534, 65534) != 0)) ||
                (w.who == 'f' && setrlimit(RLIMIT_FSIZE, &lim) != 0))
                exit(99);
            const int result = mCONF_FileWrite(root, (d + w.path).c_str());
            exit((result + 1) * 10 + vFILE_Errno);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        g_renameErrno = 0;
        if (w.who == 'B')
            umount2((d + w.path).c_str(), MNT_DETACH);
        EXPECT_EQ(WEXITSTATUS(status), (w.result + 1) * 10 + w.code) << w.setUp << " " << w.path;
        std::istringstream after(w.after);
        size_t made = 0;
        for (std::string check; after >> check;) {
            const std::string name = d + check.substr(0, check.find('='));
            EXPECT_EQ(readFile(name),
                      check.back() == '*' ? "[g]\r\nk=\"v\"\r\n\r\n" : check.substr(check.find('=') + 1))
                << w.setUp << ": " << check;
            made += before.count(name) == 0;
        }
        for (const auto& [name, old] : before) {
            struct stat st {};
            EXPECT_TRUE(lstat(name.c_str(), &st) == 0 && st.st_mode == old.st_mode && st.st_uid == old.st_uid &&
                        st.st_gid == old.st_gid)
                << w.setUp << ": " << name << " keeps its mode, owner and group";
        }
        EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator(t.path), {}), before.size() + made)
            << w.setUp << ": a stray file";
    }
    mCONF_Free(root);
}

// The new file is private from its first byte: every open of a file in the
// directory waits (fanotify) until its mode has been seen.
TEST(ConfFiles, NewFileIsPrivateFromItsFirstByte)
{
    TempDir t;
    const std::string f = t.path + "/secret.conf";
    writeFile(f, "old");
    chmod(f.c_str(), 0600);
    const int fan = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY);
    if (fan < 0 || fanotify_mark(fan, FAN_MARK_ADD, FAN_OPEN_PERM | FAN_EVENT_ON_CHILD, AT_FDCWD, t.path.c_str()))
        GTEST_SKIP() << "needs root and fanotify permission events";
    tConfGroup* root = mCONF_BufRead("[g]\nk=v\n");
    mode_t seen = 0;
    std::thread writer([&] { EXPECT_EQ(mCONF_FileWrite(root, f.c_str()), 0); });
    for (pollfd p = {fan, POLLIN, 0}; poll(&p, 1, 500) > 0;) {
        alignas(fanotify_event_metadata) char buf[4096];
        ssize_t n = read(fan, buf, sizeof buf);
        for (auto* m = reinterpret_cast<fanotify_event_metadata*>(buf); FAN_EVENT_OK(m, n); m = FAN_EVENT_NEXT(m, n)) {
            struct stat st {};
            seen |= fstat(m->fd, &st) == 0 ? st.st_mode & 0777 : 0777;
            const fanotify_response allow = {m->fd, FAN_ALLOW};
            EXPECT_EQ(write(fan, &allow, sizeof allow), static_cast<ssize_t>(sizeof allow));
            close(m->fd);
        }
    }
    writer.join();
    close(fan);
    mCONF_Free(root);
    EXPECT_EQ(seen, 0600u) << std::oct << "a file was open to others: " << seen;
}
