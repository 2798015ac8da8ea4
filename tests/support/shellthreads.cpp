#include "shellthreads.h"

#include "params.h"
#include "proc.h"
#include "stress.h"

#include <cstdio>

void ShellThreadsTest::SetUp()
{
    ClientTest::SetUp();
    vxResetParams();
    g_regi_sock = sock;
    g_regi_channel = ch;
}

void ShellThreadsTest::TearDown()
{
    g_bTestRecording = 0;
    g_bTestWavPlay = 0;
    g_bTestKeyEvent = 0;
    g_bPauseTest = 0;
    // The wave test sleeps up to 3 s between plays.
    EXPECT_TRUE(threadsEnded(5000)) << "a test thread is still running";
    vxResetParams();
    ClientTest::TearDown();
}

bool ShellThreadsTest::threadsEnded(int timeoutMs)
{
    return waitUntil([] { return g_nRecordThreads == 0 && g_nWavThreads == 0 && g_nKeyEventThreads == 0; },
                     timeoutMs);
}

std::vector<Datagram> ShellThreadsTest::withReqNo(int reqNo)
{
    std::vector<Datagram> r;
    for (const auto& d : svc->received())
        if (d.reqNo() == reqNo)
            r.push_back(d);
    return r;
}

StdoutCapture::StdoutCapture()
{
    fflush(stdout);
    ::testing::internal::CaptureStdout();
    active_ = true;
}

StdoutCapture::~StdoutCapture()
{
    if (active_)
        end();
}

std::string StdoutCapture::end()
{
    if (!active_)
        return "";
    active_ = false;
    fflush(stdout);
    return stripTimestamps(::testing::internal::GetCapturedStdout());
}
