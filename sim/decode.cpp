// vxsim: the table of request records and the printer that walks it.
//
// Written from what the service receives, independently of the client
// library's own structs, so a client that fills a wrong offset or sends a
// wrong length shows up in these lines.
#include "decode.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace vxsim {
namespace {

constexpr Field W(uint16_t off, const char* name) { return Field{off, FieldType::I32, 4, name}; }
constexpr Field T(uint16_t off, uint16_t width, const char* name) {
  return Field{off, FieldType::Text, width, name};
}
constexpr Field K(uint16_t off, uint16_t width, const char* name) {
  return Field{off, FieldType::Key, width, name};
}

// Payload layouts, each in offset order. Layouts shared by several request
// numbers stand first; the one-word setters follow.
const Field kEnable[] = {W(120, "enable")};
const Field kOnOff[] = {W(120, "onOff")};
const Field kModeVol[] = {W(120, "mode"), W(124, "vol")};
const Field kModeEnable[] = {W(120, "mode"), W(124, "enable")};
const Field kCodecPt[] = {W(120, "codec"), W(124, "payloadType")};
const Field kPayloadType[] = {W(120, "payloadType")};
const Field kAddress[] = {T(120, 50, "ip"), W(172, "port")};
const Field kPosition[] = {W(120, "x"), W(124, "y"), W(128, "width"), W(132, "height")};
const Field kPath[] = {T(120, 256, "path")};
const Field kPause[] = {W(120, "pause")};
const Field kDscp[] = {W(120, "dscp")};
const Field kValue[] = {W(120, "value")};

// Tones, DTMF and wave files.
const Field kTone[] = {W(120, "word120"), W(124, "play")};
const Field kCadence[] = {W(120, "amp"),          W(124, "hz1"),          W(128, "hz2"),
                          W(132, "firstOntime"),  W(136, "firstOfftime"), W(140, "secondOntime"),
                          W(144, "secondOfftime"), W(148, "thirdOnTime"), W(152, "thirdOffTime"),
                          W(156, "repeat"),       W(160, "intermitMs"),   W(164, "start")};
const Field kSendDtmf[] = {W(120, "dtmfParam1"), W(124, "dtmfParam2"), W(128, "dtmfParam3"),
                           W(132, "dtmfParam4"), W(136, "dtmfParam5"), W(140, "word140")};
const Field kPlayDtmf[] = {W(120, "dtmfParam1"), W(132, "dtmfParam4"), W(136, "dtmfParam5"),
                           W(140, "word140"), T(144, 128, "filename")};
const Field kWave[] = {T(120, 128, "filePath"), W(248, "wavParam1"), W(252, "playFile"),
                       W(256, "wavParam2"),     W(260, "wavParam3"), W(264, "repeat"),
                       W(268, "wavParam4"),     W(272, "wavParam5"), W(276, "word276")};
const Field kDtmfFeedback[] = {W(120, "enable")};

// Audio path.
const Field kAudioMode[] = {T(120, 10, "targetName"), W(132, "mode"), W(136, "modeParam1"),
                            W(140, "modeParam2")};

// Audio session.
const Field kStartAudioRx[] = {W(120, "enable"), W(124, "rxOnly")};
const Field kRtpLoop[] = {W(120, "enable"), W(124, "word124")};
const Field kRxTotal[] = {W(120, "enable"),   W(124, "rxMode"),         W(128, "word128"),
                          W(132, "codec"),    W(136, "word136"),        T(190, 50, "remote_ip"),
                          W(240, "local_port"), W(244, "remote_port")};
const Field kTxTotal[] = {W(120, "enable"), W(124, "word124"),      W(128, "txParam"),
                          W(132, "codec"),  T(190, 50, "remote_ip"), W(240, "local_port"),
                          W(244, "remote_port")};
const Field kNob[] = {W(120, "nob")};
const Field kTxGain[] = {W(120, "gain")};
const Field kConference[] = {W(120, "on")};
const Field kConfStop[] = {W(120, "session")};

// SRTP: the audio record carries audioParam, the video record leaves it unset.
const Field kSrtpAudio[] = {W(120, "on"),          W(124, "audio"),    W(128, "audioParam"),
                            W(132, "cipher_type"), W(140, "auth_type"), K(156, 64, "key")};
const Field kSrtpVideo[] = {W(120, "on"), W(124, "audio"), W(132, "cipher_type"),
                            W(140, "auth_type"), K(156, 64, "key")};

// Tuning.
const Field kPtime[] = {W(120, "ptime")};
const Field kPlc[] = {W(120, "plc")};
const Field kDjb[] = {W(120, "djbParam1"), W(124, "djbParam2"), W(128, "djbParam3"),
                      W(132, "djbParam4")};
const Field kNetMode[] = {W(120, "netMode")};
const Field kEq[] = {W(120, "eq")};
const Field kNr[] = {W(120, "nr")};
const Field kRtpParam[] = {W(120, "rtpParam")};
const Field kLogLevel[] = {W(120, "logLevel")};
const Field kCountry[] = {W(120, "code")};
const Field kCameraInit[] = {W(120, "cameraParam1"), W(124, "cameraParam2")};

// Video.
const Field kInterval[] = {W(120, "interval")};
const Field kResolution[] = {W(120, "resolution")};
const Field kFps[] = {W(120, "fps")};
const Field kRate[] = {W(120, "rate")};
const Field kShowPip[] = {W(120, "onOff"), W(124, "word124")};
const Field kCapture[] = {W(120, "surface"), W(124, "captureArg"), T(128, 256, "path")};
const Field kBrightness[] = {W(120, "brightness")};
const Field kWhitebalance[] = {W(120, "whitebalance")};
const Field kCamera[] = {W(120, "param1"), W(124, "param2")};
const Field kExpand[] = {W(120, "expand")};

// File receive.
const Field kOpenFileRx[] = {T(120, 254, "fileName")};
const Field kFileRxLocation[] = {W(120, "location1"), W(124, "location2"), W(128, "location3"),
                                 W(132, "location4"), W(136, "location5"), W(140, "location6"),
                                 W(144, "location7"), W(148, "location8")};

// Registration.
const Field kRegist[] = {T(120, 10, "appName"), T(132, 50, "eventRxIp"), W(184, "eventRxPort"),
                         W(188, "priority"), W(192, "pid")};
const Field kUnregist[] = {T(120, 10, "appName")};

// VQMon: two words and six 256-byte text slots.
const Field kVqmMonitor[] = {W(120, "monitorCmd"), W(124, "monitorParam")};
const Field kVqmConfig[] = {T(128, 256, "configText")};
const Field kVqmIpInfo[] = {W(120, "ipValue1"), W(124, "ipValue2"), T(128, 256, "ipText1"),
                            T(384, 256, "ipText2")};
const Field kVqmCallInfo[] = {W(120, "callValue"),         T(128, 256, "callText1"),
                              T(384, 256, "callText2"),    T(640, 256, "callText3"),
                              T(896, 256, "callText4"),    T(1152, 256, "callText5"),
                              T(1408, 256, "callText6")};

#define FIELDS(a) a, std::size(a)
#define NOFIELDS nullptr, 0

// Every request number the service receives, in number order. Numbers with a
// kind but no known operation are "spare": they carry the head alone.
const RequestDesc kRequests[] = {
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

void appendFmt(std::string& out, const char* fmt, long long v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, fmt, v);
  out += buf;
}

void appendHex(std::string& out, const uint8_t* p, size_t n) {
  static const char digits[] = "0123456789abcdef";
  for (size_t i = 0; i < n; ++i) {
    out += digits[p[i] >> 4];
    out += digits[p[i] & 0x0f];
  }
}

// Hex of at most kHexShown bytes, with the count of those left out.
void appendHexBounded(std::string& out, const uint8_t* p, size_t n) {
  appendHex(out, p, std::min(n, kHexShown));
  if (n > kHexShown) appendFmt(out, "...(+%lld)", static_cast<long long>(n - kHexShown));
}

void appendField(std::string& out, const Field& f, const uint8_t* data, size_t len) {
  if (f.offset >= len) return;
  const size_t avail = std::min<size_t>(f.width, len - f.offset);
  const uint8_t* p = data + f.offset;
  switch (f.type) {
    case FieldType::I32:
      if (avail < 4) return;  // a partial word is not shown
      out += ' ';
      out += f.name;
      appendFmt(out, "=%lld", readI32(data, f.offset));
      break;
    case FieldType::Text:
      out += ' ';
      out += f.name;
      out += '=';
      appendQuoted(out, p, avail);
      if (avail == f.width && std::memchr(p, 0, avail) == nullptr) out += "(unterminated)";
      break;
    case FieldType::Key:
      out += ' ';
      out += f.name;
      out += '=';
      appendHex(out, p, avail);
      break;
  }
}

}  // namespace

const RequestDesc* findRequest(int32_t reqNo) {
  for (const RequestDesc& r : kRequests)
    if (r.reqNo == reqNo) return &r;
  return nullptr;
}

int32_t readI32(const uint8_t* data, size_t off) {
  const uint32_t u = static_cast<uint32_t>(data[off]) | static_cast<uint32_t>(data[off + 1]) << 8 |
                     static_cast<uint32_t>(data[off + 2]) << 16 |
                     static_cast<uint32_t>(data[off + 3]) << 24;
  int32_t v;
  std::memcpy(&v, &u, sizeof v);
  return v;
}

void appendQuoted(std::string& out, const uint8_t* text, size_t len) {
  static const char digits[] = "0123456789abcdef";
  out += '"';
  for (size_t i = 0; i < len && text[i] != 0; ++i) {
    const uint8_t c = text[i];
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c >= 0x20 && c < 0x7f) {
          out += static_cast<char>(c);
        } else {
          out += "\\x";
          out += digits[c >> 4];
          out += digits[c & 0x0f];
        }
    }
  }
  out += '"';
}

std::string describeRequest(const uint8_t* data, size_t len, const char* from) {
  std::string out;
  const RequestDesc* desc = nullptr;
  if (len >= 4) {
    const int32_t reqNo = readI32(data, kHeadReqNo);
    desc = findRequest(reqNo);
    appendFmt(out, "reqNo=%lld ", reqNo);
    out += desc ? desc->name : "unknown";
  } else {
    out += "reqNo=? unknown";
  }
  if (len >= kHeadLength)
    appendFmt(out, " channel=%lld", readI32(data, kHeadChannel));
  else
    out += " channel=?";
  appendFmt(out, " len=%lld", static_cast<long long>(len));

  out += " from=";
  if (from)
    appendQuoted(out, reinterpret_cast<const uint8_t*>(from), std::strlen(from));
  else
    out += '-';
  if (len > kHeadSockPath) {
    // sockPath is shown only when it tells something the source address doesn't.
    std::string path;
    appendQuoted(path, data + kHeadSockPath, std::min(kSockPathWidth, len - kHeadSockPath));
    std::string fromQuoted;
    if (from) appendQuoted(fromQuoted, reinterpret_cast<const uint8_t*>(from), std::strlen(from));
    if (path != fromQuoted) out += " sockPath=" + path;
  }

  if (desc) {
    for (size_t i = 0; i < desc->fieldCount; ++i) appendField(out, desc->fields[i], data, len);
    if (len < desc->length) {
      appendFmt(out, " short(record=%lld)", desc->length);
    } else if (len > desc->length) {
      appendFmt(out, " extra=%lld:", static_cast<long long>(len - desc->length));
      appendHexBounded(out, data + desc->length, len - desc->length);
    }
  } else if (len > kHeadLength) {
    appendFmt(out, " payload=%lld:", static_cast<long long>(len - kHeadLength));
    appendHexBounded(out, data + kHeadLength, len - kHeadLength);
  } else if (len < kHeadLength) {
    out += " short(head) hex=";
    appendHexBounded(out, data, len);
  }
  return out;
}

}  // namespace vxsim
