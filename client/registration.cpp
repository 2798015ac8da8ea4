// Registration and channels: reqNo 301, 303, 304, 305, 306, 307.
#include "request.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

struct tRegistReq {
    tMediaReq hdr;
    char appName[10];
    char reserved1[2];
    char eventRxIp[50];
    char reserved2[2];
    int32_t eventRxPort;
    int32_t priority;
    int32_t pid;
};
static_assert(sizeof(tRegistReq) == 196, "registration record is 196 bytes");
static_assert(offsetof(tRegistReq, appName) == 120, "appName at 120");
static_assert(offsetof(tRegistReq, eventRxIp) == 132, "eventRxIp at 132");
static_assert(offsetof(tRegistReq, eventRxPort) == 184, "eventRxPort at 184");
static_assert(offsetof(tRegistReq, priority) == 188, "priority at 188");
static_assert(offsetof(tRegistReq, pid) == 192, "pid at 192");

struct tUnregistReq {
    tMediaReq hdr;
    char appName[10];
    char reserved[2];
};
static_assert(sizeof(tUnregistReq) == 132, "unregistration record is 132 bytes");
static_assert(offsetof(tUnregistReq, appName) == 120, "appName at 120");

constexpr int kTimeoutSeconds = 3;

enum class PathKind { Template, FixedDebug };

// Steps 5 to 10 of a registration: a unique (or the fixed debug) path, a
// datagram socket with 3-second receive and send time-outs, the stale file
// removed, and the bind. `path` is the 108-byte path buffer, laid out by the
// caller. `fn` names the public operation in the log lines. Returns the
// socket or -7.
int makeBoundSocket(char (&path)[108], PathKind kind, const char* fn, bool logSocket, bool logBindFailure)
{
    if (kind == PathKind::Template) {
        const int tmp = mkostemp(path, O_CLOEXEC);
        if (tmp < 0)
            return VX_ERR_RESOURCE;
        close(tmp);
    }

    // Close-on-exec: no command the application starts inherits the socket.
    const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        mlibLog("%s:%d %s\n(%s:%d)\n", fn, __LINE__, strerror(errno), fn, __LINE__);
        return VX_ERR_RESOURCE;
    }
    if (logSocket)
        mlibLog("%s:%d =============>> sock : %d\n(%s:%d)\n", fn, __LINE__, sock, fn, __LINE__);

    struct timeval tv;
    tv.tv_sec = kTimeoutSeconds;
    tv.tv_usec = 0;
    if (setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) {
        perror("setsockopt SO_RCVTIMEO");
        mlibLog("%s:%d %s\n(%s:%d)\n", fn, __LINE__, strerror(errno), fn, __LINE__);
    }
    // The send is bounded as well: a service that stops reading fills its
    // queue, and a plain blocking sendto would then wait for ever. The
    // transport reports the timed-out send as a failed sendto.
    if (setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0) {
        perror("setsockopt SO_SNDTIMEO");
        mlibLog("%s:%d %s\n(%s:%d)\n", fn, __LINE__, strerror(errno), fn, __LINE__);
    }

    struct sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path);

    char resolved[PATH_MAX];
    if (realpath(addr.sun_path, resolved) != nullptr)
        unlink(resolved);

    if (bind(sock, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) != 0) {
        if (logBindFailure)
            mlibLog("%s:%d %s\n(%s:%d)\n", fn, __LINE__, strerror(errno), fn, __LINE__);
        close(sock);
        return VX_ERR_RESOURCE;
    }
    return sock;
}

// The checks and steps shared by the three registration variants.
int registerCommon(const char* fn, const char* appName, int priority, int eventRxPort, const char* eventRxIp,
                   PathKind kind, bool logSocket)
{
    char path[108] = {};
    snprintf(path, sizeof path, "%s", kind == PathKind::Template ? VX_APP_TEMPLATE : VX_DBG_SOCK);

    if (!(priority >= 0)) {
        mlibLog("priority>=0(%s:%d)\n", fn, __LINE__);
        return VX_ERR_ARGUMENT;
    }
    if (!checkIp(eventRxIp)) {
        mlibLog("checkIp(eventRxIp)(%s:%d)\n", fn, __LINE__);
        return VX_ERR_ARGUMENT;
    }
    if (!(eventRxPort == -1 || checkPort(eventRxPort))) {
        mlibLog("(eventRxPort==-1||checkPort(eventRxPort))(%s:%d)\n", fn, __LINE__);
        return VX_ERR_ARGUMENT;
    }

    const int sock = makeBoundSocket(path, kind, fn, logSocket, kind == PathKind::FixedDebug);
    if (sock < 0)
        return sock;

    tRegistReq req{};
    req.hdr.reqNo = 303;
    vxCopyText(req.hdr.sockPath, sizeof req.hdr.sockPath, path);
    req.hdr.channel = 0;
    vxCopyText(req.appName, sizeof req.appName, appName);
    vxCopyText(req.eventRxIp, sizeof req.eventRxIp, eventRxIp);
    req.eventRxPort = eventRxPort;
    req.priority = priority;
    req.pid = static_cast<int32_t>(getpid());
    // A registration that cannot be delivered still returns the socket: the
    // failure shows at the first request that counts on an answer.
    Send2VoxalisByApp(sock, &req, sizeof req, nullptr);
    return sock;
}

// Shuts down and closes the socket; 0 when close fails, else `sent`.
int closeAfterUnregist(const char* fn, int sock, int sent)
{
    shutdown(sock, SHUT_RDWR);
    if (close(sock) != 0) {
        mlibLog("\n\n\n\n================ERROR(%s:%d)=====================\n\n\n(%s:%d)\n", fn, __LINE__, fn, __LINE__);
        return 0;
    }
    return sent;
}

int unregistByName(const char* fn, const char* appName)
{
    if (!(appName)) {
        mlibLog("appName(%s:%d)\n", fn, __LINE__);
        return VX_ERR_ARGUMENT;
    }
    if (!(appName[0])) {
        mlibLog("appName[0](%s:%d)\n", fn, __LINE__);
        return VX_ERR_ARGUMENT;
    }
    tUnregistReq req{};
    req.hdr.reqNo = 304;
    req.hdr.channel = 0;
    snprintf(req.appName, sizeof req.appName, "%s", appName);

    char path[108] = {};
    snprintf(path, sizeof path, "%s", VX_APP_TEMPLATE);
    const int sock = makeBoundSocket(path, PathKind::Template, fn, false, false);
    if (sock < 0)
        return sock;
    const int sent = Send2VoxalisByApp(sock, &req, sizeof req, nullptr);
    return closeAfterUnregist(fn, sock, sent);
}

} // namespace

int registApplication(const char* appName, int priority, int eventRxPort, const char* eventRxIp)
{
    return registerCommon(__func__, appName, priority, eventRxPort, eventRxIp, PathKind::Template, false);
}

int registApplication(const char* appName, int priority, int eventRxPort)
{
    return registerCommon(__func__, appName, priority, eventRxPort, "127.0.0.1", PathKind::Template, true);
}

int regForVxShell(const char* appName, int priority, const char* eventRxIp, int eventRxPort)
{
    return registerCommon(__func__, appName, priority, eventRxPort, eventRxIp, PathKind::FixedDebug, false);
}

int unregistApplication(int sock)
{
    if (sock == -1) {
        mlibLog("%s:%d\n(%s:%d)\n", __func__, __LINE__, __func__, __LINE__);
        return VX_ERR_RESOURCE;
    }
    tUnregistReq req{};
    req.hdr.reqNo = 304;
    req.hdr.channel = 0;
    const int sent = Send2VoxalisByApp(sock, &req, sizeof req, nullptr);
    // The socket may be shared with other threads (the shell's signal
    // thread unregisters while the main thread can be waiting for an
    // answer): it is closed only when no request of this process uses it.
    pthread_mutex_t* lock = vxSocketLock(sock);
    pthread_mutex_lock(lock);
    const int closed = closeAfterUnregist(__func__, sock, sent);
    pthread_mutex_unlock(lock);
    return closed;
}

int unregistApplication(const char* appName) { return unregistByName(__func__, appName); }

int unregistApplicationWithName(const char* appName) { return unregistByName(__func__, appName); }

int terminateVx(int sock)
{
    if (sock == -1) {
        mlibLog("%s:%d\n(%s:%d)\n", __func__, __LINE__, __func__, __LINE__);
        return VX_ERR_RESOURCE;
    }
    tReqHead req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 301;
    req.hdr.channel = 0;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int createChannel(int sock)
{
    tReqHead vxReq{};
    tResp2App resp = vxNoAnswer();
    vxReq.hdr.reqNo = 305;
    vxReq.hdr.channel = 0;
    VX_RETURN_VALUE(Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp), resp);
}

int deleteChannel(int sock, int channel)
{
    tReqHead vxReq{};
    vxReq.hdr.reqNo = 306;
    vxReq.hdr.channel = channel;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),NULL));
}

int getMaxConcChannelNo(int sock)
{
    tReqHead vxReq{};
    tResp2App resp = vxNoAnswer();
    vxReq.hdr.reqNo = 307;
    vxReq.hdr.channel = 0;
    VX_RETURN_VALUE(Send2VoxalisByApp(sock,&vxReq,sizeof(vxReq),&resp), resp);
}
