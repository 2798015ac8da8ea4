// vxShell -f file,section,key,text: the file is edited and written back in
// canonical form, with no contact with the service and exit status 0.
#include "mconf.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using confsupport::readFile;
using confsupport::RunResult;
using confsupport::runProgram;
using confsupport::stripTimestamp;
using confsupport::TempDir;
using confsupport::writeFile;

namespace {

const std::string kShell = VX_BIN_DIR "/vxShell";

// The file name field holds at most 63 characters: the shell runs in the
// temporary directory and is given relative names.
RunResult runIn(const TempDir& dir, const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {kShell};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, dir.path());
}

const char* const kInput =
    "# phone settings\n"
    "; written by hand\n"
    "\n"
    "[net]\n"
    "  ip = 10.0.0.1   ; static\n"
    "port=5060\n"
    "\n"
    "[audio]\n"
    "vol = 'loud one' # max\n";

TEST(FileModeE2E, EditsOneValueAndWritesCanonicalText)
{
    struct Case {
        const char* what;
        std::string arg;
        const char* expected;
    } cases[] = {
        {"existing value", "edit.conf,net,port,5070",
         "[net]\r\nip=\"10.0.0.1\"\t; static\r\nport=\"5070\"\r\n\r\n[audio]\r\nvol=\"loud one\"\t; max\r\n\r\n"},
        {"new key", "edit.conf,audio,mute,1",
         "[net]\r\nip=\"10.0.0.1\"\t; static\r\nport=\"5060\"\r\n\r\n[audio]\r\nvol=\"loud one\"\t; max\r\nmute=\"1\""
         "\r\n\r\n"},
        {"new group", "edit.conf,video,fps,30",
         "[net]\r\nip=\"10.0.0.1\"\t; static\r\nport=\"5060\"\r\n\r\n[audio]\r\nvol=\"loud one\"\t; max\r\n\r\n"
         "[video]\r\nfps=\"30\"\r\n\r\n"},
        {"text with blanks", "edit.conf,net,ip,a b",
         "[net]\r\nip=\"a b\"\t; static\r\nport=\"5060\"\r\n\r\n[audio]\r\nvol=\"loud one\"\t; max\r\n\r\n"},
    };
    for (const Case& c : cases) {
        TempDir dir;
        ASSERT_TRUE(writeFile(dir.file("edit.conf"), kInput));
        const RunResult r = runIn(dir, {"-f", c.arg});
        EXPECT_EQ(r.exitStatus, 0) << c.what;
        EXPECT_EQ(r.out, "") << c.what << ": nothing is printed";
        EXPECT_EQ(readFile(dir.file("edit.conf")), c.expected) << c.what;
        EXPECT_EQ(dir.list(), std::vector<std::string>{"edit.conf"}) << c.what;
    }
}

TEST(FileModeE2E, MissingFileReportsAndExitsZero)
{
    TempDir dir;
    const RunResult r = runIn(dir, {"-f", "absent.conf,net,port,1"});
    EXPECT_EQ(r.exitStatus, 0);
    const size_t nl = r.out.find('\n');
    ASSERT_NE(nl, std::string::npos) << r.out;
    EXPECT_EQ(stripTimestamp(r.out.substr(0, nl)), ">>> ERR, fileMode, but file[absent.conf] is not found.");
    EXPECT_EQ(r.out.substr(nl), "\n\n") << "the message's own newline and logPrt's";
    EXPECT_TRUE(dir.list().empty()) << "no file is created";
}

TEST(FileModeE2E, EmptyFieldsMerge)
{
    TempDir dir;
    ASSERT_TRUE(writeFile(dir.file("m.conf"), "[b]\nc=old\n"));
    // "a,,b,c": section b, key c, and no text: a command-line fault.
    RunResult r = runIn(dir, {"-f", "m.conf,,b,c"});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_EQ(r.out, ">>> ERR, vxShell, fileMode, but text is NULL[m.conf].");
    EXPECT_EQ(readFile(dir.file("m.conf")), "[b]\nc=old\n");
    // One more field fills it: section b, key c, text d.
    r = runIn(dir, {"-f", "m.conf,,b,c,d"});
    EXPECT_EQ(r.exitStatus, 0);
    EXPECT_EQ(readFile(dir.file("m.conf")), "[b]\r\nc=\"d\"\r\n\r\n");
}

TEST(FileModeE2E, ReplacesTheFileKeepingModeAndLinks)
{
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("etc").c_str(), 0755), 0);
    const std::string target = dir.file("etc/phone.conf");
    ASSERT_TRUE(writeFile(target, "[g]\nk=1\n"));
    ASSERT_EQ(chmod(target.c_str(), 0640), 0);
    ASSERT_EQ(symlink("etc/phone.conf", dir.file("cur.conf").c_str()), 0);

    const RunResult r = runIn(dir, {"-f", "cur.conf,g,k,2"});
    EXPECT_EQ(r.exitStatus, 0);
    struct stat st;
    ASSERT_EQ(lstat(dir.file("cur.conf").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays";
    ASSERT_EQ(stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(readFile(target), "[g]\r\nk=\"2\"\r\n\r\n");
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"cur.conf", "etc"}));
}

// -f wins over every other mode: the file is edited, and nothing reaches
// the service's socket.
TEST(FileModeE2E, OtherModeOptionsAreIgnoredAndNothingIsSent)
{
    const char* const sockDir = "/tmp/vx";
    const char* const sockPath = "/tmp/vx/vxRxSock";
    const bool madeDir = mkdir(sockDir, 0777) == 0;
    int sock = -1;
    if (access(sockPath, F_OK) != 0) {
        sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, sockPath, sizeof addr.sun_path - 1);
        if (sock >= 0 && bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            close(sock);
            sock = -1;
        }
    }

    TempDir dir;
    ASSERT_TRUE(writeFile(dir.file("o.conf"), "[g]\nk=1\n"));
    const std::vector<std::vector<std::string>> runs = {
        {"-t", "3", "-f", "o.conf,g,k,2"},
        {"-f", "o.conf,g,k,3", "-R"},
        {"-l", "2", "-f", "o.conf,g,k,4", "-v", "x"},
    };
    int n = 2;
    for (const auto& args : runs) {
        const RunResult r = runIn(dir, args);
        EXPECT_EQ(r.exitStatus, 0);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(readFile(dir.file("o.conf")), "[g]\r\nk=\"" + std::to_string(n++) + "\"\r\n\r\n");
    }

    if (sock >= 0) {
        char buf[2048];
        const ssize_t got = recv(sock, buf, sizeof buf, MSG_DONTWAIT);
        EXPECT_EQ(got, -1) << "a datagram reached the service socket";
        close(sock);
        unlink(sockPath);
    }
    if (madeDir)
        rmdir(sockDir);
}

} // namespace
