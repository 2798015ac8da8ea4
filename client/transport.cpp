// The request transport: the kind table, the side files, the argument checks,
// the log idiom and Send2VoxalisByApp, the only code that touches the
// service's socket.
#include "request.h"
#include "sidefiles.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

static_assert(offsetof(tMediaReq, reqNo) == 0, "reqNo at 0");
static_assert(offsetof(tMediaReq, reserved) == 4, "reserved word at 4");
static_assert(offsetof(tMediaReq, sockPath) == 8, "sockPath at 8");
static_assert(offsetof(tMediaReq, channel) == 116, "channel at 116");
static_assert(offsetof(tResp2App, result) == 4, "result at 4");
static_assert(sizeof(struct sockaddr_un) == 110, "the service address is 110 bytes long");

namespace {

// {reqNo, kind}: kinds 2, 3 and 5 wait for one response. A number without a
// row waits for nothing and is logged at every send.
const int32_t kKindTable[59][2] = {
    {0, 0},   {1, 0},   {2, 0},   {3, 0},   {4, 0},   {5, 0},   {6, 0},   {7, 0},   {8, 0},   {9, 0},
    {10, 0},  {11, 0},  {12, 0},  {13, 0},  {14, 0},  {15, 0},  {16, 0},  {17, 0},  {19, 0},  {20, 0},
    {21, 0},  {22, 2},  {23, 0},  {24, 0},  {25, 0},  {26, 0},  {27, 0},  {28, 2},  {29, 2},  {30, 0},
    {31, 0},  {32, 1},  {33, 0},  {34, 0},  {35, 0},  {36, 0},  {37, 0},  {38, 0},  {39, 0},  {40, 0},
    {41, 0},  {42, 0},  {43, 0},  {44, 0},  {201, 0}, {202, 1}, {203, 0}, {204, 0}, {205, 0}, {206, 0},
    {301, 0}, {303, 0}, {304, 0}, {305, 2}, {306, 1}, {307, 2}, {308, 2}, {309, 0}, {310, 0},
};

// Kind values whose bit is set here await a response: 2, 3 and 5.
constexpr unsigned kWaitingKinds = 0x2C;

bool kindWaits(int kind) { return kind >= 0 && kind <= 5 && ((kWaitingKinds >> kind) & 1u) != 0; }

// Requests are serialised per socket, a waiting request until its answer is
// in, so that two threads sharing a socket never take each other's answers,
// and a socket is never closed under a request. The sockets are spread over
// a fixed set of locks; two sockets that share a lock only wait for each
// other.
#define VX_LOCKS_4 \
    PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER
#define VX_LOCKS_16 VX_LOCKS_4, VX_LOCKS_4, VX_LOCKS_4, VX_LOCKS_4
pthread_mutex_t g_socketLocks[64] = {VX_LOCKS_16, VX_LOCKS_16, VX_LOCKS_16, VX_LOCKS_16};
#undef VX_LOCKS_16
#undef VX_LOCKS_4
constexpr unsigned kSocketLocks = sizeof g_socketLocks / sizeof g_socketLocks[0];

// Opens path without ever waiting on it (O_NONBLOCK: a FIFO or a device
// planted under /tmp/vx/ would hold the socket's lock for as long as nobody
// opens its other end) and keeps the descriptor only for a regular file.
// -1 when it cannot be opened or is no regular file.
int openRegular(const char* path, int flags, mode_t mode)
{
    const int fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
    if (fd < 0)
        return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    return fd;
}

// Prints the ">>" (start) or "<<" (end) time line: the date of asctime (which
// ends in a line break) and the microseconds on a line of their own.
void printTimeLine(const char* mark, int reqNo)
{
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    const time_t now = time(nullptr);
    struct tm tmv;
    localtime_r(&now, &tmv);
    char date[64];
    if (asctime_r(&tmv, date) == nullptr)
        date[0] = '\0';
    char line[128];
    snprintf(line, sizeof line, "%s%d %s:%ld", mark, reqNo, date, static_cast<long>(tv.tv_usec));
    puts(line);
}

// The path of the socket's own address, NUL-terminated, or false when
// getsockname fails.
bool ownPath(int sock, char (&path)[sizeof(sockaddr_un::sun_path) + 1])
{
    struct sockaddr_un self;
    memset(&self, 0, sizeof self);
    socklen_t len = sizeof self;
    if (getsockname(sock, reinterpret_cast<struct sockaddr*>(&self), &len) != 0)
        return false;
    size_t n = 0;
    if (len > offsetof(struct sockaddr_un, sun_path))
        n = len - offsetof(struct sockaddr_un, sun_path);
    if (n > sizeof self.sun_path)
        n = sizeof self.sun_path;
    memcpy(path, self.sun_path, n);
    path[n] = '\0';
    return true;
}

// Appends the record as sent to /tmp/vx/tx/<name of the socket>. Silent on
// every failure.
void saveRecord(int sock, const void* record, int len)
{
    char path[sizeof(sockaddr_un::sun_path) + 1];
    if (!ownPath(sock, path))
        return;
    // The first eight characters are taken to be "/tmp/vx/".
    const char* name = strlen(path) >= 8 ? path + 8 : "";
    char target[sizeof VX_SAVE_DIR + sizeof path];
    snprintf(target, sizeof target, "%s%s", VX_SAVE_DIR, name);
    const int fd = openRegular(target, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0)
        return;
    const char* p = static_cast<const char*>(record);
    int left = len;
    while (left > 0) {
        const ssize_t n = write(fd, p, static_cast<size_t>(left));
        if (n <= 0)
            break;
        p += n;
        left -= static_cast<int>(n);
    }
    close(fd);
}

} // namespace

pthread_mutex_t* vxSocketLock(int sock) { return &g_socketLocks[static_cast<unsigned>(sock) % kSocketLocks]; }

int vxKindOf(int reqNo)
{
    for (const auto& row : kKindTable)
        if (row[0] == reqNo)
            return row[1];
    return -1;
}

int vxKindTableRows() { return static_cast<int>(sizeof kKindTable / sizeof kKindTable[0]); }

void vxKindTableRow(int i, int* reqNo, int* kind)
{
    *reqNo = kKindTable[i][0];
    *kind = kKindTable[i][1];
}

void mlibLog(const char* format, ...)
{
    char text[256];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    openlog("MLIB", LOG_CONS | LOG_NDELAY, LOG_USER);
    syslog(LOG_INFO, "%s", text);
    closelog();
}

int isAmIvoxalis()
{
    // Only "cannot open" prints the error line; a pid file that is no regular
    // file, or holds no number, answers 0 silently, as an unreadable one did.
    const int fd = open(VX_PID_FILE, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        printf("Error %s:%d\n", "isAmIvoxalis", __LINE__);
        return 0;
    }
    // One decimal number, after white space: a few bytes are enough, and no
    // stdio stream (a heap buffer per request) is needed for them.
    char text[32];
    ssize_t n = -1;
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode))
        n = read(fd, text, sizeof text - 1);
    close(fd);
    if (n <= 0)
        return 0;
    text[n] = '\0';
    int pid = 0;
    return sscanf(text, "%d", &pid) == 1 && pid == static_cast<int>(getpid());
}

int needResponse(int reqNo)
{
    const int kind = vxKindOf(reqNo);
    if (kind >= 0)
        return kindWaits(kind);
    // No row: report it on a connection of our own, unless this process is the
    // service, whose connection is left alone.
    if (!isAmIvoxalis())
        openlog("MLIB", LOG_CONS | LOG_NDELAY, LOG_USER);
    char text[256];
    snprintf(text, sizeof text, "error in %s:%d(%d)\n", "needResponse", __LINE__, reqNo);
    syslog(LOG_CRIT, "%s", text);
    if (!isAmIvoxalis())
        closelog();
    return 0;
}

int checkIp(const char* ip)
{
    if (ip == nullptr) {
        mlibLog("ip(%s:%d)\n", __func__, __LINE__);
        return 0;
    }
    unsigned char addr[sizeof(struct in6_addr)];
    if (inet_pton(AF_INET, ip, addr) == 1)
        return 1;
    return inet_pton(AF_INET6, ip, addr) == 1 ? 1 : 0;
}

int checkPort(int port)
{
    if (port > 100)
        return 1;
    mlibLog("port>100(%s:%d)\n", __func__, __LINE__);
    return 0;
}

namespace {

// Steps from the first use of the socket to the end of the wait, under the
// socket's lock. side: the side files as seen when the request started.
int sendLocked(int sock, void* mediaReq, int len, tResp2App* resp, unsigned side)
{
    // The log lines name the public call.
    static const char kFn[] = "Send2VoxalisByApp";

    struct sockaddr_un service;
    memset(&service, 0, sizeof service);
    service.sun_family = AF_UNIX;
    snprintf(service.sun_path, sizeof service.sun_path, "%s", VX_SERVICE_SOCK);

    char path[sizeof(sockaddr_un::sun_path) + 1];
    if (!ownPath(sock, path)) {
        printf("=====================>>>>  %s:%d  sock : %d  %s \n", kFn, __LINE__, sock, strerror(errno));
        return 0;
    }
    auto* head = static_cast<tMediaReq*>(mediaReq);
    // NUL-terminated and cut at 107 characters; the bytes behind the NUL
    // stay as they were.
    const size_t pathLen = strnlen(path, sizeof head->sockPath - 1);
    memcpy(head->sockPath, path, pathLen);
    head->sockPath[pathLen] = '\0';
    int32_t reqNo;
    memcpy(&reqNo, &head->reqNo, sizeof reqNo);

    if (side & VX_SIDE_PRINT_TIME)
        printTimeLine(">>", reqNo);

    const ssize_t sent = sendto(sock, mediaReq, static_cast<size_t>(len), 0,
                                reinterpret_cast<const struct sockaddr*>(&service), sizeof service);
    if (sent != len) {
        mlibLog("(%s:%d)reqNo:%d %s\n(%s:%d)\n", kFn, __LINE__, reqNo, strerror(errno), kFn, __LINE__);
        return 0;
    }

    side = vxSideFiles();
    if (side & VX_SIDE_SAVE_MSG)
        saveRecord(sock, mediaReq, len);

    if (needResponse(reqNo)) {
        tResp2App rsp;
        memset(&rsp, 0, sizeof rsp);
        const ssize_t got = recv(sock, &rsp, sizeof rsp, 0);
        if (got <= 0) {
            mlibLog("(%s:%d)reqNo:%d %s\n(%s:%d)\n", kFn, __LINE__, reqNo, strerror(errno), kFn, __LINE__);
            if (resp == nullptr) {
                mlibLog("resp!=NULL(%s:%d)\n", kFn, __LINE__);
                return 0;
            }
            resp->result = -1;
            if (vxSideFiles() & VX_SIDE_PRINT_TIME)
                printTimeLine("<<", reqNo);
            return 0;
        }
        if (resp == nullptr) {
            mlibLog("resp!=NULL(%s:%d)\n", kFn, __LINE__);
            return 0;
        }
        memcpy(resp, &rsp, sizeof rsp);
        if (reqNo != rsp.reqNo)
            mlibLog("mediaReq->reqNo==rsp.reqNo(%s:%d)\n", kFn, __LINE__);
        side = vxSideFiles();
    }

    if (side & VX_SIDE_PRINT_TIME)
        printTimeLine("<<", reqNo);
    return 1;
}

} // namespace

int Send2VoxalisByApp(int sock, void* mediaReq, int len, tResp2App* resp)
{
    if (sock < 0) {
        mlibLog("%s:%d improper socket:%d\n(%s:%d)\n", __func__, __LINE__, sock, __func__, __LINE__);
        return 0;
    }

    // The side files are looked at when the request starts, again once it
    // has been sent, and again after a wait for a response.
    const unsigned side = vxSideFiles();
    if (side & VX_SIDE_IGNORE)
        return 1;

    // Held from the first use of the socket to the end of the wait. A
    // request that awaits no answer holds it only for its send, but a send
    // behind a waiting request of another thread waits until that answer is
    // in (at most the socket's receive time-out).
    pthread_mutex_t* lock = vxSocketLock(sock);
    pthread_mutex_lock(lock);
    const int sent = sendLocked(sock, mediaReq, len, resp, side);
    pthread_mutex_unlock(lock);
    return sent;
}
