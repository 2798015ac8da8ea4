// syslogcap.h - captures what the process (and its children) send to
// syslog, by binding /dev/log for the lifetime of the object.
#ifndef VX_TEST_SYSLOGCAP_H
#define VX_TEST_SYSLOGCAP_H

#include <string>
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
    void drain();
    int sock_ = -1;
    std::vector<LogLine> got_;
};

#define REQUIRE_SYSLOG(cap)                                                          \
    do {                                                                             \
        if (!(cap).ok())                                                             \
            GTEST_SKIP() << "/dev/log belongs to a running syslog daemon; cannot capture"; \
    } while (0)

#endif // VX_TEST_SYSLOGCAP_H
