// proc.h - runs a built program as a child process with arguments and text
// on its stdin, capturing stdout and stderr, with a bound on its run time.
#ifndef VX_TEST_PROC_H
#define VX_TEST_PROC_H

#include <string>
#include <sys/types.h>
#include <vector>

struct ProcResult {
    bool exited = false;   // ended by exit (status is valid)
    int status = -1;       // exit status
    bool signaled = false; // ended by a signal
    int signal = 0;
    bool timedOut = false; // killed after the time bound
    std::string out;
    std::string err;
};

class Child {
public:
    // Starts argv[0] (a path) with argv; env entries "NAME=value" are added
    // to (or replace in) the current environment.
    Child(const std::vector<std::string>& argv, const std::vector<std::string>& env = {});
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    void write(const std::string& text); // to the child's stdin
    void closeStdin();
    void kill(int sig);
    // Output so far (non-blocking).
    std::string out();
    // Waits until stdout contains `needle` (bounded).
    bool waitForOutput(const std::string& needle, int timeoutMs = 5000);
    // Waits for the end (bounded: kill -9 after timeoutMs), collecting output.
    ProcResult wait(int timeoutMs = 10000);

private:
    void pump(int timeoutMs);
    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
    std::string outBuf_, errBuf_;
    bool done_ = false;
    ProcResult result_;
};

// Runs to completion: stdin is `input` followed by end of input.
ProcResult runProcess(const std::vector<std::string>& argv, const std::string& input = "",
                      int timeoutMs = 10000, const std::vector<std::string>& env = {});

// Path of a built program: VX_BIN_DIR "/" name.
std::string binPath(const std::string& name);

// Drops the "[hh:mm:ss.mmm] " time stamps of logPrt lines.
std::string stripTimestamps(const std::string& text);

#endif // VX_TEST_PROC_H
