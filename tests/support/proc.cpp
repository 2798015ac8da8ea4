#include "proc.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

Child::Child(const std::vector<std::string>& argv, const std::vector<std::string>& env)
{
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return;
    std::vector<std::string> envStore;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        bool replaced = false;
        for (const auto& add : env)
            if (entry.substr(0, entry.find('=') + 1) == add.substr(0, add.find('=') + 1))
                replaced = true;
        if (!replaced)
            envStore.push_back(entry);
    }
    for (const auto& add : env)
        envStore.push_back(add);
    std::vector<char*> av, ev;
    for (const auto& a : argv)
        av.push_back(const_cast<char*>(a.c_str()));
    av.push_back(nullptr);
    for (const auto& e : envStore)
        ev.push_back(const_cast<char*>(e.c_str()));
    ev.push_back(nullptr);

    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        // The child starts with no signal blocked, whatever the test runner did.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execve(av[0], av.data(), ev.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
    fcntl(out_, F_SETFL, O_NONBLOCK);
    fcntl(err_, F_SETFL, O_NONBLOCK);
    // A child that ends early must not kill the test with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);
}

Child::~Child()
{
    if (!done_ && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    for (int fd : {in_, out_, err_})
        if (fd >= 0)
            close(fd);
}

void Child::write(const std::string& text)
{
    if (in_ < 0)
        return;
    size_t off = 0;
    while (off < text.size()) {
        const ssize_t n = ::write(in_, text.data() + off, text.size() - off);
        if (n <= 0)
            return;
        off += static_cast<size_t>(n);
    }
}

void Child::closeStdin()
{
    if (in_ >= 0)
        close(in_);
    in_ = -1;
}

void Child::kill(int sig)
{
    if (pid_ > 0 && !done_)
        ::kill(pid_, sig);
}

void Child::pump(int timeoutMs)
{
    struct pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
    if (poll(fds, 2, timeoutMs) <= 0)
        return;
    char buf[4096];
    for (int i = 0; i < 2; ++i) {
        const int fd = i == 0 ? out_ : err_;
        std::string& dst = i == 0 ? outBuf_ : errBuf_;
        for (;;) {
            const ssize_t n = read(fd, buf, sizeof buf);
            if (n <= 0)
                break;
            dst.append(buf, static_cast<size_t>(n));
        }
    }
}

std::string Child::out()
{
    pump(0);
    return outBuf_;
}

bool Child::waitForOutput(const std::string& needle, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        pump(20);
        if (outBuf_.find(needle) != std::string::npos)
            return true;
        if (std::chrono::steady_clock::now() > deadline)
            return false;
    }
}

ProcResult Child::wait(int timeoutMs)
{
    if (done_)
        return result_;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        pump(10);
        const pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_)
            break;
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            result_.timedOut = true;
            break;
        }
    }
    // Collect what is left in the pipes.
    for (int i = 0; i < 5; ++i)
        pump(5);
    done_ = true;
    result_.exited = WIFEXITED(status);
    result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result_.signaled = WIFSIGNALED(status);
    result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result_.out = outBuf_;
    result_.err = errBuf_;
    return result_;
}

ProcResult runProcess(const std::vector<std::string>& argv, const std::string& input, int timeoutMs,
                      const std::vector<std::string>& env)
{
    Child c(argv, env);
    c.write(input);
    c.closeStdin();
    return c.wait(timeoutMs);
}

std::string binPath(const std::string& name) { return std::string(VX_BIN_DIR) + "/" + name; }

std::string stripTimestamps(const std::string& text)
{
    static const std::regex stamp(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] )");
    return std::regex_replace(text, stamp, "");
}
