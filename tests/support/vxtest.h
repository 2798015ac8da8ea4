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
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

// Polls `cond` every 5 ms until it holds or the time is up.
bool waitUntil(const std::function<bool()>& cond, int timeoutMs);
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
// The text without the "[hh:mm:ss.mmm] " stamps of the log lines.
std::string unstamped(const std::string& text);
// The strings' pointers, then a null one (an argv or envp).
std::vector<char*> cStrings(std::vector<std::string>& strings);
// The numbers as "1 2 3 " (a braced list is evaluated left to right).
std::string seq(std::initializer_list<long long> values);

// A fresh directory, removed with its content.
struct TempDir {
    std::string path = mkdtemp(std::string("/tmp/vxtest.XXXXXX").data());
    std::error_code ec;
    ~TempDir() { std::filesystem::remove_all(path, ec); }
};

struct Datagram {
    std::vector<uint8_t> bytes;
    std::string from; // the sender's socket path
    int32_t word(size_t off) const;
    std::string text(size_t off, size_t width) const; // up to the first NUL
    int32_t reqNo() const { return word(0); }
};

// A datagram socket bound at a fixed path; a thread keeps reading it and
// keeps every datagram (and answer() sees each under the lock).
class Listener {
public:
    bool ok() const { return sock_ >= 0; }
    std::vector<Datagram> received(); // every datagram so far, in order
    void clear();
    // At least n datagrams in, within the time.
    bool waitFor(size_t n, int ms = 3000)
    {
        return waitUntil([&] { return received().size() >= n; }, ms);
    }

protected:
    void listen(const char* path);
    void stop(); // the derived destructor's first step
    virtual void answer(const Datagram&) {}
    virtual void due() {} // after each read, under the lock: steps whose time has come
    int sock_ = -1;
    std::mutex mu_;

private:
    std::unique_lock<std::mutex> drain(); // returns holding the lock
    std::thread thread_;
    std::vector<Datagram> got_;
};

// Bound at /tmp/vx/vxRxSock; records every datagram and answers the numbers
// the service answers (22, 28, 29, 305, 307, 308) with one 84-byte record.
// createChannel counts up from 1 and getAudioRxPort gives 9000, unless
// setResult says otherwise.
class FakeService final : public Listener {
public:
    enum Policy { Answer, Silent, WrongReqNo };
    explicit FakeService(Policy policy = Answer, int delayMs = 0);
    ~FakeService();
    // The answer to reqNo, after delayMs (else the service's delay): later
    // answers can overtake it.
    void setResult(int reqNo, int result, int delayMs = -1);

private:
    void answer(const Datagram& d) override;
    void due() override;
    Policy policy_;
    int delayMs_;
    std::map<int, std::pair<int, int>> results_; // reqNo -> result, delay
    std::vector<std::tuple<std::chrono::steady_clock::time_point, std::string, std::vector<int32_t>>> later_;
    int nextChannel_ = 1;
};

// Binds /dev/log (unless a live daemon owns it: then ok() is false); each
// line "<PRI>... IDENT: text" that arrives is kept.
class SyslogCapture final : public Listener {
public:
    SyslogCapture();
    ~SyslogCapture();
    std::vector<std::string> texts(); // every line's text so far, in order
};

// Writes the `fields` into a record: "OFF=INT" (INT may be "pid",
// ours), "OFF'TEXT'" or "OFF'TEXT'*N" (N times, then a NUL unless the record
// ends there) and "OFF~N" (the bytes 1, 2, ... N), separated by `sep`.
// False if one does not fit.
bool putFields(std::vector<uint8_t>& record, const std::string& fields, char sep = ' ');

// Removes every file under /tmp/vx/ and /tmp/vx/tx/ (making both if
// missing); the directories go when the test program ends, if it made them.
void cleanVxDir();

// A child process: a program of the build (a bare name) or any path, with
// stdin on a pipe (or closed) and stdout and stderr in files. Programs of a
// cross build run under the emulator. The environment gets `env`
// ("NAME=value") on top.
class Child {
public:
    struct Result {
        int status = -1; // exit status, -1 if it did not exit
        std::string out, err;
    };
    Child(std::vector<std::string> argv, const std::vector<std::string>& env = {}, bool noStdin = false);
    ~Child() { wait(0); }
    void write(const std::string& text);
    void kill(int sig);
    // Where `needle` shows on stdout from `from` on, or npos after the time.
    size_t waitOut(const std::string& needle, size_t from = 0, int timeoutMs = 10000);
    std::string out() const { return readFile(dir_.path + "/out"); }
    // Closes stdin (unless told not to: after a signal, end of input would
    // race the signal's end); SIGKILL after the time.
    Result wait(int timeoutMs = 20000, bool closeInput = true);

private:
    int pid_ = -1, in_ = -1;
    TempDir dir_; // the files of stdout and stderr
    Result res_;
};

// A relay datagram from "@TYPE:REPEAT:COUNT:ITEM|ITEM", an item being
// "keyDelay/stepDelay/keys" for type 2 and two characters for type 10; "@"
// is the empty datagram.
std::string relayDatagram(const std::string& form);

#endif // VX_TEST_VXTEST_H
