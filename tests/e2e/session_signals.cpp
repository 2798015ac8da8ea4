// The orderly end of the shell on SIGINT, SIGHUP, SIGTERM and SIGQUIT: the
// line, the stops that the session flags call for, the pause, the
// unregistration and the signal's number as exit status, in every state.
#include "session_run.h"

#include <chrono>
#include <csignal>

namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point t0)
{
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count());
}

size_t countOf(const std::string& text, const std::string& needle)
{
    size_t n = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1))
        ++n;
    return n;
}

// Requests of keys c and s (start mode 0) with the default parameters.
constexpr size_t kKeyC = 4;
constexpr size_t kKeyS = 10;
constexpr size_t kKeyT = 9;

} // namespace

TEST(SessionSignals, InterruptStopsForwardingAndSessionThenUnregisters)
{
    ShellRun run({"-s", "10.0.0.2", "-z", "10.0.0.3"});
    ASSERT_TRUE(run.waitFor(kStartup));
    ASSERT_TRUE(run.key("c", kStartup + kKeyC));
    ASSERT_TRUE(run.key("s", kStartup + kKeyC + kKeyS));
    const auto t0 = Clock::now();
    run.child->kill(SIGINT);
    const ProcResult res = run.child->wait();
    const long ms = msSince(t0);
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    EXPECT_EQ(res.status, 2);
    EXPECT_GE(ms, 500) << "the handler pauses 500 ms before unregistering";
    // Forwarding off, Tx off, Rx off, unregistration.
    ShellRun::expectSequence(run.sent(), kStartup + kKeyC + kKeyS,
                             {{33, {{120, 0}}}, {29, {{120, 0}}}, {28, {{120, 0}, {124, 0}}}, {304}});
    EXPECT_EQ(countOf(stripTimestamps(res.out), ">>> Signal Handler, sigNum:2, SIGINT\n"), 1u) << res.out;
}

TEST(SessionSignals, TerminateAfterSecondChannelSendsNoStop)
{
    // Key t sets no session flag: the handler only unregisters.
    ShellRun run({"-z", "10.0.0.3"});
    ASSERT_TRUE(run.waitFor(kStartup));
    ASSERT_TRUE(run.key("t", kStartup + kKeyT));
    run.child->kill(SIGTERM);
    const ProcResult res = run.child->wait();
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    EXPECT_EQ(res.status, 15);
    ShellRun::expectSequence(run.sent(), kStartup + kKeyT, {{304}});
    EXPECT_NE(stripTimestamps(res.out).find(">>> Signal Handler, sigNum:15, SIGTERM\n"), std::string::npos) << res.out;
}

TEST(SessionSignals, QuitInTheMenuAndStopsOfAStoppedSessionAgain)
{
    // m stops the session but leaves its flag: the handler stops it again.
    ShellRun run({"-s", "10.0.0.2"});
    ASSERT_TRUE(run.waitFor(kStartup));
    ASSERT_TRUE(run.key("s", kStartup + kKeyS));
    ASSERT_TRUE(run.key("m", kStartup + kKeyS + 2));
    run.child->kill(SIGQUIT);
    const ProcResult res = run.child->wait();
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    EXPECT_EQ(res.status, 3);
    ShellRun::expectSequence(run.sent(), kStartup + kKeyS + 2, {{29, {{120, 0}}}, {28, {{120, 0}}}, {304}});
    EXPECT_NE(stripTimestamps(res.out).find(">>> Signal Handler, sigNum:3, SIGQUIT\n"), std::string::npos) << res.out;
}

TEST(SessionSignals, HangupBeforeRegistrationIsComplete)
{
    // The service stays silent, so createChannel waits its 3 s: the signal
    // comes while the main thread is inside that wait. The handler pauses,
    // then unregisters the socket it finds once that wait is over (a socket
    // is never closed under a waiting request), and ends the run with 1.
    ShellRun run({"x"}, FakeService::Policy::Silent);
    ASSERT_TRUE(run.waitFor(2));
    const auto t0 = Clock::now();
    run.child->kill(SIGHUP);
    const ProcResult res = run.child->wait();
    const long ms = msSince(t0);
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    EXPECT_EQ(res.status, 1);
    EXPECT_GE(ms, 500);
    EXPECT_LT(ms, 6000);
    ShellRun::expectSequence(run.sent(), 0, {{303}, {305}, {304}});
    EXPECT_NE(stripTimestamps(res.out).find(">>> Signal Handler, sigNum:1, SIGHUP\n"), std::string::npos) << res.out;
}

TEST(SessionSignals, SignalDuringAWaitingRequestEndsTheRunInOrder)
{
    // Every answer comes after 1.5 s. The signal arrives while the main
    // thread waits for the answer to startAudioRx; the session flag is not
    // set yet, so the handler sends no stop. It unregisters once no request
    // uses the socket any more, and exits with 2.
    ShellRun run({"-s", "10.0.0.2"}, FakeService::Policy::Answer, 1500);
    ASSERT_TRUE(run.waitFor(kStartup, 8000));
    ASSERT_TRUE(run.key("s", kStartup + 9)); // up to and including reqNo 28
    ASSERT_EQ(run.sent().back().reqNo(), 28);
    run.child->kill(SIGINT);
    const ProcResult res = run.child->wait();
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    EXPECT_EQ(res.status, 2);
    // The service is still sitting on a delayed answer when the shell ends
    // and records the unregistration after it. The main thread may also
    // have sent startAudioTx before the handler got the socket.
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (Clock::now() < deadline && run.sent().back().reqNo() != 304)
        run.waitFor(run.sent().size() + 1, 100);
    const auto got = run.sent();
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(got.back().reqNo(), 304) << ShellRun::dump(got);
    EXPECT_EQ(countOf(stripTimestamps(res.out), ">>> Signal Handler, sigNum:2, SIGINT\n"), 1u) << res.out;
}

TEST(SessionSignals, SecondSignalDuringTheEndChangesNothing)
{
    ShellRun run({"-s", "10.0.0.2"});
    ASSERT_TRUE(run.waitFor(kStartup));
    ASSERT_TRUE(run.key("s", kStartup + kKeyS));
    run.child->kill(SIGINT);
    run.child->kill(SIGTERM);
    const ProcResult res = run.child->wait();
    ASSERT_TRUE(res.exited) << "signal " << res.signal << res.err;
    EXPECT_EQ(res.err, "");
    const std::string out = stripTimestamps(res.out);
    // Whichever the signal thread took first ends the run, once.
    EXPECT_TRUE(res.status == 2 || res.status == 15) << res.status;
    EXPECT_EQ(countOf(out, ">>> Signal Handler, sigNum:"), 1u) << out;
    ShellRun::expectSequence(run.sent(), kStartup + kKeyS, {{29, {{120, 0}}}, {28, {{120, 0}}}, {304}});
}
