// The catalogue of client operations: one row per operation and overload of
// every family, checked against the bytes that leave (request number and
// length of the one datagram a valid call sends, or that nothing leaves), and
// checked against the public header, so that an operation declared there
// without a row, or a row for an operation that is gone, fails the test.
#include "clientfixture.h"

#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <unistd.h>

namespace {

class CatalogueTest : public ClientTest {};

struct Ctx {
    int sock;
    int ch;
    int spare; // a second registered socket, for rows that consume one
};

constexpr int kNone = -1;

// `sig` is the overload: one letter per parameter, sock and channel
// included: i for a number (int and the enumerated typedefs), s for a text,
// p for raw bytes.
struct Op {
    const char* name;
    const char* sig;
    int reqNo;  // kNone: nothing leaves
    size_t len; // 0 with kNone
    int want;   // the result of the valid call
    std::function<int(const Ctx&)> call;
    bool needsSpare = false;
};

const unsigned char kKey[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// A registration's socket is closed at once; the row's result is 1 for a socket.
int keptSocket(int s)
{
    if (s < 0)
        return s;
    close(s);
    return 1;
}

// The channel number the fake service hands out for createChannel here.
constexpr int kChannelAnswer = 7;

const std::vector<Op>& catalogue()
{
    static const std::vector<Op> ops = {
        // ---- registration and channels
        {"registApplication", "siis", 303, 196, 1, [](const Ctx&) { return keptSocket(registApplication("cat", 0, -1, "127.0.0.1")); }},
        {"registApplication", "sii", 303, 196, 1, [](const Ctx&) { return keptSocket(registApplication("cat", 0, 7700)); }},
        {"regForVxShell", "sisi", 303, 196, 1, [](const Ctx&) { return keptSocket(regForVxShell("cat", 0, "127.0.0.1", -1)); }},
        {"unregistApplication", "i", 304, 132, 1, [](const Ctx& c) { return unregistApplication(c.spare); }, true},
        {"unregistApplication", "s", 304, 132, 1, [](const Ctx&) { return unregistApplication("cat"); }},
        {"unregistApplicationWithName", "s", 304, 132, 1, [](const Ctx&) { return unregistApplicationWithName("cat"); }},
        {"terminateVx", "i", 301, 120, 1, [](const Ctx& c) { return terminateVx(c.sock); }},
        {"createChannel", "i", 305, 120, kChannelAnswer, [](const Ctx& c) { return createChannel(c.sock); }},
        {"deleteChannel", "ii", 306, 120, 1, [](const Ctx& c) { return deleteChannel(c.sock, c.ch); }},
        {"getMaxConcChannelNo", "i", 307, 120, 4, [](const Ctx& c) { return getMaxConcChannelNo(c.sock); }},

        // ---- audio path and volume
        {"setPlaybackVolume", "iiii", 8, 128, 1, [](const Ctx& c) { return setPlaybackVolume(c.sock, c.ch, 10, 2); }},
        {"setRecordVolume", "iiii", 9, 128, 1, [](const Ctx& c) { return setRecordVolume(c.sock, c.ch, 5, 1); }},
        {"setRecordVolumeMode", "iiii", 9, 128, 1, [](const Ctx& c) { return setRecordVolumeMode(c.sock, c.ch, 5, 4); }},
        {"setRecordVolume", "iii", 9, 128, 1, [](const Ctx& c) { return setRecordVolume(c.sock, c.ch, 16); }},
        {"muteMic", "iiii", 12, 128, 1, [](const Ctx& c) { return muteMic(c.sock, c.ch, 1, 11); }},
        {"muteMic", "iii", 12, 128, 1, [](const Ctx& c) { return muteMic(c.sock, c.ch, 0); }},
        {"setAudioMode", "iiisii", 15, 144, 1, [](const Ctx& c) { return setAudioMode(c.sock, c.ch, 2, nullptr, 0, 0); }},
        {"openSpeakerAdditionally", "iii", 16, 124, 1, [](const Ctx& c) { return openSpeakerAdditionally(c.sock, c.ch, 1); }},
        {"setSpeakerOpen", "iii", 18, 124, 1, [](const Ctx& c) { return setSpeakerOpen(c.sock, c.ch, 1); }},
        {"setPstnConfMode", "iii", 14, 124, 1, [](const Ctx& c) { return setPstnConfMode(c.sock, c.ch, 1); }},
        {"setAec", "iii", 17, 124, 1, [](const Ctx& c) { return setAec(c.sock, c.ch, 1); }},
        {"setPushToTalk", "iii", 10, 124, 1, [](const Ctx& c) { return setPushToTalk(c.sock, c.ch, 1); }},
        {"setIpv6", "iii", 11, 124, 1, [](const Ctx& c) { return setIpv6(c.sock, c.ch, 1); }},
        {"connectBluetoothSco", "iii", 6, 124, 1, [](const Ctx& c) { return connectBluetoothSco(c.sock, c.ch, 1); }},
        {"muteSpeaker", "iii", kNone, 0, 1, [](const Ctx& c) { return muteSpeaker(c.sock, c.ch, 1); }},

        // ---- tones, DTMF, wave files
        {"startTripleTone", "iiiiiiiiiiiii", 1, 168, 1,
         [](const Ctx& c) { return startTripleTone(c.sock, c.ch, TONE_NORMAL, 440, 480, 100, 100, 100, 100, 1, 100, 100, 10); }},
        {"startDualTone", "iiiiiiiiiiiii", 1, 168, 1,
         [](const Ctx& c) { return startDualTone(c.sock, c.ch, TONE_NORMAL, 440, 480, 100, 100, 100, 100, 1, 100, 100, 10); }},
        {"startDualTone", "iiiiiiiiii", 1, 168, 1,
         [](const Ctx& c) { return startDualTone(c.sock, c.ch, TONE_NORMAL, 440, 480, 100, 100, 100, 100, 1); }},
        {"stopDualTone", "ii", 1, 168, 1, [](const Ctx& c) { return stopDualTone(c.sock, c.ch); }},
        {"playTone", "iii", 0, 128, 1, [](const Ctx& c) { return playTone(c.sock, c.ch, 1); }},
        {"stopTone", "ii", 0, 128, 1, [](const Ctx& c) { return stopTone(c.sock, c.ch); }},
        {"sendDtmf", "iiiiiii", 2, 272, 1, [](const Ctx& c) { return sendDtmf(c.sock, c.ch, 1, 2, 3, 4, 5); }},
        {"playDtmf", "iiiiis", 4, 272, 1, [](const Ctx& c) { return playDtmf(c.sock, c.ch, 1, 4, 5, "/sound/d.txt"); }},
        {"setDtmfFeedback", "iii", 310, 124, 1, [](const Ctx& c) { return setDtmfFeedback(c.sock, c.ch, 1); }},
        {"playWavFile", "iisiiiiiii", 3, 280, 1,
         [](const Ctx& c) { return playWavFile(c.sock, c.ch, "/sound/ring_1.wav", 1, 1, 0, 0, 1, 0, 1); }},

        // ---- audio session
        {"setAudioCodec", "iii", 19, 128, 1, [](const Ctx& c) { return setAudioCodec(c.sock, c.ch, 7); }},
        {"setAudioCodec", "iiii", 19, 128, 1, [](const Ctx& c) { return setAudioCodec(c.sock, c.ch, 10, 101); }},
        {"set2ndAudioCodec", "iii", 36, 128, 1, [](const Ctx& c) { return set2ndAudioCodec(c.sock, c.ch, 0); }},
        {"set2ndAudioCodec", "iiii", 36, 128, 1, [](const Ctx& c) { return set2ndAudioCodec(c.sock, c.ch, 2, 18); }},
        {"setAduioNob", "iii", 34, 124, 1, [](const Ctx& c) { return setAduioNob(c.sock, c.ch, 3); }},
        {"set2833PayloadType", "iii", 35, 124, 1, [](const Ctx& c) { return set2833PayloadType(c.sock, c.ch, 101); }},
        {"set2nd2833PayloadType", "iii", 37, 124, 1, [](const Ctx& c) { return set2nd2833PayloadType(c.sock, c.ch, 101); }},
        {"setTxGain", "iii", 42, 124, 1, [](const Ctx& c) { return setTxGain(c.sock, c.ch, 3); }},
        {"setVad", "iii", 7, 124, 1, [](const Ctx& c) { return setVad(c.sock, c.ch, 1); }},
        {"startAudioRx", "iii", 28, 128, 1, [](const Ctx& c) { return startAudioRx(c.sock, c.ch, 1); }},
        {"startAudioRx", "iiii", 28, 128, 1, [](const Ctx& c) { return startAudioRx(c.sock, c.ch, 1, 1); }},
        {"startAudioRxOnly", "iii", 28, 128, 1, [](const Ctx& c) { return startAudioRxOnly(c.sock, c.ch, 1); }},
        {"startAudioRtpLoop", "iii", 32, 128, 1, [](const Ctx& c) { return startAudioRtpLoop(c.sock, c.ch, 1); }},
        {"startAudioTx", "iii", 29, 124, 1, [](const Ctx& c) { return startAudioTx(c.sock, c.ch, 1); }},
        {"startAudioForward2Saver", "iii", 33, 124, 1, [](const Ctx& c) { return startAudioForward2Saver(c.sock, c.ch, 1); }},
        {"startAudioRxTotal", "iiiiissiii", 30, 248, 1,
         [](const Ctx& c) { return startAudioRxTotal(c.sock, c.ch, 1, 0, 0, "127.0.0.1", nullptr, 9000, 9002, 0); }},
        {"startAudioTxTotal", "iiiiissii", 31, 248, 1,
         [](const Ctx& c) { return startAudioTxTotal(c.sock, c.ch, 1, 0, 0, "127.0.0.1", nullptr, 9000, 9002); }},
        {"startConference", "ii", 40, 124, 1, [](const Ctx& c) { return startConference(c.sock, c.ch); }},
        {"stop1stSessiontInConference", "ii", 41, 124, 1, [](const Ctx& c) { return stop1stSessiontInConference(c.sock, c.ch); }},
        {"stop2ndSessiontInConference", "ii", 41, 124, 1, [](const Ctx& c) { return stop2ndSessiontInConference(c.sock, c.ch); }},

        // ---- audio network
        {"setAudioOppIp", "iisi", 23, 176, 1, [](const Ctx& c) { return setAudioOppIp(c.sock, c.ch, "10.0.0.2", 9000); }},
        {"set2ndAudioOppIp", "iisi", 38, 176, 1, [](const Ctx& c) { return set2ndAudioOppIp(c.sock, c.ch, "::1", 9000); }},
        {"setAudioSaverIp", "iisi", 24, 176, 1, [](const Ctx& c) { return setAudioSaverIp(c.sock, c.ch, "10.0.0.3", 9004); }},
        {"setAudioRxPort", "iii", 20, 176, 1, [](const Ctx& c) { return setAudioRxPort(c.sock, c.ch, 9000); }},
        {"setAudioRxPort", "iiis", 20, 176, 1, [](const Ctx& c) { return setAudioRxPort(c.sock, c.ch, 9000, "10.0.0.2"); }},
        {"set2ndAudioRxPort", "iii", 39, 176, 1, [](const Ctx& c) { return set2ndAudioRxPort(c.sock, c.ch, 9002); }},
        {"set2ndAudioRxPort", "iiis", 39, 176, 1, [](const Ctx& c) { return set2ndAudioRxPort(c.sock, c.ch, 9002, nullptr); }},
        {"setAudioSrcPort2Saver", "iii", 21, 176, 1, [](const Ctx& c) { return setAudioSrcPort2Saver(c.sock, c.ch, 9004); }},
        {"getAudioRxPort", "ii", 22, 120, 9000, [](const Ctx& c) { return getAudioRxPort(c.sock, c.ch); }},
        {"setAudioDscp", "iii", 25, 124, 1, [](const Ctx& c) { return setAudioDscp(c.sock, c.ch, 46); }},

        // ---- SRTP
        {"enableAudioRxSRTP", "iiiipii", 26, 220, 1,
         [](const Ctx& c) { return enableAudioRxSRTP(c.sock, c.ch, AES_128_ICM, HMAC_SHA1, kKey, 16, -1); }},
        {"enableAudioTxSRTP", "iiiipii", 27, 220, 1,
         [](const Ctx& c) { return enableAudioTxSRTP(c.sock, c.ch, ARIA_128_ICM, NULL_AUTH, kKey, 16, -1); }},
        {"enableVideoRxSRTP", "iiiipi", 120, 220, 1,
         [](const Ctx& c) { return enableVideoRxSRTP(c.sock, c.ch, AES_128_ICM, HMAC_SHA1, kKey, 16); }},
        {"enableVideoTxSRTP", "iiiipi", 121, 220, 1,
         [](const Ctx& c) { return enableVideoTxSRTP(c.sock, c.ch, NULL_CIPHER, NULL_AUTH, kKey, 0); }},
        {"disableAudioRxSRTP", "iii", 26, 220, 1, [](const Ctx& c) { return disableAudioRxSRTP(c.sock, c.ch, -1); }},
        {"disableAudioTxSRTP", "iii", 27, 220, 1, [](const Ctx& c) { return disableAudioTxSRTP(c.sock, c.ch, -1); }},
        {"disableVideoRxSRTP", "ii", 120, 220, 1, [](const Ctx& c) { return disableVideoRxSRTP(c.sock, c.ch); }},
        {"disableVideoTxSRTP", "ii", 121, 220, 1, [](const Ctx& c) { return disableVideoTxSRTP(c.sock, c.ch); }},

        // ---- media tuning
        {"setPtime", "iii", 45, 124, 1, [](const Ctx& c) { return setPtime(c.sock, c.ch, 20); }},
        {"setPLC", "iii", 46, 124, 1, [](const Ctx& c) { return setPLC(c.sock, c.ch, 1); }},
        {"setDJB", "iiiiii", 47, 136, 1, [](const Ctx& c) { return setDJB(c.sock, c.ch, 1, 2, 3, 4); }},
        {"setNetWorkMode", "iii", 48, 124, 1, [](const Ctx& c) { return setNetWorkMode(c.sock, c.ch, 1); }},
        {"setEQ", "iii", 49, 124, 1, [](const Ctx& c) { return setEQ(c.sock, c.ch, 1); }},
        {"setNR", "iii", 50, 124, 1, [](const Ctx& c) { return setNR(c.sock, c.ch, 1); }},
        {"stopRTP", "iii", 51, 124, 1, [](const Ctx& c) { return stopRTP(c.sock, c.ch, 1); }},
        {"AudioRTPPause", "iii", 52, 124, 1, [](const Ctx& c) { return AudioRTPPause(c.sock, c.ch, 1); }},
        {"VideoRTPPause", "iii", 146, 124, 1, [](const Ctx& c) { return VideoRTPPause(c.sock, c.ch, 1); }},
        {"SetLog", "iii", 53, 124, 1, [](const Ctx& c) { return SetLog(c.sock, c.ch, 3); }},
        {"setCountryCode", "iii", 54, 124, 1, [](const Ctx& c) { return setCountryCode(c.sock, c.ch, 0); }},
        {"setCameraInit", "iiii", 317, 128, 1, [](const Ctx& c) { return setCameraInit(c.sock, c.ch, 1, 2); }},

        // ---- video stream
        {"setIframe", "ii", 110, 120, 1, [](const Ctx& c) { return setIframe(c.sock, c.ch); }},
        {"setVideoGopInterval", "iii", 111, 124, 1, [](const Ctx& c) { return setVideoGopInterval(c.sock, c.ch, 30); }},
        {"setVideoCodec", "iiii", 112, 128, 1, [](const Ctx& c) { return setVideoCodec(c.sock, c.ch, CODEC_H264, -1); }},
        {"setVideoCodec", "iii", 112, 128, 1, [](const Ctx& c) { return setVideoCodec(c.sock, c.ch, CODEC_H263); }},
        {"setVideoTxPayload", "iii", 113, 124, 1, [](const Ctx& c) { return setVideoTxPayload(c.sock, c.ch, 97); }},
        {"setVideoRxPayload", "iii", 114, 124, 1, [](const Ctx& c) { return setVideoRxPayload(c.sock, c.ch, 97); }},
        {"setVideoStreamResolution", "iii", 115, 124, 1, [](const Ctx& c) { return setVideoStreamResolution(c.sock, c.ch, QCIF_MODE); }},
        {"setVideoFps", "iii", 116, 124, 1, [](const Ctx& c) { return setVideoFps(c.sock, c.ch, 15); }},
        {"setVideoTxRate", "iii", 117, 124, 1, [](const Ctx& c) { return setVideoTxRate(c.sock, c.ch, 384); }},
        {"startVideoRx", "iii", 118, 124, 1, [](const Ctx& c) { return startVideoRx(c.sock, c.ch, 1); }},
        {"startVideoTx", "iii", 119, 124, 1, [](const Ctx& c) { return startVideoTx(c.sock, c.ch, 1); }},
        {"setVideoBrightness", "iii", 133, 124, 1, [](const Ctx& c) { return setVideoBrightness(c.sock, c.ch, 5); }},
        {"setVideoWhitebalance", "iii", 134, 124, 1, [](const Ctx& c) { return setVideoWhitebalance(c.sock, c.ch, 5); }},
        {"startVideoForward2Saver", "iii", 141, 124, 1, [](const Ctx& c) { return startVideoForward2Saver(c.sock, c.ch, 1); }},
        {"startVideoRelayWithPcClient", "iii", 144, 124, 1, [](const Ctx& c) { return startVideoRelayWithPcClient(c.sock, c.ch, 1); }},
        {"setVideoExpand", "iii", 316, 124, 1, [](const Ctx& c) { return setVideoExpand(c.sock, c.ch, 1); }},

        // ---- video network
        {"setVideoRxPort", "iiis", 104, 176, 1, [](const Ctx& c) { return setVideoRxPort(c.sock, c.ch, 9010, "10.0.0.2"); }},
        {"setVideoRxPort", "iii", 104, 176, 1, [](const Ctx& c) { return setVideoRxPort(c.sock, c.ch, 9010); }},
        {"setVideoOppIp", "iisi", 125, 176, 1, [](const Ctx& c) { return setVideoOppIp(c.sock, c.ch, "10.0.0.2", 9010); }},
        // No waiting kind: no answer is read, the result is "no port".
        {"getVideoRxPort", "ii", 126, 120, -1, [](const Ctx& c) { return getVideoRxPort(c.sock, c.ch); }},
        {"setVideoDscp", "iii", 139, 124, 1, [](const Ctx& c) { return setVideoDscp(c.sock, c.ch, 34); }},
        {"setVideoSrcPort2Saver", "iii", 140, 176, 1, [](const Ctx& c) { return setVideoSrcPort2Saver(c.sock, c.ch, 9012); }},
        {"setVideoPcClientIp", "iisi", 142, 176, 1, [](const Ctx& c) { return setVideoPcClientIp(c.sock, c.ch, "10.0.0.4", 9014); }},
        {"setVideoRxPortFromPcClient", "iii", 143, 176, 1, [](const Ctx& c) { return setVideoRxPortFromPcClient(c.sock, c.ch, 9014); }},
        {"setVideoSaverIp", "iisi", 145, 176, 1, [](const Ctx& c) { return setVideoSaverIp(c.sock, c.ch, "10.0.0.3", 9016); }},

        // ---- video display and camera
        {"setVideoDisplayPosition", "iiiiii", 122, 136, 1, [](const Ctx& c) { return setVideoDisplayPosition(c.sock, c.ch, 0, 0, 480, 272); }},
        {"showDisp", "iii", 124, 124, 1, [](const Ctx& c) { return showDisp(c.sock, c.ch, 1); }},
        {"setVideoPipPosition", "iiiiii", 127, 136, 1, [](const Ctx& c) { return setVideoPipPosition(c.sock, c.ch, 300, 150, 176, 120); }},
        {"showPip", "iii", 128, 128, 1, [](const Ctx& c) { return showPip(c.sock, c.ch, 1); }},
        {"setPipPriorityHigh", "iii", 129, 124, 1, [](const Ctx& c) { return setPipPriorityHigh(c.sock, c.ch, 1); }},
        {"startMainAppBlackColorKey", "iii", 130, 124, 1, [](const Ctx& c) { return startMainAppBlackColorKey(c.sock, c.ch, 1); }},
        {"captureDisp", "iiis", 132, 384, 1, [](const Ctx& c) { return captureDisp(c.sock, c.ch, 1, "/tmp/disp.jpg"); }},
        {"capturePip", "iiis", 132, 384, 1, [](const Ctx& c) { return capturePip(c.sock, c.ch, 1, "/tmp/pip.jpg"); }},
        {"sendImage", "iis", 135, 376, 1, [](const Ctx& c) { return sendImage(c.sock, c.ch, "/tmp/img.jpg"); }},
        {"setVideoSource", "iis", 136, 376, 1, [](const Ctx& c) { return setVideoSource(c.sock, c.ch, "/dev/video0"); }},
        {"setVideoDestination", "iis", 137, 376, 1, [](const Ctx& c) { return setVideoDestination(c.sock, c.ch, "/tmp/out"); }},
        {"setCamera", "iiii", 138, 128, 1, [](const Ctx& c) { return setCamera(c.sock, c.ch, 1, 2); }},
        {"getCamDetection", "i", 308, 120, 1, [](const Ctx& c) { return getCamDetection(c.sock); }},

        // ---- file receive, SDP, VQMon
        {"openFileRx", "iis", 201, 396, 1, [](const Ctx& c) { return openFileRx(c.sock, c.ch, "/tmp/rx.bin"); }},
        {"runFileRx", "ii", 202, 396, 1, [](const Ctx& c) { return runFileRx(c.sock, c.ch); }},
        {"pauseFileRx", "ii", 203, 396, 1, [](const Ctx& c) { return pauseFileRx(c.sock, c.ch); }},
        {"resumeFileRx", "ii", 204, 396, 1, [](const Ctx& c) { return resumeFileRx(c.sock, c.ch); }},
        {"stopFileRx", "ii", 205, 396, 1, [](const Ctx& c) { return stopFileRx(c.sock, c.ch); }},
        {"setFileRxLocation", "iiiiiiiiii", 206, 396, 1,
         [](const Ctx& c) { return setFileRxLocation(c.sock, c.ch, 1, 2, 3, 4, 5, 6, 7, 8); }},
        {"mpeg4ConfigForSdp", "i", kNone, 0, 1, [](const Ctx&) { return mpeg4ConfigForSdp(176) != nullptr ? 1 : 0; }},
        {"mpeg4ProfileLevel", "", kNone, 0, 1, [](const Ctx&) { return mpeg4ProfileLevel() != nullptr ? 1 : 0; }},
        {"reqVQMonMonitor", "iiii", 311, 1664, 1, [](const Ctx& c) { return reqVQMonMonitor(c.sock, c.ch, 1, 5); }},
        {"reqVQMonUpload", "i", 312, 1664, 1, [](const Ctx& c) { return reqVQMonUpload(c.sock); }},
        {"reqVQMonUpdateConfig", "iis", 313, 1664, 1, [](const Ctx& c) { return reqVQMonUpdateConfig(c.sock, c.ch, "cfg"); }},
        {"reqVQMonSetIpInfo", "iisisi", 314, 1664, 1,
         [](const Ctx& c) { return reqVQMonSetIpInfo(c.sock, c.ch, "10.0.0.1", 1, "10.0.0.2", 2); }},
        {"reqVQMonSetCallInfo", "iissssssi", 315, 1664, 1,
         [](const Ctx& c) { return reqVQMonSetCallInfo(c.sock, c.ch, "a", "b", "c", "d", "e", "f", 1); }},
    };
    return ops;
}

std::string key(const std::string& name, const std::string& sig) { return name + "(" + sig + ")"; }

// The operations that the public header declares in its family sections,
// as name(signature) with the letters used by the table.
std::multiset<std::string> declaredOperations()
{
    std::ifstream in(std::string(VX_SOURCE_DIR) + "/include/vxclient.h");
    std::stringstream all;
    all << in.rdbuf();
    std::string text = all.str();
    const size_t from = text.find("===== 3.");
    const size_t to = text.find("#endif /* __cplusplus */");
    if (from == std::string::npos || to == std::string::npos || to < from)
        return {};
    text = text.substr(from, to - from);
    text = std::regex_replace(text, std::regex(R"(/\*[\s\S]*?\*/)"), " ");

    std::multiset<std::string> found;
    static const std::regex decl(R"((?:^|;|\n)\s*(?:const\s+char\s*\*|int)\s+(\w+)\s*\(([^)]*)\)\s*;)");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), decl); it != std::sregex_iterator(); ++it) {
        std::string sig;
        const std::string params = (*it)[2];
        std::stringstream ps(params);
        for (std::string p; std::getline(ps, p, ',');) {
            if (p.find_first_not_of(" \t\n") == std::string::npos)
                continue;
            if (std::regex_search(p, std::regex(R"(char\s*\*)")))
                sig += 's';
            else if (std::regex_search(p, std::regex(R"(void\s*\*)")))
                sig += 'p';
            else
                sig += 'i';
        }
        found.insert(key((*it)[1], sig));
    }
    return found;
}

} // namespace

TEST(Catalogue, EveryDeclaredOperationHasOneRowAndEveryRowIsDeclared)
{
    const auto declared = declaredOperations();
    ASSERT_GT(declared.size(), 100u) << "the header could not be read";
    std::multiset<std::string> listed;
    for (const Op& op : catalogue())
        listed.insert(key(op.name, op.sig));
    for (const auto& d : declared)
        EXPECT_EQ(listed.count(d), 1u) << d << " is declared but has " << listed.count(d) << " rows";
    for (const auto& l : listed)
        EXPECT_EQ(declared.count(l), 1u) << l << " has a row but is declared " << declared.count(l) << " times";
}

TEST_F(CatalogueTest, EachOperationSendsItsNumberAndLengthOrNothing)
{
    svc->setResult(305, kChannelAnswer);
    svc->setResult(308, 1);
    for (const Op& op : catalogue()) {
        const std::string what = key(op.name, op.sig);
        int spare = -1;
        if (op.needsSpare) {
            clear();
            spare = registApplication("spare", 0, -1, "127.0.0.1");
            ASSERT_GE(spare, 0) << what;
            ASSERT_TRUE(svc->waitFor(1)) << what;
        }
        clear();
        testing::internal::CaptureStdout(); // traces of the operations
        const int result = op.call(Ctx{sock, ch, spare});
        fflush(stdout);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, op.want) << what;
        const auto got = settle(op.reqNo == kNone ? 0 : 1);
        if (op.reqNo == kNone) {
            EXPECT_TRUE(got.empty()) << what << " must send nothing";
            continue;
        }
        ASSERT_EQ(got.size(), 1u) << what;
        EXPECT_EQ(got[0].reqNo(), op.reqNo) << what;
        EXPECT_EQ(got[0].size(), op.len) << what;
    }
}
