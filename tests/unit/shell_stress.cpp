// Stress-test threads: the sliced sleeps, the random waits, the wave table,
// the start/stop/pause commands and how fast a stop ends each thread.
#include "params.h"
#include "shellthreads.h"
#include "stress.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <map>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point t0)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
}

template <class F>
long timed(F f)
{
    const auto t0 = Clock::now();
    f();
    return msSince(t0);
}

std::atomic<int> g_seenArgNull{-1};

void* recordArg(void* arg)
{
    g_seenArgNull = arg == nullptr ? 1 : 0;
    return nullptr;
}

} // namespace

TEST(SlicedSleep, WithTheFlagCleared)
{
    vxResetParams();
    g_bTestRecording = 0;
    // Up to 100 ms: one plain wait, the flag not looked at.
    EXPECT_GE(timed([] { msleep_rec(100); }), 95);
    // Above: slices that give up at once on a cleared flag.
    EXPECT_LT(timed([] { msleep_rec(101); }), 50);
    EXPECT_LT(timed([] { msleep_rec(15000); }), 50);
    EXPECT_LT(timed([] { msleep_rec(-5); }), 50) << "a negative wait must not turn into years";
    // Random waits: at least the one wait of 100 ms, else sliced.
    EXPECT_GE(timed([] { msleep_rec_rand(500, 500); }), 95);
}

TEST(SlicedSleep, WithTheFlagSetAndClearedMidway)
{
    vxResetParams();
    g_bTestRecording = 1;
    // 150 ms is two slices.
    const long two = timed([] { msleep_rec(150); });
    EXPECT_GE(two, 195);
    EXPECT_LT(two, 1000);
    std::thread clearer([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        g_bTestRecording = 0;
    });
    const long cut = timed([] { msleep_rec(15000); });
    clearer.join();
    EXPECT_GE(cut, 150);
    EXPECT_LT(cut, 1000) << "a clear is seen within a slice";
    vxResetParams();
}

TEST(SlicedSleep, RandomWaitByDraw)
{
    const struct {
        int a, b, r, d;
    } rows[] = {
        {500, 5000, 2, 90},     // below 100: one wait of 100 ms
        {500, 5000, 3, 135},    // two slices
        {500, 5000, 0, 0},
        {500, 5000, 99, 4455},  // a is not added back
        {500, 5000, 199, 4455}, // only r mod 100 counts
        {5000, 500, 50, -2250},
        {INT_MIN, INT_MAX, 99, INT_MAX}, // no overflow
        {INT_MAX, INT_MIN, 99, INT_MIN},
    };
    for (const auto& r : rows)
        EXPECT_EQ(vxRecRandWait(r.a, r.b, r.r), r.d) << r.a << " " << r.b << " " << r.r;
}

TEST(WavTest, TableOfPlays)
{
    vxResetParams();
    g_iKeyType = 1;
    const struct {
        int r;
        int type;
        const char* path;
        int repeat, pause, step;
    } rows[] = {
        {0, 0, "/sound/ring1.wav", 1, 3000, 0},   {20, 0, "/sound/ring3.wav", 1, 3000, 0},
        {40, 0, "/sound/ring5.wav", 1, 3000, 0},  {60, 0, "/sound/ring2.wav", 1, 3000, 0},
        {80, 0, "/sound/ring4.wav", 1, 3000, 0},  {5, 1, "/sound/msg_1.wav", 0, 1000, 0},
        {25, 1, "/sound/msg_1.wav", 0, 1000, 0},  {7, 2, "/sound/tone_1_7.wav", 0, 150, 20},
        {13, 2, "/sound/tone_1_3.wav", 0, 150, 20},
    };
    for (const auto& row : rows) {
        char path[128] = {};
        int repeat = -1, pause = -1, step = -1;
        EXPECT_EQ(vxWavTestPick(row.r, path, sizeof path, &repeat, &pause, &step), row.type) << row.r;
        EXPECT_STREQ(path, row.path) << row.r;
        EXPECT_EQ(repeat, row.repeat) << row.r;
        EXPECT_EQ(pause, row.pause) << row.r;
        EXPECT_EQ(step, row.step) << row.r;
    }
    // Of twenty plays, one ring, three messages, sixteen key tones.
    std::map<int, int> kinds;
    for (int r = 1000; r < 1020; ++r) {
        char path[128];
        int repeat, pause, step;
        ++kinds[vxWavTestPick(r, path, sizeof path, &repeat, &pause, &step)];
    }
    EXPECT_EQ(kinds, (std::map<int, int>{{0, 1}, {1, 3}, {2, 16}}));
    vxResetParams();
}

TEST(ThreadCreate, StartsDetachedWithANullArgument)
{
    int dummy = 0;
    EXPECT_EQ(myThreadCreate(recordArg, &dummy), 1);
    ASSERT_TRUE(waitUntil([] { return g_seenArgNull != -1; }, 2000));
    EXPECT_EQ(g_seenArgNull, 1);
}

TEST(TestCommands, StopPauseAndTheirLogLines)
{
    vxResetParams();
    {
        // Nothing running: the stops say nothing; StopTest still clears the pause.
        g_bPauseTest = 1;
        StdoutCapture out;
        StopTest();
        StopTestRecordingThread();
        EXPECT_EQ(out.end(), "");
        EXPECT_EQ(g_bPauseTest, 0);
    }
    {
        StdoutCapture out;
        PauseRetrieveTest();
        EXPECT_EQ(g_bPauseTest, 1);
        PauseRetrieveTest();
        EXPECT_EQ(g_bPauseTest, 0);
        EXPECT_EQ(out.end(), ">>> PauseRetrieveTest, g_bPauseTest:0. so set g_bPauseTest:1.\n"
                             ">>> PauseRetrieveTest, g_bPauseTest:1. so set g_bPauseTest:0.\n");
    }
    {
        // StopTest clears the key script and the wave test, never the recording.
        g_bTestKeyEvent = 1;
        g_bTestWavPlay = 1;
        g_bTestRecording = 1;
        StdoutCapture out;
        StopTest();
        EXPECT_EQ(out.end(), ">>> g_bTestKeyEvent:1. so set g_bTestKeyEvent:0.\n"
                             ">>> g_bTestWavPlay:1. so set g_bTestWavPlay:0.\n");
        EXPECT_EQ(g_bTestRecording, 1);
        StdoutCapture out2;
        StopTestRecordingThread();
        EXPECT_EQ(out2.end(), ">>> g_bTestRecording:1. so set g_bTestRecording:0.\n");
        EXPECT_EQ(g_bTestRecording, 0);
    }
    vxResetParams();
}

using StressThreadTest = ShellThreadsTest;

TEST_F(StressThreadTest, EveryRecordingTestEndsSoonAfterItsStop)
{
    struct Row {
        const char* name;
        void (*start)();
    };
    const Row rows[] = {{"TestRecordThread", StartTestRecordingThread},
                        {"TestRecordThread2", StartTestRecordingThread2},
                        {"TestRtpComplexThread", StartTestComplexRtpThread}};
    for (const Row& row : rows) {
        clear();
        g_nTestRecordMode = 1;
        StdoutCapture out;
        row.start();
        ASSERT_EQ(g_bTestRecording, 1) << row.name;
        // The session is being started.
        ASSERT_TRUE(waitUntil([this] { return !withReqNo(29).empty(); }, 3000)) << row.name;
        // A second start while it runs only logs.
        row.start();
        EXPECT_EQ(g_nRecordThreads, 1) << row.name;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const auto t0 = Clock::now();
        StopTestRecordingThread();
        ASSERT_TRUE(threadsEnded(1500)) << row.name << " did not end";
        EXPECT_LT(msSince(t0), 1000) << row.name;
        const std::string text = out.end();
        EXPECT_NE(text.find(">>> g_bTestRecording:1, already runnig TestRecordThread, so return ...\n"),
                  std::string::npos)
            << text;
        EXPECT_NE(text.find(std::string(">>> ") + row.name + ", ends ...\n"), std::string::npos) << text;
        // It leaves the session stopped: the last requests stop Tx, then Rx.
        const auto got = svc->received();
        ASSERT_GE(got.size(), 2u);
        EXPECT_EQ(got[got.size() - 2].reqNo(), 29);
        EXPECT_EQ(got[got.size() - 2].word(120), 0);
        EXPECT_EQ(got[got.size() - 1].reqNo(), 28);
        EXPECT_EQ(got[got.size() - 1].word(120), 0);
    }
}

TEST_F(StressThreadTest, RecordTestStopDuringTheRecordingSkipsThePause)
{
    g_nTestRecordMode = 0;
    StdoutCapture out;
    StartTestRecordingThread();
    // Past the 3 s of the session, into the long recording.
    ASSERT_TRUE(waitUntil([this] { return withReqNo(28).size() >= 2; }, 6000));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto t0 = Clock::now();
    StopTestRecordingThread();
    ASSERT_TRUE(threadsEnded(1500));
    EXPECT_LT(msSince(t0), 900) << "the pause of 1000 ms must be skipped";
    const std::string text = out.end();
    EXPECT_NE(text.find(">>> TestRecordThread, Count[1], g_nTestRecordMode:0, calls StartRecording()\n"
                        ">>> g_bTestRecording:1. so set g_bTestRecording:0.\n"
                        ">>> TestRecordThread, Count[1], calls StopRecording()\n"
                        ">>> TestRecordThread, Count[1], calls StopRtpSession()\n"
                        ">>> TestRecordThread, ends ...\n"),
              std::string::npos)
        << text;
}

TEST_F(StressThreadTest, QuickRestartWaitsForThePreviousThread)
{
    // Answers come late, so the stopping thread is still on its way out.
    svc->setPolicy(FakeService::Policy::Answer, 300);
    StartTestRecordingThread();
    ASSERT_TRUE(waitUntil([this] { return !withReqNo(29).empty(); }, 3000));
    StdoutCapture out;
    StopTestRecordingThread();
    StartTestRecordingThread();
    EXPECT_EQ(g_bTestRecording, 0) << "restarted beside the old thread";
    EXPECT_EQ(out.end(), ">>> g_bTestRecording:1. so set g_bTestRecording:0.\n"
                         ">>> g_bTestRecording:0, TestRecordThread is still ending, so return ...\n");
    ASSERT_TRUE(threadsEnded(3000));
    // Once it is gone, the test starts again.
    StartTestRecordingThread();
    EXPECT_EQ(g_bTestRecording, 1);
    StopTestRecordingThread();
}

TEST_F(StressThreadTest, WaveTestEndsWhenTheSocketGoesNegative)
{
    StartTestWavThread();
    StartTestWavThread(); // only the log line
    EXPECT_EQ(g_nWavThreads, 1);
    ASSERT_TRUE(waitUntil([this] { return !withReqNo(3).empty(); }, 2000));
    g_regi_sock = -1;
    ASSERT_TRUE(threadsEnded(4000));
    // The flag stays set: the test cannot start until z.
    EXPECT_EQ(g_bTestWavPlay, 1);
    StdoutCapture out;
    StartTestWavThread();
    EXPECT_EQ(out.end(), ">>> g_bTestWavPlay:1, already runnig TestWavThread, so return ...\n");
}
