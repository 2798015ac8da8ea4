// The client library's catalogue: one row per operation and overload (and a
// few more for values that matter), which drives three checks: every byte of
// the record that leaves, the result and log line of the row's form when the
// service is down, and, with the table of logged calls, every refusal and
// notice.
#include "vxclient.h"
#include "vxtest.h"

#include <regex>
#include <unistd.h>

namespace {

using Call = int (*)(int, int);
#define OP(call) #call, []([[maybe_unused]] int s, [[maybe_unused]] int c) -> int { return call; }

const std::string kLong(300, 'a');
const std::string k128(128, 'p');
unsigned char kKey[64];

// The form decides how a failed send ends: 'S' strict and 'V' value (-7 and
// "<send call>==VERY_OK"), 'N' non-zero (-7 and "<send call>!=0"), 'Q' silent
// (-1, no line of its own), 'R' a registration (its socket all the same), 'U'
// an unregistration (0); '-' sends nothing. Fields as putFields reads them;
// the key bytes are kKey's.
struct Op {
    const char* text;
    Call call;
    int reqNo, len;
    char form;
    const char* fields;
    int want = 1;
    size_t first = 0; // datagrams the call sends before its own
};

// clang-format off
const Op kOps[] = {
    {OP(registApplication("catalogue12", 5, 7700, "::1")), 303, 196, 'R',
     "116=0 120'catalogue' 132'::1' 184=7700 188=5 192=pid"},
    {OP(registApplication("cat", 0, 101)), 303, 196, 'R', "116=0 120'cat' 132'127.0.0.1' 184=101 192=pid"},
    {OP(regForVxShell("dbg", 2, "10.0.0.1", -1)), 303, 196, 'R', "116=0 120'dbg' 132'10.0.0.1' 184=-1 188=2 192=pid"},
    {OP(unregistApplication(registApplication("x", 0, -1, "127.0.0.1"))), 304, 132, 'U', "116=0", 1, 1},
    {OP(unregistApplication("cat")), 304, 132, 'U', "116=0 120'cat'"},
    {OP(unregistApplicationWithName("named12345")), 304, 132, 'U', "116=0 120'named1234'"},
    {OP(terminateVx(s)), 301, 120, 'S', "116=0"},
    {OP(createChannel(s)), 305, 120, 'V', "116=0", 7},
    {OP(deleteChannel(s, c)), 306, 120, 'S', ""},
    {OP(getMaxConcChannelNo(s)), 307, 120, 'V', "116=0", 4},

    {OP(setPlaybackVolume(s, c, 15, 4)), 8, 128, 'S', "120=4 124=15"},
    {OP(setPlaybackVolume(s, c, 100, 3)), 8, 128, 'S', "120=3 124=100"},
    {OP(setRecordVolume(s, c, 100, 3)), 9, 128, 'S', "120=3 124=100"},
    {OP(setRecordVolumeMode(s, c, 7, 2)), 9, 128, 'S', "120=2 124=7"},
    {OP(setRecordVolume(s, c, 16)), 9, 128, 'S', "124=16"},
    {OP(muteMic(s, c, 7, 11)), 12, 128, 'S', "120=11 124=1"},
    {OP(muteMic(s, c, -2)), 12, 128, 'S', "124=1"},
    {OP(setAudioMode(s, c, -3, nullptr, 5, 6)), 15, 144, 'S', "132=-3 136=5 140=6"},
    {OP(setAudioMode(s, c, 4, "abcdefghijkl", 0, 0)), 15, 144, 'S', "116=-1 120'abcdefghi' 132=4"},
    {OP(openSpeakerAdditionally(s, c, 9)), 16, 124, 'S', "120=1"},
    {OP(setSpeakerOpen(s, c, 0)), 18, 124, 'S', ""},
    {OP(setPstnConfMode(s, c, -1)), 14, 124, 'S', "120=1"},
    {OP(setAec(s, c, 1)), 17, 124, 'S', "120=1"},
    {OP(setPushToTalk(s, c, 5)), 10, 124, 'S', "120=1"},
    {OP(setIpv6(s, c, 0)), 11, 124, 'S', ""},
    {OP(connectBluetoothSco(s, c, 2)), 6, 124, 'S', "120=1"},
    {OP(muteSpeaker(s, c, 1)), 0, 0, '-', ""},

    {OP(startTripleTone(s, c, TONE_HIGH, 440, 4999, 1, 2, 3, 4, 5, 6, 7, 8)), 1, 168, 'S',
     "120=300 124=440 128=4999 132=1 136=2 140=3 144=4 148=6 152=7 156=5 160=8 164=1"},
    {OP(startDualTone(s, c, TONE_LOW, 0, 1, 0, 0, 0, 0, -5, 0, 0, 0)), 1, 168, 'S', "120=100 128=1 156=-1 164=1"},
    {OP(startDualTone(s, c, TONE_VIRTUAL_RING, 350, 440, 1, 2, 3, 4, 9)), 1, 168, 'S',
     "120=400 124=350 128=440 132=1 136=2 140=3 144=4 156=9 164=1"},
    {OP(stopDualTone(s, c)), 1, 168, 'S', ""},
    {OP(playTone(s, c, 9)), 0, 128, 'S', "124=1"},
    {OP(stopTone(s, c)), 0, 128, 'S', ""},
    {OP(sendDtmf(s, c, 11, 12, 13, 14, 15)), 2, 272, 'S', "120=11 124=12 128=13 132=14 136=15"},
    {OP(playDtmf(s, c, 21, 24, 25, kLong.c_str())), 4, 272, 'S', "120=21 132=24 136=25 144'a'*127"},
    {OP(setDtmfFeedback(s, c, 5)), 310, 124, 'S', "120=1"},
    {OP(playWavFile(s, c, "/sound/a.wav", 1, 1, 2, 3, 4, 5, 6)), 3, 280, 'S',
     "120'/sound/a.wav' 248=1 252=1 256=2 260=3 264=4 268=5 272=6"},
    {OP(playWavFile(s, c, k128.c_str(), 1, 0, 0, 0, 0, 0, 0)), 3, 280, 'S', "248=1"},
    {OP(playWavFile(s, c, k128.c_str() + 1, 0, 1, 0, 0, 0, 0, 0)), 3, 280, 'S', "120'p'*127 252=1"},

    {OP(setAudioCodec(s, c, 7)), 19, 128, 'S', "120=7 124=-1"},
    {OP(setAudioCodec(s, c, 10, 96)), 19, 128, 'S', "120=10 124=96"},
    {OP(set2ndAudioCodec(s, c, 0)), 36, 128, 'S', "124=-1"},
    {OP(set2ndAudioCodec(s, c, 7, 101)), 36, 128, 'S', "120=7 124=101"},
    {OP(setAduioNob(s, c, -5)), 34, 124, 'S', "120=-5"},
    {OP(set2833PayloadType(s, c, 101)), 35, 124, 'S', "120=101"},
    {OP(set2nd2833PayloadType(s, c, 100)), 37, 124, 'S', "120=100"},
    {OP(setTxGain(s, c, -3)), 42, 124, 'S', "120=-3"},
    {OP(setVad(s, c, 5)), 7, 124, 'S', "120=1"},
    {OP(startAudioRx(s, c, 7)), 28, 128, 'S', "120=1"},
    {OP(startAudioRx(s, c, 0, 9)), 28, 128, 'S', "124=1"},
    {OP(startAudioRxOnly(s, c, 4)), 28, 128, 'S', "120=1 124=1"},
    {OP(startAudioRtpLoop(s, c, 3)), 32, 128, 'S', "120=1 124=-1"},
    {OP(startAudioTx(s, c, 2)), 29, 124, 'S', "120=1"},
    {OP(startAudioForward2Saver(s, c, 9)), 33, 124, 'S', "120=1"},
    {OP(startAudioRxTotal(s, c, 3, 77, 7, "10.1.2.3", "9.9.9.9", 5004, 6006, -9)), 30, 248, 'S',
     "120=1 124=-9 132=7 136=-1 190'10.1.2.3' 240=6006 244=5004"},
    {OP(startAudioTxTotal(s, c, 1, 44, 0, "fe80::1", nullptr, 101, 65535)), 31, 248, 'S',
     "120=1 128=44 190'fe80::1' 240=65535 244=101"},
    {OP(startAudioRxTotal(s, c, 0, 5, 99, nullptr, nullptr, 0, -1, 3)), 30, 248, 'S', "124=3 132=99 136=-1 240=-1"},
    {OP(startConference(s, c)), 40, 124, 'S', "120=1"},
    {OP(stop1stSessiontInConference(s, c)), 41, 124, 'S', "120=1"},
    {OP(stop2ndSessiontInConference(s, c)), 41, 124, 'S', "120=2"},

    {OP(setAudioOppIp(s, c, "10.0.0.2", 9000)), 23, 176, 'S', "120'10.0.0.2' 172=9000"},
    {OP(set2ndAudioOppIp(s, c, "::1", 101)), 38, 176, 'S', "120'::1' 172=101"},
    {OP(setAudioSaverIp(s, c, "10.0.0.3", 9004)), 24, 176, 'S', "120'10.0.0.3' 172=9004"},
    {OP(setAudioRxPort(s, c, 9000)), 20, 176, 'N', "172=9000"},
    {OP(setAudioRxPort(s, c, 9000, "10.0.0.2")), 20, 176, 'N', "120'10.0.0.2' 172=9000"},
    {OP(set2ndAudioRxPort(s, c, 9002)), 39, 176, 'N', "172=9002"},
    {OP(set2ndAudioRxPort(s, c, 1, kLong.c_str())), 39, 176, 'N', "120'a'*49 172=1"},
    {OP(setAudioSrcPort2Saver(s, c, 9004)), 21, 176, 'S', "172=9004"},
    {OP(getAudioRxPort(s, c)), 22, 120, 'V', "", 9000},
    {OP(setAudioDscp(s, c, 46)), 25, 124, 'S', "120=46"},

    {OP(enableAudioRxSRTP(s, c, AES_128_ICM, HMAC_SHA1, kKey, 16, -1)), 26, 220, 'S',
     "120=1 124=1 128=-1 132=1 140=3 156~16"},
    {OP(enableAudioTxSRTP(s, c, ARIA_128_ICM, NULL_AUTH, kKey, 64, 7)), 27, 220, 'S', "120=1 124=1 128=7 132=5 156~64"},
    {OP(enableAudioRxSRTP(s, c, AES_128_ICM, NULL_AUTH, nullptr, 0, 0)), 26, 220, 'S', "120=1 124=1 132=1"},
    {OP(enableVideoRxSRTP(s, c, ARIA_196_ICM, HMAC_SHA1, kKey, 16)), 120, 220, 'S', "120=1 132=4 140=3 156~16"},
    {OP(enableVideoTxSRTP(s, c, NULL_CIPHER, NULL_AUTH, kKey, 0)), 121, 220, 'S', "120=1"},
    {OP(disableAudioRxSRTP(s, c, -1)), 26, 220, 'S', "124=1 128=-1"},
    {OP(disableAudioTxSRTP(s, c, 5)), 27, 220, 'S', "124=1 128=5"},
    {OP(disableVideoRxSRTP(s, c)), 120, 220, 'S', ""},
    {OP(disableVideoTxSRTP(s, c)), 121, 220, 'S', ""},

    {OP(setPtime(s, c, 20)), 45, 124, 'S', "120=20"},
    {OP(setPLC(s, c, -2)), 46, 124, 'S', "120=-2"},
    {OP(setDJB(s, c, 1, 2, 3, 4)), 47, 136, 'S', "120=1 124=2 128=3 132=4"},
    {OP(setNetWorkMode(s, c, 3)), 48, 124, 'S', "120=3"},
    {OP(setEQ(s, c, 4)), 49, 124, 'S', "120=4"},
    {OP(setNR(s, c, 5)), 50, 124, 'S', "120=5"},
    {OP(stopRTP(s, c, 6)), 51, 124, 'S', "120=6"},
    {OP(AudioRTPPause(s, c, 7)), 52, 124, 'S', "120=7"},
    {OP(VideoRTPPause(s, c, 8)), 146, 124, 'S', "120=8"},
    {OP(SetLog(s, c, 9)), 53, 124, 'S', "120=9"},
    {OP(setCountryCode(s, c, 22)), 54, 124, 'S', "120=22"},
    {OP(setCameraInit(s, c, 1, 2)), 317, 128, 'S', "120=1 124=2"},

    {OP(setIframe(s, c)), 110, 120, 'S', ""},
    {OP(setVideoGopInterval(s, c, 30)), 111, 124, 'Q', "120=30"},
    {OP(setVideoCodec(s, c, CODEC_H264, -1)), 112, 128, 'S', "120=97 124=97"},
    {OP(setVideoCodec(s, c, CODEC_MPEG4, 120)), 112, 128, 'S', "120=96 124=120"},
    {OP(setVideoCodec(s, c, 95)), 112, 128, 'S', "120=95 124=95"},
    {OP(setVideoTxPayload(s, c, 97)), 113, 124, 'S', "120=97"},
    {OP(setVideoRxPayload(s, c, 98)), 114, 124, 'S', "120=98"},
    {OP(setVideoStreamResolution(s, c, QCIF_MODE)), 115, 124, 'S', "120=2"},
    {OP(setVideoFps(s, c, 15)), 116, 124, 'S', "120=15"},
    {OP(setVideoTxRate(s, c, 384)), 117, 124, 'S', "120=384"},
    {OP(startVideoRx(s, c, 5)), 118, 124, 'S', "120=1"},
    {OP(startVideoTx(s, c, 0)), 119, 124, 'S', ""},
    {OP(setVideoBrightness(s, c, 5)), 133, 124, 'Q', "120=5"},
    {OP(setVideoWhitebalance(s, c, -5)), 134, 124, 'Q', "120=-5"},
    {OP(startVideoForward2Saver(s, c, 2)), 141, 124, 'S', "120=1"},
    {OP(startVideoRelayWithPcClient(s, c, 1)), 144, 124, 'S', "120=1"},
    {OP(setVideoExpand(s, c, 3)), 316, 124, 'Q', "120=3"},

    {OP(setVideoRxPort(s, c, 9010, kLong.c_str())), 104, 176, 'S', "120'a'*49 172=9010"},
    {OP(setVideoRxPort(s, c, 101)), 104, 176, 'S', "172=101"},
    {OP(setVideoOppIp(s, c, "10.0.0.2", 9010)), 125, 176, 'S', "120'10.0.0.2' 172=9010"},
    {OP(getVideoRxPort(s, c)), 126, 120, 'V', "", -1},
    {OP(setVideoDscp(s, c, 34)), 139, 124, 'Q', "120=34"},
    {OP(setVideoSrcPort2Saver(s, c, 9012)), 140, 176, 'S', "172=9012"},
    {OP(setVideoPcClientIp(s, c, "::1", 9014)), 142, 176, 'S', "120'::1' 172=9014"},
    {OP(setVideoRxPortFromPcClient(s, c, 5)), 143, 176, 'S', "172=5"},
    {OP(setVideoSaverIp(s, c, "10.0.0.3", 9016)), 145, 176, 'S', "120'10.0.0.3' 172=9016"},

    {OP(setVideoDisplayPosition(s, c, 0, 0, 480, 272)), 122, 136, 'S', "128=480 132=272"},
    {OP(setVideoPipPosition(s, c, 478, 270, 2, 2)), 127, 136, 'S', "120=478 124=270 128=2 132=2"},
    {OP(showDisp(s, c, 5)), 124, 124, 'Q', "120=1"},
    {OP(showPip(s, c, 0)), 128, 128, 'Q', ""},
    {OP(setPipPriorityHigh(s, c, 7)), 129, 124, 'Q', "120=7"},
    {OP(startMainAppBlackColorKey(s, c, -1)), 130, 124, 'Q', "120=-1"},
    {OP(captureDisp(s, c, 9, "/tmp/d.jpg")), 132, 384, 'Q', "120=1 124=9 128'/tmp/d.jpg'"},
    {OP(capturePip(s, c, 8, kLong.c_str())), 132, 384, 'Q', "124=8 128'a'*254"},
    {OP(sendImage(s, c, "/tmp/i.jpg")), 135, 376, 'Q', "120'/tmp/i.jpg'"},
    {OP(setVideoSource(s, c, nullptr)), 136, 376, 'Q', ""},
    {OP(setVideoDestination(s, c, "/tmp/o")), 137, 376, 'Q', "120'/tmp/o'"},
    {OP(setCamera(s, c, 1, 2)), 138, 128, 'Q', "120=1 124=2"},
    {OP(getCamDetection(s)), 308, 120, 'V', "116=0", 5},

    {OP(openFileRx(s, c, kLong.c_str())), 201, 396, 'Q', "120'a'*254"},
    {OP(runFileRx(s, c)), 202, 396, 'Q', ""},
    {OP(pauseFileRx(s, c)), 203, 396, 'Q', ""},
    {OP(resumeFileRx(s, c)), 204, 396, 'Q', ""},
    {OP(stopFileRx(s, c)), 205, 396, 'Q', ""},
    {OP(setFileRxLocation(s, c, 1, 2, 3, 4, 5, 6, 7, 8)), 206, 396, 'Q',
     "120=1 124=2 128=3 132=4 136=5 140=6 144=7 148=8"},
    {OP(mpeg4ConfigForSdp(176) == std::string("0000010000000120008440fa282c2090a31f")), 0, 0, '-', ""},
    {OP(mpeg4ConfigForSdp(352) == std::string("0000010000000120008440fa28582120a31f") && !mpeg4ConfigForSdp(1)),
     0, 0, '-', ""},
    {OP(mpeg4ProfileLevel() == std::string("2")), 0, 0, '-', ""},
    {OP(reqVQMonMonitor(s, c, 1, 5)), 311, 1664, 'Q', "116=0 120=1 124=5"},
    {OP(reqVQMonUpload(s)), 312, 1664, 'Q', "116=0"},
    {OP(reqVQMonUpdateConfig(s, c, kLong.c_str())), 313, 1664, 'Q', "116=0 128'a'*255"},
    {OP(reqVQMonSetIpInfo(s, c, "10.0.0.1", 1, "10.0.0.2", 2)), 314, 1664, 'Q',
     "116=0 120=1 124=2 128'10.0.0.1' 384'10.0.0.2'"},
    {OP(reqVQMonSetIpInfo(s, c, nullptr, 1, "x", 2)), 314, 1664, 'Q', "116=0 120=1 124=2"},
    {OP(reqVQMonSetIpInfo(s, c, "x", 1, nullptr, 2)), 314, 1664, 'Q', "116=0 120=1 124=2"},
    {OP(reqVQMonUpdateConfig(s, c, nullptr)), 313, 1664, 'Q', "116=0"},
    {OP(reqVQMonSetCallInfo(s, c, "a", "b", "c", nullptr, "e", "f", 9)), 315, 1664, 'Q',
     "116=0 120=9 128'a' 384'b' 640'c' 1152'e' 1408'f'"},
    {OP(reqVQMonSetCallInfo(s, c, "a", "b", nullptr, "d", "e", "f", 9)), 315, 1664, 'Q', "116=0 120=9"},
};

// Calls that log: the result, then each line as "cond" (the function named
// is the operation, or the one behind '@') or as a whole regular expression
// ("^..."). A refused call sends nothing; one that succeeds sends.
struct Logged {
    const char* text;
    Call call;
    int want;
    std::vector<const char*> lines;
};

const char kAmpCheck[] = "(amp==TONE_LOW||amp==TONE_NORMAL||amp==TONE_HIGH||amp==TONE_VIRTUAL_RING)";

const Logged kLogged[] = {
    {OP(registApplication("a", -1, -1, "127.0.0.1")), -16, {"priority>=0"}},
    {OP(registApplication("a", 0, -1, "localhost")), -16, {"checkIp(eventRxIp)"}},
    {OP(regForVxShell("a", 0, nullptr, -1)), -16, {"ip@checkIp", "checkIp(eventRxIp)"}},
    {OP(registApplication("a", 0, 100)), -16, {"port>100@checkPort", "(eventRxPort==-1||checkPort(eventRxPort))"}},
    {OP(unregistApplication(static_cast<const char*>(nullptr))), -16, {"appName"}},
    {OP(unregistApplicationWithName("")), -16, {"appName[0]"}},
    {OP(unregistApplication(-1)), -7, {"^unregistApplication:\\d+\n\\(unregistApplication:\\d+\\)\n$"}},
    {OP(terminateVx(-1)), -7, {"^terminateVx:\\d+\n\\(terminateVx:\\d+\\)\n$"}},
    {OP(setAec(-1, c, 1)), -7,
     {"^Send2VoxalisByApp:\\d+ improper socket:-1\n\\(Send2VoxalisByApp:\\d+\\)\n$",
      "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK"}},
    {OP(reqVQMonMonitor(s, c, 1, 5)), 1, {"^error in needResponse:\\d+\\(311\\)\n$"}},

    {OP(setPlaybackVolume(s, c, -1, 99)), -16, {"vol>=0"}},
    {OP(setPlaybackVolume(s, c, 1, 0)), -16, {"mode>=HANDSET_MODE"}},
    {OP(setPlaybackVolume(s, c, 1, 12)), -16, {"mode<=BT_EHS"}},
    {OP(setPlaybackVolume(s, c, 16, 2)), -16, {"vol<=15"}},
    {OP(setRecordVolume(s, c, 1, 5)), -16, {"mode<=HEADSET_MODE"}},
    {OP(setRecordVolumeMode(s, c, 16, 4)), -16, {"vol<=15"}},
    {OP(setRecordVolume(s, c, 17)), -16, {"vol<=16"}},
    {OP(setRecordVolume(s, c, -1)), -16, {"vol>=0"}},
    {OP(muteMic(s, c, 1, 0)), -16, {"mode>=HANDSET_MODE"}},
    {OP(muteMic(s, c, 1, 12)), -16, {"mode<=BT_EHS"}},
    {OP(setAudioMode(s, c, 12, nullptr, 0, 0)), -16, {"mode<=BT_EHS"}},

    {OP(startDualTone(s, c, 250, 1, 1, 0, 0, 0, 0, 0)), -16, {kAmpCheck}},
    {OP(startTripleTone(s, c, 200, -1, 1, 0, 0, 0, 0, 0, 0, 0, 1)), -16, {"hz1>=0"}},
    {OP(startTripleTone(s, c, 200, 5000, 1, 0, 0, 0, 0, 0, 0, 0, 1)), -16, {"hz1<5000"}},
    {OP(startDualTone(s, c, 200, 1, -1, 0, 0, 0, 0, 0)), -16, {"hz2>=0"}},
    {OP(startDualTone(s, c, 200, 1, 5000, 0, 0, 0, 0, 0)), -16, {"hz2<5000"}},
    {OP(startDualTone(s, c, 200, 0, 0, 0, 0, 0, 0, 0)), -16, {"!(hz1==0 && hz2==0)"}},
    {OP(startDualTone(s, c, 200, 1, 1, -1, 0, 0, 0, 0)), -16, {"firstOntime>=0"}},
    {OP(startDualTone(s, c, 200, 1, 1, 0, -1, 0, 0, 0)), -16, {"firstOfftime>=0"}},
    {OP(startDualTone(s, c, 200, 1, 1, 0, 0, -1, 0, 0)), -16, {"secondOntime>=0"}},
    {OP(startDualTone(s, c, 200, 1, 1, 0, 0, 0, -1, 0)), -16, {"secondOfftime>=0"}},
    {OP(startDualTone(s, c, 200, 1, 1, 0, 0, 0, 0, 0, -1, 0, 1)), -16, {"thirdOnTime>=0"}},
    {OP(startTripleTone(s, c, 200, 1, 1, 0, 0, 0, 0, 0, 0, -1, 1)), -16, {"thirdOffTime>=0"}},
    {OP(startTripleTone(s, c, 200, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0)), 1,
     {"^startTripleTone:\\d+ improper intermitMs:0\n\\(startTripleTone:\\d+\\)\n$"}},
    {OP(playDtmf(s, c, 0, 0, 0, nullptr)), 0, {"filename"}},
    {OP(playWavFile(s, c, nullptr, 0, 1, 0, 0, 0, 0, 0)), 0, {"filePath"}},
    {OP(playWavFile(s, c, k128.c_str(), 0, 1, 0, 0, 0, 0, 0)), -16,
     {"strnlen(filePath,sizeof(req.filePath)+10)<sizeof(req.filePath)"}},

    {OP(setAudioCodec(s, c, -1)), -16, {"codec>=codec_G711a"}},
    {OP(setAudioCodec(s, c, 8)), -16, {"codec<=codec_iLBC"}},
    {OP(setAudioCodec(s, c, -1, 0)), -16, {"codec>=codec_G711a"}},
    {OP(setAudioCodec(s, c, 11, 0)), -16, {"codec<=_CODEC_A_UNKNOWN"}},
    {OP(set2ndAudioCodec(s, c, 8, 0)), -16, {"codec<=codec_iLBC"}},
    {OP(startAudioRxTotal(s, c, 1, 0, 0, "x", nullptr, 5004, 6006, 0)), -16, {"checkIp(remote_ip)"}},
    {OP(startAudioTxTotal(s, c, 1, 0, 0, "::1", nullptr, 100, 6006)), -16,
     {"port>100@checkPort", "checkPort(remote_port)"}},
    {OP(startAudioRxTotal(s, c, 1, 0, 0, "::1", nullptr, 101, 100, 0)), -16,
     {"port>100@checkPort", "checkPort(local_port)"}},
    {OP(startAudioRxTotal(s, c, 1, 0, -1, "::1", nullptr, 101, 101, 0)), -16, {"codec>=codec_G711a"}},
    {OP(startAudioTxTotal(s, c, 1, 0, 8, "::1", nullptr, 101, 101)), -16, {"codec<=codec_iLBC"}},

    {OP(setAudioOppIp(s, c, "phone", 9000)), -16, {"checkIp(ip)"}},
    {OP(setAudioSaverIp(s, c, nullptr, 9000)), -16, {"ip@checkIp", "checkIp(ip)"}},
    {OP(set2ndAudioOppIp(s, c, "::1", 100)), -16, {"port>100@checkPort", "checkPort(port)"}},

    {OP(enableAudioRxSRTP(s, c, 2, 0, kKey, 16, 0)), -16,
     {"(cipher_type==NULL_CIPHER||cipher_type==AES_128_ICM||cipher_type==ARIA_196_ICM||cipher_type==ARIA_128_ICM)"}},
    {OP(enableVideoTxSRTP(s, c, 0, 1, kKey, 16)), -16, {"(auth_type==NULL_AUTH||auth_type==HMAC_SHA1)"}},
    {OP(enableAudioTxSRTP(s, c, 0, 0, kKey, 65, 0)), 0, {"keyLen<=sizeof(req.srtp.key)"}},
    {OP(enableVideoRxSRTP(s, c, 0, 0, kKey, -1)), 0, {"keyLen<=sizeof(req.srtp.key)"}},
    {OP(enableAudioRxSRTP(s, c, 0, 0, nullptr, 1, 0)), -16, {"(key!=NULL||keyLen==0)"}},

    {OP(setVideoCodec(s, c, 33, 0)), -16, {"codec>=CODEC_H263"}},
    {OP(setVideoCodec(s, c, 98, 0)), -16, {"codec<=CODEC_H264"}},
    {OP(setVideoCodec(s, c, CODEC_H264)), -16, {"codec!=CODEC_H264"}},
    {OP(setVideoCodec(s, c, CODEC_MPEG4)), -16, {"codec!=CODEC_MPEG4"}},
    {OP(setVideoCodec(s, c, 33)), -16, {"codec>=CODEC_H263"}},
    {OP(setVideoCodec(s, c, 98)), -16, {"codec<=CODEC_H264"}},
    {OP(setVideoStreamResolution(s, c, -1)), -16, {"resolution>=CIF_MODE"}},
    {OP(setVideoStreamResolution(s, c, 3)), -16, {"resolution<=QCIF_MODE"}},
    {OP(setVideoOppIp(s, c, "bad", 9000)), -16, {"checkIp(ip)"}},
    {OP(setVideoSaverIp(s, c, "::1", 1)), -16, {"port>100@checkPort", "checkPort(port)"}},
    {OP(setVideoRxPort(s, c, 100)), -16, {"port>100@checkPort", "checkPort(port)"}},
    {OP(setVideoSrcPort2Saver(s, c, 0)), -16, {"port>100@checkPort", "checkPort(port)"}},
    {OP(setVideoDisplayPosition(s, c, -1, 0, 2, 2)), -16, {"(x>=0 && x<480)"}},
    {OP(setVideoPipPosition(s, c, 480, 0, 2, 2)), -16, {"(x>=0 && x<480)"}},
    {OP(setVideoPipPosition(s, c, 0, 272, 2, 2)), -16, {"(y>=0 && y<272)"}},
    {OP(setVideoPipPosition(s, c, 0, 0, 1, 2)), -16, {"(width>1 && x+width<=480)"}},
    {OP(setVideoDisplayPosition(s, c, 1, 0, 480, 2)), -16, {"(width>1 && x+width<=480)"}},
    {OP(setVideoDisplayPosition(s, c, 0, 0, 2, 1)), -16, {"(height>1 && y+height<=272)"}},
    {OP(setVideoPipPosition(s, c, 0, 1, 2, 272)), -16, {"(height>1 && y+height<=272)"}},
};
// clang-format on

std::string opName(const std::string& text) { return text.substr(0, text.find('(')); }

} // namespace

// One registration serves all three tables: the records with the service up,
// the refusals and notices, then each form's result and line with it down.
TEST(Catalogue, RecordsRefusalsAndFailedSends)
{
    for (int i = 0; i < 64; ++i)
        kKey[i] = static_cast<unsigned char>(i + 1); // as putFields' "OFF~N"
    SyslogCapture log;
    ASSERT_TRUE(log.ok()) << "/dev/log belongs to a running syslog daemon";
    auto svc = std::make_unique<FakeService>();
    for (const auto& [reqNo, result] : std::map<int, int>{{305, 7}, {307, 4}, {308, 5}})
        svc->setResult(reqNo, result);
    const int s = registApplication("cat", 0, -1, "127.0.0.1"), c = 3;
    ASSERT_GE(s, 0);
    ASSERT_TRUE(svc->waitFor(1));
    // What one call sent, once `n` datagrams are in.
    auto sent = [&](size_t n) { return svc->waitFor(n, 1000), svc->received(); };

    for (const Op& op : kOps) {
        SCOPED_TRACE(op.text);
        svc->clear();
        const int got = op.call(s, c);
        EXPECT_EQ(op.form == 'R' ? got >= 0 : got, op.want); // a registration gives its socket
        if (op.form == 'R')
            close(got);
        const size_t n = op.form == '-' ? 0 : op.first + 1;
        const auto d = sent(n);
        ASSERT_EQ(d.size(), n);
        if (n == 0)
            continue;
        std::vector<uint8_t> want(static_cast<size_t>(op.len), 0);
        // Number, our socket and channel c (3) first; false for a field beyond the record.
        ASSERT_TRUE(putFields(want, "0=" + std::to_string(op.reqNo) + " 8'" + d.back().from + "' 116=3 " + op.fields));
        EXPECT_TRUE(d.back().bytes == want);
    }

    for (const Logged& l : kLogged) {
        SCOPED_TRACE(l.text);
        svc->clear();
        log.clear();
        EXPECT_EQ(l.call(s, c), l.want);
        const auto lines = log.texts();
        ASSERT_EQ(lines.size(), l.lines.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            // "<cond>(<fn>:<line>)\n", or a whole expression.
            const std::string want = l.lines[i], cond = want.substr(0, want.find('@'));
            const std::string fn = cond == want ? opName(l.text) : want.substr(cond.size() + 1);
            if (want[0] == '^')
                EXPECT_TRUE(std::regex_search(lines[i], std::regex(want))) << lines[i];
            else
                EXPECT_EQ(std::regex_replace(lines[i], std::regex(":\\d+\\)\n$"), ":N)\n"), cond + "(" + fn + ":N)\n");
        }
        EXPECT_EQ(sent(l.want == 1).size(), l.want == 1 ? 1u : 0u);
    }

    svc.reset();
    const std::string sendCall = R"(^Send2VoxalisByApp\(sock,&\w+,sizeof\(\w+\),(&resp|NULL|nullptr)\))";
    for (const Op& op : kOps) {
        if (op.form == '-')
            continue;
        SCOPED_TRACE(op.text);
        log.clear();
        const int got = op.call(s, c);
        const auto lines = log.texts();
        ASSERT_FALSE(lines.empty());
        const std::string& last = lines.back();
        const bool formLine = std::regex_search(last, std::regex(sendCall));
        if (op.form == 'R')
            close(got); // a socket all the same
        const int want = op.form == 'R' ? 1 : op.form == 'Q' ? -1 : op.form == 'U' ? 0 : -7;
        EXPECT_EQ(op.form == 'R' ? got >= 0 : got, want);
        if (op.form == 'Q' || op.form == 'U') {
            EXPECT_FALSE(formLine) << last;
        } else if (op.form != 'R') {
            const std::string form = op.form == 'N' ? "!=0" : "==VERY_OK";
            EXPECT_TRUE(std::regex_search(last, std::regex(sendCall + form + "\\(" + opName(op.text) + ":\\d+\\)\n$")))
                << last;
        }
        const std::string& send = lines[lines.size() - 1 - formLine];
        EXPECT_TRUE(std::regex_search(send, std::regex("^\\(Send2VoxalisByApp:\\d+\\)reqNo:\\d+ ")));
    }
    close(s);
}
