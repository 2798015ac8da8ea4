// vxShell -f file,section,key,text: the file is edited and written back in
// canonical form, with no contact with the service and exit status 0.
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using confsupport::readFile;
using confsupport::RunResult;
using confsupport::stripTimestamp;
using confsupport::TempDir;
using confsupport::writeFile;
using Names = std::vector<std::string>;

namespace {

// The file name field holds 63 characters: the shell runs in the temporary
// directory and is given relative names.
RunResult runIn(const TempDir& dir, std::vector<std::string> args)
{
    args.insert(args.begin(), VX_BIN_DIR "/vxShell");
    return confsupport::runProgram(args, dir.path());
}

const char* const kInput = "# phone settings\n; by hand\n\n[net]\n  ip = 10.0.0.1   ; static\nport=5060\n\n"
                           "[audio]\nvol = 'loud one' # max\n";
const std::string kNet = "[net]\r\nip=\"10.0.0.1\"\t; static\r\n";
const std::string kAudio = "[audio]\r\nvol=\"loud one\"\t; max\r\n";

std::string withEnds(const std::string& text, const char* end)
{
    std::string out;
    for (char c : text)
        out += c == '\n' ? std::string(end) : std::string(1, c);
    return out;
}

TEST(FileModeE2E, EditsOneValueAndWritesCanonicalText)
{
    struct Case {
        const char* arg;
        const char* ends; // line ends of the input
        std::string expected;
    } cases[] = {
        {"e.conf,net,port,5070", "\n", kNet + "port=\"5070\"\r\n\r\n" + kAudio + "\r\n"},
        {"e.conf,net,port,5070", "\r\n", kNet + "port=\"5070\"\r\n\r\n" + kAudio + "\r\n"},
        {"e.conf,net,port,5070", "\r", kNet + "port=\"5070\"\r\n\r\n" + kAudio + "\r\n"},
        {"e.conf,audio,mute,1", "\n", kNet + "port=\"5060\"\r\n\r\n" + kAudio + "mute=\"1\"\r\n\r\n"},
        {"e.conf,video,fps,3 0", "\n", kNet + "port=\"5060\"\r\n\r\n" + kAudio + "\r\n[video]\r\nfps=\"3 0\"\r\n\r\n"},
    };
    for (const Case& c : cases) {
        TempDir dir;
        ASSERT_TRUE(writeFile(dir.file("e.conf"), withEnds(kInput, c.ends)));
        const RunResult r = runIn(dir, {"-f", c.arg});
        EXPECT_EQ(r.exitStatus, 0) << c.arg;
        EXPECT_EQ(r.out, "") << c.arg << ": nothing is printed";
        EXPECT_EQ(readFile(dir.file("e.conf")), c.expected) << c.arg;
        EXPECT_EQ(dir.list(), Names{"e.conf"}) << c.arg;
    }
}

TEST(FileModeE2E, MissingFileAndMergedFields)
{
    TempDir dir;
    RunResult r = runIn(dir, {"-f", "absent.conf,net,port,1"});
    EXPECT_EQ(r.exitStatus, 0);
    const size_t nl = r.out.find('\n');
    EXPECT_EQ(stripTimestamp(r.out.substr(0, nl)), ">>> ERR, fileMode, but file[absent.conf] is not found.");
    EXPECT_EQ(r.out.substr(nl), "\n\n") << "the message's own newline and logPrt's";
    EXPECT_TRUE(dir.list().empty()) << "no file is created";

    // "a,,b,c": section b, key c, and no text: a command-line fault.
    ASSERT_TRUE(writeFile(dir.file("m.conf"), "[b]\nc=old\n"));
    r = runIn(dir, {"-f", "m.conf,,b,c"});
    EXPECT_EQ(r.exitStatus, 1);
    EXPECT_EQ(r.out, ">>> ERR, vxShell, fileMode, but text is NULL[m.conf].");
    EXPECT_EQ(readFile(dir.file("m.conf")), "[b]\nc=old\n");
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
    EXPECT_EQ(runIn(dir, {"-f", "cur.conf,g,k,2"}).exitStatus, 0);
    struct stat st;
    ASSERT_EQ(lstat(dir.file("cur.conf").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays";
    ASSERT_EQ(stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(readFile(target), "[g]\r\nk=\"2\"\r\n\r\n");
    EXPECT_EQ(dir.list(), (Names{"cur.conf", "etc"}));
}

// -f wins over every other mode: the file is edited and nothing reaches the
// service's socket (bound here if no one holds it).
TEST(FileModeE2E, OtherModeOptionsAreIgnoredAndNothingIsSent)
{
    const char* const sockPath = "/tmp/vx/vxRxSock";
    const bool madeDir = mkdir("/tmp/vx", 0777) == 0;
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
        {"-t", "3", "-f", "o.conf,g,k,2"}, {"-f", "o.conf,g,k,3", "-R"}, {"-l", "2", "-f", "o.conf,g,k,4", "-v", "x"}};
    int n = 2;
    for (const auto& args : runs) {
        const RunResult r = runIn(dir, args);
        EXPECT_EQ(r.exitStatus, 0);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(readFile(dir.file("o.conf")), "[g]\r\nk=\"" + std::to_string(n++) + "\"\r\n\r\n");
    }
    if (sock >= 0) {
        char buf[2048];
        EXPECT_EQ(recv(sock, buf, sizeof buf, MSG_DONTWAIT), -1) << "a datagram reached the service socket";
        close(sock);
        unlink(sockPath);
    }
    if (madeDir)
        rmdir("/tmp/vx");
}

} // namespace
