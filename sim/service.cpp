// vxsim: binds the service socket, logs and records every datagram, and
// answers the requests that the service answers, by its own list.
#include "service.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "decode.h"

namespace vxsim {
namespace {

using Clock = std::chrono::steady_clock;

// What the service answers, and with which result. This list is the service's
// own: a client that waits for any other number waits in vain, and a client
// that doesn't wait for one of these leaves the answer queued on its socket.
enum class Answer { RxPort, Started, NewChannel, MaxChannels, CamDetection };

struct AnswerRow {
  int32_t reqNo;
  Answer what;
};

const AnswerRow kAnswers[] = {
    {22, Answer::RxPort},        // getAudioRxPort
    {28, Answer::Started},       // startAudioRx
    {29, Answer::Started},       // startAudioTx
    {305, Answer::NewChannel},   // createChannel
    {307, Answer::MaxChannels},  // getMaxConcChannelNo
    {308, Answer::CamDetection}, // getCamDetection
};

constexpr int32_t kSetAudioRxPort = 20;
constexpr size_t kRxPortOffset = 172;

// Bounds on what a flood of requests can make the simulator hold.
constexpr size_t kMaxRxPorts = 1024;      // channels whose rx port is remembered
constexpr size_t kMaxPendingAnswers = 1024;  // delayed answers waiting to go out

// Receive buffer: far above the longest record (1664 bytes); longer datagrams
// are cut here and reported with their real length (MSG_TRUNC).
constexpr size_t kRxBufferSize = 65536;

struct Peer {
  sockaddr_un addr{};
  socklen_t len = 0;
};

struct PendingAnswer {
  Clock::time_point due;
  Peer to;
  uint8_t resp[kRespLength];
};

const AnswerRow* findAnswer(int32_t reqNo) {
  for (const AnswerRow& a : kAnswers)
    if (a.reqNo == reqNo) return &a;
  return nullptr;
}

void writeI32(uint8_t* p, int32_t v) {
  uint32_t u;
  std::memcpy(&u, &v, sizeof u);
  p[0] = static_cast<uint8_t>(u);
  p[1] = static_cast<uint8_t>(u >> 8);
  p[2] = static_cast<uint8_t>(u >> 16);
  p[3] = static_cast<uint8_t>(u >> 24);
}

std::string timeStamp() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  tm lt{};
  localtime_r(&ts.tv_sec, &lt);
  char buf[32];
  std::snprintf(buf, sizeof buf, "[%02d:%02d:%02d.%03ld]", lt.tm_hour, lt.tm_min, lt.tm_sec,
                ts.tv_nsec / 1000000L);
  return buf;
}

// The printable form of a peer's address: its path, "@name" for an abstract
// address, empty for an unbound sender.
std::string peerPath(const Peer& p) {
  constexpr socklen_t kPathStart = offsetof(sockaddr_un, sun_path);
  if (p.len <= kPathStart) return {};
  const size_t n = p.len - kPathStart;
  const char* s = p.addr.sun_path;
  if (s[0] == '\0') return "@" + std::string(s + 1, n - 1);
  return std::string(s, strnlen(s, n));
}

class Service {
 public:
  explicit Service(const Options& opt) : opt_(opt), nextChannel_(opt.firstChannel) {}
  ~Service();

  int run();

 private:
  bool setUp();
  bool takeSocketPath();
  bool writePidFile();
  void loop();
  void receiveOne();
  void record(const uint8_t* data, size_t len);
  std::string answer(const uint8_t* data, size_t len, const Peer& from);
  int32_t resultFor(Answer what, const uint8_t* data);
  void sendDue(Clock::time_point now);
  void sendAnswer(const PendingAnswer& a);
  void cleanUp();

  const Options& opt_;
  int sigFd_ = -1;
  int sock_ = -1;
  int recordFd_ = -1;
  bool recordFailed_ = false;
  dev_t sockDev_ = 0;
  ino_t sockIno_ = 0;
  bool pidWritten_ = false;
  int32_t nextChannel_;
  std::map<int32_t, int32_t> rxPorts_;
  std::deque<PendingAnswer> pending_;
  std::vector<uint8_t> buf_ = std::vector<uint8_t>(kRxBufferSize);
};

Service::~Service() { cleanUp(); }

int Service::run() {
  if (!setUp()) return 1;
  loop();
  return 0;
}

bool Service::setUp() {
  // SIGINT and SIGTERM are taken through a signalfd: blocked here, read in the
  // loop, so nothing runs in signal context. A disposition of SIG_IGN
  // inherited from the parent would discard them before the fd sees them.
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  struct sigaction sa {};
  sa.sa_handler = SIG_DFL;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  sa.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &sa, nullptr);
  sigFd_ = signalfd(-1, &set, SFD_CLOEXEC);
  if (sigFd_ < 0) {
    std::fprintf(stderr, "vxsim: signalfd: %s\n", std::strerror(errno));
    return false;
  }

  if (!opt_.recordFile.empty()) {
    recordFd_ = open(opt_.recordFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (recordFd_ < 0) {
      std::fprintf(stderr, "vxsim: cannot open record file %s: %s\n", opt_.recordFile.c_str(),
                   std::strerror(errno));
      return false;
    }
  }

  for (const char* dir : {kVxDir, kTxDir}) {
    if (mkdir(dir, 0777) != 0 && errno != EEXIST) {
      std::fprintf(stderr, "vxsim: cannot create %s: %s\n", dir, std::strerror(errno));
      return false;
    }
  }
  return takeSocketPath() && writePidFile();
}

// Removes a stale socket file and binds the service socket. A socket file that
// still has a live service behind it (connect succeeds) is left alone unless
// --force is given, so a second simulator can't silently steal the first one's
// clients.
bool Service::takeSocketPath() {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", kServiceSock);

  struct stat st {};
  if (lstat(kServiceSock, &st) == 0) {
    if (S_ISSOCK(st.st_mode) && !opt_.force) {
      const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      const bool live =
          probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
      if (probe >= 0) close(probe);
      if (live) {
        std::fprintf(stderr, "vxsim: a service is running on %s (use --force to take it over)\n",
                     kServiceSock);
        return false;
      }
    }
    if (unlink(kServiceSock) != 0 && errno != ENOENT) {
      std::fprintf(stderr, "vxsim: cannot remove %s: %s\n", kServiceSock, std::strerror(errno));
      return false;
    }
  }

  sock_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock_ < 0) {
    std::fprintf(stderr, "vxsim: socket: %s\n", std::strerror(errno));
    return false;
  }
  if (bind(sock_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    std::fprintf(stderr, "vxsim: cannot bind %s: %s\n", kServiceSock, std::strerror(errno));
    return false;
  }
  if (stat(kServiceSock, &st) == 0) {
    sockDev_ = st.st_dev;
    sockIno_ = st.st_ino;
  }
  return true;
}

bool Service::writePidFile() {
  const int fd = open(kPidFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    std::fprintf(stderr, "vxsim: cannot write %s: %s\n", kPidFile, std::strerror(errno));
    return false;
  }
  char text[32];
  const int n = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  const bool ok = write(fd, text, static_cast<size_t>(n)) == n;
  close(fd);
  if (!ok) {
    std::fprintf(stderr, "vxsim: cannot write %s\n", kPidFile);
    unlink(kPidFile);
    return false;
  }
  pidWritten_ = true;
  return true;
}

// Removes the socket and the pid file, but only while they are still this
// process's own: a service started later with --force keeps its files.
void Service::cleanUp() {
  if (sock_ >= 0) {
    struct stat st {};
    if (stat(kServiceSock, &st) == 0 && st.st_dev == sockDev_ && st.st_ino == sockIno_)
      unlink(kServiceSock);
    close(sock_);
    sock_ = -1;
  }
  if (pidWritten_) {
    if (FILE* f = std::fopen(kPidFile, "r")) {
      int pid = 0;
      const bool mine = std::fscanf(f, "%d", &pid) == 1 && pid == static_cast<int>(getpid());
      std::fclose(f);
      if (mine) unlink(kPidFile);
    }
    pidWritten_ = false;
  }
  if (recordFd_ >= 0) {
    close(recordFd_);
    recordFd_ = -1;
  }
  if (sigFd_ >= 0) {
    close(sigFd_);
    sigFd_ = -1;
  }
}

void Service::loop() {
  for (;;) {
    int timeoutMs = -1;
    if (!pending_.empty()) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          pending_.front().due - Clock::now());
      timeoutMs = left.count() < 0 ? 0 : static_cast<int>(left.count()) + 1;
    }
    // With --no-read the socket is never polled: its queue fills and senders block.
    pollfd fds[2] = {{sigFd_, POLLIN, 0}, {opt_.noRead ? -1 : sock_, POLLIN, 0}};
    const int n = poll(fds, 2, timeoutMs);
    if (n < 0) {
      if (errno == EINTR) continue;
      std::fprintf(stderr, "vxsim: poll: %s\n", std::strerror(errno));
      return;
    }
    if (fds[0].revents & POLLIN) {
      signalfd_siginfo si{};
      if (read(sigFd_, &si, sizeof si) == static_cast<ssize_t>(sizeof si)) return;
    }
    sendDue(Clock::now());
    if (fds[1].revents & POLLIN) receiveOne();
  }
}

void Service::receiveOne() {
  Peer from;
  from.len = sizeof from.addr;
  // MSG_TRUNC makes recvfrom report the datagram's real length even when it
  // doesn't fit the buffer.
  const ssize_t r = recvfrom(sock_, buf_.data(), buf_.size(), MSG_DONTWAIT | MSG_TRUNC,
                             reinterpret_cast<sockaddr*>(&from.addr), &from.len);
  if (r < 0) {
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
      std::fprintf(stderr, "vxsim: recvfrom: %s\n", std::strerror(errno));
    return;
  }
  const size_t realLen = static_cast<size_t>(r);
  const size_t len = realLen < buf_.size() ? realLen : buf_.size();
  if (from.len > sizeof from.addr) from.len = sizeof from.addr;

  record(buf_.data(), len);

  const std::string path = peerPath(from);
  std::string line = timeStamp() + ' ';
  line += describeRequest(buf_.data(), len, path.empty() ? nullptr : path.c_str());
  if (realLen > len) line += " truncated(real=" + std::to_string(realLen) + ")";
  line += answer(buf_.data(), len, from);
  if (!opt_.quiet) {
    line += '\n';
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
  }
}

// Appends [uint32 little-endian length][bytes] to the record file.
void Service::record(const uint8_t* data, size_t len) {
  if (recordFd_ < 0 || recordFailed_) return;
  uint8_t head[4];
  writeI32(head, static_cast<int32_t>(len));
  iovec iov[2] = {{head, sizeof head}, {const_cast<uint8_t*>(data), len}};
  const ssize_t want = static_cast<ssize_t>(sizeof head + len);
  if (writev(recordFd_, iov, 2) != want) {
    std::fprintf(stderr, "vxsim: writing the record file failed: %s\n", std::strerror(errno));
    recordFailed_ = true;  // a torn record would misalign every later one
  }
}

int32_t Service::resultFor(Answer what, const uint8_t* data) {
  switch (what) {
    case Answer::RxPort: {
      const auto it = rxPorts_.find(readI32(data, kHeadChannel));
      return it == rxPorts_.end() ? opt_.defaultRxPort : it->second;
    }
    case Answer::Started:
      return 0;
    case Answer::NewChannel: {
      const int32_t ch = nextChannel_;
      if (nextChannel_ < INT32_MAX) ++nextChannel_;
      return ch;
    }
    case Answer::MaxChannels:
      return opt_.maxChannels;
    case Answer::CamDetection:
      return opt_.camDetection;
  }
  return 0;
}

// Keeps what later answers depend on, and answers the request if the service
// would. Returns the note for the request's line.
std::string Service::answer(const uint8_t* data, size_t len, const Peer& from) {
  if (len < 4) return {};
  const int32_t reqNo = readI32(data, kHeadReqNo);
  const RequestDesc* desc = findRequest(reqNo);
  const bool whole = desc != nullptr && len >= desc->length;

  if (reqNo == kSetAudioRxPort && whole) {
    const int32_t ch = readI32(data, kHeadChannel);
    if (rxPorts_.size() < kMaxRxPorts || rxPorts_.count(ch) != 0)
      rxPorts_[ch] = readI32(data, kRxPortOffset);
  }

  const AnswerRow* row = findAnswer(reqNo);
  if (row == nullptr) return {};
  // A record cut short isn't answered: the service can't read its channel.
  if (!whole) return " => not answered (short)";
  if (from.len <= offsetof(sockaddr_un, sun_path)) return " => not answered (unbound sender)";
  if (opt_.silent) return " => not answered (silent)";

  PendingAnswer a{};
  a.to = from;
  const int32_t result = resultFor(row->what, data);
  const int32_t respNo = opt_.wrongReqNo ? reqNo + kWrongReqNoOffset : reqNo;
  writeI32(a.resp, respNo);
  writeI32(a.resp + 4, result);
  std::string note = " => answer reqNo=" + std::to_string(respNo) + " result=" + std::to_string(result);
  if (opt_.delayMs > 0) {
    if (pending_.size() >= kMaxPendingAnswers) return note + " dropped (too many delayed)";
    a.due = Clock::now() + std::chrono::milliseconds(opt_.delayMs);
    pending_.push_back(a);  // one fixed delay keeps the queue in due order
    return note + " in " + std::to_string(opt_.delayMs) + "ms";
  }
  sendAnswer(a);
  return note;
}

void Service::sendDue(Clock::time_point now) {
  while (!pending_.empty() && pending_.front().due <= now) {
    sendAnswer(pending_.front());
    pending_.pop_front();
  }
}

// Never blocks: a client whose queue is full loses the answer, as it would
// with the real service, and the simulator goes on reading.
void Service::sendAnswer(const PendingAnswer& a) {
  const ssize_t n = sendto(sock_, a.resp, sizeof a.resp, MSG_DONTWAIT,
                           reinterpret_cast<const sockaddr*>(&a.to.addr), a.to.len);
  if (n != static_cast<ssize_t>(sizeof a.resp))
    std::fprintf(stderr, "vxsim: answer to %s failed: %s\n", peerPath(a.to).c_str(),
                 std::strerror(errno));
}

}  // namespace

int runService(const Options& opt) {
  Service s(opt);
  return s.run();
}

}  // namespace vxsim
