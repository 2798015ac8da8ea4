// Audio session requests: codecs, stream switches, the all-in-one starts and
// the conference. One row per operation and overload, one row per check.
#include "clientfixture.h"
#include "recordcheck.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using Call = std::function<int(int sock, int channel)>;

struct SendRow {
    const char* name;
    Call call;
    Expect expect;
};

struct RefuseRow {
    const char* name;
    Call call;
    int result;
    std::vector<Line> lines;
};

const std::string kIp60(60, '7');
const std::string kIp49(49, '7');

// Every operation of the family with what its record must hold. Words not
// listed are expected to be 0 (and unnamed), e.g. the unwritten word at 136
// of reqNo 31 and the 50 unwritten bytes at 140 of reqNo 30 and 31.
const std::vector<SendRow>& sendRows()
{
    static const std::vector<SendRow> rows = {
        {"setAudioCodec/3", [](int s, int c) { return setAudioCodec(s, c, 7); }, {19, 128, {{120, 7}, {124, -1}}, {}, {}}},
        {"setAudioCodec/3 lowest", [](int s, int c) { return setAudioCodec(s, c, 0); }, {19, 128, {{120, 0}, {124, -1}}, {}, {}}},
        {"setAudioCodec/4", [](int s, int c) { return setAudioCodec(s, c, 10, 96); }, {19, 128, {{120, 10}, {124, 96}}, {}, {}}},
        {"setAudioCodec/4 codec 8", [](int s, int c) { return setAudioCodec(s, c, 8, 0); }, {19, 128, {{120, 8}, {124, 0}}, {}, {}}},
        {"setAudioCodec/4 codec 9", [](int s, int c) { return setAudioCodec(s, c, 9, 127); }, {19, 128, {{120, 9}, {124, 127}}, {}, {}}},
        {"setAudioCodec/4 payload -1 as /3", [](int s, int c) { return setAudioCodec(s, c, 3, -1); }, {19, 128, {{120, 3}, {124, -1}}, {}, {}}},
        {"set2ndAudioCodec/3", [](int s, int c) { return set2ndAudioCodec(s, c, 0); }, {36, 128, {{120, 0}, {124, -1}}, {}, {}}},
        {"set2ndAudioCodec/4", [](int s, int c) { return set2ndAudioCodec(s, c, 7, 101); }, {36, 128, {{120, 7}, {124, 101}}, {}, {}}},
        {"setAduioNob", [](int s, int c) { return setAduioNob(s, c, -5); }, {34, 124, {{120, -5}}, {}, {}}},
        {"set2833PayloadType", [](int s, int c) { return set2833PayloadType(s, c, 101); }, {35, 124, {{120, 101}}, {}, {}}},
        {"set2nd2833PayloadType", [](int s, int c) { return set2nd2833PayloadType(s, c, 100); }, {37, 124, {{120, 100}}, {}, {}}},
        {"setTxGain", [](int s, int c) { return setTxGain(s, c, -3); }, {42, 124, {{120, -3}}, {}, {}}},
        {"setVad 5", [](int s, int c) { return setVad(s, c, 5); }, {7, 124, {{120, 1}}, {}, {}}},
        {"setVad -1", [](int s, int c) { return setVad(s, c, -1); }, {7, 124, {{120, 1}}, {}, {}}},
        {"setVad 0", [](int s, int c) { return setVad(s, c, 0); }, {7, 124, {{120, 0}}, {}, {}}},
        {"startAudioRx/3", [](int s, int c) { return startAudioRx(s, c, 7); }, {28, 128, {{120, 1}, {124, 0}}, {}, {}}},
        {"startAudioRx/3 off", [](int s, int c) { return startAudioRx(s, c, 0); }, {28, 128, {{120, 0}, {124, 0}}, {}, {}}},
        {"startAudioRx/4", [](int s, int c) { return startAudioRx(s, c, 0, 9); }, {28, 128, {{120, 0}, {124, 1}}, {}, {}}},
        {"startAudioRx/4 rxOnly 0", [](int s, int c) { return startAudioRx(s, c, -2, 0); }, {28, 128, {{120, 1}, {124, 0}}, {}, {}}},
        {"startAudioRxOnly", [](int s, int c) { return startAudioRxOnly(s, c, 4); }, {28, 128, {{120, 1}, {124, 1}}, {}, {}}},
        {"startAudioRxOnly off", [](int s, int c) { return startAudioRxOnly(s, c, 0); }, {28, 128, {{120, 0}, {124, 1}}, {}, {}}},
        {"startAudioRtpLoop", [](int s, int c) { return startAudioRtpLoop(s, c, 3); }, {32, 128, {{120, 1}, {124, -1}}, {}, {}}},
        {"startAudioTx", [](int s, int c) { return startAudioTx(s, c, 2); }, {29, 124, {{120, 1}}, {}, {}}},
        {"startAudioTx off", [](int s, int c) { return startAudioTx(s, c, 0); }, {29, 124, {{120, 0}}, {}, {}}},
        {"startAudioForward2Saver", [](int s, int c) { return startAudioForward2Saver(s, c, 9); }, {33, 124, {{120, 1}}, {}, {}}},
        {"startAudioForward2Saver off", [](int s, int c) { return startAudioForward2Saver(s, c, 0); }, {33, 124, {{120, 0}}, {}, {}}},
        {"startConference", [](int s, int c) { return startConference(s, c); }, {40, 124, {{120, 1}}, {}, {}}},
        {"stop1stSessiontInConference", [](int s, int c) { return stop1stSessiontInConference(s, c); }, {41, 124, {{120, 1}}, {}, {}}},
        {"stop2ndSessiontInConference", [](int s, int c) { return stop2ndSessiontInConference(s, c); }, {41, 124, {{120, 2}}, {}, {}}},
        // The all-in-one starts: local port before remote port in the record.
        {"startAudioRxTotal",
         [](int s, int c) { return startAudioRxTotal(s, c, 3, 77, 7, "10.1.2.3", "9.9.9.9", 5004, 6006, -9); },
         {30, 248, {{120, 1}, {124, -9}, {128, 0}, {132, 7}, {136, -1}, {240, 6006}, {244, 5004}}, {{190, 50, "10.1.2.3"}}, {}}},
        {"startAudioTxTotal",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 44, 0, "fe80::1", nullptr, 101, 65535); },
         {31, 248, {{120, 1}, {124, 0}, {128, 44}, {132, 0}, {240, 65535}, {244, 101}}, {{190, 50, "fe80::1"}}, {}}},
        // Off: nothing is checked, the same fields go out from the raw values,
        // and a null address leaves the text area alone.
        {"startAudioRxTotal off, null ip",
         [](int s, int c) { return startAudioRxTotal(s, c, 0, 5, 99, nullptr, nullptr, 0, -1, 3); },
         {30, 248, {{120, 0}, {124, 3}, {128, 0}, {132, 99}, {136, -1}, {240, -1}, {244, 0}}, {}, {}}},
        {"startAudioTxTotal off, long text cut at 49",
         [](int s, int c) { return startAudioTxTotal(s, c, 0, 2, -4, kIp60.c_str(), "x", 100, 100); },
         {31, 248, {{120, 0}, {124, 0}, {128, 2}, {132, -4}, {240, 100}, {244, 100}}, {{190, 50, kIp49}}, {}}},
    };
    return rows;
}

// Every check of the family. Nothing may be sent for any of them.
const std::vector<RefuseRow>& refuseRows()
{
    static const std::vector<RefuseRow> rows = {
        {"setAudioCodec/3 -1", [](int s, int c) { return setAudioCodec(s, c, -1); }, -16, {{"codec>=codec_G711a", "setAudioCodec"}}},
        {"setAudioCodec/3 8", [](int s, int c) { return setAudioCodec(s, c, 8); }, -16, {{"codec<=codec_iLBC", "setAudioCodec"}}},
        {"setAudioCodec/4 -1", [](int s, int c) { return setAudioCodec(s, c, -1, 0); }, -16, {{"codec>=codec_G711a", "setAudioCodec"}}},
        {"setAudioCodec/4 11", [](int s, int c) { return setAudioCodec(s, c, 11, 0); }, -16, {{"codec<=_CODEC_A_UNKNOWN", "setAudioCodec"}}},
        {"set2ndAudioCodec/3 8", [](int s, int c) { return set2ndAudioCodec(s, c, 8); }, -16, {{"codec<=codec_iLBC", "set2ndAudioCodec"}}},
        {"set2ndAudioCodec/3 -1", [](int s, int c) { return set2ndAudioCodec(s, c, -1); }, -16, {{"codec>=codec_G711a", "set2ndAudioCodec"}}},
        {"set2ndAudioCodec/4 8", [](int s, int c) { return set2ndAudioCodec(s, c, 8, 0); }, -16, {{"codec<=codec_iLBC", "set2ndAudioCodec"}}},
        {"set2ndAudioCodec/4 -1", [](int s, int c) { return set2ndAudioCodec(s, c, -1, 0); }, -16, {{"codec>=codec_G711a", "set2ndAudioCodec"}}},
        {"startAudioRxTotal null ip",
         [](int s, int c) { return startAudioRxTotal(s, c, 1, 0, 0, nullptr, nullptr, 5004, 6006, 0); }, -16,
         {{"ip", "checkIp"}, {"checkIp(remote_ip)", "startAudioRxTotal"}}},
        {"startAudioTxTotal empty ip",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 0, 0, "", nullptr, 5004, 6006); }, -16,
         {{"checkIp(remote_ip)", "startAudioTxTotal"}}},
        {"startAudioTxTotal host name",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 0, 0, "phone.local", nullptr, 5004, 6006); }, -16,
         {{"checkIp(remote_ip)", "startAudioTxTotal"}}},
        {"startAudioTxTotal remote port 100",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 0, 0, "10.0.0.2", nullptr, 100, 6006); }, -16,
         {{"port>100", "checkPort"}, {"checkPort(remote_port)", "startAudioTxTotal"}}},
        {"startAudioRxTotal local port 100",
         [](int s, int c) { return startAudioRxTotal(s, c, 1, 0, 0, "10.0.0.2", nullptr, 101, 100, 0); }, -16,
         {{"port>100", "checkPort"}, {"checkPort(local_port)", "startAudioRxTotal"}}},
        {"startAudioRxTotal codec -1",
         [](int s, int c) { return startAudioRxTotal(s, c, 1, 0, -1, "10.0.0.2", nullptr, 5004, 6006, 0); }, -16,
         {{"codec>=codec_G711a", "startAudioRxTotal"}}},
        // The all-in-one starts stop at 7, though setAudioCodec/4 takes 8.
        {"startAudioRxTotal codec 8",
         [](int s, int c) { return startAudioRxTotal(s, c, 1, 0, 8, "10.0.0.2", nullptr, 5004, 6006, 0); }, -16,
         {{"codec<=codec_iLBC", "startAudioRxTotal"}}},
        {"startAudioTxTotal codec 8",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 0, 8, "10.0.0.2", nullptr, 5004, 6006); }, -16,
         {{"codec<=codec_iLBC", "startAudioTxTotal"}}},
        // The first failure hides the later ones.
        {"startAudioRxTotal everything wrong",
         [](int s, int c) { return startAudioRxTotal(s, c, 1, 0, 99, "x", nullptr, 1, 1, 0); }, -16,
         {{"checkIp(remote_ip)", "startAudioRxTotal"}}},
        {"startAudioTxTotal both ports wrong",
         [](int s, int c) { return startAudioTxTotal(s, c, 1, 0, 99, "::1", nullptr, 0, 0); }, -16,
         {{"port>100", "checkPort"}, {"checkPort(remote_port)", "startAudioTxTotal"}}},
    };
    return rows;
}

struct FailRow {
    const char* name;
    Call call;
    const char* text;
    const char* fn;
};

const char kReq[] = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK";
const char kCodec[] = "Send2VoxalisByApp(sock,&setCodec,sizeof(setCodec),&resp)==VERY_OK";

} // namespace

TEST_F(ClientTest, AudioSessionRecordsAsSent)
{
    for (const auto& row : sendRows()) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(sock, ch), VERY_OK);
        expectRecord(only(), ch, row.expect);
    }
}

TEST_F(ClientTest, AudioSessionRefusalsSendNothingAndLogTheCheck)
{
    REQUIRE_SYSLOG(*log);
    for (const auto& row : refuseRows()) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(sock, ch), row.result);
        EXPECT_TRUE(settle(0).empty()) << "nothing may be sent";
        expectLines(infoLines(), row.lines);
    }
}

TEST_F(ClientTest, AudioSessionTransportFailureLogsTheCallText)
{
    REQUIRE_SYSLOG(*log);
    const std::vector<FailRow> rows = {
        {"setAudioCodec/3", [](int s, int c) { return setAudioCodec(s, c, 1); }, kCodec, "setAudioCodec"},
        {"setAudioCodec/4", [](int s, int c) { return setAudioCodec(s, c, 1, 0); }, kCodec, "setAudioCodec"},
        {"set2ndAudioCodec/3", [](int s, int c) { return set2ndAudioCodec(s, c, 1); }, kCodec, "set2ndAudioCodec"},
        {"set2ndAudioCodec/4", [](int s, int c) { return set2ndAudioCodec(s, c, 1, 0); }, kCodec, "set2ndAudioCodec"},
        {"setAduioNob", [](int s, int c) { return setAduioNob(s, c, 1); }, kReq, "setAduioNob"},
        {"set2833PayloadType", [](int s, int c) { return set2833PayloadType(s, c, 1); }, kReq, "set2833PayloadType"},
        {"set2nd2833PayloadType", [](int s, int c) { return set2nd2833PayloadType(s, c, 1); }, kReq, "set2nd2833PayloadType"},
        {"setTxGain", [](int s, int c) { return setTxGain(s, c, 1); }, kReq, "setTxGain"},
        {"setVad", [](int s, int c) { return setVad(s, c, 1); }, kReq, "setVad"},
        {"startAudioRx/3", [](int s, int c) { return startAudioRx(s, c, 1); }, kReq, "startAudioRx"},
        {"startAudioRx/4", [](int s, int c) { return startAudioRx(s, c, 1, 1); }, kReq, "startAudioRx"},
        {"startAudioRxOnly", [](int s, int c) { return startAudioRxOnly(s, c, 1); }, kReq, "startAudioRxOnly"},
        {"startAudioRtpLoop", [](int s, int c) { return startAudioRtpLoop(s, c, 1); }, kReq, "startAudioRtpLoop"},
        {"startAudioTx", [](int s, int c) { return startAudioTx(s, c, 1); }, kReq, "startAudioTx"},
        {"startAudioForward2Saver", [](int s, int c) { return startAudioForward2Saver(s, c, 1); }, kReq, "startAudioForward2Saver"},
        {"startAudioRxTotal", [](int s, int c) { return startAudioRxTotal(s, c, 0, 0, 0, nullptr, nullptr, 0, 0, 0); }, kReq, "startAudioRxTotal"},
        {"startAudioTxTotal", [](int s, int c) { return startAudioTxTotal(s, c, 0, 0, 0, nullptr, nullptr, 0, 0); }, kReq, "startAudioTxTotal"},
        {"startConference", [](int s, int c) { return startConference(s, c); }, kReq, "startConference"},
        {"stop1stSessiontInConference", [](int s, int c) { return stop1stSessiontInConference(s, c); }, kReq, "stop1stSessiontInConference"},
        {"stop2ndSessiontInConference", [](int s, int c) { return stop2ndSessiontInConference(s, c); }, kReq, "stop2ndSessiontInConference"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        clear();
        // A negative socket: the transport refuses and logs first.
        EXPECT_EQ(row.call(-1, ch), VX_ERR_RESOURCE);
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NE(t[0].find("improper socket:-1"), std::string::npos) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], row.text, row.fn)) << t[1];
    }
}

TEST_F(ClientTest, AllInOneStartPausesFiftyMillisecondsOnlyWhenEnabledAndNeverWaits)
{
    // The service answers slowly: a request that waited would take 300 ms.
    svc->setPolicy(FakeService::Policy::Answer, 300);
    using clock = std::chrono::steady_clock;
    auto t0 = clock::now();
    EXPECT_EQ(startAudioRxTotal(sock, ch, 1, 0, 1, "10.0.0.2", nullptr, 5004, 6006, 0), VERY_OK);
    const auto rx = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - t0).count();
    t0 = clock::now();
    EXPECT_EQ(startAudioTxTotal(sock, ch, 1, 0, 1, "10.0.0.2", nullptr, 5004, 6006), VERY_OK);
    const auto tx = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - t0).count();
    EXPECT_GE(rx, 50);
    EXPECT_GE(tx, 50);
    EXPECT_LT(rx, 290) << "reqNo 30 awaits no answer";
    EXPECT_LT(tx, 290) << "reqNo 31 awaits no answer";
    EXPECT_EQ(settle(2).size(), 2u);
}

TEST_F(ClientTest, StreamStartsConsumeTheirOwnAnswer)
{
    // Each start waits for its answer, so the next waiting request reads its
    // own; a start that left its answer queued would hand it on.
    svc->setResult(28, 2801);
    svc->setResult(29, 2901);
    svc->setResult(22, 2201);
    const std::vector<std::pair<const char*, Call>> starts = {
        {"startAudioRx/3", [](int s, int c) { return startAudioRx(s, c, 1); }},
        {"startAudioRx/4", [](int s, int c) { return startAudioRx(s, c, 0, 1); }},
        {"startAudioRxOnly", [](int s, int c) { return startAudioRxOnly(s, c, 1); }},
        {"startAudioTx", [](int s, int c) { return startAudioTx(s, c, 0); }},
    };
    for (const auto& s : starts) {
        SCOPED_TRACE(s.first);
        EXPECT_EQ(s.second(sock, ch), VERY_OK);
        EXPECT_EQ(getAudioRxPort(sock, ch), 2201);
    }
}

TEST_F(ClientTest, StreamStartWithoutAnswerFailsAfterTheReceiveTimeout)
{
    REQUIRE_SYSLOG(*log);
    svc->setPolicy(FakeService::Policy::Silent);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(startAudioTx(sock, ch, 1), VX_ERR_RESOURCE);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_GE(ms, 2900);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 2u);
    EXPECT_NE(t[0].find(")reqNo:29 "), std::string::npos) << t[0];
    EXPECT_TRUE(isCheckLine(t[1], kReq, "startAudioTx")) << t[1];
}

namespace {

// A stand-in for the service that answers out of order: it gathers the
// requests that arrive close together and answers the batch last first,
// each answer carrying reqNo*100+1. Waits that were not serialised per
// socket would then read each other's answers; serialised, a batch holds
// one waiting request only and the order is right.
class ReorderingService {
public:
    ReorderingService()
    {
        unlink(VX_SERVICE_SOCK);
        sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        strcpy(a.sun_path, VX_SERVICE_SOCK);
        if (bind(sock_, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0)
            thread_ = std::thread([this] { run(); });
    }
    ~ReorderingService()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
        close(sock_);
        unlink(VX_SERVICE_SOCK);
    }
    bool ok() const { return thread_.joinable(); }
    int batchesOfMoreThanOne() const { return multi_; }

private:
    struct Pending {
        int32_t reqNo;
        sockaddr_un from;
        socklen_t fromLen;
    };
    bool receive(Pending& p, int timeoutMs)
    {
        pollfd fd{sock_, POLLIN, 0};
        if (poll(&fd, 1, timeoutMs) <= 0)
            return false;
        char buf[2048];
        p.fromLen = sizeof p.from;
        const ssize_t n = recvfrom(sock_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&p.from), &p.fromLen);
        if (n < 4)
            return false;
        memcpy(&p.reqNo, buf, 4);
        return true;
    }
    void run()
    {
        while (!stop_) {
            std::vector<Pending> batch(1);
            if (!receive(batch[0], 20))
                continue;
            Pending more;
            while (batch.size() < 8 && receive(more, 15))
                batch.push_back(more);
            // Only the waiting numbers of this test are answered.
            batch.erase(std::remove_if(batch.begin(), batch.end(),
                                       [](const Pending& p) { return p.reqNo != 22 && p.reqNo != 28 && p.reqNo != 29; }),
                        batch.end());
            if (batch.size() > 1)
                ++multi_;
            for (auto it = batch.rbegin(); it != batch.rend(); ++it) {
                int32_t resp[21] = {};
                resp[0] = it->reqNo;
                resp[1] = it->reqNo * 100 + 1;
                sendto(sock_, resp, sizeof resp, 0, reinterpret_cast<sockaddr*>(&it->from), it->fromLen);
            }
        }
    }
    int sock_ = -1;
    std::atomic<bool> stop_{false};
    std::atomic<int> multi_{0};
    std::thread thread_;
};

} // namespace

TEST(AudioSessionThreads, WaitingOperationsOnOneSocketEachGetTheirOwnAnswer)
{
    cleanVxDir();
    ReorderingService svc;
    ASSERT_TRUE(svc.ok());
    const int sock = registApplication("threads", 0, -1, "127.0.0.1");
    ASSERT_GE(sock, 0);
    // getAudioRxPort returns the answer it read, so a swapped answer shows
    // in its value. The starts return 1 either way; for them the service
    // itself reports two waiting requests in flight at once.
    std::atomic<int> wrong{0};
    std::atomic<int> go{0};
    auto run = [&](std::function<bool()> once) {
        go.fetch_add(1);
        while (go.load() < 3) {
        }
        for (int i = 0; i < 12; ++i)
            if (!once())
                ++wrong;
    };
    std::thread a(run, [&] { return getAudioRxPort(sock, 3) == 2201; });
    std::thread b(run, [&] { return startAudioRx(sock, 3, 1) == VERY_OK; });
    std::thread c(run, [&] { return startAudioTx(sock, 3, 0) == VERY_OK; });
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(svc.batchesOfMoreThanOne(), 0) << "a second waiting request went out before the first was answered";
    close(sock);
    cleanVxDir();
}
