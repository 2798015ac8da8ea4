// Audio path and volume requests: reqNo 6, 8, 9, 10, 11, 12, 14, 15, 16, 17, 18.
#include "request.h"

namespace {

struct tVolumeReq {
    tMediaReq hdr;
    int32_t mode;
    int32_t vol;
};
static_assert(sizeof(tVolumeReq) == 128, "volume record is 128 bytes");
static_assert(offsetof(tVolumeReq, mode) == 120 && offsetof(tVolumeReq, vol) == 124, "mode, vol at 120, 124");

struct tAudioModeReq {
    tMediaReq hdr;
    char targetName[10];
    char reserved[2];
    int32_t mode;
    int32_t modeParam1;
    int32_t modeParam2;
};
static_assert(sizeof(tAudioModeReq) == 144, "audio mode record is 144 bytes");
static_assert(offsetof(tAudioModeReq, targetName) == 120, "targetName at 120");
static_assert(offsetof(tAudioModeReq, mode) == 132, "mode at 132");
static_assert(offsetof(tAudioModeReq, modeParam1) == 136, "modeParam1 at 136");
static_assert(offsetof(tAudioModeReq, modeParam2) == 140, "modeParam2 at 140");

bool hasVolumeLimit(tAudioMode mode) { return mode == 1 || mode == 2 || mode == 4; }

int sendVolume(const char* fn, int sock, int channel, int reqNo, int vol, tAudioMode mode)
{
    tVolumeReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.mode = mode;
    req.vol = vol;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

// The volume family with a mode: playback takes modes up to BT_EHS, record
// only up to HEADSET_MODE; modes 1, 2 and 4 cap the volume at 15.
int checkedVolume(const char* fn, int sock, int channel, int reqNo, int vol, tAudioMode mode, bool recordModes)
{
    VX_CHECK_FN(fn, vol>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, mode>=HANDSET_MODE, VX_ERR_ARGUMENT);
    if (recordModes)
        VX_CHECK_FN(fn, mode<=HEADSET_MODE, VX_ERR_ARGUMENT);
    else
        VX_CHECK_FN(fn, mode<=BT_EHS, VX_ERR_ARGUMENT);
    if (hasVolumeLimit(mode))
        VX_CHECK_FN(fn, vol<=15, VX_ERR_ARGUMENT);
    return sendVolume(fn, sock, channel, reqNo, vol, mode);
}

} // namespace

int setPlaybackVolume(int sock, int channel, int vol, tAudioMode mode)
{
    return checkedVolume(__func__, sock, channel, 8, vol, mode, false);
}

int setRecordVolume(int sock, int channel, int vol, tAudioMode mode)
{
    return checkedVolume(__func__, sock, channel, 9, vol, mode, true);
}

int setRecordVolumeMode(int sock, int channel, int vol, tAudioMode mode)
{
    return checkedVolume(__func__, sock, channel, 9, vol, mode, true);
}

int setRecordVolume(int sock, int channel, int vol)
{
    VX_CHECK(vol>=0, VX_ERR_ARGUMENT);
    VX_CHECK(vol<=16, VX_ERR_ARGUMENT);
    return sendVolume(__func__, sock, channel, 9, vol, 0);
}

int muteMic(int sock, int channel, int enable, tAudioMode mode)
{
    VX_CHECK(mode>=HANDSET_MODE, VX_ERR_ARGUMENT);
    VX_CHECK(mode<=BT_EHS, VX_ERR_ARGUMENT);
    return sendVolume(__func__, sock, channel, 12, vxNorm(enable), mode);
}

int muteMic(int sock, int channel, int enable) { return sendVolume(__func__, sock, channel, 12, vxNorm(enable), 0); }

int setAudioMode(int sock, int channel, tAudioMode mode, const char* targetName, int modeParam1, int modeParam2)
{
    VX_CHECK(mode<=BT_EHS, VX_ERR_ARGUMENT);
    tAudioModeReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 15;
    if (targetName == nullptr) {
        req.hdr.channel = channel;
        req.targetName[0] = '\0';
    } else {
        // Addressed by name: at most 9 characters, and no channel.
        vxCopyText(req.targetName, sizeof req.targetName, targetName);
        req.hdr.channel = -1;
    }
    req.mode = mode;
    req.modeParam1 = modeParam1;
    req.modeParam2 = modeParam2;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int openSpeakerAdditionally(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 16, vxNorm(enable));
}
int setSpeakerOpen(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 18, vxNorm(enable));
}
int setPstnConfMode(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 14, vxNorm(enable));
}
int setAec(int sock, int channel, int enable) { return vxSendWord(__func__, sock, channel, 17, vxNorm(enable)); }
int setPushToTalk(int sock, int channel, int enable) { return vxSendWord(__func__, sock, channel, 10, vxNorm(enable)); }
int setIpv6(int sock, int channel, int enable) { return vxSendWord(__func__, sock, channel, 11, vxNorm(enable)); }
int connectBluetoothSco(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 6, vxNorm(enable));
}

int muteSpeaker(int sock, int channel, int enable)
{
    // The service has no such request: nothing is sent.
    (void)sock;
    (void)channel;
    (void)enable;
    return VERY_OK;
}
