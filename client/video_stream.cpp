// Video stream requests: codec, payload types, resolution, frame rate, rates,
// I-frame, the stream switches and the picture settings of one channel.
// reqNo 110..119, 133, 134, 141, 144, 316. None of these numbers has a row in
// the kind table: nothing waits, and every send leaves the transport's
// LOG_CRIT line about the missing row.
#include "request.h"

#include <cstdio>

namespace {

// The one-word requests of the silent form pass no response record.
int sendWordSilent(int sock, int channel, int reqNo, int32_t value)
{
    tReqWord req{};
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.w0 = value;
    VX_RETURN_SILENT(Send2VoxalisByApp(sock, &req, sizeof(req), nullptr));
}

// reqNo 112: codec at 120, payload type at 124; the record is "setCodec" in
// the failure text.
int sendVideoCodec(const char* fn, int sock, int channel, int codec, int payloadType)
{
    tReqTwoWords setCodec{};
    tResp2App resp = vxNoAnswer();
    setCodec.hdr.reqNo = 112;
    setCodec.hdr.channel = channel;
    setCodec.w0 = codec;
    setCodec.w1 = payloadType;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&setCodec,sizeof(setCodec),&resp));
}

// reqNo 113 and 114: the record is "setPayload" in the failure text.
int sendVideoPayload(const char* fn, int sock, int channel, int reqNo, int payloadType)
{
    printf("### %s, channel:%d,  payloadType:%d.\n", fn, channel, payloadType);
    tReqWord setPayload{};
    tResp2App resp = vxNoAnswer();
    setPayload.hdr.reqNo = reqNo;
    setPayload.hdr.channel = channel;
    setPayload.w0 = payloadType;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&setPayload,sizeof(setPayload),&resp));
}

// The stream switches: the trace shows onOff as given, the record carries 0/1.
int sendSwitch(const char* fn, int sock, int channel, int reqNo, int onOff)
{
    printf("### %s, channel:%d, onOff:%d.\n", fn, channel, onOff);
    return vxSendWord(fn, sock, channel, reqNo, vxNorm(onOff));
}

} // namespace

int setIframe(int sock, int channel)
{
    tReqHead req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 110;
    req.hdr.channel = channel;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int setVideoGopInterval(int sock, int channel, int interval) { return sendWordSilent(sock, channel, 111, interval); }

int setVideoCodec(int sock, int channel, int codec, int payloadType)
{
    printf("### %s, channel:%d, codec:%d, payloadType:%d.\n", __func__, channel, codec, payloadType);
    VX_CHECK(codec>=CODEC_H263, VX_ERR_ARGUMENT);
    VX_CHECK(codec<=CODEC_H264, VX_ERR_ARGUMENT);
    if (payloadType == -1)
        payloadType = codec;
    return sendVideoCodec(__func__, sock, channel, codec, payloadType);
}

// The short form sends the codec as its own payload type; MPEG4 and H264
// need the long form.
int setVideoCodec(int sock, int channel, int codec)
{
    VX_CHECK(codec!=CODEC_H264, VX_ERR_ARGUMENT);
    VX_CHECK(codec!=CODEC_MPEG4, VX_ERR_ARGUMENT);
    VX_CHECK(codec>=CODEC_H263, VX_ERR_ARGUMENT);
    VX_CHECK(codec<=CODEC_H264, VX_ERR_ARGUMENT);
    return sendVideoCodec(__func__, sock, channel, codec, codec);
}

int setVideoTxPayload(int sock, int channel, int payloadType)
{
    return sendVideoPayload(__func__, sock, channel, 113, payloadType);
}

int setVideoRxPayload(int sock, int channel, int payloadType)
{
    return sendVideoPayload(__func__, sock, channel, 114, payloadType);
}

int setVideoStreamResolution(int sock, int channel, int resolution)
{
    VX_CHECK(resolution>=CIF_MODE, VX_ERR_ARGUMENT);
    VX_CHECK(resolution<=QCIF_MODE, VX_ERR_ARGUMENT);
    return vxSendWord(__func__, sock, channel, 115, resolution);
}

int setVideoFps(int sock, int channel, int fps) { return vxSendWord(__func__, sock, channel, 116, fps); }

int setVideoTxRate(int sock, int channel, int rate) { return vxSendWord(__func__, sock, channel, 117, rate); }

int startVideoRx(int sock, int channel, int onOff) { return sendSwitch(__func__, sock, channel, 118, onOff); }

int startVideoTx(int sock, int channel, int onOff) { return sendSwitch(__func__, sock, channel, 119, onOff); }

int setVideoBrightness(int sock, int channel, int brightness) { return sendWordSilent(sock, channel, 133, brightness); }

int setVideoWhitebalance(int sock, int channel, int whitebalance)
{
    return sendWordSilent(sock, channel, 134, whitebalance);
}

int startVideoForward2Saver(int sock, int channel, int onOff)
{
    return sendSwitch(__func__, sock, channel, 141, onOff);
}

int startVideoRelayWithPcClient(int sock, int channel, int onOff)
{
    return sendSwitch(__func__, sock, channel, 144, onOff);
}

int setVideoExpand(int sock, int channel, int expand) { return sendWordSilent(sock, channel, 316, expand); }
