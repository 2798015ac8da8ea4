// vxsim as a process: start-up files, answers, fault modes, robustness,
// signals and the command line.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "simproc.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

const char kSock[] = "/tmp/vx/vxRxSock";
const char kPid[] = "/tmp/vx/voxalis.pid";

bool exists(const char* path) {
  struct stat st {};
  return lstat(path, &st) == 0;
}

std::string slurp(const char* path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Sends `req` and expects one 84-byte answer {reqNo, result, 76 zero bytes}.
void expectAnswer(const SimClient& c, const Bytes& req, int32_t wantReqNo, int32_t wantResult) {
  ASSERT_TRUE(c.send(req));
  Bytes resp;
  ASSERT_TRUE(c.receive(&resp, 2000)) << "no answer to reqNo " << simGetI32(req, 0);
  ASSERT_EQ(resp.size(), 84u);
  EXPECT_EQ(simGetI32(resp, 0), wantReqNo);
  EXPECT_EQ(simGetI32(resp, 4), wantResult);
  EXPECT_EQ(std::count(resp.begin() + 8, resp.end(), 0), 76);
}

Bytes rxPortRecord(const SimClient& c, int32_t channel, int32_t port, size_t len = 176) {
  Bytes r = c.request(20, channel, len);
  simPutText(r, 120, "127.0.0.1");
  simPutI32(r, 172, port);
  return r;
}

TEST(SimStart, WritesPidFileAndBindsSocket) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  EXPECT_EQ(slurp(kPid), std::to_string(sim.pid()) + "\n");
  struct stat st {};
  ASSERT_EQ(stat(kSock, &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  ASSERT_EQ(stat("/tmp/vx/tx", &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST(SimStart, ReplacesStaleSocketFile) {
  const bool hadVxDir = exists("/tmp/vx");
  ASSERT_TRUE(mkdir("/tmp/vx", 0777) == 0 || errno == EEXIST);
  {  // a socket file with nobody behind it, as a crashed service leaves it
    const int s = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof a.sun_path, "%s", kSock);
    unlink(kSock);
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    close(s);
  }
  {
    SimProc sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    SimClient c;
    expectAnswer(c, c.request(305, 0, 120), 305, 1);
  }
  EXPECT_FALSE(exists(kSock));
  if (!hadVxDir) {
    rmdir("/tmp/vx/tx");
    rmdir("/tmp/vx");
  }
}

TEST(SimStart, RefusesLiveServiceUnlessForced) {
  SimProc first;
  ASSERT_TRUE(first.ok()) << first.error();
  std::string err;
  EXPECT_EQ(SimProc::run({"--quiet"}, nullptr, &err), 1);
  EXPECT_NE(err.find("--force"), std::string::npos) << err;
  EXPECT_EQ(slurp(kPid), std::to_string(first.pid()) + "\n");

  SimProc second({"--force"});
  ASSERT_TRUE(second.ok()) << second.error();
  // The first one, stopped now, must leave the second one's files alone.
  EXPECT_EQ(first.stop(), 0);
  EXPECT_TRUE(exists(kSock));
  EXPECT_EQ(slurp(kPid), std::to_string(second.pid()) + "\n");
  SimClient c;
  expectAnswer(c, c.request(307, 0, 120), 307, 4);
}

struct AnswerCase {
  const char* what;
  std::vector<std::string> args;
  int32_t reqNo;
  size_t len;
  int32_t result;
};

TEST(SimAnswers, EachAnsweredRequestGetsItsResult) {
  const AnswerCase cases[] = {
      {"getAudioRxPort, default", {}, 22, 120, 9000},
      {"getAudioRxPort, --rx-port", {"--rx-port", "5555"}, 22, 120, 5555},
      {"startAudioRx", {}, 28, 128, 0},
      {"startAudioTx", {}, 29, 124, 0},
      {"createChannel", {}, 305, 120, 1},
      {"createChannel, --first-channel 0", {"--first-channel", "0"}, 305, 120, 0},
      {"getMaxConcChannelNo", {}, 307, 120, 4},
      {"getMaxConcChannelNo, --max-channels", {"--max-channels", "9"}, 307, 120, 9},
      {"getCamDetection", {}, 308, 120, 1},
      {"getCamDetection, --cam-detection", {"--cam-detection", "0"}, 308, 120, 0},
      {"oversized record is still answered", {}, 305, 300, 1},
  };
  for (const AnswerCase& k : cases) {
    SCOPED_TRACE(k.what);
    SimProc sim(k.args);
    ASSERT_TRUE(sim.ok()) << sim.error();
    SimClient c;
    ASSERT_TRUE(c.ok());
    expectAnswer(c, c.request(k.reqNo, 0, k.len), k.reqNo, k.result);
  }
}

// Every number but the six answered ones, known or not, goes unanswered: the
// answer to a marker request sent behind them must be the first to arrive.
TEST(SimAnswers, NothingElseIsAnswered) {
  SimProc sim({"--quiet"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  const int32_t answered[] = {22, 28, 29, 305, 307, 308};
  size_t sent = 0;
  for (int32_t no = -1; no <= 400; ++no) {
    if (std::find(std::begin(answered), std::end(answered), no) != std::end(answered)) continue;
    ASSERT_TRUE(c.send(c.request(no, 1, 1664)));
    ++sent;
  }
  // Answered numbers cut short are not answered either.
  for (int32_t no : answered) ASSERT_TRUE(c.send(c.request(no, 1, 119)));
  ASSERT_TRUE(c.send(c.request(28, 1, 124)));
  expectAnswer(c, c.request(307, 0, 120), 307, 4);
  ASSERT_TRUE(sim.waitForRecords(sent + 8));
  Bytes extra;
  EXPECT_FALSE(c.receive(&extra, 0));
}

TEST(SimAnswers, CreateChannelHandsOutFreshNumbers) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient a, b;
  for (int32_t want = 1; want <= 6; want += 2) {
    expectAnswer(a, a.request(305, 0, 120), 305, want);
    expectAnswer(b, b.request(305, 0, 120), 305, want + 1);
  }
}

TEST(SimAnswers, AudioRxPortFollowsSetAudioRxPortPerChannel) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  ASSERT_TRUE(c.send(rxPortRecord(c, 3, 7000)));
  ASSERT_TRUE(c.send(rxPortRecord(c, 4, 7100)));
  expectAnswer(c, c.request(22, 3, 120), 22, 7000);
  expectAnswer(c, c.request(22, 4, 120), 22, 7100);
  expectAnswer(c, c.request(22, 5, 120), 22, 9000);
  ASSERT_TRUE(c.send(rxPortRecord(c, 3, 7200)));
  expectAnswer(c, c.request(22, 3, 120), 22, 7200);
  // A record cut before its port word changes nothing.
  ASSERT_TRUE(c.send(rxPortRecord(c, 3, 7300, 172)));
  expectAnswer(c, c.request(22, 3, 120), 22, 7200);
}

TEST(SimFaults, SilentAnswersNothing) {
  SimProc sim({"--silent"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  for (int32_t no : {22, 305, 307}) ASSERT_TRUE(c.send(c.request(no, 0, 120)));
  ASSERT_TRUE(sim.waitForLines(3));
  Bytes resp;
  EXPECT_FALSE(c.receive(&resp, 200));
  EXPECT_NE(sim.output().find("createChannel channel=0 len=120"), std::string::npos);
  EXPECT_NE(sim.output().find("not answered (silent)"), std::string::npos);
}

TEST(SimFaults, DelayedAnswerComesLateAndReadingGoesOn) {
  constexpr int kDelayMs = 400;
  SimProc sim({"--delay", std::to_string(kDelayMs)});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  const auto t0 = Clock::now();
  ASSERT_TRUE(c.send(c.request(305, 0, 120)));
  ASSERT_TRUE(c.send(c.request(15, 0, 144)));
  // The second request is read and printed while the first answer waits.
  ASSERT_TRUE(sim.waitForLines(2));
  Bytes resp;
  if (Clock::now() - t0 < std::chrono::milliseconds(kDelayMs)) {
    EXPECT_FALSE(c.receive(&resp, 0)) << "answered before the delay";
  }
  ASSERT_TRUE(c.receive(&resp, 3000));
  EXPECT_GE(Clock::now() - t0, std::chrono::milliseconds(kDelayMs));
  EXPECT_EQ(simGetI32(resp, 0), 305);
  EXPECT_EQ(simGetI32(resp, 4), 1);
}

TEST(SimFaults, WrongReqNoKeepsTheResult) {
  SimProc sim({"--wrong-reqno"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  expectAnswer(c, c.request(305, 0, 120), 1305, 1);
  expectAnswer(c, c.request(308, 0, 120), 1308, 1);
}

TEST(SimFaults, NoReadMakesSendersBlock) {
  SimProc sim({"--no-read"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  timeval tv{0, 100 * 1000};
  ASSERT_EQ(setsockopt(c.fd(), SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv), 0);
  const Bytes req = c.request(7, 0, 124);
  int sent = 0;
  int err = 0;
  for (; sent < 100000; ++sent) {
    if (!c.send(req)) {
      err = errno;
      break;
    }
  }
  EXPECT_LT(sent, 100000);
  EXPECT_TRUE(err == EAGAIN || err == EWOULDBLOCK) << std::strerror(err);
  EXPECT_EQ(sim.output(), "");
  EXPECT_EQ(sim.stop(), 0);
  EXPECT_FALSE(exists(kSock));
}

TEST(SimRecord, KeepsEveryDatagramByteForByte) {
  SimProc sim({"--quiet"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  Bytes big = c.request(315, 0, 1664);
  for (size_t i = 120; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i * 7);
  const std::vector<Bytes> sent = {c.request(15, 2, 144), {}, {0xff, 0x00, 0x7f}, big,
                                   c.request(305, 0, 120)};
  for (const Bytes& d : sent) ASSERT_TRUE(c.send(d));
  ASSERT_TRUE(sim.waitForRecords(sent.size()));
  EXPECT_EQ(sim.records(), sent);
  EXPECT_EQ(sim.output(), "");  // --quiet
}

TEST(SimRobustness, BadDatagramsDontStopIt) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient c;
  Bytes noise(2000);
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<uint8_t>(i * 131 + 17);
  struct Case {
    const char* what;
    Bytes data;
    const char* mark;
  };
  const Case cases[] = {
      {"empty", {}, "len=0"},
      {"three bytes", {1, 2, 3}, "short(head) hex=010203"},
      {"reqNo alone", c.request(305, 0, 4), "short(record=120) => not answered (short)"},
      {"head cut", c.request(15, 0, 119), "short(record=144)"},
      {"noise", noise, "len=2000"},
      {"oversized", c.request(1, 0, 70000), "truncated(real=70000)"},
      {"negative reqNo", c.request(-5, 0, 130), "reqNo=-5 unknown"},
  };
  size_t lines = 0;
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    ASSERT_TRUE(c.send(k.data));
    ASSERT_TRUE(sim.waitForLines(++lines));
    const std::string out = sim.output();
    const std::string last = out.substr(out.rfind('\n', out.size() - 2) + 1);
    EXPECT_NE(last.find(k.mark), std::string::npos) << last;
  }
  expectAnswer(c, c.request(305, 0, 120), 305, 1);
}

TEST(SimRobustness, UnboundSenderIsLoggedButNotAnswered) {
  SimProc sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  SimClient named;  // only lends its path to sockPath
  const int s = socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_GE(s, 0);
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  std::snprintf(a.sun_path, sizeof a.sun_path, "%s", kSock);
  const Bytes req = named.request(305, 0, 120);
  const ssize_t n = sendto(s, req.data(), req.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a);
  close(s);
  ASSERT_EQ(n, 120);
  ASSERT_TRUE(sim.waitForLines(1));
  const std::string out = sim.output();
  EXPECT_NE(out.find("from=- sockPath=\"" + named.path() + "\""), std::string::npos) << out;
  EXPECT_NE(out.find("not answered (unbound sender)"), std::string::npos) << out;
  // The channel number wasn't used up.
  expectAnswer(named, named.request(305, 0, 120), 305, 1);
}

TEST(SimSignals, SigtermAndSigintRemoveSocketAndPidFile) {
  for (int sig : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(strsignal(sig));
    SimProc sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    EXPECT_EQ(sim.stop(sig), 0);
    EXPECT_FALSE(exists(kSock));
    EXPECT_FALSE(exists(kPid));
  }
}

TEST(SimCommandLine, HelpAndBadOptions) {
  std::string out, err;
  ASSERT_EQ(SimProc::run({"--help"}, &out, &err), 0);
  for (const char* s : {"Usage: vxsim", "/tmp/vx/vxRxSock", "/tmp/vx/voxalis.pid", "--silent",
                        "--delay MS", "--wrong-reqno", "--no-read", "--record FILE", "--quiet",
                        "createChannel", "getAudioRxPort", "getCamDetection"})
    EXPECT_NE(out.find(s), std::string::npos) << s;

  const std::vector<std::vector<std::string>> bad = {
      {"--bogus"}, {"-x"}, {"--delay"}, {"--delay", "abc"}, {"--delay", "-1"},
      {"--delay", "12x"}, {"--first-channel", "-1"}, {"--record", ""}, {"stray"},
  };
  for (const auto& args : bad) {
    SCOPED_TRACE(args[0] + (args.size() > 1 ? " " + args[1] : std::string()));
    EXPECT_EQ(SimProc::run(args, &out, &err), 2);
    EXPECT_NE(err.find("vxsim: "), std::string::npos) << err;
    EXPECT_FALSE(exists(kPid));
  }
}

}  // namespace
