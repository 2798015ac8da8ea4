// syslogcap.h - captures what the process (and its children) send to
// syslog, by binding /dev/log for the lifetime of the object.
#ifndef VX_TEST_SYSLOGCAP_H
#define VX_TEST_SYSLOGCAP_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct LogLine {
    int priority = -1;  // facility * 8 + level
    std::string ident;  // e.g. "MLIB"
    std::string text;   // the message as logged, line breaks included
    int level() const { return priority & 7; }
    int facility() const { return priority & ~7; }
};

class SyslogCapture {
public:
    // Binds /dev/log. If a live syslog daemon owns it, the capture is not
    // available (ok() is false) and tests that need it skip.
    SyslogCapture();
    ~SyslogCapture();
    SyslogCapture(const SyslogCapture&) = delete;
    SyslogCapture& operator=(const SyslogCapture&) = delete;

    bool ok() const { return sock_ >= 0; }
    // Every line received so far (drains the socket; nothing is lost
    // between calls).
    std::vector<LogLine> lines();
    // Texts only, in order.
    std::vector<std::string> texts();
    // Waits (bounded) until at least n lines are in; for lines that another
    // process sends.
    bool waitFor(size_t n, int timeoutMs = 2000);
    void clear();

private:
    // Reads every queued line; the caller holds mu_.
    void drainLocked();
    // The socket queue of a local datagram socket holds only a few lines
    // (net.unix.max_dgram_qlen), and a full queue blocks syslog(): a thread
    // keeps emptying it while the test runs.
    void pump();
    int sock_ = -1;
    int stopPipe_[2] = {-1, -1};
    std::mutex mu_;
    std::vector<LogLine> got_;
    std::thread thread_;
};

#define REQUIRE_SYSLOG(cap)                                                          \
    do {                                                                             \
        if (!(cap).ok())                                                             \
            GTEST_SKIP() << "/dev/log belongs to a running syslog daemon; cannot capture"; \
    } while (0)

#endif // VX_TEST_SYSLOGCAP_H
