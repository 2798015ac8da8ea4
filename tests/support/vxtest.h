// vxtest.h - what every test program shares: an in-process fake service, a
// syslog capture, one runner for child processes, temporary directories and
// a few text helpers.
//
// The fake service and the syslog capture use the fixed paths /tmp/vx/ and
// /dev/log: CTest keeps such tests apart (RESOURCE_LOCK), and a lock file
// keeps apart test runs of several work trees on one machine.
#ifndef VX_TEST_VXTEST_H
#define VX_TEST_VXTEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Datagram {
    std::vector<uint8_t> bytes;
    std::string from; // the sender's socket path
    int32_t word(size_t off) const;
    std::string text(size_t off, size_t width) const; // up to the first NUL
    int32_t reqNo() const { return word(0); }
    int32_t channel() const { return word(116); }
};

// Bound at /tmp/vx/vxRxSock; records every datagram and answers the numbers
// the service answers (22, 28, 29, 305, 307, 308) with one 84-byte record.
// createChannel counts up from 1 and getAudioRxPort gives 9000, unless
// setResult says otherwise.
class FakeService {
public:
    enum Policy { Answer, Silent, WrongReqNo };
    explicit FakeService(Policy policy = Answer, int delayMs = 0);
    ~FakeService();
    void setResult(int reqNo, int result);
    bool waitFor(size_t n, int timeoutMs = 3000); // at least n datagrams in
    std::vector<Datagram> received();
    void clear();

private:
    void run();
    int sock_ = -1;
    int stop_[2] = {-1, -1};
    Policy policy_;
    int delayMs_;
    std::mutex mu_;
    std::map<int, int> results_;
    int nextChannel_ = 1;
    std::vector<Datagram> got_;
    std::thread thread_;
};

// Binds /dev/log for its lifetime (unless a live daemon owns it: then ok()
// is false) and keeps every line "<pri>... IDENT: text" that arrives.
class SyslogCapture {
public:
    struct Line {
        int priority;
        std::string text;
    };
    SyslogCapture();
    ~SyslogCapture();
    bool ok() const { return sock_ >= 0; }
    std::vector<Line> lines(); // every line so far, in order
    std::vector<std::string> texts();
    void clear();

private:
    void drain();
    int sock_ = -1;
    int stop_[2] = {-1, -1};
    std::mutex mu_;
    std::vector<Line> got_;
    std::thread thread_;
};

// Removes every file under /tmp/vx/ and /tmp/vx/tx/ (making both if
// missing); the directories go when the test program ends, if it made them.
void cleanVxDir();

// A child process: a program of the build (a bare name) or any path, with
// its standard streams on pipes. Programs of a cross build run under the
// emulator. The environment gets `env` ("NAME=value") on top.
class Child {
public:
    struct Result {
        int status = -1;  // exit status, -1 if it did not exit
        int signal = 0;   // the signal that ended it
        bool timedOut = false;
        std::string out, err;
    };
    Child(std::vector<std::string> argv, const std::vector<std::string>& env = {});
    ~Child();
    void write(const std::string& text);
    void closeIn();
    void kill(int sig);
    // Where `needle` shows on stdout from `from` on, or npos after the time.
    size_t waitOut(const std::string& needle, size_t from = 0, int timeoutMs = 10000);
    const std::string& out() const { return res_.out; }
    Result wait(int timeoutMs = 20000); // then SIGKILL
    int pid() const { return pid_; }

private:
    bool pump(int timeoutMs);
    int pid_ = -1, in_ = -1, out_ = -1, err_ = -1;
    bool done_ = false;
    Result res_;
};

Child::Result runChild(const std::vector<std::string>& argv, const std::string& input = "",
                       const std::vector<std::string>& env = {}, int timeoutMs = 20000);

// A relay datagram from "@TYPE:REPEAT:COUNT:ITEM|ITEM", an item being
// "keyDelay/stepDelay/keys" for type 2 and two characters for type 10; "@"
// is the empty datagram.
std::string relayDatagram(const std::string& spec);

// "PATH=<stub dir>:$PATH" and the file the `key`/`usleep` stubs log to.
std::string stubPath();
std::vector<std::string> stubCalls();

// A fresh directory, removed with its content.
struct TempDir {
    TempDir();
    ~TempDir();
    std::string path;
};
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
// The text without the "[hh:mm:ss.mmm] " stamps of the log lines.
std::string unstamped(const std::string& text);
// Polls `cond` every 5 ms until it holds or the time is up.
bool waitUntil(const std::function<bool()>& cond, int timeoutMs);

#endif // VX_TEST_VXTEST_H
