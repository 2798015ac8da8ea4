#include "syslogcap.h"

#include "machinelock.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

const char kDevLog[] = "/dev/log";

sockaddr_un devLogAddr()
{
    sockaddr_un a;
    memset(&a, 0, sizeof a);
    a.sun_family = AF_UNIX;
    strcpy(a.sun_path, kDevLog);
    return a;
}

// A datagram as glibc's syslog sends it: "<PRI>Mmm dd hh:mm:ss IDENT: text".
LogLine parse(const std::string& raw)
{
    LogLine l;
    size_t pos = 0;
    if (!raw.empty() && raw[0] == '<') {
        const size_t end = raw.find('>');
        if (end != std::string::npos) {
            l.priority = atoi(raw.substr(1, end - 1).c_str());
            pos = end + 1;
        }
    }
    // Skip the 15-character timestamp and its blank.
    if (raw.size() >= pos + 16)
        pos += 16;
    const size_t colon = raw.find(": ", pos);
    if (colon != std::string::npos) {
        l.ident = raw.substr(pos, colon - pos);
        l.text = raw.substr(colon + 2);
    } else {
        l.text = raw.substr(pos);
    }
    return l;
}

} // namespace

SyslogCapture::SyslogCapture()
{
    vxTestMachineLock();
    struct stat st;
    if (lstat(kDevLog, &st) == 0) {
        if (!S_ISSOCK(st.st_mode))
            return;
        // A socket is there: if something answers on it, it is a live
        // daemon's and must be left alone; otherwise it is stale.
        const int probe = socket(AF_UNIX, SOCK_DGRAM, 0);
        const sockaddr_un a = devLogAddr();
        const bool live = connect(probe, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
        close(probe);
        if (live)
            return;
        unlink(kDevLog);
    }
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un a = devLogAddr();
    if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) {
        close(sock_);
        sock_ = -1;
        return;
    }
    chmod(kDevLog, 0666);
    int size = 4 << 20;
    setsockopt(sock_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    if (pipe2(stopPipe_, O_CLOEXEC) == 0)
        thread_ = std::thread([this] { pump(); });
}

SyslogCapture::~SyslogCapture()
{
    if (thread_.joinable()) {
        const char c = 'x';
        if (write(stopPipe_[1], &c, 1) != 1) {
        }
        thread_.join();
    }
    for (int fd : stopPipe_)
        if (fd >= 0)
            close(fd);
    if (sock_ >= 0) {
        close(sock_);
        unlink(kDevLog);
    }
}

void SyslogCapture::pump()
{
    for (;;) {
        struct pollfd fds[2] = {{sock_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents)
            return;
        std::lock_guard<std::mutex> l(mu_);
        drainLocked();
    }
}

void SyslogCapture::drainLocked()
{
    if (sock_ < 0)
        return;
    char buf[4096];
    for (;;) {
        const ssize_t n = recv(sock_, buf, sizeof buf, 0);
        if (n < 0)
            return;
        got_.push_back(parse(std::string(buf, static_cast<size_t>(n))));
    }
}

std::vector<LogLine> SyslogCapture::lines()
{
    std::lock_guard<std::mutex> l(mu_);
    drainLocked();
    return got_;
}

std::vector<std::string> SyslogCapture::texts()
{
    std::lock_guard<std::mutex> l(mu_);
    drainLocked();
    std::vector<std::string> t;
    for (const auto& l : got_)
        t.push_back(l.text);
    return t;
}

bool SyslogCapture::waitFor(size_t n, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        {
            std::lock_guard<std::mutex> l(mu_);
            drainLocked();
            if (got_.size() >= n)
                return true;
        }
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void SyslogCapture::clear()
{
    std::lock_guard<std::mutex> l(mu_);
    drainLocked();
    got_.clear();
}
