// Stress-test threads and myThreadCreate.
#include "stress.h"

#include "mlog.h"

#include <pthread.h>
#include <sched.h>

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

void StartTestRecordingThread() {}
void StartTestRecordingThread2() {}
void StartTestComplexRtpThread() {}
void StopTestRecordingThread() {}
void StartTestWavThread() {}
void PauseRetrieveTest() {}
void StopTest() {}
void msleep_rec(int) {}
void msleep_rec_rand(int, int) {}
void* TestRecordThread(void*) { return nullptr; }
void* TestRecordThread2(void*) { return nullptr; }
void* TestRtpComplexThread(void*) { return nullptr; }
void* TestWavThread(void*) { return nullptr; }
