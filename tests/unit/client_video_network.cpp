// Video network requests: the address record, its checks and traces, the
// two forms of setVideoRxPort, and the receive-port query.
#include "client_video_common.h"

namespace {

class VideoNetworkTest : public VideoTest {};

const char* const kReq = "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)";

// ip text at 120 (50 bytes), port at 172.
void expectAddress(const Datagram& d, const std::string& ip, int port)
{
    EXPECT_EQ(d.text(120, 50), ip);
    EXPECT_EQ(d.word(172), port);
}

} // namespace

TEST_F(VideoNetworkTest, EveryOperationSendsItsRecordAndFailsInItsForm)
{
    const int s = sock;
    const std::vector<SendRow> rows = {
        {"setVideoRxPort/4", [=] { return setVideoRxPort(s, 3, 9000, "10.0.0.2"); }, 104, 176, {{172, 9000}},
         "### setVideoRxPort, channel:3, port:9000.\n", kReq, "setVideoRxPort"},
        {"setVideoRxPort/3", [=] { return setVideoRxPort(s, 3, 9002); }, 104, 176, {{172, 9002}},
         "### setVideoRxPort, channel:3, port:9002.\n", kReq, "setVideoRxPort"},
        {"setVideoOppIp", [=] { return setVideoOppIp(s, 3, "192.168.1.20", 5004); }, 125, 176, {{172, 5004}},
         "### setVideoOppIp, channel:3, ip:192.168.1.20, port:5004.\n", kReq, "setVideoOppIp"},
        {"setVideoDscp", [=] { return setVideoDscp(s, 3, 46); }, 139, 124, {{120, 46}},
         "### setVideoDscp, channel:3, dscp:46.\n", nullptr, ""},
        {"setVideoSrcPort2Saver", [=] { return setVideoSrcPort2Saver(s, 3, 6000); }, 140, 176, {{172, 6000}},
         "### setVideoSrcPort2Saver, channel:3, port:6000.\n", kReq, "setVideoSrcPort2Saver"},
        {"setVideoPcClientIp", [=] { return setVideoPcClientIp(s, 3, "10.1.1.1", 7000); }, 142, 176, {{172, 7000}},
         "### setVideoPcClientIp, channel:3,  ip:10.1.1.1, port:7000.\n", kReq, "setVideoPcClientIp"},
        {"setVideoRxPortFromPcClient", [=] { return setVideoRxPortFromPcClient(s, 3, 80); }, 143, 176, {{172, 80}},
         "### setVideoRxPortFromPcClient, channel:3, port:80.\n", kReq, "setVideoRxPortFromPcClient"},
        {"setVideoSaverIp", [=] { return setVideoSaverIp(s, 3, "::1", 101); }, 145, 176, {{172, 101}},
         "### setVideoSaverIp, channel:3, ip:::1, port:101.\n", kReq, "setVideoSaverIp"},
    };
    runSendTable(rows);
}

TEST_F(VideoNetworkTest, AddressTextsArriveAsGivenOrEmpty)
{
    const std::string fifty = longText(50, '7');
    struct {
        const char* name;
        std::function<int()> call;
        std::string ip;
    } rows[] = {
        {"ipv6 literal", [&] { return setVideoOppIp(sock, ch, "fe80::20c:29ff:fe3a:1b2c", 5004); },
         "fe80::20c:29ff:fe3a:1b2c"},
        {"saver", [&] { return setVideoSaverIp(sock, ch, "172.16.0.9", 5006); }, "172.16.0.9"},
        {"pc client", [&] { return setVideoPcClientIp(sock, ch, "2001:db8::5", 5008); }, "2001:db8::5"},
        // setVideoRxPort does not test its address: any text goes, cut at 49.
        {"rx port, no address", [&] { return setVideoRxPort(sock, ch, 9000, "not an address"); }, "not an address"},
        {"rx port, 50 characters", [&] { return setVideoRxPort(sock, ch, 9000, fifty.c_str()); }, fifty.substr(0, 49)},
        {"rx port, null", [&] { return setVideoRxPort(sock, ch, 9000, nullptr); }, ""},
        {"src port to saver", [&] { return setVideoSrcPort2Saver(sock, ch, 9000); }, ""},
        {"rx port from pc", [&] { return setVideoRxPortFromPcClient(sock, ch, 9000); }, ""},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        clear();
        std::string out;
        EXPECT_EQ(captured(r.call, &out), VERY_OK);
        const Datagram d = only();
        EXPECT_EQ(d.text(120, 50), r.ip);
        EXPECT_EQ(d.bytes[169], 0) << "the field's last byte is always NUL";
    }
}

TEST_F(VideoNetworkTest, RxPortWithoutAddressIsTheOverload)
{
    std::string out;
    ASSERT_EQ(captured([&] { return setVideoRxPort(sock, ch, 9000, nullptr); }, &out), VERY_OK);
    const Datagram withNull = only();
    clear();
    ASSERT_EQ(captured([&] { return setVideoRxPort(sock, ch, 9000); }, &out), VERY_OK);
    const Datagram overload = only();
    EXPECT_EQ(withNull.bytes, overload.bytes);
    expectAddress(overload, "", 9000);
}

TEST_F(VideoNetworkTest, RefusedAddressesAndPortsSendNothing)
{
    REQUIRE_SYSLOG(*log);
    const std::string fifty = longText(50, '1');
    const std::string v6cut = "1111:2222:3333:4444:5555:6666:7777:8888 trailing text";
    const std::vector<RefusalRow> rows = {
        // A refused port logs checkPort's own line, then the operation's.
        {"opp port 100", [&] { return setVideoOppIp(sock, ch, "127.0.0.1", 100); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoOppIp"}},
         "### setVideoOppIp, channel:3, ip:127.0.0.1, port:100.\n"},
        {"opp host name", [&] { return setVideoOppIp(sock, ch, "localhost", 5004); },
         {{"checkIp(ip)", "setVideoOppIp"}}, "### setVideoOppIp, channel:3, ip:localhost, port:5004.\n"},
        // A null address is logged by checkIp and by the operation; the trace
        // shows it without crashing.
        {"opp null", [&] { return setVideoOppIp(sock, ch, nullptr, 5004); },
         {{"ip", "checkIp"}, {"checkIp(ip)", "setVideoOppIp"}}, "### setVideoOppIp, channel:3, ip:(null), port:5004.\n"},
        {"opp 50 characters", [&] { return setVideoOppIp(sock, ch, fifty.c_str(), 5004); },
         {{"checkIp(ip)", "setVideoOppIp"}}, "### setVideoOppIp, channel:3, ip:" + fifty + ", port:5004.\n"},
        // The address is checked before the port: a bad pair logs the address.
        {"saver both bad", [&] { return setVideoSaverIp(sock, ch, "1.2.3", -1); },
         {{"checkIp(ip)", "setVideoSaverIp"}}, "### setVideoSaverIp, channel:3, ip:1.2.3, port:-1.\n"},
        {"saver port 0", [&] { return setVideoSaverIp(sock, ch, "::1", 0); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoSaverIp"}},
         "### setVideoSaverIp, channel:3, ip:::1, port:0.\n"},
        {"pc client text", [&] { return setVideoPcClientIp(sock, ch, v6cut.c_str(), 5004); },
         {{"checkIp(ip)", "setVideoPcClientIp"}}, "### setVideoPcClientIp, channel:3,  ip:" + v6cut + ", port:5004.\n"},
        {"pc client port", [&] { return setVideoPcClientIp(sock, ch, "10.0.0.1", 100); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoPcClientIp"}},
         "### setVideoPcClientIp, channel:3,  ip:10.0.0.1, port:100.\n"},
        {"rx port 80", [&] { return setVideoRxPort(sock, ch, 80); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoRxPort"}}, "### setVideoRxPort, channel:3, port:80.\n"},
        {"rx port/4 80", [&] { return setVideoRxPort(sock, ch, 80, "10.0.0.1"); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoRxPort"}}, "### setVideoRxPort, channel:3, port:80.\n"},
        {"src port 80", [&] { return setVideoSrcPort2Saver(sock, ch, 80); },
         {{"port>100", "checkPort"}, {"checkPort(port)", "setVideoSrcPort2Saver"}},
         "### setVideoSrcPort2Saver, channel:3, port:80.\n"},
    };
    for (const auto& r : rows)
        expectRefused(r);
}

TEST_F(VideoNetworkTest, PortLimitIsAboveOneHundredWithNoUpperEnd)
{
    struct {
        int port;
        int want;
    } rows[] = {{100, VX_ERR_ARGUMENT}, {101, VERY_OK}, {65535, VERY_OK}, {70000, VERY_OK}, {INT32_MIN, VX_ERR_ARGUMENT}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.port);
        clear();
        std::string out;
        EXPECT_EQ(captured([&] { return setVideoOppIp(sock, ch, "127.0.0.1", r.port); }, &out), r.want);
        if (r.want == VERY_OK)
            expectAddress(only(), "127.0.0.1", r.port);
        else
            expectNothingSent();
    }
}

TEST_F(VideoNetworkTest, GetVideoRxPortSendsTheHeadAndGivesNoPort)
{
    // The service gives reqNo 126 no answer and the client does not wait.
    EXPECT_EQ(getVideoRxPort(sock, ch), -1);
    const Datagram d = only();
    EXPECT_EQ(d.reqNo(), 126);
    EXPECT_EQ(d.size(), 120u);
    EXPECT_EQ(d.channel(), ch);
    if (log->ok()) {
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(isRowlessLine(lines[0], 126)) << lines[0].text;
    }
    // Swallowed by the ignore file: still the defined "no port".
    const int fd = open(VX_IGNORE_FILE, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(getVideoRxPort(sock, ch), -1);
    unlink(VX_IGNORE_FILE);
    // Service down: the strict text, and -7.
    unlink(VX_SERVICE_SOCK);
    log->clear();
    EXPECT_EQ(getVideoRxPort(sock, ch), VX_ERR_RESOURCE);
    if (log->ok()) {
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_TRUE(isCheckLine(t[1], std::string(kReq) + "==VERY_OK", "getVideoRxPort")) << t[1];
    }
}
