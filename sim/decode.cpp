// vxsim: the table of request records and the printer that walks it.
//
// Written from what the service receives, independently of the client
// library's own structs, so a client that fills a wrong offset or sends a
// wrong length shows up in these lines.
#include "decode.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr SimField W(uint16_t off, const char* name) { return SimField{off, kFieldI32, 4, name}; }
constexpr SimField T(uint16_t off, uint16_t width, const char* name) { return SimField{off, kFieldText, width, name}; }
constexpr SimField K(uint16_t off, uint16_t width, const char* name) { return SimField{off, kFieldKey, width, name}; }

// Payload layouts, each in offset order. Layouts shared by several request
// numbers stand first; the one-word setters follow.
constexpr SimField kEnable[] = {W(120, "enable")};
constexpr SimField kOnOff[] = {W(120, "onOff")};
constexpr SimField kModeVol[] = {W(120, "mode"), W(124, "vol")};
constexpr SimField kModeEnable[] = {W(120, "mode"), W(124, "enable")};
constexpr SimField kCodecPt[] = {W(120, "codec"), W(124, "payloadType")};
constexpr SimField kPayloadType[] = {W(120, "payloadType")};
constexpr SimField kAddress[] = {T(120, 50, "ip"), W(172, "port")};
constexpr SimField kPosition[] = {W(120, "x"), W(124, "y"), W(128, "width"), W(132, "height")};
constexpr SimField kPath[] = {T(120, 256, "path")};
constexpr SimField kPause[] = {W(120, "pause")};
constexpr SimField kDscp[] = {W(120, "dscp")};
constexpr SimField kValue[] = {W(120, "value")};

// Tones, DTMF and wave files.
constexpr SimField kTone[] = {W(120, "word120"), W(124, "play")};
constexpr SimField kCadence[] = {W(120, "amp"),           W(124, "hz1"),          W(128, "hz2"),
                                 W(132, "firstOntime"),   W(136, "firstOfftime"), W(140, "secondOntime"),
                                 W(144, "secondOfftime"), W(148, "thirdOnTime"),  W(152, "thirdOffTime"),
                                 W(156, "repeat"),        W(160, "intermitMs"),   W(164, "start")};
constexpr SimField kSendDtmf[] = {W(120, "dtmfParam1"), W(124, "dtmfParam2"), W(128, "dtmfParam3"),
                                  W(132, "dtmfParam4"), W(136, "dtmfParam5"), W(140, "word140")};
constexpr SimField kPlayDtmf[] = {W(120, "dtmfParam1"), W(132, "dtmfParam4"), W(136, "dtmfParam5"), W(140, "word140"),
                                  T(144, 128, "filename")};
constexpr SimField kWave[] = {T(120, 128, "filePath"), W(248, "wavParam1"), W(252, "playFile"),
                              W(256, "wavParam2"),     W(260, "wavParam3"), W(264, "repeat"),
                              W(268, "wavParam4"),     W(272, "wavParam5"), W(276, "word276")};
constexpr SimField kDtmfFeedback[] = {W(120, "enable")};

// Audio path.
constexpr SimField kAudioMode[] = {T(120, 10, "targetName"), W(132, "mode"), W(136, "modeParam1"),
                                   W(140, "modeParam2")};

// Audio session.
constexpr SimField kStartAudioRx[] = {W(120, "enable"), W(124, "rxOnly")};
constexpr SimField kRtpLoop[] = {W(120, "enable"), W(124, "word124")};
constexpr SimField kRxTotal[] = {W(120, "enable"),     W(124, "rxMode"),     W(128, "word128"),
                                 W(132, "codec"),      W(136, "word136"),    T(190, 50, "remote_ip"),
                                 W(240, "local_port"), W(244, "remote_port")};
constexpr SimField kTxTotal[] = {W(120, "enable"),        W(124, "word124"),    W(128, "txParam"),    W(132, "codec"),
                                 T(190, 50, "remote_ip"), W(240, "local_port"), W(244, "remote_port")};
constexpr SimField kNob[] = {W(120, "nob")};
constexpr SimField kTxGain[] = {W(120, "gain")};
constexpr SimField kConference[] = {W(120, "on")};
constexpr SimField kConfStop[] = {W(120, "session")};

// SRTP: the audio record carries audioParam, the video record leaves it unset.
constexpr SimField kSrtpAudio[] = {W(120, "on"),          W(124, "audio"),     W(128, "audioParam"),
                                   W(132, "cipher_type"), W(140, "auth_type"), K(156, 64, "key")};
constexpr SimField kSrtpVideo[] = {W(120, "on"), W(124, "audio"), W(132, "cipher_type"), W(140, "auth_type"),
                                   K(156, 64, "key")};

// Tuning.
constexpr SimField kPtime[] = {W(120, "ptime")};
constexpr SimField kPlc[] = {W(120, "plc")};
constexpr SimField kDjb[] = {W(120, "djbParam1"), W(124, "djbParam2"), W(128, "djbParam3"), W(132, "djbParam4")};
constexpr SimField kNetMode[] = {W(120, "netMode")};
constexpr SimField kEq[] = {W(120, "eq")};
constexpr SimField kNr[] = {W(120, "nr")};
constexpr SimField kRtpParam[] = {W(120, "rtpParam")};
constexpr SimField kLogLevel[] = {W(120, "logLevel")};
constexpr SimField kCountry[] = {W(120, "code")};
constexpr SimField kCameraInit[] = {W(120, "cameraParam1"), W(124, "cameraParam2")};

// Video.
constexpr SimField kInterval[] = {W(120, "interval")};
constexpr SimField kResolution[] = {W(120, "resolution")};
constexpr SimField kFps[] = {W(120, "fps")};
constexpr SimField kRate[] = {W(120, "rate")};
constexpr SimField kShowPip[] = {W(120, "onOff"), W(124, "word124")};
constexpr SimField kCapture[] = {W(120, "surface"), W(124, "captureArg"), T(128, 256, "path")};
constexpr SimField kBrightness[] = {W(120, "brightness")};
constexpr SimField kWhitebalance[] = {W(120, "whitebalance")};
constexpr SimField kCamera[] = {W(120, "param1"), W(124, "param2")};
constexpr SimField kExpand[] = {W(120, "expand")};

// File receive.
constexpr SimField kOpenFileRx[] = {T(120, 254, "fileName")};
constexpr SimField kFileRxLocation[] = {W(120, "location1"), W(124, "location2"), W(128, "location3"),
                                        W(132, "location4"), W(136, "location5"), W(140, "location6"),
                                        W(144, "location7"), W(148, "location8")};

// Registration.
constexpr SimField kRegist[] = {T(120, 10, "appName"), T(132, 50, "eventRxIp"), W(184, "eventRxPort"),
                                W(188, "priority"), W(192, "pid")};
constexpr SimField kUnregist[] = {T(120, 10, "appName")};

// VQMon: two words and six 256-byte text slots.
constexpr SimField kVqmMonitor[] = {W(120, "monitorCmd"), W(124, "monitorParam")};
constexpr SimField kVqmConfig[] = {T(128, 256, "configText")};
constexpr SimField kVqmIpInfo[] = {W(120, "ipValue1"), W(124, "ipValue2"), T(128, 256, "ipText1"),
                                   T(384, 256, "ipText2")};
constexpr SimField kVqmCallInfo[] = {W(120, "callValue"),      T(128, 256, "callText1"), T(384, 256, "callText2"),
                                     T(640, 256, "callText3"), T(896, 256, "callText4"), T(1152, 256, "callText5"),
                                     T(1408, 256, "callText6")};

#define FIELDS(a) a, sizeof a / sizeof a[0]
#define NOFIELDS  nullptr, 0

// Every request number the service receives, in number order. Numbers with a
// kind but no known operation are "spare": they carry the head alone.
constexpr SimRequest kRequests[] = {
    {0, "playTone/stopTone", 128, FIELDS(kTone)},
    {1, "dualTone", 168, FIELDS(kCadence)},
    {2, "sendDtmf", 272, FIELDS(kSendDtmf)},
    {3, "playWavFile", 280, FIELDS(kWave)},
    {4, "playDtmf", 272, FIELDS(kPlayDtmf)},
    {5, "spare5", 120, NOFIELDS},
    {6, "connectBluetoothSco", 124, FIELDS(kEnable)},
    {7, "setVad", 124, FIELDS(kEnable)},
    {8, "setPlaybackVolume", 128, FIELDS(kModeVol)},
    {9, "setRecordVolume", 128, FIELDS(kModeVol)},
    {10, "setPushToTalk", 124, FIELDS(kEnable)},
    {11, "setIpv6", 124, FIELDS(kEnable)},
    {12, "muteMic", 128, FIELDS(kModeEnable)},
    {13, "spare13", 120, NOFIELDS},
    {14, "setPstnConfMode", 124, FIELDS(kEnable)},
    {15, "setAudioMode", 144, FIELDS(kAudioMode)},
    {16, "openSpeakerAdditionally", 124, FIELDS(kEnable)},
    {17, "setAec", 124, FIELDS(kEnable)},
    {18, "setSpeakerOpen", 124, FIELDS(kEnable)},
    {19, "setAudioCodec", 128, FIELDS(kCodecPt)},
    {20, "setAudioRxPort", 176, FIELDS(kAddress)},
    {21, "setAudioSrcPort2Saver", 176, FIELDS(kAddress)},
    {22, "getAudioRxPort", 120, NOFIELDS},
    {23, "setAudioOppIp", 176, FIELDS(kAddress)},
    {24, "setAudioSaverIp", 176, FIELDS(kAddress)},
    {25, "setAudioDscp", 124, FIELDS(kDscp)},
    {26, "audioRxSRTP", 220, FIELDS(kSrtpAudio)},
    {27, "audioTxSRTP", 220, FIELDS(kSrtpAudio)},
    {28, "startAudioRx", 128, FIELDS(kStartAudioRx)},
    {29, "startAudioTx", 124, FIELDS(kEnable)},
    {30, "startAudioRxTotal", 248, FIELDS(kRxTotal)},
    {31, "startAudioTxTotal", 248, FIELDS(kTxTotal)},
    {32, "startAudioRtpLoop", 128, FIELDS(kRtpLoop)},
    {33, "startAudioForward2Saver", 124, FIELDS(kEnable)},
    {34, "setAduioNob", 124, FIELDS(kNob)},
    {35, "set2833PayloadType", 124, FIELDS(kPayloadType)},
    {36, "set2ndAudioCodec", 128, FIELDS(kCodecPt)},
    {37, "set2nd2833PayloadType", 124, FIELDS(kPayloadType)},
    {38, "set2ndAudioOppIp", 176, FIELDS(kAddress)},
    {39, "set2ndAudioRxPort", 176, FIELDS(kAddress)},
    {40, "startConference", 124, FIELDS(kConference)},
    {41, "stopSessiontInConference", 124, FIELDS(kConfStop)},
    {42, "setTxGain", 124, FIELDS(kTxGain)},
    {43, "spare43", 120, NOFIELDS},
    {44, "spare44", 120, NOFIELDS},
    {45, "setPtime", 124, FIELDS(kPtime)},
    {46, "setPLC", 124, FIELDS(kPlc)},
    {47, "setDJB", 136, FIELDS(kDjb)},
    {48, "setNetWorkMode", 124, FIELDS(kNetMode)},
    {49, "setEQ", 124, FIELDS(kEq)},
    {50, "setNR", 124, FIELDS(kNr)},
    {51, "stopRTP", 124, FIELDS(kRtpParam)},
    {52, "AudioRTPPause", 124, FIELDS(kPause)},
    {53, "SetLog", 124, FIELDS(kLogLevel)},
    {54, "setCountryCode", 124, FIELDS(kCountry)},

    {104, "setVideoRxPort", 176, FIELDS(kAddress)},
    {110, "setIframe", 120, NOFIELDS},
    {111, "setVideoGopInterval", 124, FIELDS(kInterval)},
    {112, "setVideoCodec", 128, FIELDS(kCodecPt)},
    {113, "setVideoTxPayload", 124, FIELDS(kPayloadType)},
    {114, "setVideoRxPayload", 124, FIELDS(kPayloadType)},
    {115, "setVideoStreamResolution", 124, FIELDS(kResolution)},
    {116, "setVideoFps", 124, FIELDS(kFps)},
    {117, "setVideoTxRate", 124, FIELDS(kRate)},
    {118, "startVideoRx", 124, FIELDS(kOnOff)},
    {119, "startVideoTx", 124, FIELDS(kOnOff)},
    {120, "videoRxSRTP", 220, FIELDS(kSrtpVideo)},
    {121, "videoTxSRTP", 220, FIELDS(kSrtpVideo)},
    {122, "setVideoDisplayPosition", 136, FIELDS(kPosition)},
    {124, "showDisp", 124, FIELDS(kOnOff)},
    {125, "setVideoOppIp", 176, FIELDS(kAddress)},
    {126, "getVideoRxPort", 120, NOFIELDS},
    {127, "setVideoPipPosition", 136, FIELDS(kPosition)},
    {128, "showPip", 128, FIELDS(kShowPip)},
    {129, "setPipPriorityHigh", 124, FIELDS(kValue)},
    {130, "startMainAppBlackColorKey", 124, FIELDS(kValue)},
    {132, "captureDisp/capturePip", 384, FIELDS(kCapture)},
    {133, "setVideoBrightness", 124, FIELDS(kBrightness)},
    {134, "setVideoWhitebalance", 124, FIELDS(kWhitebalance)},
    {135, "sendImage", 376, FIELDS(kPath)},
    {136, "setVideoSource", 376, FIELDS(kPath)},
    {137, "setVideoDestination", 376, FIELDS(kPath)},
    {138, "setCamera", 128, FIELDS(kCamera)},
    {139, "setVideoDscp", 124, FIELDS(kDscp)},
    {140, "setVideoSrcPort2Saver", 176, FIELDS(kAddress)},
    {141, "startVideoForward2Saver", 124, FIELDS(kOnOff)},
    {142, "setVideoPcClientIp", 176, FIELDS(kAddress)},
    {143, "setVideoRxPortFromPcClient", 176, FIELDS(kAddress)},
    {144, "startVideoRelayWithPcClient", 124, FIELDS(kOnOff)},
    {145, "setVideoSaverIp", 176, FIELDS(kAddress)},
    {146, "VideoRTPPause", 124, FIELDS(kPause)},

    {201, "openFileRx", 396, FIELDS(kOpenFileRx)},
    {202, "runFileRx", 396, NOFIELDS},
    {203, "pauseFileRx", 396, NOFIELDS},
    {204, "resumeFileRx", 396, NOFIELDS},
    {205, "stopFileRx", 396, NOFIELDS},
    {206, "setFileRxLocation", 396, FIELDS(kFileRxLocation)},

    {301, "terminateVx", 120, NOFIELDS},
    {303, "registApplication", 196, FIELDS(kRegist)},
    {304, "unregistApplication", 132, FIELDS(kUnregist)},
    {305, "createChannel", 120, NOFIELDS},
    {306, "deleteChannel", 120, NOFIELDS},
    {307, "getMaxConcChannelNo", 120, NOFIELDS},
    {308, "getCamDetection", 120, NOFIELDS},
    {309, "spare309", 120, NOFIELDS},
    {310, "setDtmfFeedback", 124, FIELDS(kDtmfFeedback)},
    {311, "reqVQMonMonitor", 1664, FIELDS(kVqmMonitor)},
    {312, "reqVQMonUpload", 1664, NOFIELDS},
    {313, "reqVQMonUpdateConfig", 1664, FIELDS(kVqmConfig)},
    {314, "reqVQMonSetIpInfo", 1664, FIELDS(kVqmIpInfo)},
    {315, "reqVQMonSetCallInfo", 1664, FIELDS(kVqmCallInfo)},
    {316, "setVideoExpand", 124, FIELDS(kExpand)},
    {317, "setCameraInit", 128, FIELDS(kCameraInit)},
};

#undef FIELDS
#undef NOFIELDS

// How many bytes of an unknown payload or of trailing extra bytes are shown.
constexpr size_t kHexShown = 32;

// ---- the longest description, so that kSimDescribeMax is known to hold it ----

constexpr size_t textLength(const char* s)
{
    size_t n = 0;
    while (s[n] != '\0')
        ++n;
    return n;
}

// Digits and sign of the widest number printed.
constexpr size_t kNumberMax = 20;
// A quoted text of n bytes: every byte may take four characters (\xHH).
constexpr size_t quotedMax(size_t n) { return 2 + 4 * n; }
// " name=..." of one field.
constexpr size_t fieldMax(const SimField& f)
{
    const size_t head = 2 + textLength(f.name);
    switch (f.type) {
    case kFieldI32:
        return head + kNumberMax;
    case kFieldText:
        return head + quotedMax(f.width) + textLength("(unterminated)");
    case kFieldKey:
        return head + 2 * f.width;
    }
    return 0;
}

constexpr size_t describeMax()
{
    // The trailer: " short(record=N)", " extra=N:" or " payload=N:" and the
    // bounded hex with "...(+N)".
    const size_t trailer = textLength(" payload=:") + kNumberMax + 2 * kHexShown + textLength("...(+)") + kNumberMax;
    const size_t head =
        textLength("reqNo= channel= len= from= sockPath=") + 3 * kNumberMax + 2 * quotedMax(kSockPathWidth) + trailer;
    size_t longest = head + textLength("unknown");
    for (const SimRequest& r : kRequests) {
        size_t n = head + textLength(r.name);
        for (size_t i = 0; i < r.fieldCount; ++i)
            n += fieldMax(r.fields[i]);
        if (n > longest)
            longest = n;
    }
    return longest;
}
static_assert(describeMax() < kSimDescribeMax, "a description always fits its buffer");

const char kHexDigits[] = "0123456789abcdef";

void addHex(SimText* out, const uint8_t* p, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        simTextAddChar(out, kHexDigits[p[i] >> 4]);
        simTextAddChar(out, kHexDigits[p[i] & 0x0f]);
    }
}

// Hex of at most kHexShown bytes, with the count of those left out.
void addHexBounded(SimText* out, const uint8_t* p, size_t n)
{
    addHex(out, p, n < kHexShown ? n : kHexShown);
    if (n > kHexShown) {
        simTextAdd(out, "...(+");
        simTextAddInt(out, static_cast<long long>(n - kHexShown));
        simTextAddChar(out, ')');
    }
}

void addField(SimText* out, const SimField& f, const uint8_t* data, size_t len)
{
    if (f.offset >= len)
        return;
    const size_t avail = f.width < len - f.offset ? f.width : len - f.offset;
    const uint8_t* p = data + f.offset;
    switch (f.type) {
    case kFieldI32:
        if (avail < 4)
            return; // a partial word is not shown
        simTextAddChar(out, ' ');
        simTextAdd(out, f.name);
        simTextAddChar(out, '=');
        simTextAddInt(out, simReadI32(data, f.offset));
        break;
    case kFieldText:
        simTextAddChar(out, ' ');
        simTextAdd(out, f.name);
        simTextAddChar(out, '=');
        simAddQuoted(out, p, avail);
        if (avail == f.width && memchr(p, 0, avail) == nullptr)
            simTextAdd(out, "(unterminated)");
        break;
    case kFieldKey:
        simTextAddChar(out, ' ');
        simTextAdd(out, f.name);
        simTextAddChar(out, '=');
        addHex(out, p, avail);
        break;
    }
}

} // namespace

void simTextInit(SimText* t, char* buf, size_t size)
{
    t->buf = buf;
    t->size = size;
    t->len = 0;
    t->cut = false;
    if (size > 0)
        buf[0] = '\0';
}

void simTextAddN(SimText* t, const char* s, size_t n)
{
    if (t->size == 0)
        return;
    const size_t room = t->size - 1 - t->len;
    if (n > room) {
        n = room;
        t->cut = true;
    }
    memcpy(t->buf + t->len, s, n);
    t->len += n;
    t->buf[t->len] = '\0';
}

void simTextAdd(SimText* t, const char* s) { simTextAddN(t, s, strlen(s)); }

void simTextAddChar(SimText* t, char c) { simTextAddN(t, &c, 1); }

void simTextAddInt(SimText* t, long long v)
{
    char digits[32];
    const int n = snprintf(digits, sizeof digits, "%lld", v);
    if (n > 0)
        simTextAddN(t, digits, static_cast<size_t>(n));
}

const SimRequest* simFindRequest(int32_t reqNo)
{
    for (const SimRequest& r : kRequests)
        if (r.reqNo == reqNo)
            return &r;
    return nullptr;
}

int32_t simReadI32(const uint8_t* data, size_t off)
{
    const uint32_t u = static_cast<uint32_t>(data[off]) | static_cast<uint32_t>(data[off + 1]) << 8 |
                       static_cast<uint32_t>(data[off + 2]) << 16 | static_cast<uint32_t>(data[off + 3]) << 24;
    int32_t v;
    memcpy(&v, &u, sizeof v);
    return v;
}

void simAddQuoted(SimText* out, const uint8_t* text, size_t len)
{
    simTextAddChar(out, '"');
    for (size_t i = 0; i < len && text[i] != 0; ++i) {
        const uint8_t c = text[i];
        switch (c) {
        case '"':
            simTextAdd(out, "\\\"");
            break;
        case '\\':
            simTextAdd(out, "\\\\");
            break;
        case '\n':
            simTextAdd(out, "\\n");
            break;
        case '\r':
            simTextAdd(out, "\\r");
            break;
        case '\t':
            simTextAdd(out, "\\t");
            break;
        default:
            if (c >= 0x20 && c < 0x7f) {
                simTextAddChar(out, static_cast<char>(c));
            } else {
                const char esc[4] = {'\\', 'x', kHexDigits[c >> 4], kHexDigits[c & 0x0f]};
                simTextAddN(out, esc, sizeof esc);
            }
        }
    }
    simTextAddChar(out, '"');
}

void simDescribeRequest(SimText* out, const uint8_t* data, size_t len, const char* from)
{
    const SimRequest* desc = nullptr;
    if (len >= 4) {
        const int32_t reqNo = simReadI32(data, kHeadReqNo);
        desc = simFindRequest(reqNo);
        simTextAdd(out, "reqNo=");
        simTextAddInt(out, reqNo);
        simTextAddChar(out, ' ');
        simTextAdd(out, desc != nullptr ? desc->name : "unknown");
    } else {
        simTextAdd(out, "reqNo=? unknown");
    }
    if (len >= kHeadLength) {
        simTextAdd(out, " channel=");
        simTextAddInt(out, simReadI32(data, kHeadChannel));
    } else {
        simTextAdd(out, " channel=?");
    }
    simTextAdd(out, " len=");
    simTextAddInt(out, static_cast<long long>(len));

    simTextAdd(out, " from=");
    char fromBuf[quotedMax(kSockPathWidth) + 1];
    SimText fromQuoted;
    simTextInit(&fromQuoted, fromBuf, sizeof fromBuf);
    if (from != nullptr)
        simAddQuoted(&fromQuoted, reinterpret_cast<const uint8_t*>(from), strlen(from));
    simTextAdd(out, from != nullptr ? fromBuf : "-");
    if (len > kHeadSockPath) {
        // sockPath is shown only when it tells something the source address doesn't.
        char pathBuf[quotedMax(kSockPathWidth) + 1];
        SimText path;
        simTextInit(&path, pathBuf, sizeof pathBuf);
        const size_t width = len - kHeadSockPath < kSockPathWidth ? len - kHeadSockPath : kSockPathWidth;
        simAddQuoted(&path, data + kHeadSockPath, width);
        if (strcmp(pathBuf, fromBuf) != 0) {
            simTextAdd(out, " sockPath=");
            simTextAdd(out, pathBuf);
        }
    }

    if (desc != nullptr) {
        for (size_t i = 0; i < desc->fieldCount; ++i)
            addField(out, desc->fields[i], data, len);
        if (len < desc->length) {
            simTextAdd(out, " short(record=");
            simTextAddInt(out, desc->length);
            simTextAddChar(out, ')');
        } else if (len > desc->length) {
            simTextAdd(out, " extra=");
            simTextAddInt(out, static_cast<long long>(len - desc->length));
            simTextAddChar(out, ':');
            addHexBounded(out, data + desc->length, len - desc->length);
        }
    } else if (len > kHeadLength) {
        simTextAdd(out, " payload=");
        simTextAddInt(out, static_cast<long long>(len - kHeadLength));
        simTextAddChar(out, ':');
        addHexBounded(out, data + kHeadLength, len - kHeadLength);
    } else if (len < kHeadLength) {
        simTextAdd(out, " short(head) hex=");
        addHexBounded(out, data, len);
    }
}
