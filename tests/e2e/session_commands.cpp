// The session commands of the menu, run in the built shell: the request
// sequence behind keys s (in each start mode), t, c, m, n, u and r.
#include "session_run.h"

#include "clientfixture.h"
#include "syslogcap.h"

namespace {

// The head of every session start: audio mode, codec with payload type -1,
// DSCP 0, receive port with the opposite address, opposite address and port.
std::vector<Req> head(int32_t codec, const std::string& ip, int32_t localPort, int32_t remotePort, int32_t audMode = 2)
{
    std::vector<Req> r = {
        {15, {{132, audMode}, {136, 0}, {140, 0}}, {{120, 10, ""}}},
        {19, {{120, codec}, {124, -1}}},
        {25, {{120, 0}}},
        {20, {{172, localPort}}, {{120, 50, ip}}},
    };
    // An empty address fails the address check: nothing goes out.
    if (!ip.empty())
        r.push_back({23, {{172, remotePort}}, {{120, 50, ip}}});
    return r;
}

std::vector<Req> concat(std::vector<Req> a, const std::vector<Req>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Req kRxSrtpOff = {26, {{120, 0}, {124, 1}, {128, -1}}};
const Req kTxSrtpOff = {27, {{120, 0}, {124, 1}, {128, -1}}};
const Req kVolume = {8, {{120, 2}, {124, 10}}}; // mode g_AudMode, volume 10
const Req kRxOn = {28, {{120, 1}, {124, 0}}};
const Req kRxOnlyOn = {28, {{120, 1}, {124, 1}}};
const Req kTxOn = {29, {{120, 1}}};
const Req kTxOff = {29, {{120, 0}}};
const Req kRxOff = {28, {{120, 0}, {124, 0}}};

struct ModeRow {
    const char* mode;
    std::vector<Req> tail;
    const char* line; // printed before the sequence, or null
};

std::string quitAndCollect(ShellRun& run, ProcResult& res)
{
    run.child->write("q\n");
    res = run.child->wait();
    return stripTimestamps(res.out);
}

} // namespace

TEST(SessionCommands, StartRtpSessionInEachStartMode)
{
    const ModeRow rows[] = {
        {"0", {kRxSrtpOff, kTxSrtpOff, kVolume, kRxOn, kTxOn}, nullptr},
        {"1", {kRxSrtpOff, kTxSrtpOff, kVolume, kTxOn, kRxOn}, nullptr},
        {"2", {kVolume, kRxSrtpOff, kRxOnlyOn}, ">>> StartRtpSession, Recv Only Mode !!!"},
        {"3", {kTxSrtpOff, kTxOn}, ">>> StartRtpSession, Multicast Sender Mode !!!"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string("-P ") + row.mode);
        ShellRun run({"-P", row.mode, "-s", "10.0.0.2", "-p", "9100", "-c", "2"});
        ASSERT_TRUE(run.waitFor(kStartup));
        const auto want = concat(head(2, "10.0.0.2", 9100, 9200), row.tail);
        ASSERT_TRUE(run.key("s", kStartup + want.size()));
        ProcResult res;
        const std::string out = quitAndCollect(run, res);
        EXPECT_TRUE(res.exited);
        EXPECT_EQ(res.status, 0);
        ShellRun::expectSequence(run.sent(), kStartup, concat(want, {{304}}));
        for (const char* line : {">>> StartRtpSession, Recv Only Mode !!!", ">>> StartRtpSession, Multicast Sender Mode !!!"}) {
            const bool printed = out.find(std::string(line) + "\n") != std::string::npos;
            EXPECT_EQ(printed, row.line != nullptr && std::string(row.line) == line) << out;
        }
    }
}

TEST(SessionCommands, RefusedArgumentsLeaveTheRestOfTheSequence)
{
    // No -s: the opposite address is empty and setAudioOppIp refuses it; -c
    // 11 is beyond every codec and setAudioCodec refuses it. Neither sends
    // anything, each leaves its line in syslog, and the sequence goes on.
    SyslogCapture log;
    ShellRun run({"-r", "9300", "-a", "4", "-c", "11"});
    ASSERT_TRUE(run.waitFor(kStartup));
    log.clear();
    const std::vector<Req> want = {
        {15, {{132, 4}}},
        {25, {{120, 0}}},
        {20, {{172, 9000}}, {{120, 50, ""}}}, // the empty address, unchecked
        kRxSrtpOff,
        kTxSrtpOff,
        {8, {{120, 4}, {124, 10}}},
        kRxOn,
        kTxOn,
    };
    ASSERT_TRUE(run.key("s", kStartup + want.size()));
    // Key m stops both directions, Tx first.
    ASSERT_TRUE(run.key("m", kStartup + want.size() + 2));
    ProcResult res;
    quitAndCollect(run, res);
    EXPECT_EQ(res.status, 0);
    ShellRun::expectSequence(run.sent(), kStartup, concat(want, {kTxOff, kRxOff, {304}}));
    if (log.ok()) {
        std::vector<std::string> mlib;
        for (const auto& l : log.lines())
            if (l.ident == "MLIB")
                mlib.push_back(l.text);
        expectLines(mlib, {{"codec<=_CODEC_A_UNKNOWN", "setAudioCodec"}, {"checkIp(ip)", "setAudioOppIp"}});
    }
}

TEST(SessionCommands, SecondChannelAndStopAfterReceiveOnlyStart)
{
    ShellRun run({"-z", "10.0.0.3", "-P", "2", "-s", "10.0.0.2"});
    ASSERT_TRUE(run.waitFor(kStartup));
    // t: the second set of addresses, no start mode, no volume.
    const std::vector<Req> t = concat(head(0, "10.0.0.3", 9002, 9000), {kRxSrtpOff, kTxSrtpOff, kRxOn, kTxOn});
    ASSERT_TRUE(run.key("t", kStartup + t.size()));
    // s in receive-only mode, then m: m still stops Tx first, then Rx.
    const std::vector<Req> s = concat(head(0, "10.0.0.2", 9000, 9000), {kVolume, kRxSrtpOff, kRxOnlyOn});
    ASSERT_TRUE(run.key("s", kStartup + t.size() + s.size()));
    ASSERT_TRUE(run.key("m", kStartup + t.size() + s.size() + 2));
    ProcResult res;
    quitAndCollect(run, res);
    EXPECT_EQ(res.status, 0);
    ShellRun::expectSequence(run.sent(), kStartup, concat(concat(t, s), {kTxOff, kRxOff, {304}}));
}

TEST(SessionCommands, ForwardingToTheSaverAndTheTwoStops)
{
    ShellRun run({"-z", "10.0.0.3"});
    ASSERT_TRUE(run.waitFor(kStartup));
    // c: saver address and port, source port = the saver's port, forward on.
    const std::vector<Req> c = {
        {15, {{132, 2}}},
        {24, {{172, 9000}}, {{120, 50, "10.0.0.3"}}},
        {21, {{172, 9000}}, {{120, 50, ""}}},
        {33, {{120, 1}}},
    };
    ASSERT_TRUE(run.key("c", kStartup + 4));
    // The first n stops the forwarding only, the second stops Tx and Rx.
    ASSERT_TRUE(run.key("n", kStartup + 5));
    ASSERT_TRUE(run.key("n", kStartup + 7));
    ProcResult res;
    quitAndCollect(run, res);
    EXPECT_EQ(res.status, 0);
    ShellRun::expectSequence(run.sent(), kStartup, concat(c, {{33, {{120, 0}}}, kTxOff, kRxOff, {304}}));
}

TEST(SessionCommands, RegistrationKeys)
{
    ShellRun run({"x"});
    ASSERT_TRUE(run.waitFor(kStartup));
    // r while registered: one line, no request.
    run.child->write("r\n");
    ASSERT_TRUE(run.child->waitForOutput(">>> Already Registered, so Ignore !!!"));
    // u, u: one unregistration; r: a new registration and a new channel,
    // which the next command uses.
    ASSERT_TRUE(run.key("u", kStartup + 1));
    run.child->write("u\n");
    ASSERT_TRUE(run.key("r", kStartup + 3));
    ASSERT_TRUE(run.key("m", kStartup + 5));
    // u then q: nothing more after the unregistration.
    ASSERT_TRUE(run.key("u", kStartup + 6));
    ProcResult res;
    const std::string out = quitAndCollect(run, res);
    EXPECT_EQ(res.status, 0);
    const auto got = run.sent();
    ShellRun::expectSequence(got, kStartup, {{304}, {303}, {305}, kTxOff, kRxOff, {304}}, 2);
    // The second registration is a socket of its own.
    ASSERT_EQ(got.size(), kStartup + 6);
    EXPECT_NE(got[0].from, got[kStartup + 1].from);
    EXPECT_EQ(got[kStartup + 5].from, got[kStartup + 1].from);
    size_t count = 0;
    for (size_t p = out.find(">>> Already Registered, so Ignore !!!\n"); p != std::string::npos;
         p = out.find(">>> Already Registered, so Ignore !!!\n", p + 1))
        ++count;
    EXPECT_EQ(count, 1u) << out;
}
