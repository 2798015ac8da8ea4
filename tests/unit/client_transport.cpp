// The transport: kind table, checks, log idiom, side files, waits and
// their failures.
#include "clientfixture.h"
#include "request.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <regex>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

namespace {

void touch(const char* path)
{
    const int fd = open(path, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0) << path;
    close(fd);
}

long msSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
}

// The numbers the service answers, from the list of what it is known to do:
// exactly these must wait.
const std::set<int> kWaiting = {22, 28, 29, 305, 307, 308};

} // namespace

TEST(KindTable, HasFiftyNineRowsAndOnlyTheAnsweredNumbersWait)
{
    ASSERT_EQ(vxKindTableRows(), 59);
    std::set<int> seen;
    for (int i = 0; i < vxKindTableRows(); ++i) {
        int reqNo = 0, kind = 0;
        vxKindTableRow(i, &reqNo, &kind);
        EXPECT_TRUE(seen.insert(reqNo).second) << "row twice: " << reqNo;
        EXPECT_EQ(needResponse(reqNo) != 0, kWaiting.count(reqNo) == 1) << reqNo;
    }
    // Kind 1 rows (a response some day, not awaited by the client).
    for (int n : {32, 202, 306})
        EXPECT_EQ(vxKindOf(n), 1) << n;
}

TEST_F(ClientTest, NumberWithoutRowIsSentNotAwaitedAndLoggedAtCrit)
{
    REQUIRE_SYSLOG(*log);
    for (int n : {18, 53, 126, 999}) {
        clear();
        tReqHead req{};
        req.hdr.reqNo = n;
        tResp2App resp{};
        resp.result = 77;
        EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
        EXPECT_EQ(resp.result, 77) << "resp must stay untouched";
        EXPECT_EQ(only().reqNo(), n);
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), 1u) << n;
        EXPECT_EQ(lines[0].level(), LOG_CRIT);
        EXPECT_EQ(lines[0].facility(), LOG_USER);
        EXPECT_EQ(lines[0].ident, "MLIB");
        EXPECT_TRUE(std::regex_match(lines[0].text, std::regex("error in needResponse:[0-9]+\\(" + std::to_string(n) + "\\)\n")))
            << lines[0].text;
    }
}

TEST_F(ClientTest, CheckPortAndCheckIp)
{
    REQUIRE_SYSLOG(*log);
    struct {
        int port;
        int want;
    } ports[] = {{100, 0}, {101, 1}, {70000, 1}, {-1, 0}, {0, 0}};
    for (const auto& p : ports) {
        clear();
        EXPECT_EQ(checkPort(p.port), p.want) << p.port;
        const auto t = log->texts();
        ASSERT_EQ(t.size(), p.want ? 0u : 1u) << p.port;
        if (!p.want) {
            EXPECT_TRUE(isCheckLine(t[0], "port>100", "checkPort")) << t[0];
        }
    }
    struct {
        const char* ip;
        int want;
        size_t logged;
    } ips[] = {{"127.0.0.1", 1, 0}, {"::1", 1, 0}, {"fe80::1:2", 1, 0}, {"localhost", 0, 0},
               {"1.2.3", 0, 0},     {"", 0, 0},    {nullptr, 0, 1}};
    for (const auto& c : ips) {
        clear();
        EXPECT_EQ(checkIp(c.ip), c.want) << (c.ip ? c.ip : "null");
        const auto t = log->texts();
        ASSERT_EQ(t.size(), c.logged);
        if (c.logged) {
            EXPECT_TRUE(isCheckLine(t[0], "ip", "checkIp")) << t[0];
        }
    }
}

TEST_F(ClientTest, MlibLogUsesItsIdentFacilityLevelAndCutsAt255)
{
    REQUIRE_SYSLOG(*log);
    mlibLog("%s", std::string(400, 'x').c_str());
    const auto lines = log->lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].ident, "MLIB");
    EXPECT_EQ(lines[0].priority, LOG_USER | LOG_INFO);
    EXPECT_EQ(lines[0].text, std::string(255, 'x'));
}

TEST_F(ClientTest, SockPathIsWrittenAndTheRestOfTheRecordGoesOutAsItIs)
{
    struct {
        tMediaReq hdr;
        unsigned char payload[40];
    } req;
    memset(&req, 0xAB, sizeof req);
    req.hdr.reqNo = 15;
    req.hdr.channel = 9;
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, nullptr), 1);
    const Datagram d = only();
    ASSERT_EQ(d.size(), sizeof req);
    EXPECT_EQ(d.sockPath(), d.from);
    EXPECT_EQ(d.from.rfind("/tmp/vx/app", 0), 0u) << d.from;
    EXPECT_EQ(d.word(4), static_cast<int32_t>(0xABABABAB)) << "reserved word untouched";
    // Behind the path's NUL the bytes stay as they were.
    EXPECT_EQ(d.bytes[8 + d.from.size() + 1], 0xAB);
    EXPECT_EQ(d.channel(), 9);
    EXPECT_EQ(d.bytes[150], 0xAB);
}

TEST_F(ClientTest, NegativeSocketIsRefusedAndLoggedEvenWithTheIgnoreFile)
{
    REQUIRE_SYSLOG(*log);
    touch(VX_IGNORE_FILE);
    tReqHead req{};
    req.hdr.reqNo = 15;
    EXPECT_EQ(Send2VoxalisByApp(-1, &req, sizeof req, nullptr), 0);
    const auto t = log->texts();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(t[0].rfind("Send2VoxalisByApp:", 0), 0u) << t[0];
    EXPECT_NE(t[0].find(" improper socket:-1\n(Send2VoxalisByApp:"), std::string::npos) << t[0];
    unlink(VX_IGNORE_FILE);
}

TEST_F(ClientTest, IgnoreFileSwallowsRequestsAndTakesEffectAtTheNextRequest)
{
    tReqHead req{};
    req.hdr.reqNo = 305; // a waiting number: not even the wait happens
    tResp2App resp{};
    resp.result = 55;
    touch(VX_IGNORE_FILE);
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    EXPECT_EQ(resp.result, 55);
    EXPECT_EQ(req.hdr.sockPath[0], '\0') << "the record is not touched";
    unlink(VX_IGNORE_FILE);
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    EXPECT_EQ(only().reqNo(), 305);
    EXPECT_EQ(resp.reqNo, 305);
    // Once more in, once more out: every request probes afresh.
    touch(VX_IGNORE_FILE);
    clear();
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    EXPECT_EQ(settle(0).size(), 0u);
    unlink(VX_IGNORE_FILE);
}

TEST_F(ClientTest, KindOneDoesNotWaitAndLeavesResp)
{
    tReqHead req{};
    req.hdr.reqNo = 306;
    tResp2App resp{};
    resp.result = 42;
    svc->setResult(306, 1); // even an answering service is not waited for
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    EXPECT_EQ(resp.result, 42);
}

TEST_F(ClientTest, AnswerForAnotherNumberIsLoggedAndStillASuccess)
{
    REQUIRE_SYSLOG(*log);
    svc->setPolicy(FakeService::Policy::WrongReqNo);
    svc->setResult(307, 8);
    tReqHead req{};
    req.hdr.reqNo = 307;
    tResp2App resp{};
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    EXPECT_EQ(resp.reqNo, 1307);
    EXPECT_EQ(resp.result, 8);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_TRUE(isCheckLine(t[0], "mediaReq->reqNo==rsp.reqNo", "Send2VoxalisByApp")) << t[0];
}

TEST_F(ClientTest, AnswerWithoutRespRecordIsLost)
{
    REQUIRE_SYSLOG(*log);
    tReqHead req{};
    req.hdr.reqNo = 305;
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, nullptr), 0);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_TRUE(isCheckLine(t[0], "resp!=NULL", "Send2VoxalisByApp")) << t[0];
}

TEST_F(ClientTest, SilentServiceTimesOutAfterThreeSecondsWithResultMinusOne)
{
    REQUIRE_SYSLOG(*log);
    svc->setPolicy(FakeService::Policy::Silent);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(createChannel(sock), VX_ERR_RESOURCE);
    const long ms = msSince(t0);
    EXPECT_GE(ms, 2900);
    EXPECT_LT(ms, 4500);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(t[0].rfind("(Send2VoxalisByApp:", 0), 0u) << t[0];
    EXPECT_NE(t[0].find(")reqNo:305 Resource temporarily unavailable\n(Send2VoxalisByApp:"), std::string::npos) << t[0];
    EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp)==VERY_OK", "createChannel")) << t[1];

    // The transport itself sets result -1.
    tReqHead req{};
    req.hdr.reqNo = 22;
    tResp2App resp{};
    resp.result = 5;
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 0);
    EXPECT_EQ(resp.result, -1);
}

TEST(Transport, ServiceDownFailsAtOnceWithTheSendtoLine)
{
    cleanVxDir();
    unlink(VX_SERVICE_SOCK);
    SyslogCapture log;
    const int sock = registApplication("down", 0, -1, "127.0.0.1");
    ASSERT_GE(sock, 0) << "registration succeeds with the service down";
    log.clear();
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(createChannel(sock), VX_ERR_RESOURCE);
    EXPECT_LT(msSince(t0), 1000) << "no response wait without a send";
    if (log.ok()) {
        const auto t = log.texts();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NE(t[0].find(")reqNo:305 No such file or directory\n"), std::string::npos) << t[0];
    }
    close(sock);
    cleanVxDir();
}

TEST(Transport, ServiceThatStopsReadingCannotHangTheSender)
{
    cleanVxDir();
    unlink(VX_SERVICE_SOCK);
    // A bound socket that is never read: its queue fills up.
    const int dead = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    strcpy(a.sun_path, VX_SERVICE_SOCK);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    SyslogCapture log;
    const int sock = registApplication("full", 0, -1, "127.0.0.1");
    ASSERT_GE(sock, 0);
    tReqHead req{};
    req.hdr.reqNo = 15;
    const auto t0 = std::chrono::steady_clock::now();
    int failed = 0;
    for (int i = 0; i < 200 && failed == 0; ++i)
        if (Send2VoxalisByApp(sock, &req, sizeof req, nullptr) == 0)
            failed = i + 1;
    EXPECT_GT(failed, 0) << "a send must give up";
    EXPECT_LT(msSince(t0), 6000);
    if (log.ok()) {
        bool sawSendto = false;
        for (const auto& t : log.texts())
            sawSendto |= t.find(")reqNo:15 Resource temporarily unavailable\n") != std::string::npos;
        EXPECT_TRUE(sawSendto);
    }
    close(sock);
    close(dead);
    unlink(VX_SERVICE_SOCK);
    cleanVxDir();
}

TEST_F(ClientTest, SaveMsgAppendsEachRecordAsSentToItsFileUnderTx)
{
    touch(VX_SAVEMSG_FILE);
    tReqWord a{};
    a.hdr.reqNo = 25;
    a.w0 = 1;
    tReqTwoWords b{};
    b.hdr.reqNo = 19;
    b.w0 = 2;
    b.w1 = -1;
    ASSERT_EQ(Send2VoxalisByApp(sock, &a, sizeof a, nullptr), 1);
    ASSERT_EQ(Send2VoxalisByApp(sock, &b, sizeof b, nullptr), 1);
    const auto sent = settle(2);
    ASSERT_EQ(sent.size(), 2u);
    const std::string file = std::string(VX_SAVE_DIR) + sent[0].from.substr(8);
    std::ifstream in(file, std::ios::binary);
    const std::string saved((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string expected(sent[0].bytes.begin(), sent[0].bytes.end());
    expected.append(sent[1].bytes.begin(), sent[1].bytes.end());
    EXPECT_EQ(saved, expected);
    EXPECT_EQ(saved.substr(8, sent[0].from.size()), sent[0].from);
    unlink(file.c_str());

    // Without the directory the request goes out all the same.
    rmdir("/tmp/vx/tx");
    clear();
    EXPECT_EQ(Send2VoxalisByApp(sock, &a, sizeof a, nullptr), 1);
    EXPECT_EQ(only().reqNo(), 25);
    mkdir("/tmp/vx/tx", 0777);
    unlink(VX_SAVEMSG_FILE);
}

TEST_F(ClientTest, PrintReqTimePrintsStartAndEndLines)
{
    touch(VX_PRINTTIME_FILE);
    tReqHead req{};
    req.hdr.reqNo = 305;
    tResp2App resp{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(Send2VoxalisByApp(sock, &req, sizeof req, &resp), 1);
    fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    unlink(VX_PRINTTIME_FILE);
    // ">>305 <asctime>\n:<usec>\n" then "<<305 ...".
    const size_t start = out.find(">>305 ");
    const size_t end = out.find("<<305 ");
    ASSERT_NE(start, std::string::npos) << out;
    ASSERT_NE(end, std::string::npos) << out;
    EXPECT_LT(start, end);
    const std::string first = out.substr(start, end - start);
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 2) << first;
    EXPECT_NE(first.find("\n:"), std::string::npos) << first;
}

TEST_F(ClientTest, TwoThreadsWaitingOnOneSocketEachGetTheirOwnAnswer)
{
    // A delayed answer keeps each wait open long enough for the other thread
    // to send in between, were the waits not serialised.
    svc->setPolicy(FakeService::Policy::Answer, 5);
    svc->setResult(307, 4);
    svc->setResult(308, 1);
    std::atomic<int> wrong{0};
    auto worker = [&](int reqNo, int want) {
        for (int i = 0; i < 20; ++i) {
            tReqHead req{};
            req.hdr.reqNo = reqNo;
            tResp2App resp{};
            if (Send2VoxalisByApp(sock, &req, sizeof req, &resp) != 1 || resp.reqNo != reqNo || resp.result != want)
                ++wrong;
        }
    };
    std::thread a(worker, 307, 4);
    std::thread b(worker, 308, 1);
    a.join();
    b.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(ClientTest, ManyLogLinesInARowNeverBlockTheCaller)
{
    REQUIRE_SYSLOG(*log);
    // More lines than a local datagram queue holds, without reading between.
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(checkPort(i), 0);
    EXPECT_TRUE(log->waitFor(60));
    EXPECT_EQ(log->texts().size(), 60u);
}
