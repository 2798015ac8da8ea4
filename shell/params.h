// params.h - the run parameters of vxShell: every global the shell keeps,
// with its default in params.cpp, and the command-line parser that fills them.
//
// Words that a thread other than the one writing them reads are atomics
// (VxShared); the rest are written only while parsing, before any thread
// starts, and stay plain.
#ifndef VX_SHELL_PARAMS_H
#define VX_SHELL_PARAMS_H

#include <atomic>
#include <cstdint>

using VxShared = std::atomic<int32_t>;

// Registration with the service.
extern VxShared g_regi_sock;        // -1: descriptor from registApplication
extern VxShared g_regi_channel;     // -1: channel from createChannel
extern char g_szAppName[128];       // "vxShell V1.0"
extern VxShared g_isRegistered;     // 0
extern VxShared g_rtp_started;      // 0
extern VxShared g_rtp_forward_Saver; // 0

// Audio and sessions.
extern VxShared g_AudMode;          // 2 (speaker); -a, menu key a
extern int g_audioCodec;            // 0; -c
extern int g_bIsPagingMode;         // 0; -P, start mode 0..3
extern char g_szServerIp[16];       // ""; -s
extern int g_localPort;             // 9000; -p
extern int g_remotePort;            // 9000; -p, -r
extern char g_szServerIp2[16];      // ""; -z
extern int g_localPort2;            // 9002
extern int g_remotePort2;           // 9000
extern char g_szOppDevId[16];       // ""; -o

// One-request run modes.
extern int g_vx_logLevel;           // -1; -l
extern int g_LangCode;              // -1; -d
extern VxShared g_bVQMRequestMOS;   // 0; -v
extern VxShared g_bVQMonEnable;     // 0

// Tones and wave files.
extern int g_nVolumeIndex;          // 7; -V
extern int g_nRepeatCnt;            // 1; -c
extern VxShared g_iKeyType;         // 0; -k, menu keys 0 1 2
extern int g_bTonePlay;             // 0; -t
extern int g_nToneIndex;            // 0; -t
extern int g_bTonePlayEx;           // 0; -T
extern int g_ToneFreq1;             // -1
extern int g_ToneFreq2;             // -1
extern int g_Tone1OnTime;           // -1
extern int g_Tone1OffTime;          // -1
extern int g_Tone2OnTime;           // -1
extern int g_Tone2OffTime;          // -1
extern int g_Tone3OnTime;           // -1
extern int g_Tone3OffTime;          // -1
extern int g_ToneRepeat;            // 0
extern int g_ToneInterMitMs;        // 0
extern char g_WaveFile[128];        // "/sound/tone_0_0.wav"; -w
extern int g_bTestPlayWav;          // 0; -w
extern int g_bPlayWavIndex;         // 0; -W
extern int g_nWaveIndex;            // 0; -W

// Relay listener.
extern int g_vx_Relay_Mode;         // 0; -R
extern VxShared g_vx_RelayThId;     // 0: non-zero while the relay thread runs
extern char g_sShellIp[64];         // "0.0.0.0": every interface
extern int g_ShellPort;             // 55555

// File mode.
extern int g_nFileMode;             // 0; -f
extern char g_szFileName[64];
extern char g_szSection[64];
extern char g_szKey[64];
extern char g_szText[64];

// Test threads.
extern VxShared g_nTestRecordMode;  // 0; menu keys g h j k
extern VxShared g_bTestRecording;   // 0
extern VxShared g_bTestKeyEvent;    // 0
extern VxShared g_bTestWavPlay;     // 0
extern VxShared g_bPauseTest;       // 0

// Walks the options with getopt and fills the run parameters; ends the
// process with status 1 on a fault of the command line.
int parse_cmdline(int argc, char** argv);
// Prints the usage text with one puts.
void usage();
// Splits the -T text (changed in place) into the ten tone parameters;
// returns the number of fields found.
int CheckToneParam(char* pszParam);

// Restores every run parameter to its default (tests start from a clean
// state; the program itself never needs it).
void vxResetParams();

#endif // VX_SHELL_PARAMS_H
