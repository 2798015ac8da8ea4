// Registration, unregistration and the channel requests.
#include "clientfixture.h"
#include "request.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int filesInVxDir()
{
    int n = 0;
    DIR* d = opendir("/tmp/vx");
    if (d == nullptr)
        return 0;
    while (struct dirent* e = readdir(d))
        if (strncmp(e->d_name, "app", 3) == 0 || strcmp(e->d_name, "vxdbg2vx") == 0)
            ++n;
    closedir(d);
    return n;
}

bool exists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

} // namespace

TEST_F(ClientTest, RegistrationRecordCarriesNameAddressPortPriorityAndPid)
{
    const int s = registApplication("vxShell V1.0", 2, 7700, "127.0.0.1");
    ASSERT_GE(s, 0);
    const Datagram d = only();
    ASSERT_EQ(d.size(), 196u);
    EXPECT_EQ(d.reqNo(), 303);
    EXPECT_EQ(d.channel(), 0);
    EXPECT_EQ(d.sockPath(), d.from);
    EXPECT_EQ(d.from.rfind("/tmp/vx/app", 0), 0u);
    EXPECT_EQ(d.from.size(), strlen("/tmp/vx/appXXXXXX"));
    // At most nine characters of the name arrive, zeros to the field's end.
    EXPECT_EQ(d.raw(120, 10), std::vector<uint8_t>({'v', 'x', 'S', 'h', 'e', 'l', 'l', ' ', 'V', 0}));
    EXPECT_EQ(d.text(132, 50), "127.0.0.1");
    EXPECT_EQ(d.word(184), 7700);
    EXPECT_EQ(d.word(188), 2);
    EXPECT_EQ(d.word(192), static_cast<int32_t>(getpid()));
    close(s);
}

TEST_F(ClientTest, RegistrationChecksRefuseBeforeAnyFileOrSocketExists)
{
    REQUIRE_SYSLOG(*log);
    struct Case {
        int priority;
        int port;
        const char* ip;
        std::vector<std::pair<std::string, std::string>> lines; // {condition, function}
    } cases[] = {
        {-1, 7700, "127.0.0.1", {{"priority>=0", "registApplication"}}},
        {0, 7700, "no.such.host", {{"checkIp(eventRxIp)", "registApplication"}}},
        {0, 7700, nullptr, {{"ip", "checkIp"}, {"checkIp(eventRxIp)", "registApplication"}}},
        {0, 100, "127.0.0.1",
         {{"port>100", "checkPort"}, {"(eventRxPort==-1||checkPort(eventRxPort))", "registApplication"}}},
        {0, -2, "::1",
         {{"port>100", "checkPort"}, {"(eventRxPort==-1||checkPort(eventRxPort))", "registApplication"}}},
    };
    const int before = filesInVxDir();
    for (const auto& c : cases) {
        clear();
        EXPECT_EQ(registApplication("x", c.priority, c.port, c.ip), VX_ERR_ARGUMENT);
        const auto t = infoLines();
        ASSERT_EQ(t.size(), c.lines.size());
        for (size_t i = 0; i < t.size(); ++i)
            EXPECT_TRUE(isCheckLine(t[i], c.lines[i].first, c.lines[i].second)) << t[i];
        EXPECT_EQ(settle(0).size(), 0u);
    }
    EXPECT_EQ(filesInVxDir(), before);
}

TEST_F(ClientTest, PortMinusOneAnd101AreAccepted)
{
    for (int port : {-1, 101}) {
        clear();
        const int s = registApplication("p", 0, port, "::1");
        ASSERT_GE(s, 0) << port;
        EXPECT_EQ(only().word(184), port);
        close(s);
    }
}

TEST_F(ClientTest, ThreeArgumentFormSendsLoopbackAndLogsItsSocket)
{
    REQUIRE_SYSLOG(*log);
    const int s = registApplication("three", 0, 7700);
    ASSERT_GE(s, 0);
    EXPECT_EQ(only().text(132, 50), "127.0.0.1");
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(t[0].rfind("registApplication:", 0), 0u) << t[0];
    EXPECT_NE(t[0].find(" =============>> sock : " + std::to_string(s) + "\n(registApplication:"), std::string::npos)
        << t[0];
    close(s);
}

TEST_F(ClientTest, RegForVxShellTakesTheFixedPathEveryTime)
{
    const int a = regForVxShell("dbg", 0, "127.0.0.1", 7700);
    const int b = regForVxShell("dbg", 0, "127.0.0.1", 7700);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    const auto got = settle(2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].from, "/tmp/vx/vxdbg2vx");
    EXPECT_EQ(got[1].from, "/tmp/vx/vxdbg2vx");
    close(a);
    close(b);
}

TEST(Registration, WithTheServiceDownReturnsASocketAndCreateChannelFails)
{
    cleanVxDir();
    unlink(VX_SERVICE_SOCK);
    const int s = registApplication("down", 0, 7700, "127.0.0.1");
    EXPECT_GE(s, 0);
    EXPECT_EQ(createChannel(s), VX_ERR_RESOURCE);
    EXPECT_EQ(getMaxConcChannelNo(s), VX_ERR_RESOURCE);
    close(s);
    cleanVxDir();
}

TEST(Registration, MissingDirectoryFailsSilentlyWithMinusSeven)
{
    cleanVxDir();
    rename("/tmp/vx", "/tmp/vx.moved");
    const int s = registApplication("nodir", 0, 7700, "127.0.0.1");
    const int u = unregistApplication("nodir");
    rename("/tmp/vx.moved", "/tmp/vx");
    EXPECT_EQ(s, VX_ERR_RESOURCE);
    EXPECT_EQ(u, VX_ERR_RESOURCE);
}

TEST_F(ClientTest, UnregistrationBySocketSendsEmptyNameClosesAndLeavesThePath)
{
    const int s = registApplication("bye", 0, 7700, "127.0.0.1");
    ASSERT_GE(s, 0);
    const std::string path = only().from;
    clear();
    EXPECT_EQ(unregistApplication(s), 1);
    const Datagram d = only();
    EXPECT_EQ(d.reqNo(), 304);
    EXPECT_EQ(d.size(), 132u);
    EXPECT_EQ(d.channel(), 0);
    EXPECT_EQ(d.bytes[120], 0);
    EXPECT_EQ(d.from, path);
    EXPECT_TRUE(exists(path)) << "the socket's path stays";
    EXPECT_EQ(fcntl(s, F_GETFD), -1) << "the socket is closed";
}

TEST_F(ClientTest, UnregistrationOfMinusOneIsRefused)
{
    REQUIRE_SYSLOG(*log);
    EXPECT_EQ(unregistApplication(-1), VX_ERR_RESOURCE);
    EXPECT_EQ(terminateVx(-1), VX_ERR_RESOURCE);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(t[0].rfind("unregistApplication:", 0), 0u) << t[0];
    EXPECT_EQ(t[1].rfind("terminateVx:", 0), 0u) << t[1];
    EXPECT_EQ(settle(0).size(), 0u);
}

TEST_F(ClientTest, UnregistrationByNameComesFromANewSocketAndNamesTheApplication)
{
    REQUIRE_SYSLOG(*log);
    struct {
        int (*fn)(const char*);
        const char* name;
    } forms[] = {{unregistApplication, "unregistApplication"},
                 {unregistApplicationWithName, "unregistApplicationWithName"}};
    for (const auto& f : forms) {
        clear();
        const int before = filesInVxDir();
        EXPECT_EQ(f.fn(nullptr), VX_ERR_ARGUMENT);
        EXPECT_EQ(f.fn(""), VX_ERR_ARGUMENT);
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_TRUE(isCheckLine(t[0], "appName", f.name)) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], "appName[0]", f.name)) << t[1];
        EXPECT_EQ(filesInVxDir(), before) << "no file for a refused name";

        EXPECT_EQ(f.fn("vxShell V1.0"), 1);
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), 304);
        EXPECT_EQ(d.size(), 132u);
        EXPECT_EQ(d.text(120, 10), "vxShell V");
        EXPECT_EQ(d.from.rfind("/tmp/vx/app", 0), 0u);
    }
}

TEST_F(ClientTest, ChannelRequests)
{
    svc->setResult(305, 12);
    svc->setResult(307, 6);
    EXPECT_EQ(createChannel(sock), 12);
    EXPECT_EQ(getMaxConcChannelNo(sock), 6);
    EXPECT_EQ(deleteChannel(sock, 12), 1);
    EXPECT_EQ(terminateVx(sock), 1);
    const auto got = settle(4);
    ASSERT_EQ(got.size(), 4u);
    const struct {
        int reqNo;
        int channel;
    } want[] = {{305, 0}, {307, 0}, {306, 12}, {301, 0}};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(got[i].reqNo(), want[i].reqNo);
        EXPECT_EQ(got[i].size(), 120u);
        EXPECT_EQ(got[i].channel(), want[i].channel);
    }
}

TEST_F(ClientTest, ValueFormWithoutAnAnswerGivesMinusOne)
{
    // With the ignore file the transport reports success without an answer:
    // the value form then gives its defined "no answer".
    const int fd = open(VX_IGNORE_FILE, O_WRONLY | O_CREAT, 0644);
    close(fd);
    EXPECT_EQ(createChannel(sock), -1);
    EXPECT_EQ(getMaxConcChannelNo(sock), -1);
    unlink(VX_IGNORE_FILE);
}

TEST_F(ClientTest, StrictFormFailureLinesNameTheRecordVariable)
{
    REQUIRE_SYSLOG(*log);
    const int dead = registApplication("d", 0, -1, "127.0.0.1");
    ASSERT_GE(dead, 0);
    svc.reset(); // the service goes away
    log->clear();
    EXPECT_EQ(deleteChannel(dead, 1), VX_ERR_RESOURCE);
    EXPECT_EQ(terminateVx(dead), VX_ERR_RESOURCE);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 4u);
    EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),NULL)==VERY_OK", "deleteChannel"))
        << t[1];
    EXPECT_TRUE(isCheckLine(t[3], "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", "terminateVx")) << t[3];
    close(dead);
    svc = std::make_unique<FakeService>();
}
