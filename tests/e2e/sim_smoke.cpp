// The stand-in service, once per mode: the client library against the built
// vxsim, and vxsim's own end.
#include "vxclient.h"
#include "vxtest.h"

#include <chrono>
#include <csignal>
#include <sys/stat.h>

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
    const char* printed; // a text of vxsim's stdout
};

// The values in order (a braced list is evaluated left to right).
std::string seq(std::initializer_list<int> values)
{
    std::string s;
    for (int v : values)
        s += std::to_string(v) + " ";
    return s;
}

const Mode kModes[] = {
    {{}, [](int s) { return seq({createChannel(s), createChannel(s)}); }, "1 2 ",
     "reqNo=305 createChannel channel=0 len=120 from="},
    {{"--first-channel", "5", "--max-channels", "9", "--cam-detection", "3", "--rx-port", "7000"},
     [](int s) {
         return seq({createChannel(s), getMaxConcChannelNo(s), getCamDetection(s), getAudioRxPort(s, 5),
                     setAudioRxPort(s, 5, 9100), getAudioRxPort(s, 5)});
     },
     "5 9 3 7000 1 9100 ", "reqNo=20 setAudioRxPort channel=5 len=176"},
    {{"--silent"}, [](int s) { return seq({createChannel(s)}); }, "-7 ", "createChannel"},
    {{"--delay", "300"},
     [](int s) {
         const auto t0 = std::chrono::steady_clock::now();
         return seq({createChannel(s), std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(250)});
     },
     "1 1 ", ""},
    {{"--wrong-reqno"}, [](int s) { return seq({createChannel(s)}); }, "1 ", ""},
    // A service that stops reading: the sends fill its queue, then fail
    // within the socket's send time-out instead of blocking.
    {{"--no-read"},
     [](int s) {
         int sent = 0;
         while (setAec(s, 1, 1) == 1 && sent < 100000)
             ++sent;
         return seq({sent < 100000});
     },
     "1 ", ""},
    {{"--record", "/tmp/vx/rec"},
     [](int s) { return seq({setAec(s, 1, 1), waitUntil([] { return readFile("/tmp/vx/rec").size() >= 328; }, 2000)}); },
     "1 1 ", "reqNo=17 setAec channel=1 len=124"},
};

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
        sim.kill(SIGTERM);
        const Child::Result r = sim.wait();
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(m.printed), std::string::npos) << r.out;
        EXPECT_FALSE(exists(VX_SERVICE_SOCK) || exists(VX_PID_FILE));
    }
    const Child::Result bad = runChild({"vxsim", "--bogus"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("unknown option '--bogus'"), std::string::npos) << bad.err;
    cleanVxDir();
}
