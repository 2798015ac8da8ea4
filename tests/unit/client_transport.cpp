// The transport, tested once for every operation: waits for answers, the
// side files under /tmp/vx/, serialisation per socket, log levels and the
// sockets of a registration.
#include "vxclient.h"
#include "vxtest.h"

#include <chrono>
#include <fcntl.h>
#include <future>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool touch(const char* path) { return close(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644)) == 0; }

struct Registered {
    explicit Registered(FakeService::Policy policy = FakeService::Answer, int delayMs = 0) : svc(policy, delayMs)
    {
        EXPECT_TRUE(svc.waitFor(1));
        svc.clear();
        log.clear();
    }
    ~Registered() { close(sock); }
    SyslogCapture log;
    FakeService svc;
    int sock = registApplication("tr", 0, -1, "127.0.0.1"); // once the service is there
};

} // namespace

TEST(Transport, AnswersByTheServicesPolicy)
{
    const std::string valueForm = "Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp)==VERY_OK(createChannel:";
    struct Case {
        FakeService::Policy policy;
        int delayMs, want;
        double minS, maxS;
        std::vector<std::string> log;
    } cases[] = {
        {FakeService::Answer, 0, 1, 0, 1, {}},
        {FakeService::Answer, 300, 1, 0.25, 2, {}},
        {FakeService::WrongReqNo, 0, 1, 0, 1, {"mediaReq->reqNo==rsp.reqNo(Send2VoxalisByApp:"}},
        // The socket's receive time-out bounds the wait: three seconds.
        {FakeService::Silent, 0, -7, 2.5, 6, {"(Send2VoxalisByApp:", valueForm}},
    };
    for (const Case& c : cases) {
        Registered r(c.policy, c.delayMs);
        const auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(createChannel(r.sock), c.want);
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        EXPECT_TRUE(s >= c.minS && s <= c.maxS) << s << " s";
        const auto lines = r.log.texts();
        ASSERT_EQ(lines.size(), c.log.size()) << testing::PrintToString(lines);
        for (size_t i = 0; i < lines.size(); ++i)
            EXPECT_EQ(lines[i].rfind(c.log[i], 0), 0u) << lines[i];
    }
    // A caller of the transport itself reads -1 from a wait that failed.
    Registered r(FakeService::Silent);
    tResp2App resp{};
    int32_t req[30] = {305};
    EXPECT_EQ(Send2VoxalisByApp(r.sock, req, sizeof req, &resp) * 10 + resp.result, -1);
}

TEST(Transport, SideFilesTakeEffectAtTheNextRequest)
{
    Registered r;
    // ignoreVxReq: requests are reported as sent; the value form has no answer.
    ASSERT_TRUE(touch(VX_IGNORE_FILE));
    EXPECT_EQ(setAec(r.sock, 1, 1), 1);
    EXPECT_EQ(createChannel(r.sock), -1);
    unlink(VX_IGNORE_FILE);
    EXPECT_EQ(setAec(r.sock, 1, 0), 1);
    ASSERT_TRUE(r.svc.waitFor(1));
    EXPECT_EQ(r.svc.received().size(), 1u);
    // saveMsg: each record as sent is appended to tx/<socket name>.
    const std::string saved = VX_SAVE_DIR + r.svc.received()[0].from.substr(8);
    ASSERT_TRUE(touch(VX_SAVEMSG_FILE));
    setAec(r.sock, 1, 1);
    setPtime(r.sock, 1, 20);
    unlink(VX_SAVEMSG_FILE);
    setAec(r.sock, 1, 0);
    ASSERT_TRUE(r.svc.waitFor(4));
    const auto d = r.svc.received();
    EXPECT_EQ(readFile(saved),
              std::string(d[1].bytes.begin(), d[1].bytes.end()) + std::string(d[2].bytes.begin(), d[2].bytes.end()));
    // printReqTime: a start line before the send and an end line after it.
    ASSERT_TRUE(touch(VX_PRINTTIME_FILE));
    testing::internal::CaptureStdout();
    createChannel(r.sock);
    unlink(VX_PRINTTIME_FILE);
    setAec(r.sock, 1, 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_search(out, std::regex(R"(^>>305 \w{3} \w{3} .*\n:\d+\n<<305 .*\n:\d+\n$)"))) << out;
}

TEST(Transport, RequestsOnOneSocketGetTheirOwnAnswers)
{
    // The limit's answer comes late, the channel's at once: without the
    // socket's lock a channel request would take the limit's answer.
    Registered r;
    r.svc.setResult(307, -44, 20);
    std::vector<int> channels, limits;
    std::thread other([&] {
        for (int i = 0; i < 30; ++i)
            limits.push_back(getMaxConcChannelNo(r.sock));
    });
    for (int i = 0; i < 30; ++i)
        channels.push_back(createChannel(r.sock));
    other.join();
    EXPECT_EQ(std::count(limits.begin(), limits.end(), -44), 30);
    EXPECT_EQ(std::count(channels.begin(), channels.end(), -44), 0);
    EXPECT_TRUE(r.log.texts().empty());
}

TEST(Transport, LevelsSocketsAndOddPaths)
{
    Registered r;
    reqVQMonMonitor(r.sock, 1, 1, 5); // no kind row: LOG_CRIT
    setAec(-1, 1, 1);                 // a refusal: LOG_INFO, both LOG_USER
    // In the service's own process (its pid in the pid file) the line still goes out.
    writeFile(VX_PID_FILE, std::to_string(getpid()) + "\n");
    reqVQMonMonitor(r.sock, 1, 1, 5);
    const auto lines = r.log.texts();
    const auto raw = r.log.received();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(raw[0].text(0, 4) + raw[1].text(0, 4), "<10><14>"); // LOG_USER with LOG_CRIT, LOG_INFO
    EXPECT_EQ(lines[3], lines[0]);
    // A FIFO as the pid file (anyone who may write /tmp/vx/ can plant one)
    // must not hold the request.
    unlink(VX_PID_FILE);
    mkfifo(VX_PID_FILE, 0644);
    auto call = std::async(std::launch::async, [&] { return reqVQMonMonitor(r.sock, 1, 1, 5); });
    EXPECT_EQ(call.wait_for(std::chrono::seconds(2)), std::future_status::ready)
        << "the request waited on the pid file";
    while (call.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready)
        close(open(VX_PID_FILE, O_RDWR | O_NONBLOCK)); // a stuck reader gets its writer
    EXPECT_EQ(call.get(), 1);
    unlink(VX_PID_FILE);
    // Sockets: a fresh appXXXXXX per registration, left in place; the fixed
    // path for the shell's debugging registration.
    const int a = registApplication("a", 0, -1, "127.0.0.1"), b = regForVxShell("b", 0, "127.0.0.1", -1);
    ASSERT_TRUE(r.svc.waitFor(5));
    const auto d = r.svc.received();
    EXPECT_TRUE(std::regex_match(d[3].from, std::regex("/tmp/vx/app[A-Za-z0-9]{6}"))) << d[3].from;
    EXPECT_EQ(d[4].from, VX_DBG_SOCK);
    EXPECT_TRUE(fcntl(a, F_GETFD) & FD_CLOEXEC) << "no command the application starts inherits the socket";
    EXPECT_EQ(unregistApplication(a), 1);
    EXPECT_EQ(access(d[3].from.c_str(), F_OK), 0);
    close(b);
    // A descriptor that is no socket fails in the transport; saveMsg without
    // tx/ saves nothing and the request goes out all the same.
    const int notSocket = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(setAec(notSocket, 1, 1), -7);
    close(notSocket);
    ASSERT_TRUE(touch(VX_SAVEMSG_FILE) && rmdir("/tmp/vx/tx") == 0);
    EXPECT_EQ(setAec(r.sock, 1, 1), 1);
}
