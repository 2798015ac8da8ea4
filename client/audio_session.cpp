// Audio session requests: codecs, stream starts and stops, forwarding, the
// all-in-one starts and the conference. reqNo 7, 19, 28..37, 40..42.
#include "request.h"

#include <unistd.h>

namespace {

struct tTotalReq {
    tMediaReq hdr;
    int32_t enable;      // 120
    int32_t rxMode;      // 124 (0 in the Tx form)
    int32_t txParam;     // 128 (0 in the Rx form)
    int32_t codec;       // 132
    int32_t payloadType; // 136: -1 in the Rx form, unwritten in the Tx form
    char spare[50];      // 140: not written
    char remote_ip[50];  // 190
    int32_t local_port;  // 240
    int32_t remote_port; // 244
};
static_assert(sizeof(tTotalReq) == 248, "all-in-one record is 248 bytes");
static_assert(offsetof(tTotalReq, codec) == 132, "codec at 132");
static_assert(offsetof(tTotalReq, payloadType) == 136, "word at 136");
static_assert(offsetof(tTotalReq, remote_ip) == 190, "remote_ip at 190");
static_assert(offsetof(tTotalReq, local_port) == 240, "local_port at 240");
static_assert(offsetof(tTotalReq, remote_port) == 244, "remote_port at 244");

// The codec records log their send failure as "setCodec".
int sendCodec(const char* fn, int sock, int channel, int reqNo, int codec, int payloadType)
{
    tReqTwoWords setCodec{};
    tResp2App resp = vxNoAnswer();
    setCodec.hdr.reqNo = reqNo;
    setCodec.hdr.channel = channel;
    setCodec.w0 = codec;
    setCodec.w1 = payloadType;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&setCodec,sizeof(setCodec),&resp));
}

// Checks of the all-in-one starts, made only when enable is set.
int checkTotal(const char* fn, const char* remote_ip, int remote_port, int local_port, int codec)
{
    VX_CHECK_FN(fn, checkIp(remote_ip), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, checkPort(remote_port), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, checkPort(local_port), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, codec>=codec_G711a, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, codec<=codec_iLBC, VX_ERR_ARGUMENT);
    return VERY_OK;
}

// Fills the shared part of reqNo 30 and 31; with enable set, pauses 50 ms
// after filling and before sending.
int sendTotal(const char* fn, int sock, tTotalReq& req, const char* remote_ip)
{
    if (remote_ip != nullptr)
        vxCopyText(req.remote_ip, sizeof req.remote_ip, remote_ip);
    tResp2App resp = vxNoAnswer();
    if (req.enable)
        usleep(50000);
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

// The codec forms whose range ends at codec_iLBC.
int sendCodecUpToIlbc(const char* fn, int sock, int channel, int reqNo, int codec, int payloadType)
{
    VX_CHECK_FN(fn, codec>=codec_G711a, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, codec<=codec_iLBC, VX_ERR_ARGUMENT);
    return sendCodec(fn, sock, channel, reqNo, codec, payloadType);
}

} // namespace

int setAudioCodec(int sock, int channel, int codec)
{
    return sendCodecUpToIlbc(__func__, sock, channel, 19, codec, -1);
}

int setAudioCodec(int sock, int channel, int codec, int payloadType)
{
    VX_CHECK(codec>=codec_G711a, VX_ERR_ARGUMENT);
    VX_CHECK(codec<=_CODEC_A_UNKNOWN, VX_ERR_ARGUMENT);
    return sendCodec(__func__, sock, channel, 19, codec, payloadType);
}

int set2ndAudioCodec(int sock, int channel, int codec)
{
    return sendCodecUpToIlbc(__func__, sock, channel, 36, codec, -1);
}

int set2ndAudioCodec(int sock, int channel, int codec, int payloadType)
{
    return sendCodecUpToIlbc(__func__, sock, channel, 36, codec, payloadType);
}

int setAduioNob(int sock, int channel, int nob) { return vxSendWord(__func__, sock, channel, 34, nob); }
int set2833PayloadType(int sock, int channel, int payloadType)
{
    return vxSendWord(__func__, sock, channel, 35, payloadType);
}
int set2nd2833PayloadType(int sock, int channel, int payloadType)
{
    return vxSendWord(__func__, sock, channel, 37, payloadType);
}
int setTxGain(int sock, int channel, int gain) { return vxSendWord(__func__, sock, channel, 42, gain); }
int setVad(int sock, int channel, int enable) { return vxSendWord(__func__, sock, channel, 7, vxNorm(enable)); }

int startAudioRx(int sock, int channel, int enable)
{
    return vxSendTwoWords(__func__, sock, channel, 28, vxNorm(enable), 0);
}

int startAudioRx(int sock, int channel, int enable, int rxOnly)
{
    return vxSendTwoWords(__func__, sock, channel, 28, vxNorm(enable), vxNorm(rxOnly));
}

int startAudioRxOnly(int sock, int channel, int enable)
{
    return vxSendTwoWords(__func__, sock, channel, 28, vxNorm(enable), 1);
}
int startAudioRtpLoop(int sock, int channel, int enable)
{
    return vxSendTwoWords(__func__, sock, channel, 32, vxNorm(enable), -1);
}
int startAudioTx(int sock, int channel, int enable) { return vxSendWord(__func__, sock, channel, 29, vxNorm(enable)); }
int startAudioForward2Saver(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 33, vxNorm(enable));
}

int startAudioRxTotal(int sock, int channel, int enable, int spareParam, int codec, const char* remote_ip,
                      const char* spareIp, int remote_port, int local_port, int rxMode)
{
    (void)spareParam; // not read: the word at 128 is 0
    (void)spareIp;    // not read
    if (enable) {
        const int checked = checkTotal(__func__, remote_ip, remote_port, local_port, codec);
        if (checked != VERY_OK)
            return checked;
    }
    tTotalReq req{};
    req.hdr.reqNo = 30;
    req.hdr.channel = channel;
    req.enable = vxNorm(enable);
    req.rxMode = rxMode;
    req.txParam = 0;
    req.codec = codec;
    req.payloadType = -1;
    req.local_port = local_port;
    req.remote_port = remote_port;
    return sendTotal(__func__, sock, req, remote_ip);
}

int startAudioTxTotal(int sock, int channel, int enable, int txParam, int codec, const char* remote_ip,
                      const char* spareIp, int remote_port, int local_port)
{
    (void)spareIp; // not read
    if (enable) {
        const int checked = checkTotal(__func__, remote_ip, remote_port, local_port, codec);
        if (checked != VERY_OK)
            return checked;
    }
    tTotalReq req{};
    req.hdr.reqNo = 31;
    req.hdr.channel = channel;
    req.enable = vxNorm(enable);
    req.rxMode = 0;
    req.txParam = txParam;
    req.codec = codec;
    req.local_port = local_port;
    req.remote_port = remote_port;
    return sendTotal(__func__, sock, req, remote_ip);
}

int startConference(int sock, int channel) { return vxSendWord(__func__, sock, channel, 40, 1); }
int stop1stSessiontInConference(int sock, int channel) { return vxSendWord(__func__, sock, channel, 41, 1); }
int stop2ndSessiontInConference(int sock, int channel) { return vxSendWord(__func__, sock, channel, 41, 2); }
