// The voice-quality monitor command: menu key v toggles the service's
// monitor, option -v asks once for the MOS file.
#include "vqm.h"

#include "mlog.h"
#include "params.h"
#include "vxclient.h"

namespace {

// reqVQMonMonitor's command and parameter words.
constexpr int kMonitorStart = 1;
constexpr int kMonitorStop = 0;
constexpr int kMonitorParam = 5;
constexpr int kRequestMosFile = 100;

} // namespace

// g_bVQMonEnable records what was asked for, not what the service did: it
// changes whatever the transport reports, and no answer is awaited.
void VQM_StaartMonitor()
{
    const int sock = g_regi_sock.load();
    const int channel = g_regi_channel.load();
    if (sock < 0 || channel < 0) {
        g_bVQMonEnable = 0;
        return;
    }
    if (g_bVQMRequestMOS) {
        reqVQMonMonitor(sock, channel, kRequestMosFile, 0);
        g_bVQMRequestMOS = 0;
        return;
    }
    if (!g_bVQMonEnable) {
        logPrt(">>> g_bVQMonEnable:1, so Start VQMon Request ...");
        reqVQMonMonitor(sock, channel, kMonitorStart, kMonitorParam);
        g_bVQMonEnable = 1;
    } else {
        logPrt(">>> g_bVQMonEnable:1, so Stop VQMon Request ...");
        reqVQMonMonitor(sock, channel, kMonitorStop, kMonitorParam);
        g_bVQMonEnable = 0;
    }
}
