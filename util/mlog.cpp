// The shell's log line and clock routines; mCONF_GetIntValue logs through
// logPrt as well, which is why they live in the utility library.
#include "mlog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

void logPrt(const char* format, ...)
{
    // A line is formatted on the stack; only a longer one than that takes
    // the heap. The test threads log at every step, and a heap block per
    // line in each short-lived thread spreads over the pages of the heap.
    char line[1024];
    va_list ap;
    va_start(ap, format);
    const int n = vsnprintf(line, sizeof line, format, ap);
    va_end(ap);
    if (n < 1)
        return;
    char* heap = nullptr;
    const char* text = line;
    if (static_cast<size_t>(n) >= sizeof line) {
        va_start(ap, format);
        const int m = vasprintf(&heap, format, ap);
        va_end(ap);
        if (m < 1) {
            free(m < 0 ? nullptr : heap);
            return;
        }
        text = heap;
    }
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tmv;
    localtime_r(&tv.tv_sec, &tmv);
    printf("[%02d:%02d:%02d.%03d] %s\n", tmv.tm_hour, tmv.tm_min, tmv.tm_sec, static_cast<int>(tv.tv_usec / 1000),
           text);
    free(heap);
}

int msleep(uint32_t ms)
{
    // 32-bit arithmetic as the callers expect: the product wraps, it does
    // not widen.
    const uint32_t us = ms * 1000u;
    usleep(us);
    return 0;
}

int32_t getTimeMs(void)
{
    // The base is set once; concurrent first calls agree on one value.
    static std::atomic<int32_t> base{0};
    int32_t b = base.load(std::memory_order_relaxed);
    if (b == 0) {
        int32_t expected = 0;
        const int32_t now = static_cast<int32_t>(time(nullptr));
        base.compare_exchange_strong(expected, now, std::memory_order_relaxed);
        b = base.load(std::memory_order_relaxed);
    }
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    const uint32_t secs = static_cast<uint32_t>(tv.tv_sec) - static_cast<uint32_t>(b);
    return static_cast<int32_t>(secs * 1000u + static_cast<uint32_t>(tv.tv_usec / 1000));
}

int hex_dump(int length, const unsigned char* bytes)
{
    for (int i = 0; i < length; ++i)
        printf("\t %x ", bytes[i]);
    printf("\n");
    return 0;
}
