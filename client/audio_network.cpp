// Audio network requests: receive ports, opposite and saver addresses, DSCP,
// and the receive-port query. reqNo 20..25, 38, 39.
#include "request.h"

namespace {

struct tAddrReq {
    tMediaReq hdr;
    char ip[50];
    char reserved[2];
    int32_t port;
};
static_assert(sizeof(tAddrReq) == 176, "address record is 176 bytes");
static_assert(offsetof(tAddrReq, ip) == 120, "ip at 120");
static_assert(offsetof(tAddrReq, port) == 172, "port at 172");

// The copying way fills ip (at most 49 characters, zeros behind); the empty
// way (ip null) writes only the NUL at offset 120.
void fillAddr(tAddrReq& req, int reqNo, int channel, const char* ip, int port)
{
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    if (ip != nullptr)
        vxCopyText(req.ip, sizeof req.ip, ip);
    else
        req.ip[0] = '\0';
    req.port = port;
}

// OppIp and SaverIp rows: address and port checked, strict form.
int sendCheckedAddr(const char* fn, int sock, int channel, int reqNo, const char* ip, int port)
{
    VX_CHECK_FN(fn, checkIp(ip), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, checkPort(port), VX_ERR_ARGUMENT);
    tAddrReq req{};
    tResp2App resp = vxNoAnswer();
    fillAddr(req, reqNo, channel, ip, port);
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

// RxPort rows: nothing checked, non-zero form.
int sendRxPort(const char* fn, int sock, int channel, int reqNo, int port, const char* ip)
{
    tAddrReq req{};
    tResp2App resp = vxNoAnswer();
    fillAddr(req, reqNo, channel, ip, port);
    VX_RETURN_NONZERO_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

} // namespace

int setAudioOppIp(int sock, int channel, const char* ip, int port)
{
    return sendCheckedAddr(__func__, sock, channel, 23, ip, port);
}

int set2ndAudioOppIp(int sock, int channel, const char* ip, int port)
{
    return sendCheckedAddr(__func__, sock, channel, 38, ip, port);
}

int setAudioSaverIp(int sock, int channel, const char* ip, int port)
{
    return sendCheckedAddr(__func__, sock, channel, 24, ip, port);
}

int setAudioRxPort(int sock, int channel, int port) { return sendRxPort(__func__, sock, channel, 20, port, nullptr); }

int setAudioRxPort(int sock, int channel, int port, const char* ip)
{
    return sendRxPort(__func__, sock, channel, 20, port, ip);
}

int set2ndAudioRxPort(int sock, int channel, int port)
{
    return sendRxPort(__func__, sock, channel, 39, port, nullptr);
}

int set2ndAudioRxPort(int sock, int channel, int port, const char* ip)
{
    return sendRxPort(__func__, sock, channel, 39, port, ip);
}

int setAudioSrcPort2Saver(int sock, int channel, int port)
{
    tAddrReq req{};
    tResp2App resp = vxNoAnswer();
    fillAddr(req, 21, channel, nullptr, port);
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int getAudioRxPort(int sock, int channel)
{
    tReqHead req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 22;
    req.hdr.channel = channel;
    VX_RETURN_VALUE(Send2VoxalisByApp(sock,&req,sizeof(req),&resp), resp);
}

int setAudioDscp(int sock, int channel, int dscp) { return vxSendWord(__func__, sock, channel, 25, dscp); }
