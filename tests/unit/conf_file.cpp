// mCONF_FileRead and mCONF_FileWrite: results and vFILE_Errno codes, the
// block-wise reading, and the replacement of the file as a whole:
// permission bits and owner kept, symbolic links followed, no stray files, a
// failed write that leaves the old file whole, and the in-place fallback.
#include "mconf.h"
#include "mfile.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using confsupport::canonicalText;
using confsupport::readFile;
using confsupport::TempDir;
using confsupport::writeFile;
using Names = std::vector<std::string>;

namespace {

constexpr uid_t kNobody = 65534;
const char* const kText = "[g]\nk=\"new value\" ;c\n";
const char* const kCanonical = "[g]\r\nk=\"new value\"\t;c\r\n\r\n";

struct Store {
    tConfGroup* root;
    explicit Store(const char* text) : root(mCONF_BufRead(text)) {}
    ~Store() { mCONF_Free(root); }
};

struct stat statOf(const std::string& path, bool follow = true)
{
    struct stat st {};
    EXPECT_EQ(follow ? stat(path.c_str(), &st) : lstat(path.c_str(), &st), 0) << path;
    return st;
}

// Runs fn in a child process, for what must not touch the test process
// (limits, identities): its exit status, or 128 + signal.
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

// Drops root's rights, which pass every permission check.
bool becomeNobody() { return geteuid() != 0 || (setgid(kNobody) == 0 && setuid(kNobody) == 0); }

TEST(ConfFileRead, Codes)
{
    TempDir dir;
    ASSERT_TRUE(writeFile(dir.file("empty"), ""));
    ASSERT_TRUE(writeFile(dir.file("secret"), kText));
    ASSERT_EQ(chmod(dir.file("secret").c_str(), 0600), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    const std::pair<std::string, int> failures[] = {{dir.file("missing"), 1}, {dir.path(), 2}};
    for (const auto& c : failures) {
        vFILE_Errno = 77;
        EXPECT_EQ(mCONF_FileRead(c.first.c_str()), nullptr) << c.first;
        EXPECT_EQ(vFILE_Errno, c.second) << c.first;
    }
    EXPECT_EQ(mCONF_FileRead(nullptr), nullptr);
    tConfGroup* root = mCONF_FileRead(dir.file("empty").c_str());
    ASSERT_NE(root, nullptr);
    EXPECT_TRUE(root->next == nullptr && root->items == nullptr) << "only the root";
    mCONF_Free(root);
    if (geteuid() == 0) {
        EXPECT_EQ(inChild([&] {
                      if (!becomeNobody())
                          return 3;
                      return mCONF_FileRead(dir.file("secret").c_str()) == nullptr && vFILE_Errno == 1 ? 0 : 1;
                  }),
                  0)
            << "an unreadable file";
    }
}

// The file is read in blocks; whatever falls on a block's edge (a line, a
// CR LF pair, a line longer than 255 bytes, a NUL) must read as the same
// text does in memory.
TEST(ConfFileRead, BlockEdgesReadLikeTheText)
{
    TempDir dir;
    std::mt19937 rng(99);
    const char* const ends[] = {"\n", "\r\n", "\r", "\n\r", "\n\n\r\n"};
    std::vector<std::string> texts;
    for (int round = 0; round < 6; ++round) {
        std::string text;
        for (int g = 0; text.size() < 300 * 1024;) {
            const unsigned kind = rng() % 16;
            text += kind == 0 ? "[g" + std::to_string(g++) + "]"
                    : kind == 1 ? "long=\"" + std::string(200 + rng() % 300, 'x') + "\" ;tail"
                                : "k" + std::to_string(rng() % 5000) + " = v" + std::to_string(rng()) + " ; c";
            text += ends[rng() % 5];
        }
        if (round % 2 == 1) // a NUL ends the text for both readers
            text.insert(text.size() / 2 + static_cast<size_t>(round), 1, '\0');
        texts.push_back(text);
    }
    for (const char* end : ends) { // every line end exactly on the 64 KB edge
        for (int shift = -3; shift <= 3; ++shift) {
            std::string text = "[g]\n" + std::string(static_cast<size_t>(65536 + shift - 10), 'z') + "=2";
            texts.push_back(text + end + "b=3" + end);
        }
    }
    for (const std::string& text : texts) {
        ASSERT_TRUE(writeFile(dir.file("blocks"), text));
        tConfGroup* fromText = mCONF_BufRead(text.c_str());
        tConfGroup* fromFile = mCONF_FileRead(dir.file("blocks").c_str());
        ASSERT_NE(fromFile, nullptr);
        EXPECT_EQ(canonicalText(fromFile), canonicalText(fromText)) << text.size() << " bytes";
        mCONF_Free(fromText);
        mCONF_Free(fromFile);
    }
}

TEST(ConfFileWrite, ResultsAndCodes)
{
    TempDir dir;
    Store s(kText);
    const std::string f = dir.file("a.conf");
    ASSERT_TRUE(writeFile(f, std::string(10000, 'x')));
    vFILE_Errno = 77;
    EXPECT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(readFile(f), kCanonical);
    EXPECT_EQ(dir.list(), Names{"a.conf"}) << "no stray file";
    Store rootOnly("k=v\n");
    EXPECT_EQ(mCONF_FileWrite(rootOnly.root, f.c_str()), 0);
    EXPECT_EQ(readFile(f), "") << "nothing to write empties the file";

    ASSERT_EQ(symlink("loop2", dir.file("loop1").c_str()), 0);
    ASSERT_EQ(symlink("loop1", dir.file("loop2").c_str()), 0);
    for (const std::string& bad : {dir.file("no/such/dir.conf"), dir.path(), dir.file("loop1")}) {
        vFILE_Errno = 77;
        EXPECT_EQ(mCONF_FileWrite(s.root, bad.c_str()), -1) << bad;
        EXPECT_EQ(vFILE_Errno, 1) << bad;
    }
    EXPECT_EQ(mCONF_FileWrite(s.root, nullptr), -1);
}

TEST(ConfFileWrite, KeepsModeOwnerAndLinks)
{
    TempDir dir;
    Store s(kText);
    const std::string f = dir.file("perm");
    for (mode_t mode : {0600, 0444, 0755, 02640}) {
        ASSERT_TRUE(writeFile(f, "[old]\n"));
        ASSERT_EQ(chmod(f.c_str(), mode), 0);
        ASSERT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
        EXPECT_EQ(statOf(f).st_mode & 07777, mode);
        unlink(f.c_str());
    }
    const mode_t old = umask(027);
    EXPECT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
    umask(old);
    EXPECT_EQ(statOf(f).st_mode & 07777, 0640u) << "a new file: 0666 less the umask";
    if (geteuid() == 0) {
        ASSERT_EQ(chown(f.c_str(), kNobody, kNobody), 0);
        ASSERT_EQ(mCONF_FileWrite(s.root, f.c_str()), 0);
        EXPECT_TRUE(statOf(f).st_uid == kNobody && statOf(f).st_gid == kNobody) << "the owner stays";
    }
    unlink(f.c_str());

    // A relative link, a link to that link, and a dangling link.
    ASSERT_EQ(mkdir(dir.file("real").c_str(), 0755), 0);
    const std::string target = dir.file("real/target.conf");
    ASSERT_TRUE(writeFile(target, "[old]\n"));
    ASSERT_EQ(symlink("real/target.conf", dir.file("link").c_str()), 0);
    ASSERT_EQ(symlink(dir.file("link").c_str(), dir.file("link2").c_str()), 0);
    ASSERT_EQ(symlink("real/new.conf", dir.file("dangling").c_str()), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, dir.file("link2").c_str()), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, dir.file("dangling").c_str()), 0);
    for (const char* link : {"link", "link2", "dangling"})
        EXPECT_TRUE(S_ISLNK(statOf(dir.file(link), false).st_mode)) << link << " stays a link";
    EXPECT_EQ(readFile(target), kCanonical);
    EXPECT_EQ(readFile(dir.file("real/new.conf")), kCanonical);
    EXPECT_EQ(dir.list(), (Names{"dangling", "link", "link2", "real"})) << "made beside the target";

    // Several hard links: written in place, so every name sees the text.
    ASSERT_TRUE(writeFile(dir.file("a"), "[old]\n"));
    ASSERT_EQ(link(dir.file("a").c_str(), dir.file("b").c_str()), 0);
    ASSERT_EQ(mCONF_FileWrite(s.root, dir.file("a").c_str()), 0);
    EXPECT_EQ(readFile(dir.file("b")), kCanonical);
}

// A write that fails part-way (the file-size limit stands in for a full
// disk) leaves the old file whole, gives -1 with code 2, and no stray file.
TEST(ConfFileWrite, FailedWriteLeavesTheOldFileWhole)
{
    TempDir dir;
    const std::string f = dir.file("keep.conf");
    const std::string old = "[old]\r\nk=\"v\"\r\n\r\n";
    ASSERT_TRUE(writeFile(f, old));
    EXPECT_EQ(inChild([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const struct rlimit lim = {4096, 4096};
                  if (setrlimit(RLIMIT_FSIZE, &lim) != 0)
                      return 3;
                  tConfGroup* root = mCONF_New();
                  for (int i = 0; i < 200; ++i)
                      mCONF_SetValue(root, "g", ("k" + std::to_string(i)).c_str(), std::string(200, 'x').c_str(), nullptr);
                  const int r = mCONF_FileWrite(root, f.c_str());
                  const int code = vFILE_Errno;
                  mCONF_Free(root);
                  return r == -1 && code == 2 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(readFile(f), old);
    EXPECT_EQ(dir.list(), Names{"keep.conf"});
}

// Where the directory takes no new file but the file is writable, the text
// is written in place.
TEST(ConfFileWrite, FallsBackToInPlaceWhenTheDirectoryIsClosed)
{
    TempDir dir;
    const std::string f = dir.file("locked/shared.conf");
    ASSERT_EQ(mkdir(dir.file("locked").c_str(), 0755), 0);
    ASSERT_TRUE(writeFile(f, "[old]\n"));
    ASSERT_EQ(chmod(f.c_str(), 0666), 0);
    // Closed to this process: to nobody (when root), or by its mode.
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(dir.file("locked").c_str(), geteuid() == 0 ? 0755 : 0555), 0);
    EXPECT_EQ(inChild([&] {
                  Store s(kText);
                  return becomeNobody() && mCONF_FileWrite(s.root, f.c_str()) == 0 && vFILE_Errno == 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(readFile(f), kCanonical);
    chmod(dir.file("locked").c_str(), 0755);
    EXPECT_EQ(dir.list(), Names{"locked"});
}

} // namespace
