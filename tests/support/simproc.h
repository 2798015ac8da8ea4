// Test support: the built stand-in service vxsim as a child process, and a
// bound client socket to talk to it.
//
//   SimProc sim({"--delay", "200"});
//   ASSERT_TRUE(sim.ok()) << sim.error();
//   SimClient client;
//   client.send(client.request(305, 0, 120));
//   ... sim.records(), sim.output() ...
//
// Both use the fixed paths under /tmp/vx/, so tests that use them must hold the
// /tmp/vx lock (the sim, client, shell and e2e test groups do). vxsim gets
// SIGTERM when the thread that started it ends, so start it from the test's
// own thread.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class SimProc {
 public:
  // Starts VX_BIN_DIR/vxsim with `args` plus "--record <temp file>", stdout and
  // stderr going to files in a temporary directory, and waits (at most 5 s)
  // until it has bound /tmp/vx/vxRxSock and written its pid file.
  explicit SimProc(const std::vector<std::string>& args = {});
  // Stops vxsim, removes the temporary files, and removes /tmp/vx/tx and
  // /tmp/vx again when they were created for this run and are empty.
  ~SimProc();
  SimProc(const SimProc&) = delete;
  SimProc& operator=(const SimProc&) = delete;

  // True when vxsim started and is ready; otherwise error() says why.
  bool ok() const { return ready_; }
  const std::string& error() const { return error_; }
  pid_t pid() const { return pid_; }
  const std::string& recordPath() const { return recordPath_; }

  // Every datagram vxsim has received so far, as it arrived.
  std::vector<std::vector<uint8_t>> records() const;
  // vxsim's stdout (one line per datagram) and stderr so far.
  std::string output() const;
  std::string errors() const;

  // Wait, at most `timeoutMs`, until records() holds `n` datagrams or output()
  // holds `n` lines. False on time-out.
  bool waitForRecords(size_t n, int timeoutMs = 2000) const;
  bool waitForLines(size_t n, int timeoutMs = 2000) const;

  // Sends `sig` and waits at most 5 s for the exit, then kills with SIGKILL.
  // Returns the exit status, 128 + signal number when killed by a signal, or
  // the status of the earlier stop. -1 when vxsim was never started.
  int stop(int sig = SIGTERM);

  // Runs vxsim with `args` to its end (bounded by `timeoutMs`, then SIGKILL)
  // and returns its exit status as stop() does; stdout and stderr are handed
  // back when asked for.
  static int run(const std::vector<std::string>& args, std::string* out = nullptr,
                 std::string* err = nullptr, int timeoutMs = 5000);

 private:
  bool waitReady();
  void removeLeftovers();

  pid_t pid_ = -1;
  bool ready_ = false;
  bool running_ = false;
  int status_ = -1;
  bool madeVxDir_ = false;
  bool madeTxDir_ = false;
  std::string error_;
  std::string tempDir_;
  std::string recordPath_;
  std::string outPath_;
  std::string errPath_;
};

// A datagram socket bound to a fresh path /tmp/vx/simclXXXXXX (/tmp/vx/ must
// exist, which a running vxsim guarantees); closes and removes it at the end.
class SimClient {
 public:
  SimClient();
  ~SimClient();
  SimClient(const SimClient&) = delete;
  SimClient& operator=(const SimClient&) = delete;

  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  const std::string& path() const { return path_; }

  // A zeroed record of `len` bytes with reqNo, channel and this socket's path
  // in sockPath, as far as `len` holds them.
  std::vector<uint8_t> request(int32_t reqNo, int32_t channel, size_t len) const;
  // Sends `data` to /tmp/vx/vxRxSock; true when it left whole.
  bool send(const std::vector<uint8_t>& data) const;
  // Waits at most `timeoutMs` for one datagram; false on time-out or error.
  bool receive(std::vector<uint8_t>* data, int timeoutMs) const;

 private:
  int fd_ = -1;
  std::string path_;
};

// Little-endian words and bounded texts in request and response records.
void simPutI32(std::vector<uint8_t>& rec, size_t off, int32_t v);
int32_t simGetI32(const std::vector<uint8_t>& rec, size_t off);
void simPutText(std::vector<uint8_t>& rec, size_t off, const std::string& text);
