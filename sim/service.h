// vxsim: the stand-in media service, its options and its main loop.
#ifndef VX_SIM_SERVICE_H
#define VX_SIM_SERVICE_H

#include <stddef.h>
#include <stdint.h>

// The service's fixed paths.
#define VXSIM_DIR          "/tmp/vx"
#define VXSIM_TX_DIR       "/tmp/vx/tx"
#define VXSIM_SERVICE_SOCK "/tmp/vx/vxRxSock"
#define VXSIM_PID_FILE     "/tmp/vx/voxalis.pid"

// Length of the response record sent back for the answered requests.
constexpr size_t kRespLength = 84;
// Offset added to reqNo in the answers of --wrong-reqno.
constexpr int32_t kWrongReqNoOffset = 1000;

struct SimOptions {
    bool silent = false;              // never answer
    int delayMs = 0;                  // answer this late
    bool wrongReqNo = false;          // answer with reqNo + kWrongReqNoOffset
    bool noRead = false;              // bind, then never read
    bool quiet = false;               // no line per request
    bool force = false;               // take the socket path over from a live service
    const char* recordFile = nullptr; // append every datagram here, null for none
    int32_t firstChannel = 1;         // first number createChannel hands out
    int32_t maxChannels = 4;          // answer of getMaxConcChannelNo
    int32_t camDetection = 1;         // answer of getCamDetection
    int32_t defaultRxPort = 9000;     // answer of getAudioRxPort before any setAudioRxPort
};

// Runs the service until SIGINT or SIGTERM; returns the exit status: 0 after a
// signal, 1 when the socket, the pid file or the record file can't be set up.
int simRunService(const SimOptions* opt);

#endif // VX_SIM_SERVICE_H
