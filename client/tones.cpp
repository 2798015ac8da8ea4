// Tone, DTMF and wave requests: reqNo 0..4 and 310. None waits.
#include "request.h"

namespace {

struct tCadence {
    int32_t amp;           // 120
    int32_t hz1;           // 124
    int32_t hz2;           // 128
    int32_t firstOntime;   // 132
    int32_t firstOfftime;  // 136
    int32_t secondOntime;  // 140
    int32_t secondOfftime; // 144
    int32_t thirdOnTime;   // 148
    int32_t thirdOffTime;  // 152
    int32_t repeat;        // 156
    int32_t intermitMs;    // 160
    int32_t start;         // 164
};

struct tToneReq {
    tMediaReq hdr;
    tCadence tone;
};
static_assert(sizeof(tToneReq) == 168, "cadence record is 168 bytes");
static_assert(offsetof(tToneReq, tone.hz1) == 124, "hz1 at 124");
static_assert(offsetof(tToneReq, tone.thirdOnTime) == 148, "thirdOnTime at 148");
static_assert(offsetof(tToneReq, tone.repeat) == 156, "repeat at 156");
static_assert(offsetof(tToneReq, tone.intermitMs) == 160, "intermitMs at 160");
static_assert(offsetof(tToneReq, tone.start) == 164, "start flag at 164");

struct tDtmfReq {
    tMediaReq hdr;
    int32_t dtmfParam1; // 120
    int32_t dtmfParam2; // 124
    int32_t dtmfParam3; // 128
    int32_t dtmfParam4; // 132
    int32_t dtmfParam5; // 136
    int32_t zero;       // 140
    char filename[128]; // 144
};
static_assert(sizeof(tDtmfReq) == 272, "DTMF record is 272 bytes");
static_assert(offsetof(tDtmfReq, filename) == 144, "filename at 144");

struct tWavReq {
    tMediaReq hdr;
    char filePath[128]; // 120
    int32_t wavParam1;  // 248
    int32_t playFile;   // 252
    int32_t wavParam2;  // 256
    int32_t wavParam3;  // 260
    int32_t repeat;     // 264
    int32_t wavParam4;  // 268
    int32_t wavParam5;  // 272
    int32_t zero;       // 276
};
static_assert(sizeof(tWavReq) == 280, "wave record is 280 bytes");
static_assert(offsetof(tWavReq, wavParam1) == 248, "wavParam1 at 248");
static_assert(offsetof(tWavReq, repeat) == 264, "repeat at 264");
static_assert(offsetof(tWavReq, zero) == 276, "constant at 276");

// Checks 1 to 10 of a cadence: level, frequencies, first two phases.
int checkTwoPhases(const char* fn, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime, int secondOntime,
                   int secondOfftime)
{
    VX_CHECK_FN(fn, (amp==TONE_LOW||amp==TONE_NORMAL||amp==TONE_HIGH||amp==TONE_VIRTUAL_RING), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, hz1>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, hz1<5000, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, hz2>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, hz2<5000, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, !(hz1==0 && hz2==0), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, firstOntime>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, firstOfftime>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, secondOntime>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, secondOfftime>=0, VX_ERR_ARGUMENT);
    return VERY_OK;
}

int sendCadence(const char* fn, int sock, int channel, const tCadence& tone)
{
    tToneReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 1;
    req.hdr.channel = channel;
    req.tone = tone;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

// The 13-argument start shared by startTripleTone and startDualTone.
int startThreePhases(const char* fn, int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime,
                     int firstOfftime, int secondOntime, int secondOfftime, int repeat, int thirdOnTime,
                     int thirdOffTime, int intermitMs)
{
    const int checked = checkTwoPhases(fn, amp, hz1, hz2, firstOntime, firstOfftime, secondOntime, secondOfftime);
    if (checked != VERY_OK)
        return checked;
    VX_CHECK_FN(fn, thirdOnTime>=0, VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, thirdOffTime>=0, VX_ERR_ARGUMENT);
    if (intermitMs < 1) {
        // Not a refusal: the tone goes out with no intermission.
        mlibLog("%s:%d improper intermitMs:%d\n(%s:%d)\n", fn, __LINE__, intermitMs, fn, __LINE__);
        intermitMs = 0;
    }
    const int repeats = repeat < 0 ? -1 : repeat;
    const tCadence tone = {amp,           hz1,         hz2,          firstOntime, firstOfftime, secondOntime,
                           secondOfftime, thirdOnTime, thirdOffTime, repeats,     intermitMs,   1};
    return sendCadence(fn, sock, channel, tone);
}

} // namespace

int startTripleTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                    int secondOntime, int secondOfftime, int repeat, int thirdOnTime, int thirdOffTime, int intermitMs)
{
    return startThreePhases(__func__, sock, channel, amp, hz1, hz2, firstOntime, firstOfftime, secondOntime,
                            secondOfftime, repeat, thirdOnTime, thirdOffTime, intermitMs);
}

int startDualTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                  int secondOntime, int secondOfftime, int repeat, int thirdOnTime, int thirdOffTime, int intermitMs)
{
    return startThreePhases(__func__, sock, channel, amp, hz1, hz2, firstOntime, firstOfftime, secondOntime,
                            secondOfftime, repeat, thirdOnTime, thirdOffTime, intermitMs);
}

int startDualTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                  int secondOntime, int secondOfftime, int repeat)
{
    const int checked = checkTwoPhases(__func__, amp, hz1, hz2, firstOntime, firstOfftime, secondOntime, secondOfftime);
    if (checked != VERY_OK)
        return checked;
    const tCadence tone = {
        amp, hz1, hz2, firstOntime, firstOfftime, secondOntime, secondOfftime, 0, 0, repeat < 0 ? -1 : repeat, 0, 1};
    return sendCadence(__func__, sock, channel, tone);
}

int stopDualTone(int sock, int channel)
{
    const tCadence tone = {}; // start flag 0; nothing else of the cadence
    return sendCadence(__func__, sock, channel, tone);
}

// The tone number is not carried by the record: the word at 120 stays 0.
int playTone(int sock, int channel, tTone tone)
{
    (void)tone;
    return vxSendTwoWords(__func__, sock, channel, 0, 0, 1);
}

int stopTone(int sock, int channel) { return vxSendTwoWords(__func__, sock, channel, 0, 0, 0); }

int sendDtmf(int sock, int channel, int dtmfParam1, int dtmfParam2, int dtmfParam3, int dtmfParam4, int dtmfParam5)
{
    tDtmfReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 2;
    req.hdr.channel = channel;
    req.dtmfParam1 = dtmfParam1;
    req.dtmfParam2 = dtmfParam2;
    req.dtmfParam3 = dtmfParam3;
    req.dtmfParam4 = dtmfParam4;
    req.dtmfParam5 = dtmfParam5;
    req.zero = 0;
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int playDtmf(int sock, int channel, int dtmfParam1, int dtmfParam4, int dtmfParam5, const char* filename)
{
    VX_CHECK(filename, 0);
    tDtmfReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 4;
    req.hdr.channel = channel;
    req.dtmfParam1 = dtmfParam1;
    req.dtmfParam4 = dtmfParam4;
    req.dtmfParam5 = dtmfParam5;
    req.zero = 0;
    vxCopyText(req.filename, sizeof req.filename, filename); // longer names are cut at 127
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int setDtmfFeedback(int sock, int channel, int enable)
{
    return vxSendWord(__func__, sock, channel, 310, vxNorm(enable));
}

int playWavFile(int sock, int channel, const char* filePath, int wavParam1, int playFile, int wavParam2, int wavParam3,
                int repeat, int wavParam4, int wavParam5)
{
    tWavReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = 3;
    req.hdr.channel = channel;
    req.wavParam1 = wavParam1;
    req.playFile = playFile;
    req.wavParam2 = wavParam2;
    req.wavParam3 = wavParam3;
    req.repeat = repeat;
    req.wavParam4 = wavParam4;
    req.wavParam5 = wavParam5;
    req.zero = 0;
    if (playFile) {
        VX_CHECK(filePath, 0);
        VX_CHECK(strnlen(filePath,sizeof(req.filePath)+10)<sizeof(req.filePath), VX_ERR_ARGUMENT);
        vxCopyText(req.filePath, sizeof req.filePath, filePath);
    }
    VX_RETURN_STRICT(Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}
