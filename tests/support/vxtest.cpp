#include "vxtest.h"

#include <csignal>
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
void takeMachine()
{
    static std::once_flag once;
    std::call_once(once, [] {
        flock(open("/tmp/vx-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666), LOCK_EX);
        if (mkdir("/tmp/vx", 0777) == 0)
            atexit([] {
                cleanVxDir();
                rmdir("/tmp/vx/tx");
                rmdir("/tmp/vx");
            });
    });
}

sockaddr_un unixAddr(const std::string& path)
{
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
    return a;
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

void Listener::listen(const char* path)
{
    const sockaddr_un a = unixAddr(path);
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0 || pipe2(stop_, O_CLOEXEC) != 0) {
        close(std::exchange(sock_, -1));
        return;
    }
    chmod(path, 0666);
    thread_ = std::thread([this] {
        pollfd fds[2] = {{sock_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        while ((poll(fds, 2, -1) >= 0 || errno == EINTR) && fds[1].revents == 0)
            drain();
    });
}

void Listener::stop()
{
    if (thread_.joinable()) {
        (void)!write(stop_[1], "x", 1);
        thread_.join();
    }
    for (int fd : {stop_[0], stop_[1], sock_})
        close(fd);
}

void Listener::drain()
{
    std::vector<uint8_t> buf(65536);
    sockaddr_un from{};
    socklen_t len = sizeof from;
    std::lock_guard<std::mutex> l(mu_);
    for (ssize_t n; (n = recvfrom(sock_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from), &len)) >= 0;
         len = sizeof from) {
        got_.push_back({{buf.begin(), buf.begin() + n},
                        len > offsetof(sockaddr_un, sun_path) ? std::string(from.sun_path) : std::string()});
        answer(got_.back());
    }
}

std::vector<Datagram> Listener::received()
{
    drain(); // what this thread sent is queued before its send returns
    std::lock_guard<std::mutex> l(mu_);
    return got_;
}

void Listener::clear()
{
    drain();
    std::lock_guard<std::mutex> l(mu_);
    got_.clear();
}

bool Listener::waitFor(size_t n, int timeoutMs)
{
    return waitUntil([&] { return received().size() >= n; }, timeoutMs);
}

void cleanVxDir()
{
    takeMachine();
    mkdir("/tmp/vx", 0777);
    mkdir("/tmp/vx/tx", 0777);
    std::error_code ec;
    for (const char* dir : {"/tmp/vx/tx", "/tmp/vx"})
        for (const auto& e : std::filesystem::directory_iterator(dir, ec))
            if (!e.is_directory(ec) || e.is_symlink(ec))
                std::filesystem::remove(e.path(), ec);
}

FakeService::FakeService(Policy policy, int delayMs) : policy_(policy), delayMs_(delayMs)
{
    cleanVxDir();
    listen("/tmp/vx/vxRxSock");
    EXPECT_TRUE(ok()) << "cannot bind /tmp/vx/vxRxSock";
}

FakeService::~FakeService()
{
    stop();
    cleanVxDir();
}

void FakeService::setResult(int reqNo, int result)
{
    std::lock_guard<std::mutex> l(mu_);
    results_[reqNo] = result;
}

void FakeService::answer(const Datagram& d)
{
    int32_t resp[21] = {d.reqNo() + (policy_ == WrongReqNo ? 1000 : 0), d.reqNo() == 22 ? 9000 : 0};
    if (results_.count(d.reqNo()) > 0)
        resp[1] = results_[d.reqNo()];
    else if (d.reqNo() == 305)
        resp[1] = nextChannel_++;
    static const std::vector<int> kAnswered = {22, 28, 29, 305, 307, 308};
    if (policy_ == Silent || d.from.empty() || std::count(kAnswered.begin(), kAnswered.end(), d.reqNo()) == 0)
        return;
    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
    const sockaddr_un to = unixAddr(d.from);
    sendto(sock_, resp, sizeof resp, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

SyslogCapture::SyslogCapture()
{
    takeMachine();
    // A socket that answers belongs to a live daemon and is left alone.
    const sockaddr_un a = unixAddr("/dev/log");
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool live = connect(probe, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
    close(probe);
    if (!live && (unlink("/dev/log") == 0 || errno == ENOENT))
        listen("/dev/log");
}

SyslogCapture::~SyslogCapture()
{
    if (ok()) {
        stop();
        unlink("/dev/log");
    }
}

std::vector<std::string> SyslogCapture::texts()
{
    std::vector<std::string> t; // of "<PRI>Mmm dd hh:mm:ss IDENT: text"
    for (const Datagram& d : received()) {
        const std::string raw(d.bytes.begin(), d.bytes.end());
        t.push_back(raw.substr(std::min(raw.find(": ") + 2, raw.size())));
    }
    return t;
}

bool putFields(std::vector<uint8_t>& record, const std::string& spec, char sep)
{
    std::istringstream in(spec);
    bool fits = true;
    for (std::string f; std::getline(in, f, sep);) {
        if (f.empty())
            continue;
        const size_t at = f.find_first_of("='~"), off = std::stoul(f);
        const std::string arg = f.substr(at + 1);
        std::string bytes;
        if (f[at] == '=') {
            const int32_t v = arg == "pid" ? getpid() : std::stoi(arg);
            bytes.assign(reinterpret_cast<const char*>(&v), 4);
        } else if (f[at] == '~') {
            for (int i = 1; i <= std::stoi(arg); ++i)
                bytes += static_cast<char>(i);
        } else {
            const size_t q = arg.find('\'');
            for (size_t n = q + 1 < arg.size() ? std::stoul(arg.substr(q + 2)) : 1; n > 0; --n)
                bytes += arg.substr(0, q);
            bytes.resize(bytes.size() + (off + bytes.size() < record.size()));
        }
        fits = fits && off + bytes.size() <= record.size();
        if (fits)
            memcpy(&record[off], bytes.data(), bytes.size());
    }
    return fits;
}

Child::Child(std::vector<std::string> argv, const std::vector<std::string>& env, bool noStdin)
{
    takeMachine();
    if (argv[0].find('/') == std::string::npos) {
        argv[0] = std::string(VX_BIN_DIR) + "/" + argv[0];
#ifdef VX_EMULATOR
        // A cross build: the host runs the target's programs under the emulator.
        argv.insert(argv.begin(), {VX_EMULATOR});
#endif
    }
    std::vector<std::string> envs = env;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string name = std::string(*e).substr(0, std::string(*e).find('=') + 1);
        if (std::none_of(env.begin(), env.end(), [&](const std::string& x) { return x.rfind(name, 0) == 0; }))
            envs.push_back(*e);
    }
    std::vector<char*> av = cStrings(argv), ev = cStrings(envs);
    int in[2], fds[2];
    for (int i = 0; i < 2; ++i) {
        char name[] = "/tmp/vxchild.XXXXXX";
        fds[i] = mkostemp(name, O_CLOEXEC);
        files_[i] = name;
    }
    if (pipe2(in, O_CLOEXEC) != 0)
        return;
    signal(SIGPIPE, SIG_IGN); // a child that ends early must not end the test
    if ((pid_ = fork()) == 0) {
        noStdin ? close(0) : dup2(in[0], 0);
        dup2(fds[0], 1);
        dup2(fds[1], 2);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execve(av[0], av.data(), ev.data());
        _exit(127);
    }
    for (int fd : {in[0], fds[0], fds[1]})
        close(fd);
    in_ = in[1];
}

Child::~Child()
{
    wait(0);
    for (const std::string& f : files_)
        unlink(f.c_str());
}

void Child::write(const std::string& text) { (void)!::write(in_, text.data(), text.size()); }

void Child::kill(int sig) { ::kill(pid_, sig); }

std::string Child::out() const { return in_ == -2 ? res_.out : readFile(files_[0]); }

size_t Child::waitOut(const std::string& needle, size_t from, int timeoutMs)
{
    size_t at = std::string::npos;
    waitUntil([&] { return (at = out().find(needle, from)) != std::string::npos; }, timeoutMs);
    return at;
}

Child::Result Child::wait(int timeoutMs, bool closeInput)
{
    if (pid_ < 0 || in_ == -2) // not started, or ended already
        return res_;
    if (closeInput)
        close(std::exchange(in_, -1));
    int st = 0;
    if (!waitUntil([&] { return waitpid(pid_, &st, WNOHANG) != 0; }, timeoutMs)) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, &st, 0);
    }
    close(std::exchange(in_, -2));
    res_ = {WIFEXITED(st) ? WEXITSTATUS(st) : -1, readFile(files_[0]), readFile(files_[1])};
    return res_;
}

std::string relayDatagram(const std::string& spec)
{
    std::vector<std::string> f(4);
    std::istringstream in(spec.substr(1));
    for (auto& field : f)
        std::getline(in, field, ':');
    if (f[0].empty())
        return "";
    const int32_t head[2] = {f[1].empty() ? 0 : std::stoi(f[1]), f[2].empty() ? 0 : std::stoi(f[2])};
    std::string d = {'\0', static_cast<char>(std::stoi(f[0]))};
    d.append(reinterpret_cast<const char*>(head), sizeof head);
    std::istringstream items(f[3]);
    for (std::string item; std::getline(items, item, '|');) {
        const size_t a = item.find('/'), b = item.find('/', a + 1);
        if (f[0] == "10" || b == std::string::npos) {
            d += item + std::string(2, '\0');
            continue;
        }
        const uint16_t delays[2] = {static_cast<uint16_t>(std::stoi(item.substr(0, a))),
                                    static_cast<uint16_t>(std::stoi(item.substr(a + 1, b - a - 1)))};
        d += item.substr(b + 1).append(100 - std::min<size_t>(100, item.size() - b - 1), '\0').substr(0, 100);
        d.append(reinterpret_cast<const char*>(delays), sizeof delays);
    }
    return d;
}

std::string stubPath()
{
    const char* path = getenv("PATH");
    return std::string("PATH=") + VX_SOURCE_DIR "/tests/support/stubs:" + (path != nullptr ? path : "/usr/bin:/bin");
}

std::string stubCalls()
{
    std::string calls = std::regex_replace(readFile("/tmp/vx/stubcalls.log"), std::regex("\n(.)"), "; $1");
    return calls.empty() ? calls : calls.substr(0, calls.size() - 1);
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
    return std::regex_replace(text, std::regex(R"(\[\d\d:\d\d:\d\d\.\d\d\d\] )"), "");
}

std::vector<char*> cStrings(std::vector<std::string>& strings)
{
    std::vector<char*> p;
    for (auto& s : strings)
        p.push_back(s.data());
    p.push_back(nullptr);
    return p;
}

std::string seq(std::initializer_list<long long> values)
{
    std::string s;
    for (long long v : values)
        s += std::to_string(v) + " ";
    return s;
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
