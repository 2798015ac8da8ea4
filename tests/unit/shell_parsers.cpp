// The shell's parsers and tables: the command line, key tokens and lists,
// relay datagrams, and the plans of tones and tests. Commands for the system
// shell and the pauses between key groups are recorded, not run: these
// definitions take the place of the shell's own.
#include "keyevent.h"
#include "params.h"
#include "playback.h"
#include "relay.h"
#include "stress.h"
#include "vxclient.h"
#include "vxtest.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

std::mutex g_mu; // the key script's thread runs commands too
std::string g_ran, g_paused;
std::string ran()
{
    std::lock_guard<std::mutex> l(g_mu);
    return g_ran;
}

#define I(expr) [] { return std::to_string(expr); }
#define S(expr) [] { return std::string(expr); }

// The command line from the defaults: what one run parameter (or a sum of
// them) is afterwards.
const std::tuple<std::vector<std::string>, std::string (*)(), std::string> kOptions[] = {
    {{"-p", "9100", "-r", "9300"}, I(g_localPort + g_remotePort), "18400"},
    {{"-r", "9300", "-p", "9100"}, I(g_remotePort), "9200"},
    {{"-p", "12x", "-c", "2"}, I(g_localPort + g_audioCodec + g_nRepeatCnt), "16"},
    {{"-a", "0"}, I(g_AudMode), "1"},
    {{"-a", "12"}, I(g_AudMode), "1"},
    {{"-a", "11"}, I(g_AudMode), "11"},
    {{"-a", "1", "-V", "7"}, I(g_nVolumeIndex), "7"},
    {{"-a", "1", "-V", "8"}, I(g_nVolumeIndex), "5"},
    {{"-V", "15"}, I(g_nVolumeIndex), "15"},
    {{"-V", "16", "-a", "1"}, I(g_nVolumeIndex), "7"},
    {{"-t", "10"}, I(g_nToneIndex), "10"},
    {{"-t", "11"}, I(g_nToneIndex), "0"},
    {{"-t", ""}, I(g_bTonePlay * 10 + g_nToneIndex), "10"},
    {{"-W", "0"}, I(g_nWaveIndex), "1"},
    {{"-W", "10"}, I(g_nWaveIndex * 10 + g_bPlayWavIndex), "101"},
    {{"-W", "11"}, I(g_nWaveIndex), "1"},
    {{"-l", "5"}, I(g_vx_logLevel), "5"},
    {{"-l", "6"}, I(g_vx_logLevel), "0"},
    {{"-d", "-99999999999"}, I(g_LangCode), "-2147483648"},
    {{"-p", "4294967296"}, I(g_localPort + 0LL + g_remotePort), "98"},
    {{"-k", "2"}, I(g_iKeyType), "2"},
    {{"-k", "3"}, I(g_iKeyType), "0"},
    {{"-P", "3"}, I(g_bIsPagingMode), "3"},
    {{"-P", "4"}, I(g_bIsPagingMode), "0"},
    {{"-R", "-v", "1", "x"}, I(g_vx_Relay_Mode * 10 + g_bVQMRequestMOS), "11"},
    {{"-T", "440,480,1,2,3,4,5,6,-1,999"}, I(g_ToneFreq2 + g_Tone3OffTime + g_ToneRepeat + g_ToneInterMitMs), "1484"},
    {{"-T", ""}, I(g_bTonePlayEx * 10 + g_ToneFreq1), "9"},
    {{"x"}, I(g_localPort2 + g_remotePort2 + g_ShellPort), "73557"},
    {{"-o", "a-B_12345678901", "-s", "1234567890123456789"},
     S(g_szOppDevId + std::string(g_szServerIp)),
     "a-B_12345678901123456789012345"},
    {{"-z", "10.0.0.2", "-w", std::string(200, 'p')},
     S(g_szServerIp2 + std::string(g_WaveFile)),
     "10.0.0.2" + std::string(127, 'p')},
    {{"-w", ""}, I(g_bTestPlayWav), "0"},
    {{"-f", "a,,b,c,d,e"}, S(std::string(g_szFileName) + g_szSection + g_szKey + g_szText), "abcd"},
    {{"-f", ""}, I(g_nFileMode * 10 + strlen(g_szFileName)), "10"},
};

// A token's command text; "-" where the token is no key. Of the whole-word
// keys only those next to another (s, sm; me, me2) and the last row.
const std::pair<const char*, const char*> kTokens[] = {
    {"1xyz", "key 1"},
    {"*", "key *"},
    {"#9", "key '#'"},
    {"s3x", "key soft_3"},
    {"s5", "key soft_5"},
    {"s", "key spk"},
    {"sm", "key smart"},
    {"d", "key dss_"},
    {"d1-a_B", "key dss_1-a_B"},
    {"me", "key menu"},
    {"vd", "key vol_down"},
    {"s6", "-"},
    {"s0", "-"},
    {"me2", "-"},
    {"S", "-"},
    {"", "-"},
};

// A key list into a buffer of `size`: its text, tokens and tokens left out.
const std::tuple<std::string, uint16_t, int, const char*, int, int> kLists[] = {
    {"1,4", 200, 400, "key 1; usleep 200000; key 4; usleep 200000", 2, 0},
    {"1,bad,2", 1, 400, "key 1; usleep 1000; key 1; usleep 1000; key 2; usleep 1000", 3, 0},
    {"bad,1", 200, 400, "; usleep 200000; key 1; usleep 200000", 2, 0},
    {",1,,,4,", 0, 400, "key 1; usleep 0; key 4; usleep 0", 2, 0},
    {"d7,s", 65535, 400, "key dss_7; usleep 65535000; key spk; usleep 65535000", 2, 0},
    {",,", 200, 400, "-", 0, 0},
    {"1,2,3", 200, 42, "key 1; usleep 200000", 3, 2},
    {"1,d" + std::string(130, 'x') + ",2", 200, 400, "key 1; usleep 200000", 3, 2},
    {"d" + std::string(130, 'x'), 200, 400, "", 1, 1},
};

// A relay datagram (see relayDatagram): result, files played, commands run
// (each followed by '|'), pauses between groups, and a text of the log.
const std::tuple<std::string, int, const char*, const char*, const char*, const char*> kDatagrams[] = {
    {"@2:0:2:65535/65535/1,2|65535/0/s", 1, "", "key 1; usleep 30000000; key 2; usleep 30000000|key spk; usleep 0|",
     "0 ", "PLAY_KEYEVENT pauses cut to 30 s each and 60 s in all."},
    {"@2:0:3:1/30001/1|1/40000/2|1/0/3", 1, "", "key 1; usleep 1000|key 2; usleep 1000|key 3; usleep 0|",
     "30000 29998 ", "cut to 30 s"},
    {"@2:0:1:0/0/x\x1b[2J\r\n", 1, "", "", "", "group[0] <x\\x1b[2J\\x0d\\x0a> holds no valid key list"},
    {"@10:0:2:03|29", 1, "/sound/tone_0_3.wav /sound/tone_2_9.wav ", "", "", ""},
    {"@10:0:3:11|12", 1, "/sound/tone_1_1.wav /sound/tone_1_2.wav ", "", "", ""},
    {"@10:1:2:11|12", 1, "", "", "", ""},
    {"@10:0:-5:11", 1, "", "", "", ""},
    {"@2:0:2:200/50/1,2|100/7/s", 1, "", "key 1; usleep 200000; key 2; usleep 200000|key spk; usleep 100000|", "50 ",
     ""},
    {"@2:0:3:1/5/1|1/6/2", 1, "", "key 1; usleep 1000|key 2; usleep 1000|", "5 ", ""},
    {"@2:1:1:200/0/1", 1, "", "", "", ""},
    {"@2:0:2:1/9/x;reboot|1/0/d$(x)", 1, "", "", "9 ", ""},
    {"@2:0:1:0/0/" + std::string(99, '1'), 1, "", "key 1; usleep 0|", "", ""},
    {"@2:0:1:0/0/1," + std::string(120, '2'), 1, "", "key 1; usleep 0; key 2; usleep 0|", "", ""},
    {"@2:0:1:0/0/1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1",
     1, "", "", "", ""},
    {std::string("\0\2\0\0\0", 5), 1, "", "", "", ""},
    {std::string("\0", 1), 1, "", "", "", ""},
    {"@1", 1, "", "", "", ""},
    {"@99", 0, "", "", "", ""},
};

} // namespace

int vxRunShellCommand(const char* cmd)
{
    std::lock_guard<std::mutex> l(g_mu);
    g_ran += std::string(cmd) + "|";
    return 0;
}
int vxScriptPause(uint32_t ms)
{
    g_paused += std::to_string(ms) + " ";
    return 0;
}

TEST(ShellParsers, CommandLineAndPlans)
{
    // Repeat and the six times of -T: the first and second wait, and the stop.
    const std::tuple<int, int, int, int, int, int, int, const char*> plans[] = {
        {-1, 0, 0, 0, 0, 0, 0, "5000 0 1 "},
        {2, 100, 100, 50, 50, 0, 0, "5000 0 1 "},
        {1, 100, 100, 50, 50, 0, 0, "300 700 0 "},
        {0, 250, 250, 250, 250, 0, 0, "1000 0 0 "},
        {1, 1000, 1000, 1000, 1000, 500, 501, "5000 0 1 "},
        {1, 1000, 1000, 1000, 1000, 500, 500, "5000 0 0 "},
        {0, -1, -1, -1, -1, -1, -1, "0 1000 0 "},
    };
    for (const auto& p : plans) {
        std::tie(g_ToneRepeat, g_Tone1OnTime, g_Tone1OffTime, g_Tone2OnTime, g_Tone2OffTime, g_Tone3OnTime,
                 g_Tone3OffTime, std::ignore) = p;
        const tToneWaitPlan got = vxExtendedTonePlan();
        EXPECT_EQ(seq({got.firstMs, got.secondMs, got.stop}), std::get<7>(p)) << g_ToneRepeat << " " << g_Tone1OnTime;
    }
    // The wave test's play for a draw: type, repeat, pause and its step, path.
    const std::pair<int, const char*> picks[] = {{0, "0 1 3000 0 /sound/ring1.wav"},
                                                 {20, "0 1 3000 0 /sound/ring3.wav"},
                                                 {5, "1 0 1000 0 /sound/msg_1.wav"},
                                                 {17, "2 0 150 20 /sound/tone_1_7.wav"}};
    g_iKeyType = 1;
    for (const auto& [r, want] : picks) {
        char path[128];
        int repeat, pause, step;
        const int type = vxWavTestPick(r, path, sizeof path, &repeat, &pause, &step);
        EXPECT_EQ(seq({type, repeat, pause, step}) + path, want);
    }
    EXPECT_EQ(seq({vxRecRandWait(500, 5000, 250), vxRecRandWait(0, 100, 199), vxRecRandWait(INT32_MIN, INT32_MAX, 99)}),
              seq({2250, 99, INT32_MAX}));
    for (auto [args, value, want] : kOptions) {
        vxResetParams();
        args.insert(args.begin(), "vxShell");
        parse_cmdline(static_cast<int>(args.size()), cStrings(args).data());
        EXPECT_EQ(value(), want) << args[1];
    }
    vxResetParams();
}

TEST(ShellParsers, KeyTokensAndLists)
{
    for (const auto& [token, text] : kTokens) {
        char dst[kKeyTokenTextSize] = "-";
        getKeyEventStr(dst, token);
        EXPECT_STREQ(dst, text) << token;
        EXPECT_EQ(vxIsKeyToken(token), *text != '-') << token;
    }
    for (const auto& [keys, delay, size, text, tokens, wantLeftOut] : kLists) {
        std::string cut = keys; // the list is cut up in place
        std::vector<char> dst(static_cast<size_t>(size) + 8, 'z');
        strcpy(dst.data(), "-");
        int leftOut = -1;
        EXPECT_EQ(getKeyEventString(dst.data(), cut.data(), delay, size, &leftOut), tokens) << keys;
        EXPECT_STREQ(dst.data(), text) << keys;
        EXPECT_EQ(leftOut, wantLeftOut) << keys;
        EXPECT_EQ(dst[static_cast<size_t>(size)], 'z') << "written past the end";
    }
    const std::pair<const char*, int> safe[] = {{"1,4,*", 1}, {"d12_a-B,s", 1}, {"d1;rm", 0}, {"x", 0}, {"", 1}};
    for (const auto& [keys, want] : safe)
        EXPECT_EQ(vxRelayKeysAreSafe(keys), want) << keys;
    tPlayKeyEvent ev;
    snprintf(g_szOppDevId, sizeof g_szOppDevId, "1,2");
    vxBuiltinKeyScript(&ev);
    std::string script = std::to_string(ev.repeat) + " " + std::to_string(ev.interval);
    for (int i = 0; i < ev.count; ++i)
        script += " " + std::string(ev.groups[i].keys) + "/" + std::to_string(ev.groups[i].keyDelayMs) + "/" +
                  std::to_string(ev.groups[i].stepDelayMs);
    EXPECT_EQ(script, "0 2000 1,2/200/2000 1,4/200/1500 1,2,3,4,5,6,7,8,9,0,*/200/3000 "
                      "1,2,3,4,5,6,7,8,9,0,*/200/3000 1,2,3,4,5,6,7,8,9,0,*/200/3000 s/200/3000");
    // A repeated script runs pass after pass, each with its time line, until
    // its word is cleared.
    g_PlayKeyEvent = {1, 1, {{"1,#", 1, 0}}, 0};
    g_bTestKeyEvent = 1;
    g_ran.clear();
    std::thread runner([] { TestKeyEventThread(nullptr); });
    const std::string pass = "key 1; usleep 1000; key '#'; usleep 1000|";
    EXPECT_TRUE(waitUntil([&] { return ran().size() >= 2 * pass.size(); }, 5000));
    g_bTestKeyEvent = 0;
    runner.join();
    EXPECT_EQ(ran().substr(0, 2 * pass.size()), pass + pass);
}

TEST(ShellParsers, RelayDatagramsPresetTonesAndSocket)
{
    FakeService svc;
    g_regi_sock = registApplication("relay", 0, -1, "127.0.0.1");
    g_regi_channel = 4;
    ASSERT_TRUE(svc.waitFor(1));
    for (const auto& [datagram, result, wantPlayed, wantRan, wantPaused, logged] : kDatagrams) {
        svc.clear();
        g_ran.clear();
        g_paused.clear();
        const std::string bytes = datagram[0] == '@' ? relayDatagram(datagram) : datagram;
        testing::internal::CaptureStdout();
        EXPECT_EQ(vxReqReqHandler(reinterpret_cast<const unsigned char*>(bytes.data()), int(bytes.size())), result)
            << datagram;
        fflush(stdout);
        EXPECT_NE(testing::internal::GetCapturedStdout().find(logged), std::string::npos) << datagram;
        svc.waitFor(static_cast<size_t>(std::count(wantPlayed, wantPlayed + strlen(wantPlayed), ' ')), 1000);
        std::string played;
        for (const Datagram& r : svc.received())
            played += r.text(120, 128) + " ";
        EXPECT_EQ(played, wantPlayed) << datagram;
        EXPECT_EQ(g_ran, wantRan) << datagram;
        EXPECT_EQ(g_paused, wantPaused) << datagram;
    }
    // Preset 1 as it is; preset 7 repeats as often as -c says; 9 is none.
    // The dual tones by kind and length; 11 is none.
    g_nRepeatCnt = 3;
    EXPECT_EQ(vxStartPresetTone(1) + vxStartPresetTone(7) + vxStartPresetTone(9) + vxStartPresetTone(-1), 2);
    for (const auto& [kind, longTone] : {std::pair(0, 1), {0, 0}, {5, 0}, {10, 0}, {11, 0}, {-1, 0}})
        vxPlayDualTone(kind, longTone);
    ASSERT_TRUE(svc.waitFor(6));
    std::vector<int> words;
    for (const Datagram& t : svc.received())
        for (size_t off : {124, 128, 132, 136, 156})
            words.push_back(t.word(off));
    EXPECT_EQ(words, std::vector<int>({440, 480, 1000, 2000, 65535, 650, 0,   100, 100, 3, 350, 440, 1000, 0,   1,
                                       350, 440, 500,  100,  1,     350, 440, 500, 100, 1, 50,  440, 500,  100, 1}));
    close(g_regi_sock);
    g_regi_sock = -1;
    vxPlayDualTone(0, 0); // unregistered: a log line only
    msleep_rec(-1);
    msleep_rec(50);
    msleep_rec_rand(0, 0);
    EXPECT_EQ(svc.received().size(), 6u);
    // The listener's socket: bound once per port, a send to it arrives, a bad
    // address is refused; the thread ends at once without its port or its
    // registration.
    const int a = Create_UDP_SOCK("127.0.0.1", 0);
    sockaddr_in at{};
    socklen_t len = sizeof at;
    ASSERT_EQ(getsockname(a, reinterpret_cast<sockaddr*>(&at), &len), 0);
    const int port = ntohs(at.sin_port);
    EXPECT_EQ(Create_UDP_SOCK(nullptr, port), -2);
    EXPECT_EQ(Send_UDP_SendTo(a, "x", 1, 0, "127.0.0.1", port), 1);
    EXPECT_EQ(Send_UDP_SendTo(a, "x", 1, 0, "::1", port), -1);
    char got[4];
    EXPECT_EQ(recv(a, got, sizeof got, 0), 1);
    for (const int p : {port, 0}) {
        g_ShellPort = p;
        g_regi_sock = 0;
        g_vx_RelayThId = 1;
        EXPECT_EQ(vxRelayReqThread(nullptr), nullptr);
        EXPECT_EQ(g_vx_RelayThId, 0);
    }
    close(a);
    vxResetParams();
}
