// The run parameters with their defaults, the option table and the usage
// text.
#include "params.h"

#include "keyevent.h"
#include "mlog.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

// Every run parameter with its default, once: the definitions below and
// vxResetParams are both made from this list, so a new parameter is one row
// here (and its declaration in params.h). SHARED rows are the atomics, INT
// rows plain ints, TEXT rows character arrays zero-filled behind the text.
#define VX_RUN_PARAMS(SHARED, INT, TEXT)                                       \
    SHARED(g_regi_sock, -1)                                                    \
    SHARED(g_regi_channel, -1)                                                 \
    TEXT(g_szAppName, 128, "vxShell V1.0")                                     \
    SHARED(g_isRegistered, 0)                                                  \
    SHARED(g_rtp_started, 0)                                                   \
    SHARED(g_rtp_forward_Saver, 0)                                             \
                                                                               \
    SHARED(g_AudMode, 2) /* speaker */                                         \
    INT(g_audioCodec, 0)                                                       \
    INT(g_bIsPagingMode, 0)                                                    \
    TEXT(g_szServerIp, 16, "")                                                 \
    INT(g_localPort, 9000)                                                     \
    INT(g_remotePort, 9000)                                                    \
    TEXT(g_szServerIp2, 16, "")                                                \
    INT(g_localPort2, 9002)                                                    \
    INT(g_remotePort2, 9000)                                                   \
    TEXT(g_szOppDevId, 16, "")                                                 \
                                                                               \
    INT(g_vx_logLevel, -1)                                                     \
    INT(g_LangCode, -1)                                                        \
    SHARED(g_bVQMRequestMOS, 0)                                                \
    SHARED(g_bVQMonEnable, 0)                                                  \
                                                                               \
    INT(g_nVolumeIndex, 7)                                                     \
    INT(g_nRepeatCnt, 1)                                                       \
    SHARED(g_iKeyType, 0)                                                      \
    INT(g_bTonePlay, 0)                                                        \
    INT(g_nToneIndex, 0)                                                       \
    INT(g_bTonePlayEx, 0)                                                      \
    INT(g_ToneFreq1, -1)                                                       \
    INT(g_ToneFreq2, -1)                                                       \
    INT(g_Tone1OnTime, -1)                                                     \
    INT(g_Tone1OffTime, -1)                                                    \
    INT(g_Tone2OnTime, -1)                                                     \
    INT(g_Tone2OffTime, -1)                                                    \
    INT(g_Tone3OnTime, -1)                                                     \
    INT(g_Tone3OffTime, -1)                                                    \
    INT(g_ToneRepeat, 0)                                                       \
    INT(g_ToneInterMitMs, 0)                                                   \
    TEXT(g_WaveFile, 128, "/sound/tone_0_0.wav")                               \
    INT(g_bTestPlayWav, 0)                                                     \
    INT(g_bPlayWavIndex, 0)                                                    \
    INT(g_nWaveIndex, 0)                                                       \
                                                                               \
    INT(g_vx_Relay_Mode, 0)                                                    \
    SHARED(g_vx_RelayThId, 0)                                                  \
    TEXT(g_sShellIp, 64, "0.0.0.0") /* every interface, or VX_RELAY_ADDRESS */ \
    INT(g_ShellPort, 55555)                                                    \
                                                                               \
    INT(g_nFileMode, 0)                                                        \
    TEXT(g_szFileName, 64, "")                                                 \
    TEXT(g_szSection, 64, "")                                                  \
    TEXT(g_szKey, 64, "")                                                      \
    TEXT(g_szText, 64, "")                                                     \
                                                                               \
    SHARED(g_nTestRecordMode, 0)                                               \
    SHARED(g_bTestRecording, 0)                                                \
    SHARED(g_bTestKeyEvent, 0)                                                 \
    SHARED(g_bTestWavPlay, 0)                                                  \
    SHARED(g_bPauseTest, 0)

// The definitions, initialised at compile time.
#define VX_DEFINE_SHARED(name, value)    VxShared name{value};
#define VX_DEFINE_INT(name, value)       int name = value;
#define VX_DEFINE_TEXT(name, size, text) char name[size] = text;
VX_RUN_PARAMS(VX_DEFINE_SHARED, VX_DEFINE_INT, VX_DEFINE_TEXT)
#undef VX_DEFINE_SHARED
#undef VX_DEFINE_INT
#undef VX_DEFINE_TEXT

namespace {

const char kUsage[] =
    " [-h help] [-s 1stOIp] [-t 2ndOIp] [-p 1stLPort] [-r 1stOPort] [-q 2nd OPort] [-l] [-o opp devId] \n\nOptions:\n"
    "  -h \thelp (show this message)\n"
    "  -a\taudio Mode (1:Handset, 2:Speaker, 4:Headset\t\n"
    "  -s    1st Opp Ip\t\t\t\t\n"
    "  -z \t2nd Opp Ip\t\t\t\t\n"
    "  -p    1st Local Port\t\t\t\n"
    "  -r    1st Opp Port\t\t\t\n"
    "  -P    RTP StartMode (0: Normal(Rx->Tx), 1: Tx->Rx, 2: RxOnly 3: TxOnly)\t\n"
    "  -q    2nd Opp Port\t\t\t\n"
    "  -c    codec (0: 711a, 1: 711u, 2: 729\t\n"
    "  -d    Language (0:KR, 1:USA, 2: UK, 22: AUS \n"
    "  -r \tRelay Mode\t\t\t\t\n"
    "  -l \tlog level, 1~5\t\t\t\n"
    "  -k \tkey type,  1~3\t\t\t\n"
    "  -o    opponent DeviceId\t\t\n"
    "  -t    Test Play Tone\t\t\t\n"
    "  -v    Request VQM MOS File\t\n"
    "  -w    Test Play Wave File\t\t\n"
    "  -W    Play Wave File by Index\t\n\n"
    "Environment:\n"
    "  VX_RELAY_ADDRESS  IPv4 address the relay listener binds (default: every interface)";

// strtol with base 10 and no test of what follows, as on the phone, whose
// long has 32 bits: a number beyond the 32-bit range saturates at its
// limits. strtoll and a clamp give that on every target; strtol alone would
// wrap such a number around where long has 64 bits.
int32_t toNumber(const char* text)
{
    const long long v = strtoll(text, nullptr, 10);
    return static_cast<int32_t>(v < INT32_MIN ? INT32_MIN : v > INT32_MAX ? INT32_MAX : v);
}

// Range test as an unsigned comparison of the 32-bit value: every negative
// number lies outside.
bool inRange(int32_t v, uint32_t lo, uint32_t hi)
{
    const uint32_t u = static_cast<uint32_t>(v);
    return u >= lo && u <= hi;
}

// strncpy of at most `limit` characters into a zeroed array one byte larger.
template <size_t N>
void copyField(char (&dst)[N], const char* src, size_t limit)
{
    static_assert(N >= 1, "field");
    memset(dst, 0, N);
    strncpy(dst, src, limit < N - 1 ? limit : N - 1);
}

// -f file,section,key,text
void parseFileMode(const char* arg)
{
    g_nFileMode = 1;
    if (arg[0] == '\0')
        return;
    char buffer[128] = {};
    strncpy(buffer, arg, sizeof buffer - 1);
    char* fields[4] = {g_szFileName, g_szSection, g_szKey, g_szText};
    char* save = nullptr;
    int i = 0;
    // strtok merges separators: an empty field cannot be given.
    for (char* tok = strtok_r(buffer, ",", &save); tok != nullptr; tok = strtok_r(nullptr, ",", &save), ++i) {
        if (i < 4) {
            memset(fields[i], 0, 64);
            strncpy(fields[i], tok, 63);
        }
    }
    if (g_szKey[0] == '\0') {
        printf(">>> ERR, vxShell, fileMode:get, but Key is NULL[%s]", buffer);
        exit(1);
    }
    if (g_szText[0] == '\0') {
        printf(">>> ERR, vxShell, fileMode, but text is NULL[%s].", buffer);
        exit(1);
    }
}

} // namespace

void usage() { puts(kUsage); }

int CheckToneParam(char* pszParam)
{
    int* const slots[10] = {&g_ToneFreq1,    &g_ToneFreq2,   &g_Tone1OnTime,  &g_Tone1OffTime, &g_Tone2OnTime,
                            &g_Tone2OffTime, &g_Tone3OnTime, &g_Tone3OffTime, &g_ToneRepeat,   &g_ToneInterMitMs};
    int count = 0;
    char* save = nullptr;
    for (char* tok = strtok_r(pszParam, ",", &save); tok != nullptr; tok = strtok_r(nullptr, ",", &save)) {
        if (count < 10)
            *slots[count] = toNumber(tok);
        ++count;
    }
    if (count != 10)
        logPrt(">>> ERR, CheckToneParam, count:%d, pszParam:%s, paramters is invald ...", count, pszParam);
    return count;
}

int parse_cmdline(int argc, char** argv)
{
    optind = 0; // full re-initialisation of getopt, so a second call starts afresh
    int opt;
    while ((opt = getopt(argc, argv, "a:hk:l:c:d:o:s:p:r:Rt:T:v:V:w:W:f:P:z:")) != -1) {
        switch (opt) {
        case 'a': {
            const int32_t n = toNumber(optarg);
            g_AudMode = inRange(n, 1, 11) ? n : 1;
            break;
        }
        case 'c':
            g_audioCodec = toNumber(optarg);
            g_nRepeatCnt = toNumber(optarg);
            break;
        case 'd':
            g_LangCode = toNumber(optarg);
            break;
        case 'f':
            parseFileMode(optarg);
            break;
        case 'h':
            usage();
            exit(1);
        case 'k': {
            const int32_t n = toNumber(optarg);
            g_iKeyType = inRange(n, 0, 2) ? n : 0;
            break;
        }
        case 'l': {
            const int32_t n = toNumber(optarg);
            g_vx_logLevel = inRange(n, 0, 5) ? n : 0;
            break;
        }
        case 'o':
            // The id goes into a command for the system shell ("key dss_<id>"):
            // refused unless it is an identifier the field holds whole, where
            // the description would copy any text (on purpose).
            if (strlen(optarg) >= sizeof g_szOppDevId ||
                strspn(optarg, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-") != strlen(optarg)) {
                char shown[4 * sizeof g_szOppDevId];
                printf(">>> ERR, vxShell, opponent DeviceId <%s> is not 0 to %d of A-Z a-z 0-9 _ -.\n",
                       vxPrintable(shown, sizeof shown, optarg), static_cast<int>(sizeof g_szOppDevId - 1));
                exit(1);
            }
            copyField(g_szOppDevId, optarg, 15);
            break;
        case 'P': {
            const int32_t n = toNumber(optarg);
            g_bIsPagingMode = inRange(n, 0, 3) ? n : 0;
            break;
        }
        case 'p': {
            const int32_t n = toNumber(optarg);
            g_localPort = n;
            g_remotePort = static_cast<int32_t>(static_cast<uint32_t>(n) + 100u);
            break;
        }
        case 'R':
            g_vx_Relay_Mode = 1;
            break;
        case 'r':
            g_remotePort = toNumber(optarg);
            break;
        case 's':
            copyField(g_szServerIp, optarg, 15);
            break;
        case 'T':
            if (optarg[0] != '\0' && CheckToneParam(optarg) != 10)
                exit(1);
            g_bTonePlayEx = 1;
            break;
        case 't':
            g_bTonePlay = 1;
            if (optarg[0] != '\0') {
                const int32_t n = toNumber(optarg);
                g_nToneIndex = inRange(n, 0, 10) ? n : 0;
            }
            break;
        case 'V': {
            const int32_t n = toNumber(optarg);
            if (g_AudMode == 2)
                g_nVolumeIndex = inRange(n, 0, 15) ? n : 7;
            else
                g_nVolumeIndex = inRange(n, 0, 7) ? n : 5;
            break;
        }
        case 'v':
            g_bVQMRequestMOS = 1;
            break;
        case 'W': {
            const int32_t n = toNumber(optarg);
            g_bPlayWavIndex = 1;
            g_nWaveIndex = inRange(n, 1, 10) ? n : 1;
            break;
        }
        case 'w':
            copyField(g_WaveFile, optarg, 127);
            if (g_WaveFile[0] != '\0')
                g_bTestPlayWav = 1;
            break;
        case 'z':
            copyField(g_szServerIp2, optarg, 15);
            break;
        default: // unknown letter or missing argument: getopt has said which
            usage();
            exit(1);
        }
    }
    return 0;
}

namespace {

// A text parameter as it starts: the text, and zeros up to the end.
void resetText(char* field, size_t size, const char* text)
{
    memset(field, 0, size);
    strncpy(field, text, size - 1);
}

} // namespace

void vxResetParams()
{
#define VX_RESET_SHARED(name, value) name = value;
#define VX_RESET_INT(name, value)    name = value;
#define VX_RESET_TEXT(name, size, text)                                               \
    static_assert(sizeof name == size && sizeof text <= size, "text fits its array"); \
    resetText(name, sizeof name, text);
    VX_RUN_PARAMS(VX_RESET_SHARED, VX_RESET_INT, VX_RESET_TEXT)
#undef VX_RESET_SHARED
#undef VX_RESET_INT
#undef VX_RESET_TEXT
}
