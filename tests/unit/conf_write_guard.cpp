// mCONF_FileWrite on a hostile file system: the new file is private from its
// first byte, planted links are not followed, a replacement grants no more
// than an in-place write, and a failed rename never truncates. Most rows
// need root (a second user, fanotify, a bind mount) and are skipped without.
#include "mconf.h"
#include "mfile.h"
#include "vxtest.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t kOther = 65534; // the second user: a uid needs no account
const char* const kOld = "[old]\r\n\r\n";
const char* const kNew = "[g]\r\nk=\"v\"\r\n\r\n";
int g_renameErrno = 0; // when set, libmconf's renames fail with it

// Writes kNew to path in a child, as uid (0: as this process is).
pid_t startWrite(uid_t uid, const std::string& path)
{
    const pid_t pid = fork();
    if (pid != 0) return pid;
    if (uid != 0 && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 || setresuid(uid, uid, uid) != 0))
        _exit(99);
    tConfGroup* root = mCONF_New();
    mCONF_SetValue(root, "g", "k", "v", nullptr);
    _exit(mCONF_FileWrite(root, path.c_str()) == 0 ? 0 : 10 + vFILE_Errno);
}

// The child's result: 0, or 10 + vFILE_Errno; -1 while it runs.
int resultOf(pid_t pid, int flags = 0)
{
    int status = 0;
    return waitpid(pid, &status, flags) != pid ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

TEST(ConfWriteGuard, NewFileIsPrivateFromItsFirstByte)
{
    if (geteuid() != 0) GTEST_SKIP() << "needs root for fanotify";
    TempDir dir;
    const std::string f = dir.path + "/secret.conf";
    writeFile(f, kOld);
    ASSERT_EQ(chmod(f.c_str(), 0600), 0);
    // Every open of a file in the directory waits until its mode is seen.
    const int fan = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY);
    if (fan < 0 || fanotify_mark(fan, FAN_MARK_ADD, FAN_OPEN_PERM | FAN_EVENT_ON_CHILD, AT_FDCWD, dir.path.c_str()))
        GTEST_SKIP() << "no fanotify permission events here";
    const mode_t oldMask = umask(022);
    const pid_t pid = startWrite(0, f);
    mode_t seen = 0;
    int result;
    for (struct pollfd p = {fan, POLLIN, 0}; (result = resultOf(pid, WNOHANG)) < 0;) {
        alignas(fanotify_event_metadata) char buf[4096];
        ssize_t n = poll(&p, 1, 20) > 0 ? read(fan, buf, sizeof buf) : 0;
        for (auto* m = reinterpret_cast<fanotify_event_metadata*>(buf); FAN_EVENT_OK(m, n); m = FAN_EVENT_NEXT(m, n)) {
            struct stat st {};
            seen |= fstat(m->fd, &st) == 0 ? st.st_mode & 0777 : 0777;
            const fanotify_response allow = {m->fd, FAN_ALLOW};
            EXPECT_EQ(write(fan, &allow, sizeof allow), static_cast<ssize_t>(sizeof allow));
            close(m->fd);
        }
    }
    close(fan);
    umask(oldMask);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(seen, 0600u) << std::oct << "a file was open to others: " << seen;
    EXPECT_EQ(readFile(f), kNew);
}

TEST(ConfWriteGuard, NoMoreThanTheKernelOrAnInPlaceWriteWouldAllow)
{
    if (geteuid() != 0) GTEST_SKIP() << "needs root to act as a second user";
    const uid_t R = 0, O = kOther;
    struct Row { // linkOwner -1: the path is the file, else a link there to it; result: 0 or 10 + vFILE_Errno
        const char* what;
        mode_t dirMode; uid_t dirOwner; int linkOwner; uid_t fileUid, fileGid; mode_t fileMode; uid_t caller;
        int result; bool rewritten;
    } rows[] = {
        {"a stranger's link in a sticky world-writable directory", 01777, R, O, R, R, 0644, R, 11, false},
        {"the caller's own link there", 01777, R, R, R, R, 0644, R, 0, true},
        {"a link of the sticky directory's owner", 01777, O, O, R, R, 0644, R, 0, true},
        {"a stranger's link in a directory that is not sticky", 0777, R, O, R, R, 0644, R, 0, true},
        {"another user's file in a directory the caller may write", 0777, R, -1, R, R, 0644, O, 11, false},
        {"a read-only file of the caller", 0777, R, -1, O, O, 0444, O, 11, false},
        {"another user's file that the caller may write: in place", 0777, R, -1, R, R, 0666, O, 0, true},
        {"the caller's file in a group it is not in: in place", 0777, R, -1, O, R, 0664, O, 0, true},
    };
    for (const Row& r : rows) {
        TempDir dir;
        const std::string d = dir.path + "/d", path = d + "/x.conf";
        const std::string file = r.linkOwner < 0 ? path : dir.path + "/x.conf";
        ASSERT_TRUE(chmod(dir.path.c_str(), 0755) == 0 && mkdir(d.c_str(), 0) == 0 && chmod(d.c_str(), r.dirMode) == 0);
        ASSERT_EQ(chown(d.c_str(), r.dirOwner, R), 0);
        writeFile(file, kOld);
        ASSERT_TRUE(chown(file.c_str(), r.fileUid, r.fileGid) == 0 && chmod(file.c_str(), r.fileMode) == 0);
        if (r.linkOwner >= 0) {
            ASSERT_TRUE(symlink(file.c_str(), path.c_str()) == 0 && lchown(path.c_str(), r.linkOwner, R) == 0);
        }
        EXPECT_EQ(resultOf(startWrite(r.caller, path)), r.result) << r.what;
        EXPECT_EQ(readFile(file), r.rewritten ? kNew : kOld) << r.what;
        struct stat st {};
        EXPECT_TRUE(stat(file.c_str(), &st) == 0 && st.st_uid == r.fileUid && st.st_gid == r.fileGid &&
                    (st.st_mode & 07777) == r.fileMode) << r.what << ": owner, group and mode stay";
    }
}

TEST(ConfWriteGuard, FailedRenameNeverTruncates)
{
    // The rename's errno (0: a real file mounted over itself, EBUSY), the
    // result (0 or 10 + vFILE_Errno), and whether the text went in place.
    const struct { int err, result; bool rewritten; } rows[] = {
        {ENOSPC, 12, false}, {EIO, 12, false}, {EDQUOT, 12, false}, {EXDEV, 0, true}, {0, 0, true}};
    for (const auto& r : rows) {
        TempDir dir;
        const std::string f = dir.path + "/f.conf";
        writeFile(f, kOld);
        if (r.err == 0 && (geteuid() != 0 || mount(f.c_str(), f.c_str(), nullptr, MS_BIND, nullptr) != 0))
            continue; // a bind mount needs root
        g_renameErrno = r.err;
        EXPECT_EQ(resultOf(startWrite(0, f)), r.result) << r.err;
        g_renameErrno = 0;
        if (r.err == 0) umount2(f.c_str(), MNT_DETACH);
        EXPECT_EQ(readFile(f), r.rewritten ? kNew : kOld) << r.err;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), {}), 1) << r.err << ": a stray file";
    }
}

} // namespace

// libmconf's rename, found in this program before the C library's, so that a
// row can make it fail as a full or broken disk would.
extern "C" int rename(const char* from, const char* to) noexcept
{
    if (g_renameErrno == 0) return renameat(AT_FDCWD, from, AT_FDCWD, to);
    errno = g_renameErrno;
    return -1;
}
