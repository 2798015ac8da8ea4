// stress.h - endurance-test threads (menu keys g h j k l w p z) and the one
// way the shell starts a thread.
#ifndef VX_SHELL_STRESS_H
#define VX_SHELL_STRESS_H

#include "params.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

// Starts routine as a detached thread (SCHED_RR 65, falling back once to
// default attributes). 1 when started, 0 when not.
int myThreadCreate(void* (*routine)(void*), void* arg);

void StartTestRecordingThread();
void StartTestRecordingThread2();
void StartTestComplexRtpThread();
void StopTestRecordingThread();
void StartTestWavThread();
void PauseRetrieveTest();
void StopTest();

// Waits ms milliseconds; above 100 ms in slices of 100 ms, giving up soon
// after g_bTestRecording goes to 0.
void msleep_rec(int ms);
// Waits (b - a) * (rand() % 100) / 100 ms, at least 100 ms, sliced as above.
void msleep_rec_rand(int a, int b);
// The wait of msleep_rec_rand for one draw r of rand().
int vxRecRandWait(int a, int b, int r);

// The play of the wave test for one draw r of rand(): writes the path, the
// repeat argument of playWavFile and the pause (pauseMs plus pauseStepMs
// times a second draw mod 7); returns the wave type (0 ring, 1 message,
// 2 key tone).
int vxWavTestPick(int r, char* path, size_t pathSize, int* repeat, int* pauseMs, int* pauseStepMs);

void* TestRecordThread(void* arg);
void* TestRecordThread2(void* arg);
void* TestRtpComplexThread(void* arg);
void* TestWavThread(void* arg);

// ---- bookkeeping shared by the test threads -----------------------------------

// Threads of each test started and not yet returned (the three recording
// tests share one count, as they share one flag). A test is not started
// again while its previous thread is still on its way out, so a quick stop
// and restart never leaves two threads of one test running side by side.
extern std::atomic<int32_t> g_nRecordThreads;
extern std::atomic<int32_t> g_nWavThreads;
extern std::atomic<int32_t> g_nKeyEventThreads;

// Counts the thread in and starts it with myThreadCreate; counts it out
// again if it did not start. Result of myThreadCreate.
int vxStartTestThread(std::atomic<int32_t>& threads, void* (*routine)(void*));
// Called by a thread body as it returns (never below 0, so a body called
// directly leaves the count alone).
void vxTestThreadDone(std::atomic<int32_t>& threads);

// The pause key: while g_bPauseTest is set and runFlag still is, waits in
// slices of 100 ms. Returns whether runFlag is still set.
int vxHoldWhilePaused(const VxShared& runFlag);

#endif // VX_SHELL_STRESS_H
