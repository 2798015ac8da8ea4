// The test threads of the menu, in the built shell: started by a key,
// paused, and stopped within their bounds.
#include "fakeservice.h"
#include "proc.h"
#include "stubs.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point t0)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
}

class ThreadsMenu : public ::testing::Test {
protected:
    void SetUp() override
    {
        cleanVxDir();
        svc = std::make_unique<FakeService>();
    }
    void TearDown() override
    {
        svc.reset();
        cleanVxDir();
    }
    // Sends q and expects a clean end.
    void quit(Child& c, std::string* out = nullptr)
    {
        c.write("q\n");
        const ProcResult res = c.wait(5000);
        EXPECT_TRUE(res.exited) << res.out;
        EXPECT_EQ(res.status, 0);
        if (out != nullptr)
            *out = stripTimestamps(res.out);
    }
    std::unique_ptr<FakeService> svc;
};

} // namespace

TEST_F(ThreadsMenu, KeyScriptRunsTheDeviceIdAndStopsAfterItsGroup)
{
    Child c({binPath("vxShell"), "-o", "1,2"}, {stubPathEnv(), "VX_STUB_LOG=" + stubLogPath()});
    c.write("e\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestKeyEventThread, STEP[0]-1-<1,2> ", 5000)) << c.out();
    const auto t0 = Clock::now();
    c.write("z\n");
    // The walk ends after the running group and its pause of 2000 ms.
    ASSERT_TRUE(c.waitForOutput(">>> TestKeyEventThread, ends ...", 4000)) << c.out();
    EXPECT_LT(msSince(t0), 3000);
    std::string out;
    quit(c, &out);
    EXPECT_NE(out.find(">>> TestKeyEventThread, starts ...\n"
                       ">>> TestKeyEventThread, Key-GroupCount:6, Converting Input Keys to KeyEvent List ...\n"
                       ">>> TestKeyEventThread, STEP[0]-1-<1,2> \n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find(">>> g_bTestKeyEvent:1. so set g_bTestKeyEvent:0.\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("STEP[0]-2-"), std::string::npos) << "ran past the stop";
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 200000", "key 2", "usleep 200000"}));
}

TEST_F(ThreadsMenu, KeyScriptIsRefusedWhileItsWordIsSet)
{
    Child c({binPath("vxShell"), "menu"}, {stubPathEnv(), "VX_STUB_LOG=" + stubLogPath()});
    c.write("e\n");
    ASSERT_TRUE(c.waitForOutput("STEP[0]-1-<> ", 5000)) << c.out();
    c.write("e\n");
    ASSERT_TRUE(c.waitForOutput(">>> g_bTestKeyEvent:1, already runnig TestWavThread, so return ...", 2000));
    c.write("z\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestKeyEventThread, ends ...", 4000)) << c.out();
    quit(c);
    // An empty device id: group 1 has no keys and runs nothing.
    EXPECT_TRUE(stubCalls().empty());
}

TEST_F(ThreadsMenu, WaveTestPlaysUntilZ)
{
    Child c({binPath("vxShell"), "menu"});
    c.write("w\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestWavThread, wavType:", 3000)) << c.out();
    const auto t0 = Clock::now();
    c.write("z\n");
    // Between plays at most the ring pause of 3000 ms.
    ASSERT_TRUE(c.waitForOutput(">>> TestWavThread, ends ...", 4500)) << c.out();
    EXPECT_LT(msSince(t0), 3500);
    std::string out;
    quit(c, &out);
    EXPECT_NE(out.find(">>> g_bTestWavPlay:1. so set g_bTestWavPlay:0.\n"), std::string::npos);
    size_t plays = 0;
    for (const auto& d : svc->received())
        if (d.reqNo() == 3) {
            ++plays;
            EXPECT_EQ(d.text(120, 128).rfind("/sound/", 0), 0u);
        }
    EXPECT_GE(plays, 1u);
}

TEST_F(ThreadsMenu, PauseHoldsTheWaveTestUntilRetrieved)
{
    Child c({binPath("vxShell"), "menu"});
    c.write("p\n");
    ASSERT_TRUE(c.waitForOutput(">>> PauseRetrieveTest, g_bPauseTest:0. so set g_bPauseTest:1.", 2000));
    c.write("w\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestWavThread, starts ...", 2000));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(c.out().find("wavType:"), std::string::npos) << "played while paused";
    c.write("p\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestWavThread, wavType:", 2000)) << c.out();
    // Paused again and stopped while held: z clears both.
    c.write("p\n");
    c.write("z\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestWavThread, ends ...", 4500)) << c.out();
    quit(c);
}

TEST_F(ThreadsMenu, RecordingTestEndsWithinASecondOfL)
{
    Child c({binPath("vxShell"), "menu"});
    c.write("g\n");
    ASSERT_TRUE(c.waitForOutput(">>> TestRecordThread, Count[1], calls StartRtpSession()", 3000)) << c.out();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto t0 = Clock::now();
    c.write("l\n");
    // Within a slice of 100 ms and the two stop requests: about a second
    // at most, even on a loaded machine.
    ASSERT_TRUE(c.waitForOutput(">>> TestRecordThread, ends ...", 3000)) << c.out();
    EXPECT_LT(msSince(t0), 1500);
    std::string out;
    quit(c, &out);
    // The menu is printed again between the stop and the thread's last lines.
    const size_t stop = out.find(">>> g_bTestRecording:1. so set g_bTestRecording:0.\n");
    ASSERT_NE(stop, std::string::npos) << out;
    EXPECT_NE(out.find(">>> TestRecordThread, Count[1], g_bTestRecording:0, calls StopRtpSession()\n"
                       ">>> TestRecordThread, ends ...\n",
                       stop),
              std::string::npos)
        << out;
}
