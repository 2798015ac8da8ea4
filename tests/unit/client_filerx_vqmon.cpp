// File receive, the SDP look-ups and VQMon: records, text cuts, the null-text
// rules, the silent form and the upload trace.
#include "clientfixture.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <regex>
#include <syslog.h>

namespace {

class FileRxVQMonTest : public ClientTest {
protected:
    // Runs call with stdout captured; returns its result, stores the output.
    int captured(const std::function<int()>& call)
    {
        testing::internal::CaptureStdout();
        const int r = call();
        fflush(stdout);
        out = testing::internal::GetCapturedStdout();
        return r;
    }
    std::string out;
};

std::vector<uint8_t> zeros(size_t n) { return std::vector<uint8_t>(n, 0); }

std::vector<uint8_t> bytesOf(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

// Offset of VQMon text slot i (1..6).
size_t slot(int i) { return 128 + 256 * static_cast<size_t>(i - 1); }

int uploadTraces(const std::string& out)
{
    static const std::regex line(R"(\[reqVQMonUpload: [0-9]+\] #################\n)");
    return static_cast<int>(std::distance(std::sregex_iterator(out.begin(), out.end(), line), std::sregex_iterator()));
}

} // namespace

TEST_F(FileRxVQMonTest, FileReceiveRecords)
{
    REQUIRE_SYSLOG(*log);
    struct Row {
        const char* name;
        std::function<int(int, int)> call;
        int reqNo;
        std::vector<std::pair<size_t, int32_t>> words;
    };
    const Row rows[] = {
        {"openFileRx", [](int s, int c) { return openFileRx(s, c, "/tmp/f"); }, 201, {}},
        {"runFileRx", [](int s, int c) { return runFileRx(s, c); }, 202, {}},
        {"pauseFileRx", [](int s, int c) { return pauseFileRx(s, c); }, 203, {}},
        {"resumeFileRx", [](int s, int c) { return resumeFileRx(s, c); }, 204, {}},
        {"stopFileRx", [](int s, int c) { return stopFileRx(s, c); }, 205, {}},
        {"setFileRxLocation", [](int s, int c) { return setFileRxLocation(s, c, 1, -2, 3, -4, 5, -6, 7, INT32_MIN); },
         206,
         {{120, 1}, {124, -2}, {128, 3}, {132, -4}, {136, 5}, {140, -6}, {144, 7}, {148, INT32_MIN}}},
    };
    for (const Row& r : rows) {
        clear();
        const auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(r.call(sock, ch), VERY_OK) << r.name;
        // 202 has a kind of its own but is not waited for either.
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1)) << r.name;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), r.reqNo) << r.name;
        EXPECT_EQ(d.size(), 396u) << r.name;
        EXPECT_EQ(d.channel(), ch) << r.name;
        for (const auto& w : r.words)
            EXPECT_EQ(d.word(w.first), w.second) << r.name << " offset " << w.first;
        EXPECT_TRUE(log->texts().empty()) << r.name << ": the silent form logs nothing";
    }
}

TEST_F(FileRxVQMonTest, OpenFileRxNameIsZeroFilledAndCutAt254WithoutTerminator)
{
    const std::string exact(254, 'e');
    const std::string longer(300, 'l');
    const std::string m253(253, 'm');
    const struct {
        const char* what;
        const char* name;
        std::vector<uint8_t> want; // bytes 120..373
    } rows[] = {
        {"short", "abc", [] { auto v = zeros(254); v[0] = 'a'; v[1] = 'b'; v[2] = 'c'; return v; }()},
        {"253 characters", m253.c_str(), [&] { auto v = bytesOf(m253); v.push_back(0); return v; }()},
        {"254 characters", exact.c_str(), bytesOf(exact)},
        {"300 characters", longer.c_str(), bytesOf(std::string(254, 'l'))},
        {"empty", "", zeros(254)},
        {"null: sent as an empty name", nullptr, zeros(254)},
    };
    for (const auto& r : rows) {
        clear();
        EXPECT_EQ(openFileRx(sock, ch, r.name), VERY_OK) << r.what;
        const Datagram d = only();
        ASSERT_EQ(d.size(), 396u);
        EXPECT_EQ(d.raw(120, 254), r.want) << r.what;
        EXPECT_EQ(d.raw(374, 22), zeros(22)) << r.what << ": nothing written behind the field";
    }
}

TEST_F(FileRxVQMonTest, VQMonRecordsLeaveTheChannelUnsetAndLogOnlyTheMissingKindRow)
{
    REQUIRE_SYSLOG(*log);
    struct Row {
        const char* name;
        std::function<int(int, int)> call;
        int reqNo;
        int32_t first, second;
        std::vector<std::pair<int, std::string>> texts; // slot, text; other slots empty
    };
    const Row rows[] = {
        {"reqVQMonMonitor start", [](int s, int c) { return reqVQMonMonitor(s, c, 1, 5); }, 311, 1, 5, {}},
        {"reqVQMonMonitor MOS", [](int s, int c) { return reqVQMonMonitor(s, c, 100, 0); }, 311, 100, 0, {}},
        {"reqVQMonUpload", [](int s, int) { return reqVQMonUpload(s); }, 312, 0, 0, {}},
        {"reqVQMonUpdateConfig", [](int s, int c) { return reqVQMonUpdateConfig(s, c, "cfg=1"); }, 313, 0, 0,
         {{1, "cfg=1"}}},
        {"reqVQMonUpdateConfig null", [](int s, int c) { return reqVQMonUpdateConfig(s, c, nullptr); }, 313, 0, 0,
         {}},
        {"reqVQMonSetIpInfo", [](int s, int c) { return reqVQMonSetIpInfo(s, c, "10.1.1.1", 4000, "::1", 5000); },
         314, 4000, 5000, {{1, "10.1.1.1"}, {2, "::1"}}},
        {"reqVQMonSetIpInfo ipText2 null",
         [](int s, int c) { return reqVQMonSetIpInfo(s, c, "10.1.1.1", 4000, nullptr, 5000); }, 314, 4000, 5000, {}},
        {"reqVQMonSetIpInfo ipText1 null",
         [](int s, int c) { return reqVQMonSetIpInfo(s, c, nullptr, 4000, "::1", 5000); }, 314, 4000, 5000, {}},
        {"reqVQMonSetCallInfo",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, "t1", "t2", "t3", "t4", "t5", "t6", -8); }, 315, -8, 0,
         {{1, "t1"}, {2, "t2"}, {3, "t3"}, {4, "t4"}, {5, "t5"}, {6, "t6"}}},
        {"reqVQMonSetCallInfo callText3 null",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, "t1", "t2", nullptr, "t4", "t5", "t6", 9); }, 315, 9, 0,
         {}},
        {"reqVQMonSetCallInfo callText1 null",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, nullptr, "t2", "t3", "t4", "t5", "t6", 9); }, 315, 9, 0,
         {}},
        {"reqVQMonSetCallInfo callText5 null: its slot stays empty",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, "t1", "t2", "t3", "t4", nullptr, "t6", 9); }, 315, 9, 0,
         {{1, "t1"}, {2, "t2"}, {3, "t3"}, {4, "t4"}, {6, "t6"}}},
        {"reqVQMonSetCallInfo 4 to 6 null",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, "t1", "t2", "t3", nullptr, nullptr, nullptr, 9); }, 315,
         9, 0, {{1, "t1"}, {2, "t2"}, {3, "t3"}}},
    };
    for (const Row& r : rows) {
        clear();
        EXPECT_EQ(captured([&] { return r.call(sock, ch); }), VERY_OK) << r.name;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), r.reqNo) << r.name;
        ASSERT_EQ(d.size(), 1664u) << r.name;
        EXPECT_EQ(d.channel(), 0) << r.name << ": the channel word is not written";
        EXPECT_EQ(d.word(120), r.first) << r.name;
        EXPECT_EQ(d.word(124), r.second) << r.name;
        for (int i = 1; i <= 6; ++i) {
            std::string want;
            for (const auto& t : r.texts)
                if (t.first == i)
                    want = t.second;
            auto bytes = bytesOf(want);
            bytes.resize(256, 0);
            EXPECT_EQ(d.raw(slot(i), 256), bytes) << r.name << " text " << i;
        }
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), 1u) << r.name;
        EXPECT_EQ(lines[0].level(), LOG_CRIT) << r.name;
        EXPECT_TRUE(std::regex_match(lines[0].text,
                                     std::regex("error in needResponse:[0-9]+\\(" + std::to_string(r.reqNo) + "\\)\n")))
            << lines[0].text;
    }
}

TEST_F(FileRxVQMonTest, VQMonTextsAreCutAt255AndTheSlotsLastByteIsZero)
{
    const std::string t300(300, 'a'), t255(255, 'b'), t254(254, 'c');
    const struct {
        const char* what;
        const std::string& text;
        size_t kept;
    } rows[] = {{"300", t300, 255}, {"255", t255, 255}, {"254", t254, 254}};
    for (const auto& r : rows) {
        clear();
        ASSERT_EQ(reqVQMonSetCallInfo(sock, ch, r.text.c_str(), r.text.c_str(), r.text.c_str(), r.text.c_str(),
                                      r.text.c_str(), r.text.c_str(), 1),
                  VERY_OK);
        const Datagram d = only();
        for (int i = 1; i <= 6; ++i) {
            auto want = bytesOf(r.text.substr(0, r.kept));
            want.resize(256, 0);
            EXPECT_EQ(d.raw(slot(i), 256), want) << r.what << " slot " << i;
        }
        clear();
        ASSERT_EQ(reqVQMonUpdateConfig(sock, ch, r.text.c_str()), VERY_OK);
        EXPECT_EQ(only().text(slot(1), 256), r.text.substr(0, r.kept)) << r.what;
        clear();
        ASSERT_EQ(reqVQMonSetIpInfo(sock, ch, r.text.c_str(), 1, r.text.c_str(), 2), VERY_OK);
        const Datagram ip = only();
        EXPECT_EQ(ip.text(slot(1), 256), r.text.substr(0, r.kept)) << r.what;
        EXPECT_EQ(ip.text(slot(2), 256), r.text.substr(0, r.kept)) << r.what;
        EXPECT_EQ(ip.raw(slot(3), 256 * 4), zeros(256 * 4)) << r.what;
    }
}

TEST_F(FileRxVQMonTest, UploadPrintsItsTraceBeforeAndAfterASuccessfulSend)
{
    EXPECT_EQ(captured([&] { return reqVQMonUpload(sock); }), VERY_OK);
    EXPECT_EQ(uploadTraces(out), 2) << out;
    EXPECT_EQ(out.rfind("[reqVQMonUpload: ", 0), 0u) << out;
    // No other operation of the family prints.
    EXPECT_EQ(captured([&] { return reqVQMonMonitor(sock, ch, 1, 5) + openFileRx(sock, ch, "x"); }), 2);
    EXPECT_EQ(out.find("#####"), std::string::npos) << out;
}

TEST_F(FileRxVQMonTest, ServiceDownEverySilentFormGivesMinusOneAndLogsOnlyTheTransportLine)
{
    REQUIRE_SYSLOG(*log);
    svc.reset();
    struct Row {
        const char* name;
        std::function<int(int, int)> call;
    };
    const Row rows[] = {
        {"openFileRx", [](int s, int c) { return openFileRx(s, c, "f"); }},
        {"runFileRx", [](int s, int c) { return runFileRx(s, c); }},
        {"pauseFileRx", [](int s, int c) { return pauseFileRx(s, c); }},
        {"resumeFileRx", [](int s, int c) { return resumeFileRx(s, c); }},
        {"stopFileRx", [](int s, int c) { return stopFileRx(s, c); }},
        {"setFileRxLocation", [](int s, int c) { return setFileRxLocation(s, c, 1, 2, 3, 4, 5, 6, 7, 8); }},
        {"reqVQMonMonitor", [](int s, int c) { return reqVQMonMonitor(s, c, 1, 5); }},
        {"reqVQMonUpload", [](int s, int) { return reqVQMonUpload(s); }},
        {"reqVQMonUpdateConfig", [](int s, int c) { return reqVQMonUpdateConfig(s, c, "c"); }},
        {"reqVQMonSetIpInfo", [](int s, int c) { return reqVQMonSetIpInfo(s, c, "a", 1, "b", 2); }},
        {"reqVQMonSetCallInfo",
         [](int s, int c) { return reqVQMonSetCallInfo(s, c, "1", "2", "3", "4", "5", "6", 7); }},
    };
    for (const Row& r : rows) {
        log->clear();
        EXPECT_EQ(captured([&] { return r.call(sock, ch); }), -1) << r.name;
        const auto t = log->texts();
        ASSERT_EQ(t.size(), 1u) << r.name;
        EXPECT_EQ(t[0].rfind("(Send2VoxalisByApp:", 0), 0u) << r.name << ": " << t[0];
        EXPECT_EQ(uploadTraces(out), std::string(r.name) == "reqVQMonUpload" ? 1 : 0) << r.name << ": " << out;
    }
}

TEST(SdpLookup, Mpeg4TextsAreConstantsAndOtherWidthsGiveNull)
{
    EXPECT_STREQ(mpeg4ConfigForSdp(176), "0000010000000120008440fa282c2090a31f");
    EXPECT_STREQ(mpeg4ConfigForSdp(352), "0000010000000120008440fa28582120a31f");
    for (int w : {175, 177, 351, 353, 0, -1, 144, 288, INT32_MIN})
        EXPECT_EQ(mpeg4ConfigForSdp(w), nullptr) << w;
    EXPECT_EQ(mpeg4ConfigForSdp(176), mpeg4ConfigForSdp(176)) << "one constant, not a copy";
    const char* level = mpeg4ProfileLevel();
    EXPECT_STREQ(level, "2");
    EXPECT_EQ(mpeg4ProfileLevel(), level);
}
