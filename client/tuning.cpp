// Media tuning requests: plain setters, values sent unchanged, no checks.
// reqNo 45..54, 146, 317; none has a row in the kind table.
#include "request.h"

#include <cstdio>

namespace {

struct tDjbReq {
    tMediaReq hdr;
    int32_t djbParam1;
    int32_t djbParam2;
    int32_t djbParam3;
    int32_t djbParam4;
};
static_assert(sizeof(tDjbReq) == 136, "jitter buffer record is 136 bytes");
static_assert(offsetof(tDjbReq, djbParam4) == 132, "djbParam4 at 132");

} // namespace

int setPtime(int sock, int channel, int ptime) { return vxSendWord(__func__, sock, channel, 45, ptime); }
int setPLC(int sock, int channel, int plc) { return vxSendWord(__func__, sock, channel, 46, plc); }

int setDJB(int sock, int channel, int djbParam1, int djbParam2, int djbParam3, int djbParam4)
{
    tDjbReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 47;
    req.hdr.channel = channel;
    req.djbParam1 = djbParam1;
    req.djbParam2 = djbParam2;
    req.djbParam3 = djbParam3;
    req.djbParam4 = djbParam4;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int setNetWorkMode(int sock, int channel, int netMode) { return vxSendWord(__func__, sock, channel, 48, netMode); }
int setEQ(int sock, int channel, int eq) { return vxSendWord(__func__, sock, channel, 49, eq); }
int setNR(int sock, int channel, int nr) { return vxSendWord(__func__, sock, channel, 50, nr); }
int stopRTP(int sock, int channel, int rtpParam) { return vxSendWord(__func__, sock, channel, 51, rtpParam); }
int AudioRTPPause(int sock, int channel, int pause) { return vxSendWord(__func__, sock, channel, 52, pause); }
int VideoRTPPause(int sock, int channel, int pause) { return vxSendWord(__func__, sock, channel, 146, pause); }
int SetLog(int sock, int channel, int logLevel) { return vxSendWord(__func__, sock, channel, 53, logLevel); }

int setCountryCode(int sock, int channel, int code)
{
    printf("%s[%d] ================>> Code: %d \n", __func__, __LINE__, code);
    return vxSendWord(__func__, sock, channel, 54, code);
}

int setCameraInit(int sock, int channel, int cameraParam1, int cameraParam2)
{
    return vxSendTwoWords(__func__, sock, channel, 317, cameraParam1, cameraParam2);
}
