// The stand-in service, once per mode: the client library against the built
// vxsim, and vxsim's own end.
#include "vxclient.h"
#include "vxtest.h"

#include <chrono>
#include <csignal>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

bool exists(const char* path)
{
    struct stat st;
    return stat(path, &st) == 0;
}

struct Mode {
    std::vector<std::string> args;
    std::function<std::string(int sock)> client; // what the client saw
    std::string want;
    const char* printed; // texts of vxsim's stdout, '|' between them
};

// Sends every request number in a record of odd bytes from an unbound
// socket, then datagrams too short for a head and beyond 64 KiB, and a short
// request that waits, from the client's own socket.
int spray(int sock)
{
    const int raw = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un to = {AF_UNIX, VX_SERVICE_SOCK};
    std::vector<uint8_t> d(70000);
    for (size_t i = 0; i < d.size(); ++i)
        d[i] = static_cast<uint8_t>(i % 128 + 1 + (i % 97 == 0 ? 128 : 0));
    auto send = [&](int fd, size_t n) {
        sendto(fd, d.data(), n, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    };
    for (int32_t reqNo = 0; reqNo <= 320; ++reqNo) {
        memcpy(d.data(), &reqNo, 4);
        send(raw, 1664);
    }
    send(raw, 3);
    send(raw, 100);
    send(raw, 70000);
    const int32_t createChannel = 305;
    memcpy(d.data(), &createChannel, 4);
    send(sock, 100);
    close(raw);
    return 0;
}

// clang-format off
const Mode kModes[] = {
    {{}, [](int s) { return seq({createChannel(s), createChannel(s)}); }, "1 2 ",
     "reqNo=305 createChannel channel=0 len=120 from="},
    {{"--first-channel", "5", "--max-channels", "9", "--cam-detection", "3", "--rx-port", "7000"},
     [](int s) { return seq({createChannel(s), getMaxConcChannelNo(s), getCamDetection(s), getAudioRxPort(s, 5),
                             setAudioRxPort(s, 5, 9100), getAudioRxPort(s, 5)}); },
     "5 9 3 7000 1 9100 ", "reqNo=20 setAudioRxPort channel=5 len=176"},
    {{"--silent"}, [](int s) { return seq({createChannel(s)}); }, "-7 ", "createChannel"},
    {{"--delay", "300"}, [](int s) {
         const auto t0 = std::chrono::steady_clock::now();
         return seq({createChannel(s), std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(250)}); },
     "1 1 ", ""},
    {{"--wrong-reqno", "--quiet"}, [](int s) { return seq({createChannel(s)}); }, "1 ", ""},
    // A service that stops reading: the sends fill its queue, then fail
    // within the socket's send time-out instead of blocking.
    {{"--no-read"}, [](int s) {
         int sent = 0;
         while (setAec(s, 1, 1) == 1 && sent < 100000)
             ++sent;
         return seq({sent < 100000}); },
     "1 ", ""},
    // Every request number, with odd texts, and datagrams of odd lengths.
    {{}, [](int s) { return seq({spray(s)}); }, "0 ",
     "unknown|reqVQMonUpdateConfig|\\x01\\x02|\\\"|(unterminated)|short(head)|truncated(real=70000)|(short)"},
    {{"--record", "/tmp/vx/rec"},
     [](int s) { return seq({setAec(s, 1, 1), waitUntil([] { return readFile("/tmp/vx/rec").size() >= 328; }, 2000)}); },
     "1 1 ", "reqNo=17 setAec channel=1 len=124"},
};
// clang-format on

} // namespace

TEST(SimSmoke, EachModeAndTheEnd)
{
    SyslogCapture quiet; // the client's lines stay out of the system log
    for (const Mode& m : kModes) {
        SCOPED_TRACE(m.args.empty() ? "default" : m.args[0]);
        cleanVxDir();
        std::vector<std::string> argv = {"vxsim"};
        argv.insert(argv.end(), m.args.begin(), m.args.end());
        Child sim(argv);
        ASSERT_TRUE(waitUntil([] { return exists(VX_PID_FILE); }, 10000)) << sim.wait(0).err;
        const int sock = registApplication("smoke", 0, -1, "127.0.0.1");
        EXPECT_EQ(m.client(sock), m.want);
        close(sock);
        std::istringstream texts(m.printed);
        for (std::string text; std::getline(texts, text, '|');)
            EXPECT_NE(sim.waitOut(text, 0, 5000), std::string::npos) << text << " not in\n"
                                                                     << sim.out().substr(0, 3000);
        sim.kill(SIGTERM);
        EXPECT_EQ(sim.wait().status, 0);
        EXPECT_FALSE(exists(VX_SERVICE_SOCK) || exists(VX_PID_FILE));
    }
    // A live service is left alone unless forced; bad options end with 2.
    Child first({"vxsim"});
    ASSERT_TRUE(waitUntil([] { return exists(VX_PID_FILE); }, 10000));
    const std::pair<std::vector<std::string>, std::string> runs[] = {
        {{"vxsim"}, "1 a service is running on /tmp/vx/vxRxSock (use --force to take it over)"},
        {{"vxsim", "--record", "/tmp/vx/no/rec"}, "1 cannot open record file /tmp/vx/no/rec"},
        {{"vxsim", "--bogus"}, "2 unknown option '--bogus'"},
        {{"vxsim", "--delay", "x"}, "2 bad --delay 'x'"},
        {{"vxsim", "--delay"}, "2 option --delay needs an argument"},
        {{"vxsim", "--help"}, "0 "}};
    for (const auto& [argv, want] : runs) {
        const Child::Result r = Child(argv).wait();
        EXPECT_EQ(std::to_string(r.status) + " " + r.err.substr(std::min<size_t>(7, r.err.size()), want.size() - 2),
                  want);
    }
    const std::string firstPid = readFile(VX_PID_FILE);
    Child forced({"vxsim", "--force", "--quiet"});
    EXPECT_TRUE(waitUntil([&] { return readFile(VX_PID_FILE) != firstPid; }, 10000));
    forced.kill(SIGTERM);
    first.kill(SIGTERM);
    EXPECT_EQ(forced.wait().status + first.wait().status, 0);
    cleanVxDir();
}
