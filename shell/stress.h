// stress.h - endurance-test threads (menu keys g h j k l w p z) and the one
// way the shell starts a thread.
#ifndef VX_SHELL_STRESS_H
#define VX_SHELL_STRESS_H

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

void msleep_rec(int ms);
void msleep_rec_rand(int a, int b);

void* TestRecordThread(void* arg);
void* TestRecordThread2(void* arg);
void* TestRtpComplexThread(void* arg);
void* TestWavThread(void* arg);

#endif // VX_SHELL_STRESS_H
