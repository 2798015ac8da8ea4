// mCONF_FileRead and mCONF_FileWrite: results and vFILE_Errno codes, and the
// replacement of the file as a whole: permission bits and owner kept,
// symbolic links followed, no stray files, a failed write that leaves the
// old file whole, and the in-place fallback.
#include "mconf.h"
#include "mfile.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using confsupport::readFile;
using confsupport::TempDir;
using confsupport::writeFile;

namespace {

constexpr uid_t kNobody = 65534;

struct Store {
    tConfGroup* root;
    explicit Store(const char* text) : root(mCONF_BufRead(text)) {}
    ~Store() { mCONF_Free(root); }
};

const char* const kText = "[g]\nk=\"new value\" ;c\n";
const char* const kCanonical = "[g]\r\nk=\"new value\"\t;c\r\n\r\n";

mode_t modeOf(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// Runs fn in a child process and gives its exit status (or 128 + signal):
// for what must not touch the test process (limits, identities).
template <class Fn>
int inChild(Fn fn)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(fn());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(ConfFileRead, MissingUnreadableAndEmpty)
{
    TempDir dir;
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileRead(dir.file("missing").c_str()), nullptr);
    EXPECT_EQ(vFILE_Errno, 1);
    EXPECT_EQ(mCONF_FileRead(nullptr), nullptr);
    EXPECT_EQ(vFILE_Errno, 1);
    // A directory: it stats, but its read fails.
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileRead(dir.path().c_str()), nullptr);
    EXPECT_EQ(vFILE_Errno, 2);

    ASSERT_TRUE(writeFile(dir.file("empty"), ""));
    tConfGroup* root = mCONF_FileRead(dir.file("empty").c_str());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->next, nullptr);
    EXPECT_EQ(root->items, nullptr);
    mCONF_Free(root);
}

std::string canonical(tConfGroup* root)
{
    char* t = mCONF_BufWrite(root);
    std::string s = t != nullptr ? t : "";
    free(t);
    return s;
}

// The file is read in blocks; whatever falls on a block's edge (a line, a
// CR LF pair, a line longer than 255 bytes, a NUL) must read as the same
// text does in memory.
TEST(ConfFileRead, BlockEdgesReadLikeTheText)
{
    TempDir dir;
    std::mt19937 rng(99);
    const char* const ends[] = {"\n", "\r\n", "\r", "\n\r", "\n\n\r\n"};
    for (int round = 0; round < 8; ++round) {
        std::string text;
        int g = 0;
        while (text.size() < 300 * 1024) {
            if (rng() % 8 == 0)
                text += "[g" + std::to_string(g++) + "]";
            else if (rng() % 16 == 0)
                text += "long=\"" + std::string(200 + rng() % 300, 'x') + "\" ;tail";
            else
                text += "k" + std::to_string(rng() % 5000) + " = v" + std::to_string(rng()) + " ; c";
            text += ends[rng() % 5];
        }
        // A NUL ends the text: what follows it is not read, by either.
        if (round % 2 == 1)
            text.insert(text.size() / 2 + round, 1, '\0');
        const std::string f = dir.file("blocks" + std::to_string(round));
        ASSERT_TRUE(writeFile(f, text));
        tConfGroup* fromText = mCONF_BufRead(text.c_str());
        tConfGroup* fromFile = mCONF_FileRead(f.c_str());
        ASSERT_NE(fromFile, nullptr);
        EXPECT_EQ(vFILE_Errno, 0);
        EXPECT_EQ(canonical(fromFile), canonical(fromText)) << "round " << round;
        mCONF_Free(fromText);
        mCONF_Free(fromFile);
    }
    // Every kind of line end exactly on the 64 KB edge.
    for (const char* end : ends) {
        for (int shift = -3; shift <= 3; ++shift) {
            std::string text = "[g]\n";
            while (text.size() < static_cast<size_t>(65536 + shift - 10))
                text += "a=1\n";
            text.resize(static_cast<size_t>(65536 + shift) - 4, 'z');
            text += "=2";
            text += end;
            text += "b=3";
            text += end;
            const std::string f = dir.file("edge");
            ASSERT_TRUE(writeFile(f, text));
            tConfGroup* fromText = mCONF_BufRead(text.c_str());
            tConfGroup* fromFile = mCONF_FileRead(f.c_str());
            ASSERT_NE(fromFile, nullptr);
            EXPECT_EQ(canonical(fromFile), canonical(fromText)) << "shift " << shift;
            mCONF_Free(fromText);
            mCONF_Free(fromFile);
        }
    }
}

TEST(ConfFileRead, UnreadableFileForAnotherUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to switch to another user";
    TempDir dir;
    const std::string f = dir.file("secret");
    ASSERT_TRUE(writeFile(f, kText));
    ASSERT_EQ(chmod(f.c_str(), 0600), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    const int status = inChild([&] {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
            return 3;
        tConfGroup* root = mCONF_FileRead(f.c_str());
        return root == nullptr && vFILE_Errno == 1 ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST(ConfFileWrite, WritesTheCanonicalText)
{
    TempDir dir;
    const std::string f = dir.file("a.conf");
    Store s(kText);
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(readFile(f), kCanonical);
    // Over an existing, longer file: nothing of the old text remains.
    ASSERT_TRUE(writeFile(f, std::string(10000, 'x')));
    EXPECT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
    EXPECT_EQ(readFile(f), kCanonical);
    EXPECT_EQ(dir.list(), std::vector<std::string>{"a.conf"}) << "no stray file";

    // A store with nothing to write empties the file.
    Store rootOnly("k=v\n");
    EXPECT_EQ(mCONF_FileWrite(rootOnly.root, f.c_str()), 0);
    EXPECT_EQ(readFile(f), "");
}

TEST(ConfFileWrite, Failures)
{
    TempDir dir;
    Store s(kText);
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, dir.file("no/such/dir.conf").c_str()), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, nullptr), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    // A directory is no file to replace.
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, dir.path().c_str()), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    // A link loop cannot be followed.
    ASSERT_EQ(symlink("loop2", dir.file("loop1").c_str()), 0);
    ASSERT_EQ(symlink("loop1", dir.file("loop2").c_str()), 0);
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, dir.file("loop1").c_str()), -1);
    EXPECT_EQ(vFILE_Errno, 1);
}

TEST(ConfFileWrite, KeepsPermissionBits)
{
    TempDir dir;
    Store s(kText);
    for (mode_t mode : {0600, 0640, 0444, 0755, 02640}) {
        const std::string f = dir.file("perm");
        ASSERT_TRUE(writeFile(f, "[old]\n"));
        ASSERT_EQ(chmod(f.c_str(), mode), 0);
        ASSERT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0) << std::oct << mode;
        EXPECT_EQ(modeOf(f), mode) << std::oct << mode;
        EXPECT_EQ(readFile(f), kCanonical);
        unlink(f.c_str());
    }
    // A new file gets 0666 less the umask, as any new file.
    const mode_t old = umask(027);
    const std::string fresh = dir.file("fresh");
    EXPECT_EQ(mCONF_FileWrite(s.root, fresh.c_str()), 0);
    umask(old);
    EXPECT_EQ(modeOf(fresh), 0640u);
}

TEST(ConfFileWrite, KeepsTheOwnerWhereAllowed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give a file to another owner";
    TempDir dir;
    Store s(kText);
    const std::string f = dir.file("owned");
    ASSERT_TRUE(writeFile(f, "[old]\n"));
    ASSERT_EQ(chown(f.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
    struct stat st;
    ASSERT_EQ(stat(f.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kNobody);
    EXPECT_EQ(st.st_gid, kNobody);
}

TEST(ConfFileWrite, FollowsSymbolicLinks)
{
    TempDir dir;
    Store s(kText);
    ASSERT_EQ(mkdir(dir.file("real").c_str(), 0755), 0);
    const std::string target = dir.file("real/target.conf");
    ASSERT_TRUE(writeFile(target, "[old]\n"));
    ASSERT_EQ(chmod(target.c_str(), 0604), 0);
    // A relative link, and a link to that link.
    ASSERT_EQ(symlink("real/target.conf", dir.file("link").c_str()), 0);
    ASSERT_EQ(symlink(dir.file("link").c_str(), dir.file("link2").c_str()), 0);

    ASSERT_EQ(mCONF_FileWrite(s.root, dir.file("link2").c_str()), 0);
    struct stat st;
    ASSERT_EQ(lstat(dir.file("link").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays a link";
    ASSERT_EQ(lstat(dir.file("link2").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(readFile(target), kCanonical);
    EXPECT_EQ(modeOf(target), 0604u);
    // The new file was made beside the target, not beside the link.
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"link", "link2", "real"}));

    // A dangling link: the file it names is created.
    ASSERT_EQ(symlink("real/new.conf", dir.file("dangling").c_str()), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, dir.file("dangling").c_str()), 0);
    EXPECT_EQ(readFile(dir.file("real/new.conf")), kCanonical);
    ASSERT_EQ(lstat(dir.file("dangling").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
}

TEST(ConfFileWrite, HardLinkedFileIsWrittenInPlace)
{
    TempDir dir;
    Store s(kText);
    const std::string a = dir.file("a");
    const std::string b = dir.file("b");
    ASSERT_TRUE(writeFile(a, "[old]\n"));
    ASSERT_EQ(link(a.c_str(), b.c_str()), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, a.c_str()), 0);
    EXPECT_EQ(readFile(b), kCanonical) << "both names see the new text";
}

// A write that fails part-way (the file-size limit stands in for a full
// disk) must leave the old file whole, give -1 with code 2, and leave no
// stray file behind.
TEST(ConfFileWrite, FailedWriteLeavesTheOldFileWhole)
{
    TempDir dir;
    const std::string f = dir.file("keep.conf");
    const std::string old = std::string("[old]\r\nk=\"v\"\r\n\r\n");
    ASSERT_TRUE(writeFile(f, old));
    const int status = inChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit lim = {4096, 4096};
        if (setrlimit(RLIMIT_FSIZE, &lim) != 0)
            return 3;
        tConfGroup* root = mCONF_New();
        const std::string big(200, 'x');
        for (int i = 0; i < 200; ++i)
            mCONF_SetValue(root, "g", ("k" + std::to_string(i)).c_str(), big.c_str(), nullptr);
        vFILE_Errno = 77;
        const int r = mCONF_FileWrite(root, f.c_str());
        const int code = vFILE_Errno;
        mCONF_Free(root);
        return r == -1 && code == 2 ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(f), old);
    EXPECT_EQ(dir.list(), std::vector<std::string>{"keep.conf"});
}

// Where the directory takes no new file but the file itself is writable,
// the text is written in place.
TEST(ConfFileWrite, FallsBackToInPlaceWhenTheDirectoryIsClosed)
{
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("locked").c_str(), 0755), 0);
    const std::string f = dir.file("locked/shared.conf");
    ASSERT_TRUE(writeFile(f, "[old]\n"));
    ASSERT_EQ(chmod(f.c_str(), 0666), 0);
    const bool root = geteuid() == 0;
    if (!root) {
        ASSERT_EQ(chmod(dir.file("locked").c_str(), 0555), 0);
    }
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    const int status = inChild([&] {
        // Root passes every permission check: become somebody else.
        if (root && (setgid(kNobody) != 0 || setuid(kNobody) != 0))
            return 3;
        Store s(kText);
        return mCONF_FileWrite(s.root, f.c_str()) == 0 && vFILE_Errno == 0 ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(f), kCanonical);
    chmod(dir.file("locked").c_str(), 0755);
    EXPECT_EQ(dir.list(), std::vector<std::string>{"locked"});
}

} // namespace
