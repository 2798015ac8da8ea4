// Session commands (menu keys r u s t c m n) and the orderly end on a signal.
#include "session.h"

#include "children.h"
#include "mlog.h"
#include "params.h"
#include "vxclient.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

void RegistApplication()
{
    if (g_isRegistered) {
        logPrt(">>> Already Registered, so Ignore !!!");
        return;
    }
    g_regi_sock = registApplication(g_szAppName, 0, 7700, "127.0.0.1");
    if (g_regi_sock < 0) {
        logPrt(">>> ERR, %s, cannot regist App to voxalis.\n", "RegistApplication");
        return;
    }
    g_regi_channel = createChannel(g_regi_sock);
    if (g_regi_channel < 0) {
        logPrt(">>> ERR, %s, cannot createChannel to voxalis.\n", "RegistApplication");
        return;
    }
    g_isRegistered = 1;
}

void UnregistApplication()
{
    if (g_regi_sock > 0)
        unregistApplication(g_regi_sock);
    g_regi_sock = -1;
    g_regi_channel = -1;
    g_isRegistered = 0;
}

namespace {

// Steps 1 to 5 of a session start: audio mode, codec, DSCP, addresses.
void sessionHead(int localPort, const char* oppIp, int oppPort)
{
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    setAudioCodec(g_regi_sock, g_regi_channel, g_audioCodec, -1);
    setAudioDscp(g_regi_sock, g_regi_channel, 0);
    setAudioRxPort(g_regi_sock, g_regi_channel, localPort, oppIp);
    setAudioOppIp(g_regi_sock, g_regi_channel, oppIp, oppPort);
}

} // namespace

void StartRtpSession()
{
    sessionHead(g_localPort, g_szServerIp, g_remotePort);
    // Volume 10 is a constant of sessions; the start mode orders the rest.
    switch (g_bIsPagingMode) {
    case 1: // Tx before Rx
        disableAudioRxSRTP(g_regi_sock, g_regi_channel, -1);
        disableAudioTxSRTP(g_regi_sock, g_regi_channel, -1);
        setPlaybackVolume(g_regi_sock, g_regi_channel, 10, g_AudMode);
        startAudioTx(g_regi_sock, g_regi_channel, 1);
        startAudioRx(g_regi_sock, g_regi_channel, 1);
        break;
    case 2: // receive only
        logPrt(">>> StartRtpSession, Recv Only Mode !!!");
        setPlaybackVolume(g_regi_sock, g_regi_channel, 10, g_AudMode);
        disableAudioRxSRTP(g_regi_sock, g_regi_channel, -1);
        startAudioRxOnly(g_regi_sock, g_regi_channel, 1);
        break;
    case 3: // multicast sender
        logPrt(">>> StartRtpSession, Multicast Sender Mode !!!");
        disableAudioTxSRTP(g_regi_sock, g_regi_channel, -1);
        startAudioTx(g_regi_sock, g_regi_channel, 1);
        break;
    default: // 0: normal, Rx before Tx
        disableAudioRxSRTP(g_regi_sock, g_regi_channel, -1);
        disableAudioTxSRTP(g_regi_sock, g_regi_channel, -1);
        setPlaybackVolume(g_regi_sock, g_regi_channel, 10, g_AudMode);
        startAudioRx(g_regi_sock, g_regi_channel, 1);
        startAudioTx(g_regi_sock, g_regi_channel, 1);
        break;
    }
    g_rtp_started = 1;
}

void StartRecording()
{
    sessionHead(g_localPort2, g_szServerIp2, g_remotePort2);
    disableAudioRxSRTP(g_regi_sock, g_regi_channel, -1);
    disableAudioTxSRTP(g_regi_sock, g_regi_channel, -1);
    startAudioRx(g_regi_sock, g_regi_channel, 1);
    startAudioTx(g_regi_sock, g_regi_channel, 1);
}

void StartOscRecording()
{
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    setAudioSaverIp(g_regi_sock, g_regi_channel, g_szServerIp2, g_remotePort2);
    setAudioSrcPort2Saver(g_regi_sock, g_regi_channel, g_remotePort2);
    startAudioForward2Saver(g_regi_sock, g_regi_channel, 1);
    g_rtp_forward_Saver = 1;
}

void StopRtpSession()
{
    startAudioTx(g_regi_sock, g_regi_channel, 0);
    startAudioRx(g_regi_sock, g_regi_channel, 0);
}

void StopRecording()
{
    if (g_rtp_forward_Saver) {
        startAudioForward2Saver(g_regi_sock, g_regi_channel, 0);
        g_rtp_forward_Saver = 0;
    } else {
        startAudioTx(g_regi_sock, g_regi_channel, 0);
        startAudioRx(g_regi_sock, g_regi_channel, 0);
    }
}

// ---- signals -----------------------------------------------------------------
//
// The four signals are blocked in every thread and taken by sigwait on a
// thread of their own, which then runs signal_callback_handler as ordinary
// code: it may log, allocate and send requests without meeting a thread that
// was interrupted inside printf, malloc or a request. A request that another
// thread has under way finishes first (the transport serialises requests per
// socket, and unregistApplication closes the socket under the same lock), so
// the handler's own requests get their own answers and the socket is never
// closed under a waiting thread. Each of those waits is bounded by the
// socket's receive time-out.
//
// The mask is set before anything else in main, so a signal that comes
// before the thread runs stays pending and is taken by its first sigwait.
// Threads inherit the mask, so every thread the shell starts has them
// blocked. A child process would inherit it across exec as well; commands
// are therefore started through vxRunShellCommand, which gives them the mask the
// shell itself was started with.

namespace {

pthread_mutex_t g_exitMutex = PTHREAD_MUTEX_INITIALIZER;

// The thread that takes the signals; valid once g_signalThreadUp is set.
pthread_t g_signalThread;
std::atomic<bool> g_signalThreadUp{false};
static_assert(std::atomic<bool>::is_always_lock_free, "read in signal context");

// The mask the process had before the four signals were blocked, handed on
// to child processes.
sigset_t g_startMask;
std::atomic<bool> g_startMaskSaved{false};

pthread_once_t g_installOnce = PTHREAD_ONCE_INIT;

// The signals that end the run in order.
const int kShutdownSignals[] = {SIGINT, SIGHUP, SIGTERM, SIGQUIT};

sigset_t shutdownSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int sig : kShutdownSignals)
        sigaddset(&set, sig);
    return set;
}

void* signalThread(void*)
{
    const sigset_t set = shutdownSignals();
    for (;;) {
        int sig = 0;
        if (sigwait(&set, &sig) == 0)
            signal_callback_handler(sig);
    }
    return nullptr;
}

// write(2) of a whole text; what cannot be written is dropped.
void writeOut(const char* text, size_t len)
{
    while (len > 0) {
        const ssize_t n = write(STDOUT_FILENO, text, len);
        if (n <= 0)
            return;
        text += n;
        len -= static_cast<size_t>(n);
    }
}

// The disposition of the four signals. It runs only in a thread that has
// them unblocked, which no thread of the shell has, and does only what is
// safe in signal context. With the signal thread up it passes the signal on
// to that thread, where it stays pending until sigwait takes it. Without one
// (it could not be started) it writes the handler's line, untimed, and ends
// the process with the signal's number: the other steps cannot be done
// safely here.
void forwardSignal(int sig)
{
    const int savedErrno = errno;
    if (g_signalThreadUp.load(std::memory_order_acquire)) {
        pthread_kill(g_signalThread, sig);
        errno = savedErrno;
        return;
    }
    const char* name = sig == SIGINT    ? ", SIGINT\n"
                       : sig == SIGHUP  ? ", SIGHUP\n"
                       : sig == SIGTERM ? ", SIGTERM\n"
                       : sig == SIGQUIT ? ", SIGQUIT\n"
                                        : ", Unknown ...\n";
    char digits[12];
    size_t n = 0;
    unsigned v = static_cast<unsigned>(sig);
    do {
        digits[sizeof digits - 1 - n++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0 && n < sizeof digits);
    static const char head[] = ">>> Signal Handler, sigNum:";
    writeOut(head, sizeof head - 1);
    writeOut(digits + sizeof digits - n, n);
    writeOut(name, strlen(name));
    _exit(sig);
}

void installSignalHandling()
{
    const sigset_t set = shutdownSignals();
    if (pthread_sigmask(SIG_BLOCK, &set, &g_startMask) == 0)
        g_startMaskSaved.store(true);

    // A disposition of our own replaces an inherited SIG_IGN (a signal that
    // is ignored might never reach sigwait) and catches the signals in a
    // thread that has them unblocked.
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = forwardSignal;
    sigfillset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int sig : kShutdownSignals)
        sigaction(sig, &sa, nullptr);

    // The signal thread is infrastructure, not a test thread: it is started
    // with default attributes (myThreadCreate would log a line about the
    // real-time policy at every start) and inherits the blocked mask.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t tid;
    if (pthread_create(&tid, &attr, signalThread, nullptr) == 0) {
        g_signalThread = tid;
        g_signalThreadUp.store(true, std::memory_order_release);
    } else {
        // No thread: the disposition ends the process on the signal.
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
    pthread_attr_destroy(&attr);
}

} // namespace

void vxClaimExit()
{
    // Never released: whoever takes it ends the process. A second claim from
    // the same thread is a no-op.
    thread_local bool claimed = false;
    if (!claimed) {
        pthread_mutex_lock(&g_exitMutex);
        claimed = true;
    }
}

void signal_callback_handler(int sigNum)
{
    // Once main's common end has begun, the run is ending in order already:
    // this thread then waits here until main's exit ends it.
    vxClaimExit();
    switch (sigNum) {
    case SIGINT:
        logPrt(">>> Signal Handler, sigNum:%d, SIGINT", sigNum);
        break;
    case SIGHUP:
        logPrt(">>> Signal Handler, sigNum:%d, SIGHUP", sigNum);
        break;
    case SIGTERM:
        logPrt(">>> Signal Handler, sigNum:%d, SIGTERM", sigNum);
        break;
    case SIGQUIT:
        logPrt(">>> Signal Handler, sigNum:%d, SIGQUIT", sigNum);
        break;
    default:
        logPrt(">>> Signal Handler, sigNum:%d, Unknown ...", sigNum);
        break;
    }
    // The commands of key scripts end with the shell.
    vxEndShellCommands();
    if (g_rtp_forward_Saver)
        StopRecording();
    if (g_rtp_started)
        StopRtpSession();
    msleep(500);
    if (g_regi_sock > 0)
        unregistApplication(g_regi_sock);
    // The process ends from this thread while the others still run. _exit
    // rather than exit: exit would run the atexit handlers and the static
    // destructors under their feet, and could meet an exit that the main
    // thread has begun (a fault of the command line ends with exit(1)).
    // What stdio holds is flushed first, so no line is lost.
    fflush(nullptr);
    _exit(sigNum);
}

void vxInstallSignalHandling() { pthread_once(&g_installOnce, installSignalHandling); }

void vxChildSignalMask(sigset_t* mask)
{
    if (g_startMaskSaved.load())
        *mask = g_startMask;
    else
        pthread_sigmask(SIG_SETMASK, nullptr, mask);
}
