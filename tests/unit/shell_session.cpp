// Signal handling of the shell: the signal thread, the way a signal caught in
// a thread that has it unblocked reaches that thread, and the mask that
// child processes get. Each case runs in a child process of its own (death
// test), since it installs the handling or ends the process.
#include "params.h"
#include "session.h"
#include "shellcmd.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

class ShellSignals : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// The SigBlk and SigIgn masks that a command started by `run` reports for
// itself, as the bits of the four shutdown signals (0 when none is set).
// -1 when the command could not be run or read.
template <class Run>
long childMasks(Run run)
{
    char path[] = "/tmp/vxmaskXXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0)
        return -1;
    close(fd);
    // exec: the command itself is the shell's process, with its mask.
    const std::string cmd = std::string("exec grep -E '^Sig(Blk|Ign)' /proc/self/status > ") + path;
    const int status = run(cmd.c_str());
    std::ifstream in(path);
    std::string line;
    unsigned long bits = 0;
    int lines = 0;
    while (std::getline(in, line)) {
        // The masks are 64-bit hexadecimal numbers: too wide for a 32-bit long.
        const unsigned long long mask = std::stoull(line.substr(line.find(':') + 1), nullptr, 16);
        for (int sig : {SIGINT, SIGHUP, SIGTERM, SIGQUIT})
            if (mask & (1ull << (sig - 1)))
                bits |= 1ul << (sig - 1);
        ++lines;
    }
    unlink(path);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || lines != 2)
        return -1;
    return static_cast<long>(bits);
}

} // namespace

TEST_F(ShellSignals, CommandsStartWithTheSignalsUnblocked)
{
    EXPECT_EXIT(
        {
            vxInstallSignalHandling();
            // A plain system() hands on the blocked mask; vxRunShellCommand must not.
            const long viaSystem = childMasks([](const char* c) { return system(c); });
            const long viaRunner = childMasks(vxRunShellCommand);
            fprintf(stderr, "system %ld runner %ld\n", viaSystem, viaRunner);
            _exit(viaSystem > 0 && viaRunner == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ShellSignals, ShellCommandReturnsTheWaitStatus)
{
    int status = vxRunShellCommand("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    status = vxRunShellCommand("kill -TERM $$");
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(vxRunShellCommand(nullptr), -1);
}

TEST_F(ShellSignals, UnknownSignalNumberHasItsOwnLineAndStatus)
{
    // Nothing registered, no session: the line, the pause and the status.
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            signal_callback_handler(10);
        },
        ::testing::ExitedWithCode(10), ">>> Signal Handler, sigNum:10, Unknown \\.\\.\\.");
}

TEST_F(ShellSignals, SignalCaughtInAThreadWithItUnblockedReachesTheSignalThread)
{
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            vxInstallSignalHandling();
            std::thread t([] {
                sigset_t set;
                sigemptyset(&set);
                sigaddset(&set, SIGTERM);
                pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
                pthread_kill(pthread_self(), SIGTERM);
                for (;;)
                    pause();
            });
            t.detach();
            for (;;)
                pause();
        },
        ::testing::ExitedWithCode(15), ">>> Signal Handler, sigNum:15, SIGTERM");
}

TEST_F(ShellSignals, SignalDuringACommandEndsTheRunWithItsNumber)
{
    // The command signals the shell and goes on running: the signal thread
    // ends the run while the caller still waits for the command.
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            vxInstallSignalHandling();
            vxRunShellCommand("kill -INT $PPID; sleep 2");
            _exit(99);
        },
        ::testing::ExitedWithCode(2), ">>> Signal Handler, sigNum:2, SIGINT");
}

TEST_F(ShellSignals, SignalBeforeTheInstallIsTakenOnceTheThreadRuns)
{
    // Blocked first, raised, then the handling installed: the pending
    // signal is not lost and not fatal.
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, SIGHUP);
            pthread_sigmask(SIG_BLOCK, &set, nullptr);
            kill(getpid(), SIGHUP);
            vxInstallSignalHandling();
            for (;;)
                pause();
        },
        ::testing::ExitedWithCode(1), ">>> Signal Handler, sigNum:1, SIGHUP");
}
