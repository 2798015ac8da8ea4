#include "vxtest.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <regex>
#include <sstream>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// One lock for the whole machine around /tmp/vx/ and /dev/log, held until
// the process ends; the directories it had to make go at the end.
bool g_madeVxDir = false;
void takeMachine()
{
    static std::once_flag once;
    std::call_once(once, [] {
        const int fd = open("/tmp/vx-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd >= 0)
            flock(fd, LOCK_EX);
        g_madeVxDir = mkdir("/tmp/vx", 0777) == 0;
        atexit([] {
            if (!g_madeVxDir)
                return;
            cleanVxDir();
            rmdir("/tmp/vx/tx");
            rmdir("/tmp/vx");
        });
    });
}

sockaddr_un unixAddr(const char* path)
{
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", path);
    return a;
}

// Runs `body` on a thread until stop is written; `fd` is watched for input.
void stopThread(std::thread& t, int (&stop)[2])
{
    if (t.joinable()) {
        (void)!::write(stop[1], "x", 1);
        t.join();
    }
    for (int fd : stop)
        if (fd >= 0)
            close(fd);
}

bool readable(int fd, int stopFd)
{
    pollfd fds[2] = {{fd, POLLIN, 0}, {stopFd, POLLIN, 0}};
    while (poll(fds, 2, -1) < 0)
        if (errno != EINTR)
            return false;
    return fds[1].revents == 0;
}

} // namespace

int32_t Datagram::word(size_t off) const
{
    int32_t v = 0;
    if (off + 4 <= bytes.size())
        memcpy(&v, bytes.data() + off, 4);
    return v;
}

std::string Datagram::text(size_t off, size_t width) const
{
    std::string s;
    for (size_t i = off; i < off + width && i < bytes.size() && bytes[i] != 0; ++i)
        s += static_cast<char>(bytes[i]);
    return s;
}

void cleanVxDir()
{
    takeMachine();
    mkdir("/tmp/vx", 0777);
    mkdir("/tmp/vx/tx", 0777);
    for (const char* dir : {"/tmp/vx/tx", "/tmp/vx"}) {
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(dir, ec))
            if (!e.is_directory(ec) || e.is_symlink(ec))
                std::filesystem::remove(e.path(), ec);
    }
}

FakeService::FakeService(Policy policy, int delayMs) : policy_(policy), delayMs_(delayMs)
{
    cleanVxDir();
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un a = unixAddr("/tmp/vx/vxRxSock");
    if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0 || pipe2(stop_, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "cannot bind /tmp/vx/vxRxSock: " << strerror(errno);
        return;
    }
    thread_ = std::thread([this] { run(); });
}

FakeService::~FakeService()
{
    stopThread(thread_, stop_);
    close(sock_);
    cleanVxDir();
}

void FakeService::setResult(int reqNo, int result)
{
    std::lock_guard<std::mutex> l(mu_);
    results_[reqNo] = result;
}

void FakeService::run()
{
    std::vector<uint8_t> buf(65536);
    while (readable(sock_, stop_[0])) {
        sockaddr_un from{};
        socklen_t fromLen = sizeof from;
        const ssize_t n = recvfrom(sock_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n < 0)
            continue;
        Datagram d{{buf.begin(), buf.begin() + n}, {}};
        if (fromLen > offsetof(sockaddr_un, sun_path))
            d.from.assign(from.sun_path, strnlen(from.sun_path, fromLen - offsetof(sockaddr_un, sun_path)));
        int32_t resp[21] = {d.reqNo(), 0};
        {
            std::lock_guard<std::mutex> l(mu_);
            got_.push_back(d);
            const auto it = results_.find(resp[0]);
            resp[1] = it != results_.end() ? it->second : resp[0] == 305 ? nextChannel_++ : resp[0] == 22 ? 9000 : 0;
        }
        static const int kAnswered[] = {22, 28, 29, 305, 307, 308};
        if (policy_ == Silent || d.from.empty() || std::find(std::begin(kAnswered), std::end(kAnswered), resp[0]) ==
                                                         std::end(kAnswered))
            continue;
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
        if (policy_ == WrongReqNo)
            resp[0] += 1000;
        sendto(sock_, resp, sizeof resp, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), fromLen);
    }
}

bool FakeService::waitFor(size_t n, int timeoutMs)
{
    return waitUntil([&] { return received().size() >= n; }, timeoutMs);
}

std::vector<Datagram> FakeService::received()
{
    std::lock_guard<std::mutex> l(mu_);
    return got_;
}

void FakeService::clear()
{
    std::lock_guard<std::mutex> l(mu_);
    got_.clear();
}

SyslogCapture::SyslogCapture()
{
    takeMachine();
    const sockaddr_un a = unixAddr("/dev/log");
    // A socket that answers belongs to a live daemon and is left alone.
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool live = connect(probe, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
    close(probe);
    if (live)
        return;
    unlink("/dev/log");
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0 || pipe2(stop_, O_CLOEXEC) != 0) {
        close(sock_);
        sock_ = -1;
        return;
    }
    chmod("/dev/log", 0666);
    // A full queue would block syslog(): a thread keeps emptying it.
    thread_ = std::thread([this] {
        while (readable(sock_, stop_[0]))
            drain();
    });
}

SyslogCapture::~SyslogCapture()
{
    stopThread(thread_, stop_);
    if (sock_ >= 0) {
        close(sock_);
        unlink("/dev/log");
    }
}

void SyslogCapture::drain()
{
    char buf[4096];
    ssize_t n;
    std::lock_guard<std::mutex> l(mu_);
    while (sock_ >= 0 && (n = recv(sock_, buf, sizeof buf, 0)) >= 0) {
        // "<PRI>Mmm dd hh:mm:ss IDENT: text"
        const std::string raw(buf, static_cast<size_t>(n));
        const size_t colon = raw.find(": ");
        got_.push_back({atoi(raw.c_str() + 1), colon == std::string::npos ? raw : raw.substr(colon + 2)});
    }
}

std::vector<SyslogCapture::Line> SyslogCapture::lines()
{
    // The lines of this thread's syslog calls are queued before they return.
    drain();
    std::lock_guard<std::mutex> l(mu_);
    return got_;
}

std::vector<std::string> SyslogCapture::texts()
{
    std::vector<std::string> t;
    for (const Line& l : lines())
        t.push_back(l.text);
    return t;
}

void SyslogCapture::clear()
{
    drain();
    std::lock_guard<std::mutex> l(mu_);
    got_.clear();
}

Child::Child(std::vector<std::string> argv, const std::vector<std::string>& env)
{
    takeMachine();
    if (argv[0].find('/') == std::string::npos) {
        argv[0] = std::string(VX_BIN_DIR) + "/" + argv[0];
#ifdef VX_EMULATOR
        // A cross build: the host runs the target's programs under the emulator.
        const std::vector<std::string> emulator = {VX_EMULATOR};
        argv.insert(argv.begin(), emulator.begin(), emulator.end());
#endif
    }
    std::vector<std::string> envs = env;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string name = std::string(*e).substr(0, std::string(*e).find('=') + 1);
        if (std::none_of(env.begin(), env.end(), [&](const std::string& x) { return x.rfind(name, 0) == 0; }))
            envs.push_back(*e);
    }
    std::vector<char*> av, ev;
    for (auto& a : argv)
        av.push_back(a.data());
    for (auto& e : envs)
        ev.push_back(e.data());
    av.push_back(nullptr);
    ev.push_back(nullptr);
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return;
    signal(SIGPIPE, SIG_IGN); // a child that ends early must not end the test
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
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
}

Child::~Child()
{
    if (!done_)
        wait(0);
    for (int fd : {in_, out_, err_})
        if (fd >= 0)
            close(fd);
}

void Child::write(const std::string& text)
{
    if (in_ >= 0)
        (void)!::write(in_, text.data(), text.size());
}

void Child::closeIn()
{
    if (in_ >= 0)
        close(in_);
    in_ = -1;
}

void Child::kill(int sig) { ::kill(pid_, sig); }

// Reads what the child wrote, for at most timeoutMs; false once both pipes
// are at their end.
bool Child::pump(int timeoutMs)
{
    pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
    if (poll(fds, 2, timeoutMs) <= 0)
        return true;
    bool open = false;
    for (int i = 0; i < 2; ++i) {
        char buf[4096];
        const ssize_t n = fds[i].revents != 0 ? read(fds[i].fd, buf, sizeof buf) : 1;
        if (n > 0 && fds[i].revents != 0)
            (i == 0 ? res_.out : res_.err).append(buf, static_cast<size_t>(n));
        open = open || n > 0;
    }
    return open;
}

size_t Child::waitOut(const std::string& needle, size_t from, int timeoutMs)
{
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    size_t at;
    while ((at = res_.out.find(needle, from)) == std::string::npos && Clock::now() < end && pump(20)) {
    }
    return at;
}

Child::Result Child::wait(int timeoutMs)
{
    if (done_ || pid_ < 0)
        return res_;
    closeIn();
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int st = 0;
    while (waitpid(pid_, &st, WNOHANG) == 0) {
        if (Clock::now() > end) {
            res_.timedOut = timeoutMs > 0;
            ::kill(pid_, SIGKILL);
            waitpid(pid_, &st, 0);
            break;
        }
        pump(20);
    }
    // What the child wrote before it ended (its own children may hold the
    // pipes a little longer).
    for (const auto stop = Clock::now() + std::chrono::seconds(2); Clock::now() < stop && pump(50);) {
    }
    done_ = true;
    res_.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    res_.signal = WIFSIGNALED(st) ? WTERMSIG(st) : 0;
    return res_;
}

Child::Result runChild(const std::vector<std::string>& argv, const std::string& input,
                       const std::vector<std::string>& env, int timeoutMs)
{
    Child c(argv, env);
    c.write(input);
    return c.wait(timeoutMs);
}

// "@TYPE:REPEAT:COUNT:ITEM|ITEM": a relay datagram; an item is
// "keyDelay/stepDelay/keys" for type 2 and two characters for type 10.
std::string relayDatagram(const std::string& spec)
{
    if (spec == "@")
        return "";
    std::vector<std::string> f(4);
    std::istringstream in(spec.substr(1));
    for (auto& field : f)
        std::getline(in, field, ':');
    const int32_t head[2] = {f[1].empty() ? 0 : std::stoi(f[1]), f[2].empty() ? 0 : std::stoi(f[2])};
    std::string d = {'\0', static_cast<char>(std::stoi(f[0]))};
    d.append(reinterpret_cast<const char*>(head), sizeof head);
    std::istringstream items(f[3]);
    for (std::string item; std::getline(items, item, '|');) {
        if (f[0] == "10") {
            d += item + std::string(2, '\0');
            continue;
        }
        const size_t a = item.find('/'), b = item.find('/', a + 1);
        const uint16_t delays[2] = {static_cast<uint16_t>(std::stoi(item.substr(0, a))),
                                    static_cast<uint16_t>(std::stoi(item.substr(a + 1, b - a - 1)))};
        std::string keys = item.substr(b + 1);
        keys.resize(100, '\0');
        d += keys + std::string(reinterpret_cast<const char*>(delays), sizeof delays);
    }
    return d;
}

std::string stubPath()
{
    const char* path = getenv("PATH");
    return std::string("PATH=") + VX_SOURCE_DIR "/tests/support/stubs:" + (path != nullptr ? path : "/usr/bin:/bin");
}

std::vector<std::string> stubCalls()
{
    std::vector<std::string> calls;
    std::istringstream in(readFile("/tmp/vx/stubcalls.log"));
    for (std::string line; std::getline(in, line);)
        calls.push_back(line);
    return calls;
}

TempDir::TempDir()
{
    char pattern[] = "/tmp/vxtest.XXXXXX";
    path = mkdtemp(pattern) != nullptr ? pattern : "/tmp";
}

TempDir::~TempDir()
{
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string unstamped(const std::string& text)
{
    static const std::regex stamp(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] )");
    return std::regex_replace(text, stamp, "");
}

bool waitUntil(const std::function<bool()>& cond, int timeoutMs)
{
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
