// vxsim: binds the service socket, logs and records every datagram, and
// answers the requests that the service answers, by its own list.
#include "service.h"

#include "decode.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace {

// What the service answers, and with which result. This list is the service's
// own: a client that waits for any other number waits in vain, and a client
// that doesn't wait for one of these leaves the answer queued on its socket.
enum Answer { kAnswerRxPort, kAnswerStarted, kAnswerNewChannel, kAnswerMaxChannels, kAnswerCamDetection };

struct AnswerRow {
    int32_t reqNo;
    Answer what;
};

const AnswerRow kAnswers[] = {
    {22, kAnswerRxPort},        // getAudioRxPort
    {28, kAnswerStarted},       // startAudioRx
    {29, kAnswerStarted},       // startAudioTx
    {305, kAnswerNewChannel},   // createChannel
    {307, kAnswerMaxChannels},  // getMaxConcChannelNo
    {308, kAnswerCamDetection}, // getCamDetection
};

constexpr int32_t kSetAudioRxPort = 20;
constexpr size_t kRxPortOffset = 172;

// The printable form of a peer's address: "@" and the 108 bytes at most of
// sun_path, and the NUL.
constexpr size_t kPeerPathSize = sizeof(sockaddr_un::sun_path) + 2;

// Bounds on what a flood of requests can make the simulator hold.
constexpr size_t kMaxRxPorts = 1024;        // channels whose rx port is remembered
constexpr size_t kMaxPendingAnswers = 1024; // delayed answers waiting to go out

// Receive buffer: far above the longest record (1664 bytes); longer datagrams
// are cut here and reported with their real length (MSG_TRUNC).
constexpr size_t kRxBufferSize = 65536;

// One printed line: time stamp, description, the truncation and answer notes.
constexpr size_t kLineSize = kSimDescribeMax + 256;

struct Peer {
    struct sockaddr_un addr;
    socklen_t len;
};

struct PendingAnswer {
    int64_t dueNs; // on the monotonic clock
    Peer to;
    uint8_t resp[kRespLength];
};

struct RxPort {
    int32_t channel;
    int32_t port;
};

// Everything the service keeps. One service per process.
struct Service {
    const SimOptions* opt;
    int sigFd;
    int sock;
    int recordFd;
    bool recordFailed;
    dev_t sockDev;
    ino_t sockIno;
    bool pidWritten;
    int32_t nextChannel;
    RxPort rxPorts[kMaxRxPorts];
    size_t rxPortCount;
    // A ring of delayed answers: one fixed delay keeps it in due order.
    PendingAnswer pending[kMaxPendingAnswers];
    size_t pendingHead;
    size_t pendingCount;
    uint8_t buf[kRxBufferSize];
    char line[kLineSize];
};

Service g_service;

const AnswerRow* findAnswer(int32_t reqNo)
{
    for (const AnswerRow& a : kAnswers)
        if (a.reqNo == reqNo)
            return &a;
    return nullptr;
}

void writeI32(uint8_t* p, int32_t v)
{
    uint32_t u;
    memcpy(&u, &v, sizeof u);
    p[0] = static_cast<uint8_t>(u);
    p[1] = static_cast<uint8_t>(u >> 8);
    p[2] = static_cast<uint8_t>(u >> 16);
    p[3] = static_cast<uint8_t>(u >> 24);
}

int64_t monotonicNs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

void addTimeStamp(SimText* out)
{
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm lt;
    memset(&lt, 0, sizeof lt);
    localtime_r(&ts.tv_sec, &lt);
    char stamp[32];
    snprintf(stamp, sizeof stamp, "[%02d:%02d:%02d.%03ld]", lt.tm_hour, lt.tm_min, lt.tm_sec,
             static_cast<long>(ts.tv_nsec / 1000000L));
    simTextAdd(out, stamp);
}

// The printable form of a peer's address into path (at least
// sizeof sun_path + 2 bytes): its path, "@name" for an abstract address,
// empty for an unbound sender.
void peerPath(const Peer& p, char* path, size_t size)
{
    constexpr socklen_t kPathStart = offsetof(struct sockaddr_un, sun_path);
    path[0] = '\0';
    if (p.len <= kPathStart)
        return;
    const size_t n = p.len - kPathStart;
    const char* s = p.addr.sun_path;
    if (s[0] == '\0')
        snprintf(path, size, "@%.*s", static_cast<int>(strnlen(s + 1, n - 1)), s + 1);
    else
        snprintf(path, size, "%.*s", static_cast<int>(strnlen(s, n)), s);
}

bool setUp(Service& s)
{
    // SIGINT and SIGTERM are taken through a signalfd: blocked here, read in the
    // loop, so nothing runs in signal context. A disposition of SIG_IGN
    // inherited from the parent would discard them before the fd sees them.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = SIG_DFL;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sa.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &sa, nullptr);
    s.sigFd = signalfd(-1, &set, SFD_CLOEXEC);
    if (s.sigFd < 0) {
        fprintf(stderr, "vxsim: signalfd: %s\n", strerror(errno));
        return false;
    }

    if (s.opt->recordFile != nullptr) {
        s.recordFd = open(s.opt->recordFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (s.recordFd < 0) {
            fprintf(stderr, "vxsim: cannot open record file %s: %s\n", s.opt->recordFile, strerror(errno));
            return false;
        }
    }

    static const char* const kDirs[] = {VXSIM_DIR, VXSIM_TX_DIR};
    for (const char* dir : kDirs) {
        if (mkdir(dir, 0777) != 0 && errno != EEXIST) {
            fprintf(stderr, "vxsim: cannot create %s: %s\n", dir, strerror(errno));
            return false;
        }
    }
    return true;
}

// Removes a stale socket file and binds the service socket. A socket file that
// still has a live service behind it (connect succeeds) is left alone unless
// --force is given, so a second simulator can't silently steal the first one's
// clients.
bool takeSocketPath(Service& s)
{
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", VXSIM_SERVICE_SOCK);

    struct stat st;
    if (lstat(VXSIM_SERVICE_SOCK, &st) == 0) {
        if (S_ISSOCK(st.st_mode) && !s.opt->force) {
            const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const bool live = probe >= 0 && connect(probe, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) == 0;
            if (probe >= 0)
                close(probe);
            if (live) {
                fprintf(stderr, "vxsim: a service is running on %s (use --force to take it over)\n",
                        VXSIM_SERVICE_SOCK);
                return false;
            }
        }
        if (unlink(VXSIM_SERVICE_SOCK) != 0 && errno != ENOENT) {
            fprintf(stderr, "vxsim: cannot remove %s: %s\n", VXSIM_SERVICE_SOCK, strerror(errno));
            return false;
        }
    }

    s.sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (s.sock < 0) {
        fprintf(stderr, "vxsim: socket: %s\n", strerror(errno));
        return false;
    }
    if (bind(s.sock, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) != 0) {
        fprintf(stderr, "vxsim: cannot bind %s: %s\n", VXSIM_SERVICE_SOCK, strerror(errno));
        return false;
    }
    if (stat(VXSIM_SERVICE_SOCK, &st) == 0) {
        s.sockDev = st.st_dev;
        s.sockIno = st.st_ino;
    }
    return true;
}

bool writePidFile(Service& s)
{
    const int fd = open(VXSIM_PID_FILE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        fprintf(stderr, "vxsim: cannot write %s: %s\n", VXSIM_PID_FILE, strerror(errno));
        return false;
    }
    char text[32];
    const int n = snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
    const bool ok = write(fd, text, static_cast<size_t>(n)) == n;
    close(fd);
    if (!ok) {
        fprintf(stderr, "vxsim: cannot write %s\n", VXSIM_PID_FILE);
        unlink(VXSIM_PID_FILE);
        return false;
    }
    s.pidWritten = true;
    return true;
}

// Whether the pid file still holds this process's pid.
bool pidFileIsMine()
{
    const int fd = open(VXSIM_PID_FILE, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    char text[32];
    const ssize_t n = read(fd, text, sizeof text - 1);
    close(fd);
    if (n <= 0)
        return false;
    text[n] = '\0';
    int pid = 0;
    return sscanf(text, "%d", &pid) == 1 && pid == static_cast<int>(getpid());
}

// Removes the socket and the pid file, but only while they are still this
// process's own: a service started later with --force keeps its files.
void cleanUp(Service& s)
{
    if (s.sock >= 0) {
        struct stat st;
        if (stat(VXSIM_SERVICE_SOCK, &st) == 0 && st.st_dev == s.sockDev && st.st_ino == s.sockIno)
            unlink(VXSIM_SERVICE_SOCK);
        close(s.sock);
        s.sock = -1;
    }
    if (s.pidWritten) {
        if (pidFileIsMine())
            unlink(VXSIM_PID_FILE);
        s.pidWritten = false;
    }
    if (s.recordFd >= 0) {
        close(s.recordFd);
        s.recordFd = -1;
    }
    if (s.sigFd >= 0) {
        close(s.sigFd);
        s.sigFd = -1;
    }
}

// Appends [uint32 little-endian length][bytes] to the record file.
void record(Service& s, const uint8_t* data, size_t len)
{
    if (s.recordFd < 0 || s.recordFailed)
        return;
    uint8_t head[4];
    writeI32(head, static_cast<int32_t>(len));
    struct iovec iov[2] = {{head, sizeof head}, {const_cast<uint8_t*>(data), len}};
    const ssize_t want = static_cast<ssize_t>(sizeof head + len);
    if (writev(s.recordFd, iov, 2) != want) {
        fprintf(stderr, "vxsim: writing the record file failed: %s\n", strerror(errno));
        s.recordFailed = true; // a torn record would misalign every later one
    }
}

// The remembered rx port of a channel, or null.
RxPort* findRxPort(Service& s, int32_t channel)
{
    for (size_t i = 0; i < s.rxPortCount; ++i)
        if (s.rxPorts[i].channel == channel)
            return &s.rxPorts[i];
    return nullptr;
}

int32_t resultFor(Service& s, Answer what, const uint8_t* data)
{
    switch (what) {
    case kAnswerRxPort: {
        const RxPort* known = findRxPort(s, simReadI32(data, kHeadChannel));
        return known == nullptr ? s.opt->defaultRxPort : known->port;
    }
    case kAnswerStarted:
        return 0;
    case kAnswerNewChannel: {
        const int32_t ch = s.nextChannel;
        if (s.nextChannel < INT32_MAX)
            ++s.nextChannel;
        return ch;
    }
    case kAnswerMaxChannels:
        return s.opt->maxChannels;
    case kAnswerCamDetection:
        return s.opt->camDetection;
    }
    return 0;
}

// Never blocks: a client whose queue is full loses the answer, as it would
// with the real service, and the simulator goes on reading.
void sendAnswer(Service& s, const PendingAnswer& a)
{
    const ssize_t n = sendto(s.sock, a.resp, sizeof a.resp, MSG_DONTWAIT,
                             reinterpret_cast<const struct sockaddr*>(&a.to.addr), a.to.len);
    if (n != static_cast<ssize_t>(sizeof a.resp)) {
        const int err = errno;
        char path[kPeerPathSize];
        peerPath(a.to, path, sizeof path);
        fprintf(stderr, "vxsim: answer to %s failed: %s\n", path, strerror(err));
    }
}

// Keeps what later answers depend on, and answers the request if the service
// would. Appends the note for the request's line.
void answer(Service& s, const uint8_t* data, size_t len, const Peer& from, SimText* note)
{
    if (len < 4)
        return;
    const int32_t reqNo = simReadI32(data, kHeadReqNo);
    const SimRequest* desc = simFindRequest(reqNo);
    const bool whole = desc != nullptr && len >= desc->length;

    if (reqNo == kSetAudioRxPort && whole) {
        const int32_t ch = simReadI32(data, kHeadChannel);
        RxPort* known = findRxPort(s, ch);
        if (known == nullptr && s.rxPortCount < kMaxRxPorts) {
            known = &s.rxPorts[s.rxPortCount++];
            known->channel = ch;
        }
        if (known != nullptr)
            known->port = simReadI32(data, kRxPortOffset);
    }

    const AnswerRow* row = findAnswer(reqNo);
    if (row == nullptr)
        return;
    // A record cut short isn't answered: the service can't read its channel.
    if (!whole) {
        simTextAdd(note, " => not answered (short)");
        return;
    }
    if (from.len <= offsetof(struct sockaddr_un, sun_path)) {
        simTextAdd(note, " => not answered (unbound sender)");
        return;
    }
    if (s.opt->silent) {
        simTextAdd(note, " => not answered (silent)");
        return;
    }

    PendingAnswer a;
    memset(&a, 0, sizeof a);
    a.to = from;
    const int32_t result = resultFor(s, row->what, data);
    const int32_t respNo = s.opt->wrongReqNo ? reqNo + kWrongReqNoOffset : reqNo;
    writeI32(a.resp, respNo);
    writeI32(a.resp + 4, result);
    simTextAdd(note, " => answer reqNo=");
    simTextAddInt(note, respNo);
    simTextAdd(note, " result=");
    simTextAddInt(note, result);
    if (s.opt->delayMs > 0) {
        if (s.pendingCount >= kMaxPendingAnswers) {
            simTextAdd(note, " dropped (too many delayed)");
            return;
        }
        a.dueNs = monotonicNs() + static_cast<int64_t>(s.opt->delayMs) * 1000000;
        s.pending[(s.pendingHead + s.pendingCount) % kMaxPendingAnswers] = a;
        ++s.pendingCount;
        simTextAdd(note, " in ");
        simTextAddInt(note, s.opt->delayMs);
        simTextAdd(note, "ms");
        return;
    }
    sendAnswer(s, a);
}

void sendDue(Service& s, int64_t nowNs)
{
    while (s.pendingCount > 0 && s.pending[s.pendingHead].dueNs <= nowNs) {
        sendAnswer(s, s.pending[s.pendingHead]);
        s.pendingHead = (s.pendingHead + 1) % kMaxPendingAnswers;
        --s.pendingCount;
    }
}

void receiveOne(Service& s)
{
    Peer from;
    memset(&from, 0, sizeof from);
    from.len = sizeof from.addr;
    // MSG_TRUNC makes recvfrom report the datagram's real length even when it
    // doesn't fit the buffer.
    const ssize_t r = recvfrom(s.sock, s.buf, sizeof s.buf, MSG_DONTWAIT | MSG_TRUNC,
                               reinterpret_cast<struct sockaddr*>(&from.addr), &from.len);
    if (r < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            fprintf(stderr, "vxsim: recvfrom: %s\n", strerror(errno));
        return;
    }
    const size_t realLen = static_cast<size_t>(r);
    const size_t len = realLen < sizeof s.buf ? realLen : sizeof s.buf;
    if (from.len > sizeof from.addr)
        from.len = sizeof from.addr;

    record(s, s.buf, len);

    char path[kPeerPathSize];
    peerPath(from, path, sizeof path);
    SimText line;
    simTextInit(&line, s.line, sizeof s.line);
    addTimeStamp(&line);
    simTextAddChar(&line, ' ');
    simDescribeRequest(&line, s.buf, len, path[0] == '\0' ? nullptr : path);
    if (realLen > len) {
        simTextAdd(&line, " truncated(real=");
        simTextAddInt(&line, static_cast<long long>(realLen));
        simTextAddChar(&line, ')');
    }
    answer(s, s.buf, len, from, &line);
    if (!s.opt->quiet) {
        simTextAddChar(&line, '\n');
        fputs(s.line, stdout);
        fflush(stdout);
    }
}

void loop(Service& s)
{
    for (;;) {
        int timeoutMs = -1;
        if (s.pendingCount > 0) {
            // Whole milliseconds left, rounded towards zero, and one more so
            // that the answer is due when poll returns.
            const int64_t leftMs = (s.pending[s.pendingHead].dueNs - monotonicNs()) / 1000000;
            timeoutMs = leftMs < 0 ? 0 : static_cast<int>(leftMs) + 1;
        }
        // With --no-read the socket is never polled: its queue fills and senders block.
        struct pollfd fds[2] = {{s.sigFd, POLLIN, 0}, {s.opt->noRead ? -1 : s.sock, POLLIN, 0}};
        const int n = poll(fds, 2, timeoutMs);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            fprintf(stderr, "vxsim: poll: %s\n", strerror(errno));
            return;
        }
        if (fds[0].revents & POLLIN) {
            struct signalfd_siginfo si;
            if (read(s.sigFd, &si, sizeof si) == static_cast<ssize_t>(sizeof si))
                return;
        }
        sendDue(s, monotonicNs());
        if (fds[1].revents & POLLIN)
            receiveOne(s);
    }
}

} // namespace

int simRunService(const SimOptions* opt)
{
    Service& s = g_service;
    s.opt = opt;
    s.sigFd = -1;
    s.sock = -1;
    s.recordFd = -1;
    s.recordFailed = false;
    s.pidWritten = false;
    s.nextChannel = opt->firstChannel;
    s.rxPortCount = 0;
    s.pendingHead = 0;
    s.pendingCount = 0;
    const bool ready = setUp(s) && takeSocketPath(s) && writePidFile(s);
    if (ready)
        loop(s);
    cleanUp(s);
    return ready ? 0 : 1;
}
