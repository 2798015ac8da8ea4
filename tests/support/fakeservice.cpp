#include "fakeservice.h"

#include "machinelock.h"

#include <cerrno>
#include <chrono>
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

std::string Datagram::text(size_t offset, size_t width) const
{
    std::string s;
    for (size_t i = offset; i < offset + width && i < bytes.size() && bytes[i] != 0; ++i)
        s.push_back(static_cast<char>(bytes[i]));
    return s;
}

std::vector<uint8_t> Datagram::raw(size_t offset, size_t width) const
{
    std::vector<uint8_t> r;
    for (size_t i = offset; i < offset + width && i < bytes.size(); ++i)
        r.push_back(bytes[i]);
    return r;
}

FakeService::FakeService(Policy policy, int delayMs) : policy_(policy), delayMs_(delayMs)
{
    vxTestMachineLock();
    mkdir("/tmp/vx", 0777);
    mkdir("/tmp/vx/tx", 0777);
    unlink("/tmp/vx/vxRxSock");
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, "/tmp/vx/vxRxSock");
    if (bind(sock_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        close(sock_);
        sock_ = -1;
        return;
    }
    if (pipe(stopPipe_) != 0) {
        stopPipe_[0] = stopPipe_[1] = -1;
    }
    thread_ = std::thread([this] { run(); });
}

FakeService::~FakeService()
{
    if (thread_.joinable()) {
        const char c = 'x';
        if (write(stopPipe_[1], &c, 1) != 1) {
        }
        thread_.join();
    }
    if (sock_ >= 0)
        close(sock_);
    for (int fd : stopPipe_)
        if (fd >= 0)
            close(fd);
    unlink("/tmp/vx/vxRxSock");
}

void FakeService::setResult(int reqNo, int result)
{
    std::lock_guard<std::mutex> l(mu_);
    results_[reqNo] = result;
}

void FakeService::setPolicy(Policy policy, int delayMs)
{
    std::lock_guard<std::mutex> l(mu_);
    policy_ = policy;
    delayMs_ = delayMs;
}

void FakeService::run()
{
    std::vector<uint8_t> buf(65536);
    for (;;) {
        struct pollfd fds[2] = {{sock_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (fds[1].revents)
            return;
        if (!(fds[0].revents & POLLIN))
            continue;
        struct sockaddr_un from;
        socklen_t fromLen = sizeof from;
        memset(&from, 0, sizeof from);
        const ssize_t n = recvfrom(sock_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n < 0)
            continue;
        Datagram d;
        d.bytes.assign(buf.begin(), buf.begin() + n);
        if (fromLen > offsetof(sockaddr_un, sun_path))
            d.from.assign(from.sun_path, strnlen(from.sun_path, fromLen - offsetof(sockaddr_un, sun_path)));
        const int32_t reqNo = d.reqNo();

        Policy policy;
        int delayMs;
        bool answers = false;
        int result = 0;
        {
            std::lock_guard<std::mutex> l(mu_);
            got_.push_back(d);
            policy = policy_;
            delayMs = delayMs_;
            // The numbers the service answers, from its own list.
            switch (reqNo) {
            case 22: case 28: case 29: case 305: case 307: case 308:
                answers = true;
                break;
            default:
                break;
            }
            auto it = results_.find(reqNo);
            if (it != results_.end())
                result = it->second;
            else if (reqNo == 305)
                result = nextChannel_++;
            else if (reqNo == 307)
                result = 4;
            else if (reqNo == 22)
                result = 9000;
        }
        if (!answers || policy == Policy::Silent || d.from.empty())
            continue;
        if (delayMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        int32_t resp[21] = {};
        resp[0] = policy == Policy::WrongReqNo ? reqNo + 1000 : reqNo;
        resp[1] = result;
        sendto(sock_, resp, sizeof resp, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), fromLen);
    }
}

bool FakeService::waitFor(size_t n, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        {
            std::lock_guard<std::mutex> l(mu_);
            if (got_.size() >= n)
                return true;
        }
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

std::vector<Datagram> FakeService::received()
{
    std::lock_guard<std::mutex> l(mu_);
    return got_;
}

std::vector<int32_t> FakeService::reqNos()
{
    std::lock_guard<std::mutex> l(mu_);
    std::vector<int32_t> r;
    for (const auto& d : got_)
        r.push_back(d.reqNo());
    return r;
}

void FakeService::clear()
{
    std::lock_guard<std::mutex> l(mu_);
    got_.clear();
}

void cleanVxDir()
{
    vxTestMachineLock();
    mkdir("/tmp/vx", 0777);
    mkdir("/tmp/vx/tx", 0777);
    const char* dirs[] = {"/tmp/vx/tx", "/tmp/vx"};
    for (const char* dir : dirs) {
        DIR* d = opendir(dir);
        if (d == nullptr)
            continue;
        while (struct dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name == "." || name == ".." || name == "tx" || name == "vxRxSock")
                continue;
            unlink((std::string(dir) + "/" + name).c_str());
        }
        closedir(d);
    }
}
