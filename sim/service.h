// vxsim: the stand-in media service, its options and its main loop.
#pragma once

#include <cstdint>
#include <string>

namespace vxsim {

// The service's fixed paths.
constexpr const char* kVxDir = "/tmp/vx";
constexpr const char* kTxDir = "/tmp/vx/tx";
constexpr const char* kServiceSock = "/tmp/vx/vxRxSock";
constexpr const char* kPidFile = "/tmp/vx/voxalis.pid";

// Length of the response record sent back for the answered requests.
constexpr size_t kRespLength = 84;
// Offset added to reqNo in the answers of --wrong-reqno.
constexpr int32_t kWrongReqNoOffset = 1000;

struct Options {
  bool silent = false;        // never answer
  int delayMs = 0;            // answer this late
  bool wrongReqNo = false;    // answer with reqNo + kWrongReqNoOffset
  bool noRead = false;        // bind, then never read
  bool quiet = false;         // no line per request
  bool force = false;         // take the socket path over from a live service
  std::string recordFile;     // append every datagram here, empty for none
  int32_t firstChannel = 1;   // first number createChannel hands out
  int32_t maxChannels = 4;    // answer of getMaxConcChannelNo
  int32_t camDetection = 1;   // answer of getCamDetection
  int32_t defaultRxPort = 9000;  // answer of getAudioRxPort before any setAudioRxPort
};

// Runs the service until SIGINT or SIGTERM; returns the exit status: 0 after a
// signal, 1 when the socket, the pid file or the record file can't be set up.
int runService(const Options& opt);

}  // namespace vxsim
