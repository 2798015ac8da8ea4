// Helpers of the configuration tests.
#include "runshell_conf.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace confsupport {

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*)
{
    remove(path);
    return 0;
}

// Makes directories writable again, in case a test locked one.
int unlockEntry(const char* path, const struct stat* st, int type, struct FTW*)
{
    if (type == FTW_D || type == FTW_DNR)
        chmod(path, (st->st_mode & 07777) | 0700);
    return 0;
}

long long nowMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::vector<char*> argvOf(const std::vector<std::string>& argv)
{
    std::vector<char*> v;
    for (const std::string& a : argv)
        v.push_back(const_cast<char*>(a.c_str()));
    v.push_back(nullptr);
    return v;
}

} // namespace

TempDir::TempDir()
{
    const char* base = getenv("TMPDIR");
    std::string tmpl = std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/vxconfXXXXXX";
    if (mkdtemp(&tmpl[0]) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
}

TempDir::~TempDir()
{
    nftw(path_.c_str(), unlockEntry, 16, FTW_PHYS);
    nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::vector<std::string> TempDir::list() const
{
    std::vector<std::string> names;
    if (DIR* d = opendir(path_.c_str())) {
        while (struct dirent* e = readdir(d)) {
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
                names.emplace_back(e->d_name);
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::string& path, bool* ok)
{
    std::string bytes;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (ok != nullptr)
            *ok = false;
        return bytes;
    }
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0)
        bytes.append(buf, static_cast<size_t>(n));
    close(fd);
    if (ok != nullptr)
        *ok = n == 0;
    return bytes;
}

bool writeFile(const std::string& path, const std::string& bytes)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            close(fd);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return close(fd) == 0;
}

RunResult runProgram(const std::vector<std::string>& argv, const std::string& cwd, int timeoutMs)
{
    RunResult result;
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0)
        return result;
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return result;
    }
    std::vector<char*> args = argvOf(argv);
    const pid_t pid = fork();
    if (pid == 0) {
        const int nullFd = open("/dev/null", O_RDONLY);
        dup2(nullFd, 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0)
            _exit(126);
        execv(args[0], args.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    if (pid < 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        return result;
    }
    const long long deadline = nowMs() + timeoutMs;
    struct pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    int openCount = 2;
    while (openCount > 0) {
        const long long left = deadline - nowMs();
        if (left <= 0) {
            kill(pid, SIGKILL);
            result.timedOut = true;
            break;
        }
        if (poll(fds, 2, static_cast<int>(left)) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buf[4096];
            const ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                (i == 0 ? result.out : result.err).append(buf, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --openCount;
            }
        }
    }
    for (auto& f : fds)
        if (f.fd >= 0)
            close(f.fd);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    return result;
}

pid_t spawnQuiet(const std::vector<std::string>& argv, const std::string& cwd)
{
    std::vector<char*> args = argvOf(argv);
    const pid_t pid = fork();
    if (pid == 0) {
        const int nullFd = open("/dev/null", O_RDWR);
        dup2(nullFd, 0);
        dup2(nullFd, 1);
        dup2(nullFd, 2);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0)
            _exit(126);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

std::string stripTimestamp(const std::string& line)
{
    // "[hh:mm:ss.mmm] " is 15 bytes.
    if (line.size() >= 15 && line[0] == '[' && line[3] == ':' && line[6] == ':' && line[9] == '.' &&
        line[13] == ']' && line[14] == ' ')
        return line.substr(15);
    return line;
}

std::string canonicalText(tConfGroup* root)
{
    char* text = mCONF_BufWrite(root);
    std::string s = text != nullptr ? text : "";
    free(text);
    return s;
}

std::string visible(const std::string& bytes)
{
    std::string v;
    for (const unsigned char c : bytes) {
        char hex[8];
        if (c == '\r' || c == '\n' || c == '\t')
            v += c == '\r' ? "\\r" : c == '\n' ? "\\n\n" : "\\t";
        else if (c < 0x20 || c >= 0x7f)
            v += (snprintf(hex, sizeof hex, "\\x%02x", c), hex);
        else
            v += static_cast<char>(c);
    }
    return v;
}

} // namespace confsupport
