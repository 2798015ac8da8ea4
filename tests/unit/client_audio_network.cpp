// Audio network requests: the 176-byte address record filled the copying or
// the empty way, the checked OppIp/SaverIp rows, the unchecked RxPort rows,
// DSCP and the receive-port query.
#include "clientfixture.h"
#include "recordcheck.h"

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <string>
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
    std::vector<Line> lines;
};

const std::string kText60(60, 'a');
const std::string kText49(49, 'a');

// ip text field: 50 bytes at 120 (at most 49 characters arrive); port at 172.
Expect addr(int32_t reqNo, const std::string& ip, int32_t port)
{
    return {reqNo, 176, {{172, port}}, {{120, 50, ip}}, {}};
}

const std::vector<SendRow>& sendRows()
{
    static const std::vector<SendRow> rows = {
        {"setAudioOppIp", [](int s, int c) { return setAudioOppIp(s, c, "10.0.0.2", 101); }, addr(23, "10.0.0.2", 101)},
        {"setAudioOppIp IPv6", [](int s, int c) { return setAudioOppIp(s, c, "2001:db8::7", 9000); }, addr(23, "2001:db8::7", 9000)},
        {"set2ndAudioOppIp port above 65535", [](int s, int c) { return set2ndAudioOppIp(s, c, "192.168.1.20", 70000); }, addr(38, "192.168.1.20", 70000)},
        {"setAudioSaverIp", [](int s, int c) { return setAudioSaverIp(s, c, "172.16.0.1", 9000); }, addr(24, "172.16.0.1", 9000)},
        // The RxPort rows check nothing: any port goes out.
        {"setAudioRxPort/3", [](int s, int c) { return setAudioRxPort(s, c, 0); }, addr(20, "", 0)},
        {"setAudioRxPort/4", [](int s, int c) { return setAudioRxPort(s, c, -5, "10.0.0.2"); }, addr(20, "10.0.0.2", -5)},
        {"setAudioRxPort/4 null ip as /3", [](int s, int c) { return setAudioRxPort(s, c, 9000, nullptr); }, addr(20, "", 9000)},
        {"setAudioRxPort/4 60 characters", [](int s, int c) { return setAudioRxPort(s, c, 9000, kText60.c_str()); }, addr(20, kText49, 9000)},
        {"setAudioRxPort/4 no address", [](int s, int c) { return setAudioRxPort(s, c, 9000, "not an address"); }, addr(20, "not an address", 9000)},
        {"set2ndAudioRxPort/3", [](int s, int c) { return set2ndAudioRxPort(s, c, 9002); }, addr(39, "", 9002)},
        {"set2ndAudioRxPort/4", [](int s, int c) { return set2ndAudioRxPort(s, c, 9002, "::1"); }, addr(39, "::1", 9002)},
        {"set2ndAudioRxPort/4 null ip", [](int s, int c) { return set2ndAudioRxPort(s, c, 1, nullptr); }, addr(39, "", 1)},
        {"setAudioSrcPort2Saver", [](int s, int c) { return setAudioSrcPort2Saver(s, c, -1); }, addr(21, "", -1)},
        {"setAudioDscp", [](int s, int c) { return setAudioDscp(s, c, -7); }, {25, 124, {{120, -7}}, {}, {}}},
        {"setAudioDscp 0", [](int s, int c) { return setAudioDscp(s, c, 0); }, {25, 124, {{120, 0}}, {}, {}}},
    };
    return rows;
}

const std::vector<RefuseRow>& refuseRows()
{
    static const std::vector<RefuseRow> rows = {
        {"setAudioOppIp null ip", [](int s, int c) { return setAudioOppIp(s, c, nullptr, 9000); },
         {{"ip", "checkIp"}, {"checkIp(ip)", "setAudioOppIp"}}},
        {"setAudioOppIp empty ip", [](int s, int c) { return setAudioOppIp(s, c, "", 9000); }, {{"checkIp(ip)", "setAudioOppIp"}}},
        {"setAudioOppIp host name", [](int s, int c) { return setAudioOppIp(s, c, "localhost", 9000); }, {{"checkIp(ip)", "setAudioOppIp"}}},
        {"setAudioOppIp port 100", [](int s, int c) { return setAudioOppIp(s, c, "10.0.0.2", 100); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setAudioOppIp"}}},
        {"set2ndAudioOppIp bad ip", [](int s, int c) { return set2ndAudioOppIp(s, c, "10.0.0", 9000); }, {{"checkIp(ip)", "set2ndAudioOppIp"}}},
        {"set2ndAudioOppIp port 0", [](int s, int c) { return set2ndAudioOppIp(s, c, "::1", 0); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "set2ndAudioOppIp"}}},
        {"setAudioSaverIp null ip", [](int s, int c) { return setAudioSaverIp(s, c, nullptr, 9000); },
         {{"ip", "checkIp"}, {"checkIp(ip)", "setAudioSaverIp"}}},
        {"setAudioSaverIp port -1", [](int s, int c) { return setAudioSaverIp(s, c, "10.0.0.3", -1); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setAudioSaverIp"}}},
        // The address check comes first and hides the port check.
        {"setAudioOppIp both wrong", [](int s, int c) { return setAudioOppIp(s, c, "nowhere", 1); }, {{"checkIp(ip)", "setAudioOppIp"}}},
    };
    return rows;
}

struct FailRow {
    const char* name;
    Call call;
    const char* text;
    const char* fn;
};

const char kStrict[] = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK";
const char kNonZero[] = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)!=0";

} // namespace

TEST_F(ClientTest, AudioNetworkRecordsAsSent)
{
    for (const auto& row : sendRows()) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(sock, ch), VERY_OK);
        expectRecord(only(), ch, row.expect);
    }
}

TEST_F(ClientTest, AudioNetworkRefusalsSendNothingAndLogTheCheck)
{
    REQUIRE_SYSLOG(*log);
    for (const auto& row : refuseRows()) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(sock, ch), VX_ERR_ARGUMENT);
        EXPECT_TRUE(settle(0).empty()) << "nothing may be sent";
        expectLines(infoLines(), row.lines);
    }
}

TEST_F(ClientTest, AudioNetworkTransportFailureLogsTheLineOfItsForm)
{
    REQUIRE_SYSLOG(*log);
    const std::vector<FailRow> rows = {
        {"setAudioOppIp", [](int s, int c) { return setAudioOppIp(s, c, "10.0.0.2", 9000); }, kStrict, "setAudioOppIp"},
        {"set2ndAudioOppIp", [](int s, int c) { return set2ndAudioOppIp(s, c, "10.0.0.2", 9000); }, kStrict, "set2ndAudioOppIp"},
        {"setAudioSaverIp", [](int s, int c) { return setAudioSaverIp(s, c, "10.0.0.2", 9000); }, kStrict, "setAudioSaverIp"},
        {"setAudioRxPort/3", [](int s, int c) { return setAudioRxPort(s, c, 9000); }, kNonZero, "setAudioRxPort"},
        {"setAudioRxPort/4", [](int s, int c) { return setAudioRxPort(s, c, 9000, "10.0.0.2"); }, kNonZero, "setAudioRxPort"},
        {"set2ndAudioRxPort/3", [](int s, int c) { return set2ndAudioRxPort(s, c, 9000); }, kNonZero, "set2ndAudioRxPort"},
        {"set2ndAudioRxPort/4", [](int s, int c) { return set2ndAudioRxPort(s, c, 9000, nullptr); }, kNonZero, "set2ndAudioRxPort"},
        {"setAudioSrcPort2Saver", [](int s, int c) { return setAudioSrcPort2Saver(s, c, 9000); }, kStrict, "setAudioSrcPort2Saver"},
        {"getAudioRxPort", [](int s, int c) { return getAudioRxPort(s, c); }, kStrict, "getAudioRxPort"},
        {"setAudioDscp", [](int s, int c) { return setAudioDscp(s, c, 0); }, kStrict, "setAudioDscp"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(-1, ch), VX_ERR_RESOURCE);
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NE(t[0].find("improper socket:-1"), std::string::npos) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], row.text, row.fn)) << t[1];
    }
}

TEST_F(ClientTest, GetAudioRxPortReturnsTheServiceAnswer)
{
    for (int port : {9000, 0, -3, 65536}) {
        clear();
        svc->setResult(22, port);
        EXPECT_EQ(getAudioRxPort(sock, ch), port);
        expectRecord(only(), ch, {22, 120, {}, {}, {}});
    }
}

TEST_F(ClientTest, GetAudioRxPortWithoutAnswer)
{
    REQUIRE_SYSLOG(*log);
    // The ignore file: nothing goes out and nothing comes back; the value is
    // the defined "no answer" -1, not whatever the stack held.
    const int fd = open(VX_IGNORE_FILE, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(getAudioRxPort(sock, ch), -1);
    unlink(VX_IGNORE_FILE);
    EXPECT_TRUE(settle(0).empty());
    EXPECT_TRUE(infoLines().empty());

    // A silent service: the socket's receive time-out, then the strict line.
    svc->setPolicy(FakeService::Policy::Silent);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(getAudioRxPort(sock, ch), VX_ERR_RESOURCE);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_GE(ms, 2900);
    const auto t = infoLines();
    ASSERT_EQ(t.size(), 2u);
    EXPECT_NE(t[0].find(")reqNo:22 "), std::string::npos) << t[0];
    EXPECT_TRUE(isCheckLine(t[1], kStrict, "getAudioRxPort")) << t[1];
}
