/*
 * vxclient.h - the client library of the voxalis media service.
 *
 * Every operation builds one fixed binary request record and hands it to
 * Send2VoxalisByApp, which sends it as one datagram to /tmp/vx/vxRxSock and,
 * for the request numbers that wait, reads one 84-byte tResp2App back.
 *
 * Index
 *   1. Records and constants      tMediaReq, tResp2App, result codes, enumerations
 *   2. Transport                  Send2VoxalisByApp
 *   3. Registration and channels  reqNo 301, 303..307
 *   4. Audio path and volume      reqNo 6..18
 *   5. Tones, DTMF, wave files    reqNo 0..4, 310
 *   6. Audio session              reqNo 7, 19, 28..42
 *   7. Audio network              reqNo 20..25, 38, 39
 *   8. SRTP                       reqNo 26, 27, 120, 121
 *   9. Media tuning               reqNo 45..54, 146, 317
 *  10. Video stream               reqNo 110..119, 133, 134, 141, 144, 316
 *  11. Video network              reqNo 104, 125, 126, 139, 140, 142, 143, 145
 *  12. Video display and camera   reqNo 122..138, 308
 *  13. File receive, SDP, VQMon   reqNo 201..206, 311..315
 *
 * Results: 1 (VERY_OK) on success; -7 transport or resource failure; -16 an
 * argument was refused (nothing was sent); the silent form gives -1 on
 * failure; the value form gives the response's result word. Every refusal
 * and failure leaves one line in syslog under the ident "MLIB".
 *
 * The library keeps no state between calls: the caller holds the socket from
 * the registration and the channel from createChannel, and passes them first.
 */
#ifndef VXCLIENT_H
#define VXCLIENT_H

#include <stdint.h>

/* ===== 1. Records and constants ======================================== */

/* Common head of every request record (120 bytes). */
typedef struct tMediaReq {
    int32_t reqNo;      /* request number */
    int32_t reserved;   /* never written by the library */
    char sockPath[108]; /* sender's socket path; written by the transport */
    int32_t channel;    /* channel from createChannel, 0 when none */
} tMediaReq;

/* Response record (84 bytes); only reqNo and result have readers. */
typedef struct tResp2App {
    int32_t reqNo;  /* number of the request this answers */
    int32_t result; /* the answer; -1 when no response could be received */
    char rest[76];
} tResp2App;

#ifdef __cplusplus
static_assert(sizeof(tMediaReq) == 120, "tMediaReq is 120 bytes");
static_assert(sizeof(tResp2App) == 84, "tResp2App is 84 bytes");
#endif

/* Result codes. */
#define VERY_OK         1
#define VX_ERR_RESOURCE (-7)
#define VX_ERR_ARGUMENT (-16)

/* Fixed paths of the service and of the side files. */
#define VX_DIR            "/tmp/vx"
#define VX_SERVICE_SOCK   "/tmp/vx/vxRxSock"
#define VX_PID_FILE       "/tmp/vx/voxalis.pid"
#define VX_IGNORE_FILE    "/tmp/vx/ignoreVxReq"
#define VX_SAVEMSG_FILE   "/tmp/vx/saveMsg"
#define VX_SAVE_DIR       "/tmp/vx/tx/"
#define VX_PRINTTIME_FILE "/tmp/vx/printReqTime"
#define VX_APP_TEMPLATE   "/tmp/vx/appXXXXXX"
#define VX_DBG_SOCK       "/tmp/vx/vxdbg2vx"

/* Audio path (tAudioMode): a range 1..11 with three named marks. */
typedef int tAudioMode;
enum { HANDSET_MODE = 1, HEADSET_MODE = 4, BT_EHS = 11 };

/* Audio codec numbers: only the limits are named. */
enum { codec_G711a = 0, codec_iLBC = 7, _CODEC_A_UNKNOWN = 10 };

/* Video codec numbers and resolution modes. */
enum { CODEC_H263 = 34, CODEC_MPEG4 = 96, CODEC_H264 = 97 };
enum { CIF_MODE = 0, QCIF_MODE = 2 };

/* The phone's screen, in pixels. */
enum { VX_SCREEN_WIDTH = 480, VX_SCREEN_HEIGHT = 272 };

/* Tone level (tToneAmp) and built-in tone (tTone, values known to the service). */
typedef int tToneAmp;
typedef int tTone;
enum { TONE_LOW = 100, TONE_NORMAL = 200, TONE_HIGH = 300, TONE_VIRTUAL_RING = 400 };

/* SRTP cipher_type and auth_type. */
enum { NULL_CIPHER = 0, AES_128_ICM = 1, ARIA_196_ICM = 4, ARIA_128_ICM = 5 };
enum { NULL_AUTH = 0, HMAC_SHA1 = 3 };

#ifdef __cplusplus

/* ===== 2. Transport ==================================================== */

/* Sends len bytes of mediaReq (which starts with tMediaReq) from sock to the
 * service, writing sock's own path into sockPath first. Waits up to the
 * socket's receive time-out for one response when the request's kind asks for
 * it, copying it to *resp. Honours the side files under /tmp/vx/.
 * Returns 1 (VERY_OK), or 0 when not sent or not answered. */
int Send2VoxalisByApp(int sock, void* mediaReq, int len, tResp2App* resp);

/* ===== 3. Registration and channels (reqNo 301, 303..307) ================ */

/* Makes a socket bound under /tmp/vx/appXXXXXX, sends reqNo 303 (196 bytes).
 * Returns the socket; -16 for priority<0, a bad eventRxIp or eventRxPort
 * neither -1 nor >100; -7 when no socket could be made or bound. */
int registApplication(const char* appName, int priority, int eventRxPort, const char* eventRxIp);
/* As above with eventRxIp "127.0.0.1"; logs the new socket number. */
int registApplication(const char* appName, int priority, int eventRxPort);
/* As registApplication, bound at the fixed path /tmp/vx/vxdbg2vx. */
int regForVxShell(const char* appName, int priority, const char* eventRxIp, int eventRxPort);
/* Sends reqNo 304 (132 bytes, empty name) on sock, then shuts it down and
 * closes it. Returns the transport's 0/1, 0 if close fails, -7 for sock -1. */
int unregistApplication(int sock);
/* Sends reqNo 304 naming appName from a transient socket. -16 for a null or
 * empty name, -7 when no socket could be made; else as above. */
int unregistApplication(const char* appName);
int unregistApplicationWithName(const char* appName);
/* reqNo 301, 120 bytes, no wait. 1, or -7 (also for sock -1). */
int terminateVx(int sock);
/* reqNo 305, waits. The service's new channel number, or -7. */
int createChannel(int sock);
/* reqNo 306 with the channel in the head, no wait. 1 or -7. */
int deleteChannel(int sock, int channel);
/* reqNo 307, waits. The service's channel limit, or -7. */
int getMaxConcChannelNo(int sock);

/* ===== 4. Audio path and volume (reqNo 6..18) ========================== */

/* reqNo 8, 128 bytes: mode at 120, vol at 124. -16 for vol<0, mode outside
 * 1..11, or vol>15 in modes 1, 2, 4. */
int setPlaybackVolume(int sock, int channel, int vol, tAudioMode mode);
/* reqNo 9, 128 bytes: as setPlaybackVolume with modes 1..4 only. */
int setRecordVolume(int sock, int channel, int vol, tAudioMode mode);
int setRecordVolumeMode(int sock, int channel, int vol, tAudioMode mode);
/* reqNo 9 with mode 0; -16 for vol outside 0..16. */
int setRecordVolume(int sock, int channel, int vol);
/* reqNo 12, 128 bytes: mode at 120 (1..11), enable normalised at 124. */
int muteMic(int sock, int channel, int enable, tAudioMode mode);
/* reqNo 12 with mode 0, no checks. */
int muteMic(int sock, int channel, int enable);
/* reqNo 15, 144 bytes. -16 for mode>11. A targetName (at most 9 characters
 * arrive) replaces the head's channel by -1. */
int setAudioMode(int sock, int channel, tAudioMode mode, const char* targetName, int modeParam1, int modeParam2);
/* Switches, 124 bytes, enable normalised at 120: reqNo 16, 18, 14, 17, 10, 11, 6. */
int openSpeakerAdditionally(int sock, int channel, int enable);
int setSpeakerOpen(int sock, int channel, int enable);
int setPstnConfMode(int sock, int channel, int enable);
int setAec(int sock, int channel, int enable);
int setPushToTalk(int sock, int channel, int enable);
int setIpv6(int sock, int channel, int enable);
int connectBluetoothSco(int sock, int channel, int enable);
/* Sends nothing and returns 1. */
int muteSpeaker(int sock, int channel, int enable);

/* ===== 5. Tones, DTMF and wave files (reqNo 0..4, 310) ================== */

/* reqNo 1, 168 bytes, start flag 1. -16 for an amp other than the four
 * levels, a frequency outside 0..4999, both frequencies 0 or a negative
 * phase. intermitMs below 1 is logged and sent as 0; repeat<0 is sent as -1. */
int startTripleTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                    int secondOntime, int secondOfftime, int repeat, int thirdOnTime, int thirdOffTime, int intermitMs);
int startDualTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                  int secondOntime, int secondOfftime, int repeat, int thirdOnTime, int thirdOffTime, int intermitMs);
/* Two phases only: the third phase and intermitMs are sent as 0. */
int startDualTone(int sock, int channel, tToneAmp amp, int hz1, int hz2, int firstOntime, int firstOfftime,
                  int secondOntime, int secondOfftime, int repeat);
/* reqNo 1 with the start flag 0. */
int stopDualTone(int sock, int channel);
/* reqNo 0, 128 bytes: 1 (play) or 0 (stop) at 124. */
int playTone(int sock, int channel, tTone tone);
int stopTone(int sock, int channel);
/* reqNo 2, 272 bytes. */
int sendDtmf(int sock, int channel, int dtmfParam1, int dtmfParam2, int dtmfParam3, int dtmfParam4, int dtmfParam5);
/* reqNo 4, 272 bytes; 0 for a null filename; longer names are cut at 127. */
int playDtmf(int sock, int channel, int dtmfParam1, int dtmfParam4, int dtmfParam5, const char* filename);
/* reqNo 310, 124 bytes, enable normalised. */
int setDtmfFeedback(int sock, int channel, int enable);
/* reqNo 3, 280 bytes. With playFile non-zero: 0 for a null path, -16 for a
 * path of 128 characters or more. */
int playWavFile(int sock, int channel, const char* filePath, int wavParam1, int playFile, int wavParam2, int wavParam3,
                int repeat, int wavParam4, int wavParam5);

/* ===== 6. Audio session (reqNo 7, 19, 28..42) =========================== */

/* reqNo 19, 128 bytes: codec 0..7, payload type -1. */
int setAudioCodec(int sock, int channel, int codec);
/* reqNo 19: codec 0..10 with the given payload type. */
int setAudioCodec(int sock, int channel, int codec, int payloadType);
/* reqNo 36: codec 0..7. */
int set2ndAudioCodec(int sock, int channel, int codec);
int set2ndAudioCodec(int sock, int channel, int codec, int payloadType);
/* Plain values, 124 bytes: reqNo 34, 35, 37, 42. */
int setAduioNob(int sock, int channel, int nob);
int set2833PayloadType(int sock, int channel, int payloadType);
int set2nd2833PayloadType(int sock, int channel, int payloadType);
int setTxGain(int sock, int channel, int gain);
/* reqNo 7, enable normalised. */
int setVad(int sock, int channel, int enable);
/* reqNo 28 (waits for the service's answer): enable, rxOnly (0). */
int startAudioRx(int sock, int channel, int enable);
int startAudioRx(int sock, int channel, int enable, int rxOnly);
int startAudioRxOnly(int sock, int channel, int enable);
/* reqNo 32: enable, -1. */
int startAudioRtpLoop(int sock, int channel, int enable);
/* reqNo 29 (waits). */
int startAudioTx(int sock, int channel, int enable);
/* reqNo 33. */
int startAudioForward2Saver(int sock, int channel, int enable);
/* reqNo 30 / 31, 248 bytes. With enable set: address, ports and codec 0..7
 * are checked and the request leaves after a 50 ms pause. */
int startAudioRxTotal(int sock, int channel, int enable, int spareParam, int codec, const char* remote_ip,
                      const char* spareIp, int remote_port, int local_port, int rxMode);
int startAudioTxTotal(int sock, int channel, int enable, int txParam, int codec, const char* remote_ip,
                      const char* spareIp, int remote_port, int local_port);
/* reqNo 40 (1), 41 (1), 41 (2). */
int startConference(int sock, int channel);
int stop1stSessiontInConference(int sock, int channel);
int stop2ndSessiontInConference(int sock, int channel);

/* ===== 7. Audio network (reqNo 20..25, 38, 39) ========================== */

/* 176-byte address record: ip text at 120 (49 characters), port at 172. */
int setAudioOppIp(int sock, int channel, const char* ip, int port);     /* 23, checked */
int set2ndAudioOppIp(int sock, int channel, const char* ip, int port);  /* 38, checked */
int setAudioSaverIp(int sock, int channel, const char* ip, int port);   /* 24, checked */
int setAudioRxPort(int sock, int channel, int port);                    /* 20 */
int setAudioRxPort(int sock, int channel, int port, const char* ip);    /* 20 */
int set2ndAudioRxPort(int sock, int channel, int port);                 /* 39 */
int set2ndAudioRxPort(int sock, int channel, int port, const char* ip); /* 39 */
int setAudioSrcPort2Saver(int sock, int channel, int port);             /* 21 */
/* reqNo 22, waits: the receive port the service reports, or -7. */
int getAudioRxPort(int sock, int channel);
/* reqNo 25: dscp unchanged. */
int setAudioDscp(int sock, int channel, int dscp);

/* ===== 8. SRTP (reqNo 26, 27, 120, 121) ================================= */

/* 220-byte record. -16 for a cipher other than 0, 1, 4, 5 or an auth other
 * than 0, 3; 0 for keyLen outside 0..64; -16 for a null key with keyLen
 * above 0. key holds keyLen raw bytes. */
int enableAudioRxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen,
                      int audioParam);
int enableAudioTxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen,
                      int audioParam);
int enableVideoRxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen);
int enableVideoTxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen);
int disableAudioRxSRTP(int sock, int channel, int audioParam);
int disableAudioTxSRTP(int sock, int channel, int audioParam);
int disableVideoRxSRTP(int sock, int channel);
int disableVideoTxSRTP(int sock, int channel);

/* ===== 9. Media tuning (reqNo 45..54, 146, 317) ========================= */

/* Plain setters, values sent unchanged, no checks. 1 or -7. */
int setPtime(int sock, int channel, int ptime);
int setPLC(int sock, int channel, int plc);
int setDJB(int sock, int channel, int djbParam1, int djbParam2, int djbParam3, int djbParam4);
int setNetWorkMode(int sock, int channel, int netMode);
int setEQ(int sock, int channel, int eq);
int setNR(int sock, int channel, int nr);
int stopRTP(int sock, int channel, int rtpParam);
int AudioRTPPause(int sock, int channel, int pause);
int VideoRTPPause(int sock, int channel, int pause);
int SetLog(int sock, int channel, int logLevel);
int setCountryCode(int sock, int channel, int code);
int setCameraInit(int sock, int channel, int cameraParam1, int cameraParam2);

/* ===== 10. Video stream (reqNo 110..119, 133, 134, 141, 144, 316) ======== */

int setIframe(int sock, int channel);
int setVideoGopInterval(int sock, int channel, int interval);
/* codec 34..97; payloadType -1 means the codec's own number. */
int setVideoCodec(int sock, int channel, int codec, int payloadType);
/* codec 34..95, sent as codec and payload type. */
int setVideoCodec(int sock, int channel, int codec);
int setVideoTxPayload(int sock, int channel, int payloadType);
int setVideoRxPayload(int sock, int channel, int payloadType);
/* resolution 0..2. */
int setVideoStreamResolution(int sock, int channel, int resolution);
int setVideoFps(int sock, int channel, int fps);
int setVideoTxRate(int sock, int channel, int rate);
int startVideoRx(int sock, int channel, int onOff);
int startVideoTx(int sock, int channel, int onOff);
int setVideoBrightness(int sock, int channel, int brightness);
int setVideoWhitebalance(int sock, int channel, int whitebalance);
int startVideoForward2Saver(int sock, int channel, int onOff);
int startVideoRelayWithPcClient(int sock, int channel, int onOff);
int setVideoExpand(int sock, int channel, int expand);

/* ===== 11. Video network (reqNo 104, 125, 126, 139, 140, 142, 143, 145) == */

int setVideoRxPort(int sock, int channel, int port, const char* ip);
int setVideoRxPort(int sock, int channel, int port);
int setVideoOppIp(int sock, int channel, const char* ip, int port);
/* reqNo 126. The service's number has no waiting kind, so no answer is read:
 * the result is -1 ("no port") unless a response was actually received. */
int getVideoRxPort(int sock, int channel);
int setVideoDscp(int sock, int channel, int dscp);
int setVideoSrcPort2Saver(int sock, int channel, int port);
int setVideoPcClientIp(int sock, int channel, const char* ip, int port);
int setVideoRxPortFromPcClient(int sock, int channel, int port);
int setVideoSaverIp(int sock, int channel, const char* ip, int port);

/* ===== 12. Video display and camera (reqNo 122..138, 308) =============== */

/* Position inside the 480x272 screen, width and height at least 2. */
int setVideoDisplayPosition(int sock, int channel, int x, int y, int width, int height);
int showDisp(int sock, int channel, int onOff);
int setVideoPipPosition(int sock, int channel, int x, int y, int width, int height);
int showPip(int sock, int channel, int onOff);
int setPipPriorityHigh(int sock, int channel, int value);
int startMainAppBlackColorKey(int sock, int channel, int value);
int captureDisp(int sock, int channel, int captureArg, const char* path);
int capturePip(int sock, int channel, int captureArg, const char* path);
int sendImage(int sock, int channel, const char* path);
int setVideoSource(int sock, int channel, const char* path);
int setVideoDestination(int sock, int channel, const char* path);
int setCamera(int sock, int channel, int param1, int param2);
/* reqNo 308, waits: the camera state, or -7. */
int getCamDetection(int sock);

/* ===== 13. File receive, SDP and VQMon (reqNo 201..206, 311..315) ======= */

/* Silent form: 1, or -1 when the transport fails. 396-byte records. */
int openFileRx(int sock, int channel, const char* fileName);
int runFileRx(int sock, int channel);
int pauseFileRx(int sock, int channel);
int resumeFileRx(int sock, int channel);
int stopFileRx(int sock, int channel);
int setFileRxLocation(int sock, int channel, int location1, int location2, int location3, int location4, int location5,
                      int location6, int location7, int location8);
/* Constant SDP texts; null for a width other than 176 or 352. */
const char* mpeg4ConfigForSdp(int width);
const char* mpeg4ProfileLevel();
/* 1664-byte VQMon records, silent form. */
int reqVQMonMonitor(int sock, int channel, int monitorCmd, int monitorParam);
int reqVQMonUpload(int sock);
int reqVQMonUpdateConfig(int sock, int channel, const char* configText);
int reqVQMonSetIpInfo(int sock, int channel, const char* ipText1, int ipValue1, const char* ipText2, int ipValue2);
int reqVQMonSetCallInfo(int sock, int channel, const char* callText1, const char* callText2, const char* callText3,
                        const char* callText4, const char* callText5, const char* callText6, int callValue);

#endif /* __cplusplus */

#endif /* VXCLIENT_H */
