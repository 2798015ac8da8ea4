// Shell entry: the run-mode order, registration, the interactive menu and the
// common end.
#include "menu.h"

#include "children.h"
#include "filemode.h"
#include "keyevent.h"
#include "mlog.h"
#include "params.h"
#include "playback.h"
#include "relay.h"
#include "session.h"
#include "stress.h"
#include "vqm.h"
#include "vxclient.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/select.h>

namespace {

// The menu, in print order; each literal is printed with puts.
const char* const kMenuLines[] = {
    "==== MENU ===================================================================",
    "r: Regist Application",
    "u: Unregist Application\n",
    "a: set Audio Mode (1: Handset, 2: Speaker, 4: Headset \n",
    "s: start 1st RTP Channel ",
    "t: start 2nd RTP Channel ",
    "c: start OSC Rec Channel ",
    "m: stop  1st RTP Channel ",
    "n: stop  2nd RTP Channel \n",
    "d: Play KeyTone ",
    "f: Play Ring Sound \n",
    "g: Start Test Recording ",
    "h: Start Test OSC Recording ",
    "j: Start Test OSC Recording ",
    "k: Start TestComplexRtpThread ",
    "l: Stop  Test Recording \n",
    "0: Set Key Wave Type - 0 ",
    "1: Set Key Wave Type - 1 ",
    "2: Set Key Wave Type - 2 \n",
    "e: Start TestKeyEventThread ",
    "w: Start TestWaveThread \n",
    "p: Pause/Retrieve Test    ",
    "z: Stop  TestWaveThread \n",
    "v: Start/Stop VQMon ",
    "q: To quit vxShell \n",
    "=============================================================================\n",
};
static_assert(sizeof kMenuLines / sizeof kMenuLines[0] == 26, "the menu has 26 lines");

void printMenu()
{
    puts("");
    for (const char* line : kMenuLines)
        puts(line);
}

// Drops what is left of the current input line, so that the next key is
// read from a fresh line (and select sees it).
void discardLine()
{
    int c;
    do {
        c = getchar();
    } while (c != '\n' && c != EOF);
}

// Key a. A token that is no number is dropped with the rest of its line, so
// the prompt never spins on it; end of input leaves the mode as it was.
void AudioModePrompt()
{
    int choice = -1;
    puts("\nSelect Audio Mode ... ");
    puts("\t1.Handset\n\t2.Speaker\n\t4.Headset");
    while (choice < 1 || choice > 4) {
        fflush(stdout);
        const int got = scanf("%d", &choice);
        if (got == EOF)
            return;
        discardLine();
        if (choice < 1 || choice > 4)
            printf("Your input is invalid, select 0 or 1 or 2\n.");
    }
    if (choice == g_AudMode)
        return;
    g_AudMode = choice;
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
}

// Acts on one key; false for q. One key per line, as a table.
bool actOnKey(char key)
{
    // clang-format off
    switch (key) {
    case 'r': RegistApplication(); break;
    case 'u': UnregistApplication(); break;
    case 'a': AudioModePrompt(); break;
    case 's': StartRtpSession(); break;
    case 't': StartRecording(); break;
    case 'c': StartOscRecording(); break;
    case 'm': StopRtpSession(); break;
    case 'n': StopRecording(); break;
    case 'd': PlayKeyTone(); break;
    case 'f': PlayRingSound(); break;
    case 'g': g_nTestRecordMode = 0; StartTestRecordingThread(); break;
    case 'h': g_nTestRecordMode = 1; StartTestRecordingThread(); break;
    case 'j': g_nTestRecordMode = 1; StartTestRecordingThread2(); break;
    case 'k': g_nTestRecordMode = 1; StartTestComplexRtpThread(); break;
    case 'l': StopTestRecordingThread(); break;
    case '0': g_iKeyType = 0; break;
    case '1': g_iKeyType = 1; break;
    case '2': g_iKeyType = 2; break;
    case 'e': StartTestKeyEventThread(); break;
    case 'w': StartTestWavThread(); break;
    case 'p': PauseRetrieveTest(); break;
    case 'z': StopTest(); break;
    case 'v': VQM_StaartMonitor(); break;
    case 'q': return false;
    default: break; // a byte in no row: the menu is printed again
    }
    // clang-format on
    return true;
}

// Relay mode: start the listener and wait for it to end. The word is marked
// before the thread exists, so a thread that ends at once cannot have its
// clear overwritten by main's store.
void RunRelay()
{
    g_vx_RelayThId = 1;
    if (!myThreadCreate(vxRelayReqThread, nullptr))
        g_vx_RelayThId = 0;
    while (g_vx_RelayThId != 0)
        msleep(1000);
}

} // namespace

void RunMenu()
{
    char line[100];
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    for (;;) {
        printMenu();
        fflush(stdout);
        fflush(stdin);
        fd_set rfds;
        FD_ZERO(&rfds);
        FD_SET(0, &rfds);
        if (select(1, &rfds, nullptr, nullptr, nullptr) < 1 || !FD_ISSET(0, &rfds))
            continue;
        // End of input acts as q: there will be no further key.
        if (fgets(line, sizeof line, stdin) == nullptr)
            return;
        // Only the first byte counts; the rest of a long line is dropped too.
        if (strchr(line, '\n') == nullptr)
            discardLine();
        if (!actOnKey(line[0]))
            return;
    }
}

int vxShellMain(int argc, char** argv)
{
    // Started with 0, 1 or 2 closed (by a service manager, say), the shell
    // first puts /dev/null there, so that no socket of its own lands on a
    // standard descriptor and is taken for stdin or stdout.
    for (int fd = 0; fd <= 2; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY) < 0)
            return 1;
    vxInstallSignalHandling();
    // Unbuffered stdin: a line read by fgets never pulls the next line into
    // a buffer that select cannot see.
    setvbuf(stdin, nullptr, _IONBF, 0);
    // Line-buffered stdout: the test threads and the relay listener log
    // while main waits in select, and their lines must not sit in a buffer
    // until the next key when stdout is a pipe or a file.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    if (argc < 2) {
        usage();
        return 1;
    }
    parse_cmdline(argc, argv);

    if (g_nFileMode) {
        RunFileMode();
        return 0;
    }
    // The relay listener binds every interface (it serves a lab network)
    // unless the operator names one address.
    const char* relayAddress = getenv("VX_RELAY_ADDRESS");
    if (g_vx_Relay_Mode && relayAddress != nullptr) {
        struct in_addr addr;
        if (strlen(relayAddress) >= sizeof g_sShellIp || inet_pton(AF_INET, relayAddress, &addr) != 1) {
            char shown[4 * sizeof g_sShellIp];
            printf(">>> ERR, vxShell, VX_RELAY_ADDRESS <%s> is no IPv4 address.\n",
                   vxPrintable(shown, sizeof shown, relayAddress));
            return 1;
        }
        snprintf(g_sShellIp, sizeof g_sShellIp, "%s", relayAddress);
    }

    g_regi_sock = registApplication(g_szAppName, 0, 7700, "127.0.0.1");
    if (g_regi_sock < 0) {
        logPrt(">>> ERR, %s, cannot regist App to voxalis.\n", "main");
        return 0;
    }
    g_regi_channel = createChannel(g_regi_sock);
    if (g_regi_channel < 0) {
        logPrt(">>> ERR, %s, cannot createChannel to voxalis.\n", "main");
        return 0;
    }
    g_isRegistered = 1;

    // The first run mode whose flag is set does the work.
    if (g_bVQMRequestMOS) {
        VQM_StaartMonitor();
    } else if (g_vx_logLevel >= 0) {
        logPrt(">>> SetLogLevel, logLevel:%d.", g_vx_logLevel);
        SetLog(g_regi_sock, g_regi_channel, g_vx_logLevel);
    } else if (g_LangCode >= 0) {
        logPrt(">>> SetCountry, CountryCode:%d.", g_LangCode);
        setCountryCode(g_regi_sock, g_regi_channel, g_LangCode);
    } else if (g_bTonePlay) {
        RunPresetTone();
    } else if (g_bTonePlayEx) {
        RunExtendedTone();
    } else if (g_bPlayWavIndex) {
        RunPlayWavIndex();
    } else if (g_bTestPlayWav) {
        RunTestPlayWav();
    } else if (g_vx_Relay_Mode) {
        RunRelay();
    } else {
        RunMenu();
    }

    // Common end. Test threads are not waited for; the commands they started
    // end with the shell.
    vxClaimExit();
    vxEndShellCommands();
    if (g_regi_sock > 0)
        unregistApplication(g_regi_sock);
    fflush(stdout);
    return 0;
}
