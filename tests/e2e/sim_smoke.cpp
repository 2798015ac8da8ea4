// The stand-in service, once per mode: the client library against the built
// vxsim, and vxsim's own end.
#include "vxclient.h"
#include "vxtest.h"

#include <chrono>
#include <csignal>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>

TEST(SimSmoke, EachModeAndTheEnd)
{
    SyslogCapture quiet; // the client's lines stay out of the system log
    // vxsim with `args`: what the client saw of it, the texts of its stdout
    // ('|' between them), and its end on SIGTERM.
    const auto mode = [](std::vector<std::string> args, const char* want, const char* printed,
                         std::string (*client)(int sock)) {
        SCOPED_TRACE(args.empty() ? "default" : args[0]);
        cleanVxDir();
        args.insert(args.begin(), "vxsim");
        Child sim(args);
        ASSERT_TRUE(waitUntil([] { return access(VX_PID_FILE, F_OK) == 0; }, 10000)) << sim.wait(0).err;
        const int sock = registApplication("smoke", 0, -1, "127.0.0.1");
        EXPECT_EQ(client(sock), want);
        close(sock);
        std::istringstream texts(printed);
        for (std::string text; std::getline(texts, text, '|');)
            EXPECT_NE(sim.waitOut(text, 0, 5000), std::string::npos) << text << " not in\n"
                                                                     << sim.out().substr(0, 3000);
        sim.kill(SIGTERM);
        EXPECT_EQ(sim.wait().status, 0);
        EXPECT_TRUE(access(VX_SERVICE_SOCK, F_OK) != 0 && access(VX_PID_FILE, F_OK) != 0);
    };
    mode({}, "1 2 ", "reqNo=305 createChannel channel=0 len=120 from=", [](int s) {
        return seq({createChannel(s), createChannel(s)});
    });
    mode({"--first-channel", "5", "--max-channels", "9", "--cam-detection", "3", "--rx-port", "7000"},
         "5 9 3 7000 1 9100 ", "reqNo=20 setAudioRxPort channel=5 len=176", [](int s) {
             return seq({createChannel(s), getMaxConcChannelNo(s), getCamDetection(s), getAudioRxPort(s, 5),
                         setAudioRxPort(s, 5, 9100), getAudioRxPort(s, 5)});
         });
    mode({"--silent"}, "-7 ", "createChannel", [](int s) { return seq({createChannel(s)}); });
    mode({"--delay", "300", "--quiet"}, "1 1 ", "", [](int s) {
        const auto t0 = std::chrono::steady_clock::now();
        return seq({createChannel(s), std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(250)});
    });
    mode({"--wrong-reqno"}, "1 ", "answer reqNo=1305 ", [](int s) { return seq({createChannel(s)}); });
    // A service that stops reading: the sends fill its queue, then fail
    // within the socket's send time-out instead of blocking.
    mode({"--no-read"}, "1 ", "", [](int s) {
        int sent = 0;
        while (setAec(s, 1, 1) == 1 && sent < 100000)
            ++sent;
        return seq({sent < 100000});
    });
    // Every request number in a record of odd bytes from an unbound socket,
    // then datagrams too short for a head and beyond 64 KiB, and a short
    // request that waits, from the client's own socket.
    mode({}, "",
         "unknown|reqVQMonUpdateConfig|\\x01\\x02|\\\"|(unterminated)|short(head)|truncated(real=70000)|(short)",
         [](int sock) {
             const int raw = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
             const sockaddr_un to = {AF_UNIX, VX_SERVICE_SOCK};
             std::vector<uint8_t> d(70000);
             for (size_t i = 0; i < d.size(); ++i)
                 d[i] = static_cast<uint8_t>(i % 128 + 1 + (i % 97 == 0 ? 128 : 0));
             auto send = [&](int fd, int32_t reqNo, size_t n) {
                 memcpy(d.data(), &reqNo, 4);
                 sendto(fd, d.data(), n, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
             };
             for (int32_t reqNo = 0; reqNo <= 320; ++reqNo)
                 send(raw, reqNo, 1664);
             for (size_t n : {3, 100, 70000})
                 send(raw, 320, n);
             send(sock, 305, 100); // createChannel
             close(raw);
             return std::string();
         });
    mode({"--record", "/tmp/vx/rec"}, "1 1 ", "reqNo=17 setAec channel=1 len=124", [](int s) {
        return seq({setAec(s, 1, 1), waitUntil([] { return readFile("/tmp/vx/rec").size() >= 328; }, 2000)});
    });
    // A live service is left alone unless forced; bad options end with 2.
    Child first({"vxsim"});
    ASSERT_TRUE(waitUntil([] { return access(VX_PID_FILE, F_OK) == 0; }, 10000));
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
