// Test support: vxsim as a child process, and a client socket under /tmp/vx/.
#include "machinelock.h"
#include "simproc.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#ifndef VX_BIN_DIR
#error "VX_BIN_DIR must name the directory of the built vxsim"
#endif

namespace {

const char kVxsim[] = VX_BIN_DIR "/vxsim";
const char kVxDir[] = "/tmp/vx";
const char kTxDir[] = "/tmp/vx/tx";
const char kServiceSock[] = "/tmp/vx/vxRxSock";
const char kPidFile[] = "/tmp/vx/voxalis.pid";
constexpr int kStartTimeoutMs = 5000;
constexpr int kStopTimeoutMs = 5000;

using Clock = std::chrono::steady_clock;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool isDir(const char* path) {
  struct stat st {};
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Forks and executes vxsim with stdout and stderr to the given files. Every
// string is prepared before fork, so the child only makes async-signal-safe
// calls. The child gets SIGTERM when the test process dies, so no simulator
// outlives a crashed test and blocks the next one.
pid_t spawn(const std::vector<std::string>& args, const std::string& outPath,
            const std::string& errPath) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(kVxsim));
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t parent = getpid();

  const pid_t pid = fork();
  if (pid != 0) return pid;

  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(127);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(127);
  close(out);
  close(err);
  execv(kVxsim, argv.data());
  _exit(127);
}

int decodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Waits at most `timeoutMs` for `pid`; on time-out kills it and reaps it.
int waitBounded(pid_t pid, int timeoutMs) {
  const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  int status = 0;
  for (;;) {
    const pid_t r = waitpid(pid, &status, WNOHANG);
    if (r == pid) return decodeStatus(status);
    if (r < 0 && errno != EINTR) return -1;
    if (Clock::now() >= end) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  kill(pid, SIGKILL);
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return decodeStatus(status);
}

std::string makeTempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/vxsimtest.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) return {};
  return buf.data();
}

size_t countLines(const std::string& s) { return static_cast<size_t>(std::count(s.begin(), s.end(), '\n')); }

template <class Pred>
bool pollUntil(Pred done, int timeoutMs) {
  const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    if (done()) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace

SimProc::SimProc(const std::vector<std::string>& args) {
  vxTestMachineLock();
  madeVxDir_ = !isDir(kVxDir);
  madeTxDir_ = !isDir(kTxDir);
  tempDir_ = makeTempDir();
  if (tempDir_.empty()) {
    error_ = std::string("mkdtemp: ") + std::strerror(errno);
    return;
  }
  recordPath_ = tempDir_ + "/record.bin";
  outPath_ = tempDir_ + "/stdout.txt";
  errPath_ = tempDir_ + "/stderr.txt";
  std::vector<std::string> all = args;
  all.push_back("--record");
  all.push_back(recordPath_);
  pid_ = spawn(all, outPath_, errPath_);
  if (pid_ < 0) {
    error_ = std::string("fork: ") + std::strerror(errno);
    return;
  }
  running_ = true;
  ready_ = waitReady();
}

SimProc::~SimProc() {
  stop();
  removeLeftovers();
  if (!tempDir_.empty()) {
    unlink(recordPath_.c_str());
    unlink(outPath_.c_str());
    unlink(errPath_.c_str());
    rmdir(tempDir_.c_str());
  }
  if (madeTxDir_) rmdir(kTxDir);
  if (madeVxDir_) rmdir(kVxDir);
}

// Ready means: the pid file names this child, and the socket exists. The pid
// file is written after the bind, and a stale socket or pid file of an earlier
// run can't be taken for this one.
bool SimProc::waitReady() {
  const std::string want = std::to_string(pid_) + "\n";
  const auto end = Clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
  for (;;) {
    struct stat st {};
    if (readFile(kPidFile) == want && stat(kServiceSock, &st) == 0 && S_ISSOCK(st.st_mode))
      return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      running_ = false;
      status_ = decodeStatus(status);
      error_ = "vxsim exited with status " + std::to_string(status_) + ": " + errors();
      return false;
    }
    if (Clock::now() >= end) {
      error_ = "vxsim not ready within 5 s: " + errors();
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

int SimProc::stop(int sig) {
  if (!running_) return status_;
  kill(pid_, sig);
  status_ = waitBounded(pid_, kStopTimeoutMs);
  running_ = false;
  if (status_ == 128 + SIGKILL) removeLeftovers();
  return status_;
}

// After a SIGKILL vxsim couldn't clean up: remove its socket and pid file,
// but only while the pid file still names it.
void SimProc::removeLeftovers() {
  if (pid_ <= 0 || running_) return;
  if (readFile(kPidFile) == std::to_string(pid_) + "\n") {
    unlink(kServiceSock);
    unlink(kPidFile);
  }
}

std::vector<std::vector<uint8_t>> SimProc::records() const {
  const std::string raw = readFile(recordPath_);
  std::vector<std::vector<uint8_t>> out;
  size_t pos = 0;
  while (raw.size() - pos >= 4) {
    const auto* p = reinterpret_cast<const uint8_t*>(raw.data() + pos);
    const size_t len = static_cast<size_t>(p[0]) | static_cast<size_t>(p[1]) << 8 |
                       static_cast<size_t>(p[2]) << 16 | static_cast<size_t>(p[3]) << 24;
    if (raw.size() - pos - 4 < len) break;  // a record still being written
    out.emplace_back(p + 4, p + 4 + len);
    pos += 4 + len;
  }
  return out;
}

std::string SimProc::output() const { return readFile(outPath_); }
std::string SimProc::errors() const { return readFile(errPath_); }

bool SimProc::waitForRecords(size_t n, int timeoutMs) const {
  return pollUntil([&] { return records().size() >= n; }, timeoutMs);
}

bool SimProc::waitForLines(size_t n, int timeoutMs) const {
  return pollUntil([&] { return countLines(output()) >= n; }, timeoutMs);
}

int SimProc::run(const std::vector<std::string>& args, std::string* out, std::string* err,
                 int timeoutMs) {
  const std::string dir = makeTempDir();
  if (dir.empty()) return -1;
  const std::string outPath = dir + "/stdout.txt";
  const std::string errPath = dir + "/stderr.txt";
  const pid_t pid = spawn(args, outPath, errPath);
  const int status = pid < 0 ? -1 : waitBounded(pid, timeoutMs);
  if (out) *out = readFile(outPath);
  if (err) *err = readFile(errPath);
  unlink(outPath.c_str());
  unlink(errPath.c_str());
  rmdir(dir.c_str());
  return status;
}

SimClient::SimClient() {
  char tmpl[] = "/tmp/vx/simclXXXXXX";
  const int tmp = mkstemp(tmpl);
  if (tmp < 0) return;
  close(tmp);
  unlink(tmpl);
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", tmpl);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    close(fd_);
    fd_ = -1;
    return;
  }
  path_ = tmpl;
}

SimClient::~SimClient() {
  if (fd_ >= 0) close(fd_);
  if (!path_.empty()) unlink(path_.c_str());
}

std::vector<uint8_t> SimClient::request(int32_t reqNo, int32_t channel, size_t len) const {
  std::vector<uint8_t> rec(len, 0);
  if (len >= 4) simPutI32(rec, 0, reqNo);
  if (len > 8) simPutText(rec, 8, path_.substr(0, std::min<size_t>(107, len - 8)));
  if (len >= 120) simPutI32(rec, 116, channel);
  return rec;
}

bool SimClient::send(const std::vector<uint8_t>& data) const {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", kServiceSock);
  const ssize_t n = sendto(fd_, data.data(), data.size(), 0,
                           reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
  return n == static_cast<ssize_t>(data.size());
}

bool SimClient::receive(std::vector<uint8_t>* data, int timeoutMs) const {
  pollfd p{fd_, POLLIN, 0};
  int r;
  while ((r = poll(&p, 1, timeoutMs)) < 0 && errno == EINTR) {
  }
  if (r <= 0) return false;
  std::vector<uint8_t> buf(65536);
  const ssize_t n = recv(fd_, buf.data(), buf.size(), MSG_DONTWAIT);
  if (n < 0) return false;
  buf.resize(static_cast<size_t>(n));
  *data = std::move(buf);
  return true;
}

void simPutI32(std::vector<uint8_t>& rec, size_t off, int32_t v) {
  if (off > rec.size() || rec.size() - off < 4) return;
  uint32_t u;
  std::memcpy(&u, &v, sizeof u);
  for (int i = 0; i < 4; ++i) rec[off + static_cast<size_t>(i)] = static_cast<uint8_t>(u >> (8 * i));
}

int32_t simGetI32(const std::vector<uint8_t>& rec, size_t off) {
  if (off > rec.size() || rec.size() - off < 4) return 0;
  uint32_t u = 0;
  for (int i = 0; i < 4; ++i) u |= static_cast<uint32_t>(rec[off + static_cast<size_t>(i)]) << (8 * i);
  int32_t v;
  std::memcpy(&v, &u, sizeof v);
  return v;
}

void simPutText(std::vector<uint8_t>& rec, size_t off, const std::string& text) {
  if (off >= rec.size()) return;
  const size_t n = std::min(text.size(), rec.size() - off);
  std::memcpy(rec.data() + off, text.data(), n);
}
