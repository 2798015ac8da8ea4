#include "vxtest.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <regex>
#include <set>
#include <sstream>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

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
    const size_t end = std::min(off + width, bytes.size());
    return std::string(bytes.begin() + std::min(off, end), bytes.begin() + end).c_str();
}

void Listener::listen(const char* path)
{
    const sockaddr_un a = unixAddr(path);
    sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) {
        close(std::exchange(sock_, -1));
        return;
    }
    chmod(path, 0666);
    thread_ = std::thread([this] {
        // stop() shuts the socket's reading side: poll then reports POLLRDHUP.
        // Every 5 ms at the least, for the steps that are due.
        pollfd p = {sock_, POLLIN | POLLRDHUP, 0};
        while ((poll(&p, 1, 5) >= 0 || errno == EINTR) && (p.revents & POLLRDHUP) == 0)
            drain();
    });
}

void Listener::stop()
{
    shutdown(sock_, SHUT_RD);
    if (thread_.joinable())
        thread_.join();
    close(sock_);
}

std::unique_lock<std::mutex> Listener::drain()
{
    std::vector<uint8_t> buf(65536);
    sockaddr_un from{};
    socklen_t len = sizeof from;
    std::unique_lock<std::mutex> l(mu_);
    for (ssize_t n; (n = recvfrom(sock_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from), &len)) >= 0;
         len = sizeof from) {
        got_.push_back({{buf.begin(), buf.begin() + n},
                        len > offsetof(sockaddr_un, sun_path) ? std::string(from.sun_path) : std::string()});
        answer(got_.back());
    }
    due();
    return l;
}

std::vector<Datagram> Listener::received()
{
    const auto l = drain(); // what this thread sent is queued before its send returns
    return got_;
}

void Listener::clear()
{
    const auto l = drain();
    got_.clear();
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

void FakeService::setResult(int reqNo, int result, int delayMs)
{
    const std::lock_guard<std::mutex> l(mu_);
    results_[reqNo] = {result, delayMs};
}

void FakeService::answer(const Datagram& d)
{
    const int n = d.reqNo();
    const auto set = results_.find(n);
    const int result = set != results_.end() ? set->second.first : n == 305 ? nextChannel_++ : n == 22 ? 9000 : 0;
    const int delay = set != results_.end() && set->second.second >= 0 ? set->second.second : delayMs_;
    std::vector<int32_t> resp(21, 0);
    resp[0] = n + (policy_ == WrongReqNo ? 1000 : 0);
    resp[1] = result;
    if (policy_ != Silent && !d.from.empty() && std::set<int>{22, 28, 29, 305, 307, 308}.count(n) > 0)
        later_.emplace_back(std::chrono::steady_clock::now() + std::chrono::milliseconds(delay), d.from, resp);
    due();
}

void FakeService::due()
{
    for (auto it = later_.begin(); it != later_.end();) {
        if (std::get<0>(*it) > std::chrono::steady_clock::now()) {
            ++it;
            continue;
        }
        const sockaddr_un to = unixAddr(std::get<1>(*it));
        sendto(sock_, std::get<2>(*it).data(), 84, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        it = later_.erase(it);
    }
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
    for (const Datagram& d : received())
        t.push_back(std::regex_replace(std::string(d.bytes.begin(), d.bytes.end()), std::regex("^.*?: "), ""));
    return t;
}

bool putFields(std::vector<uint8_t>& record, const std::string& fields, char sep)
{
    std::istringstream in(fields);
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
        if (off + bytes.size() > record.size())
            return false;
        memcpy(&record[off], bytes.data(), bytes.size());
    }
    return true;
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
    // env(1) puts `env` on top of ours.
    argv.insert(argv.begin(), env.begin(), env.end());
    argv.insert(argv.begin(), "/usr/bin/env");
    std::vector<char*> av = cStrings(argv);
    const std::string out = dir_.path + "/out", err = dir_.path + "/err";
    int in[2];
    (void)!pipe2(in, O_CLOEXEC);
    signal(SIGPIPE, SIG_IGN); // a child that ends early must not end the test
    if ((pid_ = fork()) == 0) {
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), 1);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), 2);
        noStdin ? close(0) : dup2(in[0], 0);
        const sigset_t none{};
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execv(av[0], av.data());
        _exit(127);
    }
    close(in[0]);
    in_ = in[1];
}

void Child::write(const std::string& text) { (void)!::write(in_, text.data(), text.size()); }

void Child::kill(int sig) { ::kill(pid_, sig); }

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
    if (!waitUntil([&] { return waitpid(pid_, &st, WNOHANG) != 0; }, timeoutMs))
        ::kill(pid_, SIGKILL);
    waitpid(pid_, &st, 0); // the end of the kill (else reaped already: st stays)
    close(std::exchange(in_, -2));
    return res_ = {WIFEXITED(st) ? WEXITSTATUS(st) : -1, out(), readFile(dir_.path + "/err")};
}

std::string relayDatagram(const std::string& form)
{
    int32_t head[2] = {0, 0};
    int type = 0, at = 0;
    if (sscanf(form.c_str(), "@%d:%d:%d:%n", &type, &head[0], &head[1], &at) < 1)
        return "";
    std::string d = {'\0', static_cast<char>(type)};
    d.append(reinterpret_cast<const char*>(head), sizeof head);
    std::istringstream items(at > 0 ? form.substr(at) : "");
    for (std::string item; std::getline(items, item, '|');) {
        uint16_t delays[2];
        int keys = 0;
        if (type == 10 || sscanf(item.c_str(), "%hu/%hu/%n", &delays[0], &delays[1], &keys) < 2 || keys == 0)
            d += item + std::string(2, '\0');
        else // the keys in a field of 100 bytes, then the two delays
            d += (item.substr(keys) + std::string(100, '\0')).substr(0, 100) +
                 std::string(reinterpret_cast<const char*>(delays), sizeof delays);
    }
    return d;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

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
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (; !cond(); std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        if (std::chrono::steady_clock::now() > end)
            return false;
    return true;
}
