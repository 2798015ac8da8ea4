// Stress-test threads, their start and stop commands, the sliced sleeps and
// myThreadCreate.
#include "stress.h"

#include "mlog.h"
#include "params.h"
#include "session.h"
#include "vxclient.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

std::atomic<int32_t> g_nRecordThreads{0};
std::atomic<int32_t> g_nWavThreads{0};
std::atomic<int32_t> g_nKeyEventThreads{0};

int myThreadCreate(void* (*routine)(void*), void* arg)
{
    (void)arg; // the routine gets a null argument
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setscope(&attr, PTHREAD_SCOPE_SYSTEM);
    pthread_attr_setschedpolicy(&attr, SCHED_RR);
    struct sched_param sp;
    sp.sched_priority = 65;
    pthread_attr_setschedparam(&attr, &sp);
    pthread_t tid;
    int rc = pthread_create(&tid, &attr, routine, nullptr);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        // Without the right to a real-time policy, start once more with
        // default attributes, detached.
        logPrt(">>> %s, real-time scheduling refused, using default attributes.", "myThreadCreate");
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        rc = pthread_create(&tid, &attr, routine, nullptr);
        pthread_attr_destroy(&attr);
    }
    if (rc != 0) {
        logPrt("%s, cannot pthread_create new Thread.", "myThreadCreate");
        return 0;
    }
    return 1;
}

// ---- bookkeeping ------------------------------------------------------------

int vxStartTestThread(std::atomic<int32_t>& threads, void* (*routine)(void*))
{
    threads.fetch_add(1);
    const int started = myThreadCreate(routine, nullptr);
    if (!started)
        vxTestThreadDone(threads);
    return started;
}

void vxTestThreadDone(std::atomic<int32_t>& threads)
{
    int32_t n = threads.load();
    while (n > 0 && !threads.compare_exchange_weak(n, n - 1)) {}
}

// g_bPauseTest (key p, "Pause/Retrieve Test") holds every running test
// before its next step, and the test goes on where it stood once the word is
// cleared (p again, or z). A test whose own flag is cleared (l, z) is never
// held, so stopping always ends a paused test.
int vxHoldWhilePaused(const VxShared& runFlag)
{
    while (g_bPauseTest && runFlag)
        usleep(100000);
    return runFlag != 0 ? 1 : 0;
}

// ---- start, stop, pause -------------------------------------------------------

namespace {

void startRecordingTest(void* (*routine)(void*))
{
    if (g_bTestRecording) {
        logPrt(">>> g_bTestRecording:1, already runnig TestRecordThread, so return ...");
        return;
    }
    if (g_nRecordThreads > 0) {
        logPrt(">>> g_bTestRecording:0, TestRecordThread is still ending, so return ...");
        return;
    }
    g_bTestRecording = 1;
    vxStartTestThread(g_nRecordThreads, routine);
}

} // namespace

void StartTestRecordingThread() { startRecordingTest(TestRecordThread); }
void StartTestRecordingThread2() { startRecordingTest(TestRecordThread2); }
void StartTestComplexRtpThread() { startRecordingTest(TestRtpComplexThread); }

void StopTestRecordingThread()
{
    if (g_bTestRecording) {
        logPrt(">>> g_bTestRecording:1. so set g_bTestRecording:0.");
        g_bTestRecording = 0;
    }
}

void StartTestWavThread()
{
    if (g_bTestWavPlay) {
        logPrt(">>> g_bTestWavPlay:1, already runnig TestWavThread, so return ...");
        return;
    }
    if (g_nWavThreads > 0) {
        logPrt(">>> g_bTestWavPlay:0, TestWavThread is still ending, so return ...");
        return;
    }
    g_bTestWavPlay = 1;
    vxStartTestThread(g_nWavThreads, TestWavThread);
}

void PauseRetrieveTest()
{
    if (g_bPauseTest == 0) {
        logPrt(">>> PauseRetrieveTest, g_bPauseTest:0. so set g_bPauseTest:1.");
        g_bPauseTest = 1;
    } else {
        logPrt(">>> PauseRetrieveTest, g_bPauseTest:1. so set g_bPauseTest:0.");
        g_bPauseTest = 0;
    }
}

void StopTest()
{
    g_bPauseTest = 0;
    if (g_bTestKeyEvent) {
        logPrt(">>> g_bTestKeyEvent:1. so set g_bTestKeyEvent:0.");
        g_bTestKeyEvent = 0;
    }
    if (g_bTestWavPlay) {
        logPrt(">>> g_bTestWavPlay:1. so set g_bTestWavPlay:0.");
        g_bTestWavPlay = 0;
    }
}

// ---- sliced sleeps ------------------------------------------------------------

namespace {

// Slices of 100 ms while ms is above the time slept, giving up when the
// recording flag goes to 0.
void sleepSliced(int ms)
{
    int slept = 0;
    do {
        if (!g_bTestRecording)
            return;
        slept += 100;
        usleep(100000);
    } while (ms > slept);
}

} // namespace

void msleep_rec(int ms)
{
    if (ms <= 100) {
        // One plain wait, without a look at the flag. A negative time waits
        // nothing (usleep would take it as years).
        if (ms > 0)
            usleep(static_cast<useconds_t>(ms) * 1000u);
        return;
    }
    sleepSliced(ms);
}

int vxRecRandWait(int a, int b, int r)
{
    // Wide arithmetic: the same value as 32-bit for every sane range, and no
    // overflow for the others.
    const long long d = (static_cast<long long>(b) - a) * (r % 100) / 100;
    return d > INT_MAX ? INT_MAX : (d < INT_MIN ? INT_MIN : static_cast<int>(d));
}

void msleep_rec_rand(int a, int b)
{
    const int d = vxRecRandWait(a, b, rand());
    if (d <= 99) {
        usleep(100000);
        return;
    }
    sleepSliced(d);
}

// ---- the recording tests -------------------------------------------------------

void* TestRecordThread(void*)
{
    static const char kName[] = "TestRecordThread";
    int count = 0;
    logPrt(">>> %s, starts ...", kName);
    while (g_bTestRecording) {
        if (!vxHoldWhilePaused(g_bTestRecording))
            break;
        ++count;
        logPrt(">>> %s, Count[%d], calls StartRtpSession()", kName, count);
        StartRtpSession();
        msleep_rec(3000);
        if (!g_bTestRecording) {
            logPrt(">>> %s, Count[%d], g_bTestRecording:0, calls StopRtpSession()", kName, count);
            StopRtpSession();
            break;
        }
        vxHoldWhilePaused(g_bTestRecording);
        if (g_nTestRecordMode) {
            logPrt(">>> %s, Count[%d], g_nTestRecordMode:1, calls StartOscRecording()", kName, count);
            StartOscRecording();
        } else {
            logPrt(">>> %s, Count[%d], g_nTestRecordMode:0, calls StartRecording()", kName, count);
            StartRecording();
        }
        msleep_rec(15000);
        const bool stopped = !g_bTestRecording;
        vxHoldWhilePaused(g_bTestRecording);
        logPrt(">>> %s, Count[%d], calls StopRecording()", kName, count);
        StopRecording();
        if (stopped) {
            logPrt(">>> %s, Count[%d], calls StopRtpSession()", kName, count);
            StopRtpSession();
            break;
        }
        msleep_rec(1000);
        vxHoldWhilePaused(g_bTestRecording);
        logPrt(">>> %s, Count[%d], calls StopRtpSession()\n", kName, count);
        StopRtpSession();
        if (!g_bTestRecording)
            break;
        msleep_rec(3000);
    }
    logPrt(">>> %s, ends ...", kName);
    vxTestThreadDone(g_nRecordThreads);
    return nullptr;
}

void* TestRecordThread2(void*)
{
    static const char kName[] = "TestRecordThread2";
    int count = 0;
    logPrt(">>> %s, starts ...", kName);
    while (g_bTestRecording) {
        if (!vxHoldWhilePaused(g_bTestRecording))
            break;
        ++count;
        logPrt(">>> %s, Count[%d], calls StartRtpSession()", kName, count);
        StartRtpSession();
        msleep_rec(1000);
        if (!g_bTestRecording) {
            logPrt(">>> %s, Count[%d], g_bTestRecording:0, calls StopRtpSession()", kName, count);
            StopRtpSession();
            break;
        }
        // Ten short recordings inside the session.
        for (int index = 0; index < 10; ++index) {
            vxHoldWhilePaused(g_bTestRecording);
            if (g_nTestRecordMode) {
                logPrt(">>> %s, Count[%d], inde[%d], g_nTestRecordMode:1, calls StartOscRecording()", kName, count,
                       index);
                StartOscRecording();
            } else {
                logPrt(">>> %s, Count[%d], inde[%d], g_nTestRecordMode:0, calls StartRecording()", kName, count, index);
                StartRecording();
            }
            msleep_rec(1000);
            const bool stopped = !g_bTestRecording;
            vxHoldWhilePaused(g_bTestRecording);
            logPrt(">>> %s, Count[%d], inde[%d], calls StopRecording()", kName, count, index);
            StopRecording();
            if (stopped) {
                logPrt(">>> %s, Count[%d], inde[%d], calls StopRtpSession()", kName, count, index);
                StopRtpSession();
                break;
            }
        }
        msleep_rec(1000);
        vxHoldWhilePaused(g_bTestRecording);
        logPrt(">>> %s, Count[%d], calls StopRtpSession()\n", kName, count);
        StopRtpSession();
        if (!g_bTestRecording)
            break;
        msleep_rec(3000);
    }
    logPrt(">>> %s, ends ...", kName);
    vxTestThreadDone(g_nRecordThreads);
    return nullptr;
}

void* TestRtpComplexThread(void*)
{
    static const char kName[] = "TestRtpComplexThread";
    int count = 0;
    logPrt(">>> %s, starts ...", kName);
    while (g_bTestRecording) {
        if (!vxHoldWhilePaused(g_bTestRecording))
            break;
        ++count;
        logPrt(">>> %s, TEST COUNT:[%d], calls StartRtpSession()", kName, count);
        StartRtpSession();
        msleep_rec(1000);
        if (!g_bTestRecording) {
            logPrt(">>> %s, Count[%d], g_bTestRecording:0, calls StopRtpSession()", kName, count);
            StopRtpSession();
            break;
        }
        // Sessions started and stopped at random, none waiting for the state
        // it assumes. A stop ends the thread at once, whatever that state.
        bool stopped = false;
        for (int index = 0; index < 10 && !stopped; ++index) {
            vxHoldWhilePaused(g_bTestRecording);
            if (rand() % 2 == 1) {
                logPrt(">>> %s, TEST COUNT:[%d], RTP Count[%d], calls StartRtpSession()", kName, count, index);
                StartRtpSession();
            } else {
                logPrt(">>> %s, TEST COUNT:[%d], RTP Count[%d], calls StopRtpSession()", kName, count, index);
                StopRtpSession();
            }
            msleep_rec_rand(500, 5000);
            stopped = !g_bTestRecording;
        }
        if (stopped)
            break;
        vxHoldWhilePaused(g_bTestRecording);
        StartRtpSession();
        // Forwarding started and stopped at random inside the session.
        for (int index = 0; index < 10; ++index) {
            vxHoldWhilePaused(g_bTestRecording);
            if (rand() % 2 == 1) {
                logPrt(">>> %s, TEST COUNT:[%d], REC Count[%d], calls StartOscRecording()", kName, count, index);
                StartOscRecording();
            } else {
                logPrt(">>> %s, TEST COUNT:[%d], REC Count[%d], calls StopRecording()", kName, count, index);
                StopRecording();
            }
            msleep_rec_rand(500, 5000);
            if (!g_bTestRecording)
                break;
        }
        msleep_rec(1000);
        if (g_rtp_forward_Saver)
            StopRecording();
        StopRtpSession();
        if (!g_bTestRecording)
            break;
        msleep_rec(3000);
    }
    logPrt(">>> %s, ends ...", kName);
    vxTestThreadDone(g_nRecordThreads);
    return nullptr;
}

// ---- the wave test ----------------------------------------------------------------

namespace {

// One row per kind of play, tried in order: the first whose divisor divides
// r decides. Of twenty plays one is a ring, three are messages, sixteen are
// key tones.
struct WavRow {
    int divisor;     // r % divisor == 0; 1 matches every r
    int wavType;     // 0 ring, 1 message, 2 key tone
    int repeat;      // repeat argument of playWavFile
    int pauseMs;     // fixed pause after the play
    int pauseStepMs; // plus this times (rand() % 7)
};

const WavRow kWavRows[] = {
    {20, 0, 1, 3000, 0},
    {5, 1, 0, 1000, 0},
    {1, 2, 0, 150, 20},
};

} // namespace

int vxWavTestPick(int r, char* path, size_t pathSize, int* repeat, int* pauseMs, int* pauseStepMs)
{
    for (const WavRow& row : kWavRows) {
        if (r % row.divisor != 0)
            continue;
        switch (row.wavType) {
        case 0:
            snprintf(path, pathSize, "/sound/ring%d.wav", (r % 50) / 10 + 1);
            break;
        case 1:
            snprintf(path, pathSize, "/sound/msg_1.wav");
            break;
        default:
            snprintf(path, pathSize, "/sound/tone_%d_%d.wav", g_iKeyType.load(), r % 10);
            break;
        }
        *repeat = row.repeat;
        *pauseMs = row.pauseMs;
        *pauseStepMs = row.pauseStepMs;
        return row.wavType;
    }
    return -1; // not reached: the last row takes every r
}

void* TestWavThread(void*)
{
    static const char kName[] = "TestWavThread";
    char path[128];
    memset(path, 0, sizeof path);
    logPrt(">>> %s, starts ...", kName);
    srand(static_cast<unsigned>(time(nullptr)));
    while (g_bTestWavPlay) {
        if (!vxHoldWhilePaused(g_bTestWavPlay))
            break;
        const int r = rand();
        int repeat = 0;
        int pauseMs = 0;
        int pauseStepMs = 0;
        const int wavType = vxWavTestPick(r, path, sizeof path, &repeat, &pauseMs, &pauseStepMs);
        logPrt(">>> %s, wavType:%d, Wav[%s]", kName, wavType, path);
        playWavFile(g_regi_sock, g_regi_channel, path, 1, 1, 0, 0, repeat, 0, 1);
        // The pause is not sliced: the flag is looked at between plays.
        msleep(static_cast<uint32_t>(pauseMs + (pauseStepMs != 0 ? pauseStepMs * (rand() % 7) : 0)));
        if (g_regi_sock < 0)
            break;
    }
    logPrt(">>> %s, ends ...", kName);
    vxTestThreadDone(g_nWavThreads);
    return nullptr;
}
