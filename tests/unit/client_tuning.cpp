// Media tuning requests: values go out unchanged, every number lacks a kind
// row, and setCountryCode prints its line whatever the send does.
#include "clientfixture.h"

#include <cstdint>
#include <functional>
#include <regex>
#include <syslog.h>

namespace {

class TuningTest : public ClientTest {};

struct Row {
    const char* name;
    std::function<int(int, int)> call;
    int reqNo;
    size_t len;
    std::vector<std::pair<size_t, int32_t>> words;
};

// Values a normalising or clamping setter would change: 5 for a switch,
// negatives, the extremes.
const std::vector<Row>& rows()
{
    static const std::vector<Row> r = {
        {"setPtime", [](int s, int c) { return setPtime(s, c, 30); }, 45, 124, {{120, 30}}},
        {"setPLC", [](int s, int c) { return setPLC(s, c, -9); }, 46, 124, {{120, -9}}},
        {"setDJB", [](int s, int c) { return setDJB(s, c, -1, 0, 7, INT32_MAX); }, 47, 136,
         {{120, -1}, {124, 0}, {128, 7}, {132, INT32_MAX}}},
        {"setNetWorkMode", [](int s, int c) { return setNetWorkMode(s, c, 5); }, 48, 124, {{120, 5}}},
        {"setEQ", [](int s, int c) { return setEQ(s, c, INT32_MIN); }, 49, 124, {{120, INT32_MIN}}},
        {"setNR", [](int s, int c) { return setNR(s, c, 2); }, 50, 124, {{120, 2}}},
        {"stopRTP", [](int s, int c) { return stopRTP(s, c, -3); }, 51, 124, {{120, -3}}},
        {"AudioRTPPause", [](int s, int c) { return AudioRTPPause(s, c, 5); }, 52, 124, {{120, 5}}},
        {"VideoRTPPause", [](int s, int c) { return VideoRTPPause(s, c, 5); }, 146, 124, {{120, 5}}},
        {"SetLog", [](int s, int c) { return SetLog(s, c, 6); }, 53, 124, {{120, 6}}},
        {"setCountryCode", [](int s, int c) { return setCountryCode(s, c, 22); }, 54, 124, {{120, 22}}},
        {"setCameraInit", [](int s, int c) { return setCameraInit(s, c, -4, 640); }, 317, 128,
         {{120, -4}, {124, 640}}},
    };
    return r;
}

} // namespace

TEST_F(TuningTest, ValuesGoOutUnchangedAndEachSendLogsTheMissingKindRow)
{
    REQUIRE_SYSLOG(*log);
    for (const Row& r : rows()) {
        clear();
        testing::internal::CaptureStdout();
        const int result = r.call(sock, ch);
        fflush(stdout);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, VERY_OK) << r.name;
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), r.reqNo) << r.name;
        EXPECT_EQ(d.size(), r.len) << r.name;
        EXPECT_EQ(d.channel(), ch) << r.name;
        for (const auto& w : r.words)
            EXPECT_EQ(d.word(w.first), w.second) << r.name << " offset " << w.first;
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), 1u) << r.name;
        EXPECT_EQ(lines[0].level(), LOG_CRIT) << r.name;
        EXPECT_TRUE(std::regex_match(lines[0].text,
                                     std::regex("error in needResponse:[0-9]+\\(" + std::to_string(r.reqNo) + "\\)\n")))
            << r.name << ": " << lines[0].text;
    }
}

TEST_F(TuningTest, ServiceDownGivesMinusSevenWithTheStrictLine)
{
    REQUIRE_SYSLOG(*log);
    svc.reset();
    for (const Row& r : rows()) {
        log->clear();
        testing::internal::CaptureStdout();
        const int result = r.call(sock, ch);
        fflush(stdout);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, VX_ERR_RESOURCE) << r.name;
        const auto t = infoLines();
        ASSERT_FALSE(t.empty()) << r.name;
        EXPECT_TRUE(isCheckLine(t.back(), "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", r.name))
            << r.name << ": " << t.back();
    }
}

TEST_F(TuningTest, OnlySetCountryCodePrintsAndItPrintsEvenWhenTheSendFails)
{
    const std::regex line("setCountryCode\\[[0-9]+\\] ================>> Code: 22 \n");
    for (bool up : {true, false}) {
        if (!up)
            svc.reset();
        for (const Row& r : rows()) {
            log->clear(); // drains the capture, whose queue is short
            testing::internal::CaptureStdout();
            r.call(sock, ch);
            fflush(stdout);
            const std::string out = testing::internal::GetCapturedStdout();
            if (std::string(r.name) == "setCountryCode") {
                // First thing on stdout, before the send (whose transport may
                // print behind it).
                EXPECT_TRUE(std::regex_search(out, line, std::regex_constants::match_continuous))
                    << (up ? "up: " : "down: ") << out;
            } else {
                // The transport itself may print when the pid file is
                // missing; the setter adds nothing of its own.
                EXPECT_EQ(out.find("================>>"), std::string::npos) << r.name;
            }
        }
    }
}
