// Session commands (menu keys r u s t c m n) and the orderly end on a signal.
#include "session.h"

#include "mlog.h"
#include "params.h"
#include "vxclient.h"

#include <csignal>
#include <cstdlib>
#include <mutex>
#include <pthread.h>

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
// thread is waiting on finishes first (the transport serialises waiting
// requests per socket), so the handler's own requests get their own answers.

namespace {

std::mutex g_exitMutex;

sigset_t shutdownSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGQUIT);
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

} // namespace

void vxClaimExit()
{
    // Never released: whoever takes it ends the process. A second claim from
    // the same thread is a no-op.
    thread_local bool claimed = false;
    if (!claimed) {
        g_exitMutex.lock();
        claimed = true;
    }
}

void signal_callback_handler(int sigNum)
{
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
    if (g_rtp_forward_Saver)
        StopRecording();
    if (g_rtp_started)
        StopRtpSession();
    msleep(500);
    if (g_regi_sock > 0)
        unregistApplication(g_regi_sock);
    exit(sigNum);
}

void vxInstallSignalHandling()
{
    const sigset_t set = shutdownSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // The signal thread is infrastructure, not a test thread: it runs with
    // default attributes and never competes with the real-time test threads.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t tid;
    if (pthread_create(&tid, &attr, signalThread, nullptr) != 0) {
        // Without the thread, the signals keep their default action.
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
    pthread_attr_destroy(&attr);
}
