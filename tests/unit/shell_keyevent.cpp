// Key scripts: the key-token table, the command text of a key list (its
// quirks, its bounds, its reentrancy), the built-in script and the thread
// that hands each group to the system shell.
#include "keyevent.h"
#include "params.h"
#include "shellcmd.h"
#include "shellthreads.h"
#include "stress.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sys/wait.h>
#include <string>
#include <thread>
#include <vector>

namespace {

const bool kStubsOnPath = installStubPath();

std::string tokenText(const char* token)
{
    char dst[kKeyTokenTextSize] = "untouched";
    getKeyEventStr(dst, token);
    return dst;
}

struct Built {
    int tokens;
    int leftOut;
    std::string text;
};

// getKeyEventString on a copy of `keys` into a dst of dstSize bytes that is
// followed by guard bytes; fails the test if a guard byte changed.
Built build(const std::string& keys, uint16_t delayMs, int dstSize = kKeyGroupTextSize,
            const char* before = "untouched")
{
    std::vector<char> list(keys.begin(), keys.end());
    list.push_back('\0');
    std::vector<char> dst(static_cast<size_t>(dstSize) + 64, '\x5a');
    snprintf(dst.data(), static_cast<size_t>(dstSize), "%s", before);
    Built b{};
    b.tokens = getKeyEventString(dst.data(), list.data(), delayMs, dstSize, &b.leftOut);
    for (size_t i = static_cast<size_t>(dstSize); i < dst.size(); ++i)
        EXPECT_EQ(dst[i], '\x5a') << "byte " << i << " written past " << dstSize << " for <" << keys << ">";
    EXPECT_NE(memchr(dst.data(), 0, static_cast<size_t>(dstSize)), nullptr) << "no terminator for <" << keys << ">";
    b.text = dst.data();
    return b;
}

std::string digits(int n)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += (i ? "," : "") + std::to_string(i % 10);
    return s;
}

} // namespace

TEST(KeyToken, TableByToken)
{
    ASSERT_TRUE(kStubsOnPath);
    const struct {
        const char* token;
        const char* text;
    } rows[] = {
        {"1", "key 1"},           {"1xyz", "key 1"},       {"0", "key 0"},
        {"*", "key *"},           {"#9", "key '#'"},        {"s3x", "key soft_3"},
        {"s1", "key soft_1"},     {"s5", "key soft_5"},    {"s", "key spk"},
        {"sm", "key smart"},      {"d", "key dss_"},       {"d12-a_B", "key dss_12-a_B"},
        {"me", "key menu"},       {"b", "key back"},       {"ho", "key hold"},
        {"mu", "key mute"},       {"he", "key headset"},   {"r", "key redial"},
        {"c", "key conf"},        {"t", "key transf"},     {"vu", "key vol_up"},
        {"vd", "key vol_down"},
        // No key: the destination keeps what it held.
        {"s6", "untouched"},      {"s0", "untouched"},     {"me2", "untouched"},
        {"S", "untouched"},       {"ME", "untouched"},     {"x", "untouched"},
        {"", "untouched"},        {"bb", "untouched"},     {"vdx", "untouched"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(tokenText(r.token), r.text) << "token <" << r.token << ">";
        EXPECT_EQ(vxIsKeyToken(r.token), std::string(r.text) != "untouched") << "token <" << r.token << ">";
    }
}

TEST(KeyToken, TextThatWouldNotFitLeavesTheDestinationAlone)
{
    const std::string longDss = "d" + std::string(200, 'a');
    EXPECT_EQ(tokenText(longDss.c_str()), "untouched");
    char small[6] = "keep";
    getKeyEventStr(small, "vd", sizeof small); // "key vol_down" needs 13
    EXPECT_STREQ(small, "keep");
    getKeyEventStr(small, "1", sizeof small); // "key 1" needs 6
    EXPECT_STREQ(small, "key 1");
}

TEST(KeyEventString, ListsAndTheirQuirks)
{
    const struct {
        const char* keys;
        uint16_t delay;
        int tokens;
        const char* text;
    } rows[] = {
        {"1,4", 200, 2, "key 1; usleep 200000; key 4; usleep 200000"},
        // An unknown token repeats the text of the token before it.
        {"1,bad,2", 200, 3, "key 1; usleep 200000; key 1; usleep 200000; key 2; usleep 200000"},
        // A first token that is unknown gives an empty command, and counts.
        {"bad,1", 200, 2, "; usleep 200000; key 1; usleep 200000"},
        // Separators merge; leading and trailing ones give no token.
        {",1,,,4,", 0, 2, "key 1; usleep 0; key 4; usleep 0"},
        {"123", 10, 1, "key 1; usleep 10000"},
        {"d7,s", 65535, 2, "key dss_7; usleep 65535000; key spk; usleep 65535000"},
        // Empty lists: 0, and the destination is left alone.
        {"", 200, 0, "untouched"},
        {",,,", 200, 0, "untouched"},
    };
    for (const auto& r : rows) {
        const Built b = build(r.keys, r.delay);
        EXPECT_EQ(b.tokens, r.tokens) << "<" << r.keys << ">";
        EXPECT_EQ(b.text, r.text) << "<" << r.keys << ">";
        EXPECT_EQ(b.leftOut, 0) << "<" << r.keys << ">";
    }
}

TEST(KeyEventString, ElevenKeysTake240Bytes)
{
    const Built b = build("1,2,3,4,5,6,7,8,9,0,*", 200);
    EXPECT_EQ(b.tokens, 11);
    EXPECT_EQ(b.text.size(), 240u);
}

TEST(KeyEventString, OverlongListsKeepAPrefixWithinTheBuffer)
{
    const struct {
        std::string keys;
        int dstSize;
        int written; // tokens whose text is in the result
    } rows[] = {
        // 20 bytes for the first key, 22 for each further one.
        {digits(12), 256, 11},
        {digits(11), 256, 11},
        {digits(20), 400, 18},
        {digits(50), 400, 18},
        // A key that does not fit, however short the rest: nothing behind it.
        {"1,d" + std::string(130, 'x') + ",2,3", 400, 1},
        {"d" + std::string(98, 'x') + ",1", 100, 0},
        {digits(3), 1, 0},
        {digits(3), 20, 0},
        {digits(3), 21, 1},
    };
    for (const auto& r : rows) {
        const Built b = build(r.keys, 200, r.dstSize);
        const int total = static_cast<int>(std::count(r.keys.begin(), r.keys.end(), ',')) + 1;
        EXPECT_EQ(b.tokens, total) << r.keys;
        EXPECT_EQ(b.leftOut, total - r.written) << r.keys;
        EXPECT_LT(static_cast<int>(b.text.size()), r.dstSize) << r.keys;
        if (r.written == 0) {
            EXPECT_EQ(b.text, "") << r.keys;
        } else {
            // The text is whole pieces: it ends with the pause of its last key.
            EXPECT_EQ(b.text.substr(b.text.size() - 13), "usleep 200000") << r.keys;
            int keys = 0;
            for (size_t at = b.text.find("key "); at != std::string::npos; at = b.text.find("key ", at + 1))
                ++keys;
            EXPECT_EQ(keys, r.written) << b.text;
        }
    }
}

TEST(KeyEventString, SplitsInTwoThreadsAtOnce)
{
    // The split keeps no state between calls: with a per-process split the
    // two lists would cut into each other.
    auto worker = [](const char* keys, const char* expected, int* bad) {
        for (int i = 0; i < 2000; ++i) {
            char list[100];
            snprintf(list, sizeof list, "%s", keys);
            char dst[kKeyGroupTextSize] = {};
            getKeyEventString(dst, list, 1);
            if (strcmp(dst, expected) != 0)
                ++*bad;
        }
    };
    int bad1 = 0, bad2 = 0;
    std::thread a(worker, "1,2,3,4,5", "key 1; usleep 1000; key 2; usleep 1000; key 3; usleep 1000; key 4; usleep 1000; key 5; usleep 1000", &bad1);
    std::thread b(worker, "s,b,me", "key spk; usleep 1000; key back; usleep 1000; key menu; usleep 1000", &bad2);
    a.join();
    b.join();
    EXPECT_EQ(bad1, 0);
    EXPECT_EQ(bad2, 0);
}

TEST(KeyScript, BuiltInScript)
{
    vxResetParams();
    snprintf(g_szOppDevId, sizeof g_szOppDevId, "%s", "123456789012345");
    tPlayKeyEvent ev;
    memset(&ev, 0x77, sizeof ev);
    vxBuiltinKeyScript(&ev);
    EXPECT_EQ(ev.repeat, 0);
    EXPECT_EQ(ev.count, 6);
    EXPECT_EQ(ev.interval, 2000);
    const struct {
        const char* keys;
        uint16_t step;
    } rows[] = {{"123456789012345", 2000}, {"1,4", 1500}, {"1,2,3,4,5,6,7,8,9,0,*", 3000},
                {"1,2,3,4,5,6,7,8,9,0,*", 3000}, {"1,2,3,4,5,6,7,8,9,0,*", 3000}, {"s", 3000}};
    for (int i = 0; i < 6; ++i) {
        EXPECT_STREQ(ev.groups[i].keys, rows[i].keys) << i;
        EXPECT_EQ(ev.groups[i].keyDelayMs, 200) << i;
        EXPECT_EQ(ev.groups[i].stepDelayMs, rows[i].step) << i;
    }
    // The rest is zero.
    EXPECT_EQ(ev.groups[6].keys[0], '\0');
    EXPECT_EQ(ev.groups[19].stepDelayMs, 0);
    vxResetParams();
}

using KeyEventThreadTest = ShellThreadsTest;

TEST_F(KeyEventThreadTest, HandsEachGroupToTheShell)
{
    memset(&g_PlayKeyEvent, 0, sizeof g_PlayKeyEvent);
    g_PlayKeyEvent.count = 3;
    snprintf(g_PlayKeyEvent.groups[0].keys, 100, "%s", "1,4");
    g_PlayKeyEvent.groups[0].keyDelayMs = 5;
    // An empty group gives an empty command: nothing runs.
    g_PlayKeyEvent.groups[1].keys[0] = '\0';
    snprintf(g_PlayKeyEvent.groups[2].keys, 100, "%s", "vu,d12");
    g_bTestKeyEvent = 1;
    StdoutCapture out;
    ASSERT_EQ(vxStartTestThread(g_nKeyEventThreads, TestKeyEventThread), 1);
    ASSERT_TRUE(threadsEnded(5000));
    const std::string text = out.end();
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 5000", "key 4", "usleep 5000", "key vol_up",
                                                     "usleep 0", "key dss_12", "usleep 0"}));
    EXPECT_NE(text.find(">>> TestKeyEventThread, starts ...\n"
                        ">>> TestKeyEventThread, Key-GroupCount:3, Converting Input Keys to KeyEvent List ...\n"
                        ">>> TestKeyEventThread, STEP[0]-1-<1,4> \n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find(">>> TestKeyEventThread, STEP[0]-2-<> \n>>> TestKeyEventThread, STEP[0]-3-<vu,d12> \n"
                        ">>> TestKeyEventThread, ends ...\n"),
              std::string::npos)
        << text;
    // The script itself stays whole.
    EXPECT_STREQ(g_PlayKeyEvent.groups[0].keys, "1,4");
    // One pass is over, the word stays set: a further start is refused.
    EXPECT_EQ(g_bTestKeyEvent, 1);
}

TEST_F(KeyEventThreadTest, RepeatedScriptRunsUntilStoppedAndLogsTheTime)
{
    memset(&g_PlayKeyEvent, 0, sizeof g_PlayKeyEvent);
    g_PlayKeyEvent.count = 1;
    g_PlayKeyEvent.repeat = 1;
    g_PlayKeyEvent.interval = 10;
    snprintf(g_PlayKeyEvent.groups[0].keys, 100, "%s", "5");
    g_PlayKeyEvent.groups[0].stepDelayMs = 10;
    g_bTestKeyEvent = 1;
    StdoutCapture out;
    ASSERT_EQ(vxStartTestThread(g_nKeyEventThreads, TestKeyEventThread), 1);
    ASSERT_TRUE(waitUntil([] { return stubCalls().size() >= 6; }, 5000));
    StopTest();
    ASSERT_TRUE(threadsEnded(2000));
    const std::string text = out.end();
    EXPECT_NE(text.find(">>> TestKeyEventThread, STEP[0], <Elasped Time - 00:00>\n"
                        ">>> TestKeyEventThread, STEP[1]-1-<5> \n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find(">>> g_bTestKeyEvent:1. so set g_bTestKeyEvent:0.\n"), std::string::npos);
    const auto calls = stubCalls();
    EXPECT_EQ(calls[0], "key 5");
    EXPECT_EQ(calls[1], "usleep 0");
}

TEST_F(KeyEventThreadTest, PauseHoldsTheScriptBeforeItsNextGroup)
{
    memset(&g_PlayKeyEvent, 0, sizeof g_PlayKeyEvent);
    g_PlayKeyEvent.count = 2;
    snprintf(g_PlayKeyEvent.groups[0].keys, 100, "%s", "1");
    g_PlayKeyEvent.groups[0].stepDelayMs = 200;
    snprintf(g_PlayKeyEvent.groups[1].keys, 100, "%s", "2");
    g_bTestKeyEvent = 1;
    ASSERT_EQ(vxStartTestThread(g_nKeyEventThreads, TestKeyEventThread), 1);
    ASSERT_TRUE(waitUntil([] { return stubCalls().size() >= 2; }, 3000));
    g_bPauseTest = 1; // during the pause of group 1
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ(stubCalls().size(), 2u) << "group 2 ran while paused";
    EXPECT_EQ(g_nKeyEventThreads, 1);
    g_bPauseTest = 0;
    ASSERT_TRUE(threadsEnded(3000));
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 0", "key 2", "usleep 0"}));
}

TEST(ShellCommand, ChildStartsWithNoSignalBlocked)
{
    // Every thread of the shell blocks the four shutdown signals; a command
    // must not inherit that.
    cleanVxDir();
    sigset_t set, old;
    sigemptyset(&set);
    for (int sig : {SIGINT, SIGHUP, SIGTERM, SIGQUIT})
        sigaddset(&set, sig);
    pthread_sigmask(SIG_BLOCK, &set, &old);
    const int status = vxRunShellCommand("grep SigBlk /proc/self/status > /tmp/vx/sigblk; exit 3");
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    std::ifstream in("/tmp/vx/sigblk");
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "SigBlk:\t0000000000000000");
    // Pathname expansion is off: '*' is a key, not the files here.
    EXPECT_EQ(vxRunShellCommand("test \"$(echo *)\" = '*'"), 0);
    EXPECT_EQ(vxRunShellCommand(nullptr), -1);
    cleanVxDir();
}
