// Video network requests: receive port, opposite, PC client and saver
// addresses, DSCP and the receive-port query. reqNo 104, 125, 126, 139, 140,
// 142, 143, 145. None of these numbers has a row in the kind table: nothing
// waits, and every send leaves the transport's LOG_CRIT line.
#include "request.h"

#include <cstdio>

namespace {

struct tVideoAddrReq {
    tMediaReq hdr;
    char ip[50];      // 120: at most 49 characters, or empty
    char reserved[2]; // 170: not written
    int32_t port;     // 172
};
static_assert(sizeof(tVideoAddrReq) == 176, "address record is 176 bytes");
static_assert(offsetof(tVideoAddrReq, ip) == 120, "ip at 120");
static_assert(offsetof(tVideoAddrReq, reserved) == 170, "reserved at 170");
static_assert(offsetof(tVideoAddrReq, port) == 172, "port at 172");

// The traces print the address before any check; a null one shows as
// "(null)" rather than handing printf a null pointer.
const char* shown(const char* ip) { return ip != nullptr ? ip : "(null)"; }

// Fills and sends an address record in the strict form. A null ip writes
// only the NUL at offset 120; otherwise at most 49 characters arrive.
int sendAddr(const char* fn, int sock, int channel, int reqNo, const char* ip, int port)
{
    tVideoAddrReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    vxCopyText(req.ip, sizeof req.ip, ip);
    req.port = port;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

// The address rows with both checks: an IPv4 or IPv6 literal and a port
// above 100. A refused port logs checkPort's own line, then this one.
int sendCheckedAddr(const char* fn, int sock, int channel, int reqNo, const char* ip, int port)
{
    VX_CHECK_FN(fn, checkIp(ip), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, checkPort(port), VX_ERR_ARGUMENT);
    return sendAddr(fn, sock, channel, reqNo, ip, port);
}

} // namespace

// The address is carried as given (cut at 49 characters) and not tested.
int setVideoRxPort(int sock, int channel, int port, const char* ip)
{
    printf("### %s, channel:%d, port:%d.\n", __func__, channel, port);
    VX_CHECK(checkPort(port), VX_ERR_ARGUMENT);
    return sendAddr(__func__, sock, channel, 104, ip, port);
}

int setVideoRxPort(int sock, int channel, int port) { return setVideoRxPort(sock, channel, port, nullptr); }

int setVideoOppIp(int sock, int channel, const char* ip, int port)
{
    printf("### %s, channel:%d, ip:%s, port:%d.\n", __func__, channel, shown(ip), port);
    return sendCheckedAddr(__func__, sock, channel, 125, ip, port);
}

// reqNo 126 has no row in the kind table, so the transport neither waits nor
// writes the response record. The record starts as "no answer" (result -1)
// so that the caller gets -1, "no port", instead of a word nobody wrote; a
// response can only come in if the number is ever given a waiting kind.
int getVideoRxPort(int sock, int channel)
{
    tReqHead req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 126;
    req.hdr.channel = channel;
    VX_RETURN_VALUE(Send2VoxalisByApp(sock,&req,sizeof(req),&resp), resp);
}

int setVideoDscp(int sock, int channel, int dscp)
{
    printf("### %s, channel:%d, dscp:%d.\n", __func__, channel, dscp);
    tReqWord req{};
    req.hdr.reqNo = 139;
    req.hdr.channel = channel;
    req.w0 = dscp;
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr));
}

int setVideoSrcPort2Saver(int sock, int channel, int port)
{
    printf("### %s, channel:%d, port:%d.\n", __func__, channel, port);
    VX_CHECK(checkPort(port), VX_ERR_ARGUMENT);
    return sendAddr(__func__, sock, channel, 140, nullptr, port);
}

int setVideoPcClientIp(int sock, int channel, const char* ip, int port)
{
    printf("### %s, channel:%d,  ip:%s, port:%d.\n", __func__, channel, shown(ip), port);
    return sendCheckedAddr(__func__, sock, channel, 142, ip, port);
}

// The port from the PC client is taken as it is: no check.
int setVideoRxPortFromPcClient(int sock, int channel, int port)
{
    printf("### %s, channel:%d, port:%d.\n", __func__, channel, port);
    return sendAddr(__func__, sock, channel, 143, nullptr, port);
}

int setVideoSaverIp(int sock, int channel, const char* ip, int port)
{
    printf("### %s, channel:%d, ip:%s, port:%d.\n", __func__, channel, shown(ip), port);
    return sendCheckedAddr(__func__, sock, channel, 145, ip, port);
}
