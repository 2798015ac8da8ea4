// params.h - the run parameters of vxShell: every global the shell keeps,
// and the command-line parser that fills them. Their defaults have one home,
// the list VX_RUN_PARAMS in params.cpp, which both their definitions and
// vxResetParams are made from. The comments name the options and keys that
// set them.
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
extern VxShared g_regi_sock;    // descriptor from registApplication
extern VxShared g_regi_channel; // channel from createChannel
extern char g_szAppName[128];
extern VxShared g_isRegistered;
extern VxShared g_rtp_started;
extern VxShared g_rtp_forward_Saver;

// Audio and sessions.
extern VxShared g_AudMode;     // -a, menu key a
extern int g_audioCodec;       // -c
extern int g_bIsPagingMode;    // -P, start mode 0..3
extern char g_szServerIp[16];  // -s
extern int g_localPort;        // -p
extern int g_remotePort;       // -p, -r
extern char g_szServerIp2[16]; // -z
extern int g_localPort2;
extern int g_remotePort2;
extern char g_szOppDevId[16]; // -o

// One-request run modes.
extern int g_vx_logLevel;         // -l
extern int g_LangCode;            // -d
extern VxShared g_bVQMRequestMOS; // -v
extern VxShared g_bVQMonEnable;

// Tones and wave files.
extern int g_nVolumeIndex;  // -V
extern int g_nRepeatCnt;    // -c
extern VxShared g_iKeyType; // -k, menu keys 0 1 2
extern int g_bTonePlay;     // -t
extern int g_nToneIndex;    // -t
extern int g_bTonePlayEx;   // -T
extern int g_ToneFreq1;
extern int g_ToneFreq2;
extern int g_Tone1OnTime;
extern int g_Tone1OffTime;
extern int g_Tone2OnTime;
extern int g_Tone2OffTime;
extern int g_Tone3OnTime;
extern int g_Tone3OffTime;
extern int g_ToneRepeat;
extern int g_ToneInterMitMs;
extern char g_WaveFile[128]; // -w
extern int g_bTestPlayWav;   // -w
extern int g_bPlayWavIndex;  // -W
extern int g_nWaveIndex;     // -W

// Relay listener.
extern int g_vx_Relay_Mode;     // -R
extern VxShared g_vx_RelayThId; // non-zero while the relay thread runs
extern char g_sShellIp[64];     // relay address: every interface, or VX_RELAY_ADDRESS
extern int g_ShellPort;

// File mode.
extern int g_nFileMode; // -f
extern char g_szFileName[64];
extern char g_szSection[64];
extern char g_szKey[64];
extern char g_szText[64];

// Test threads.
extern VxShared g_nTestRecordMode; // menu keys g h j k
extern VxShared g_bTestRecording;
extern VxShared g_bTestKeyEvent;
extern VxShared g_bTestWavPlay;
extern VxShared g_bPauseTest;

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
