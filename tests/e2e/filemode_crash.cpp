// A process killed (SIGKILL) while it writes a configuration file never
// leaves a cut file behind: the file is always the old text or the new one.
#include "mconf.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <string>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using confsupport::canonicalText;
using confsupport::readFile;
using confsupport::spawnQuiet;
using confsupport::TempDir;

namespace {

// Some megabytes: many groups of ten items, with comments.
tConfGroup* bigStore(const std::string& tag, int groups)
{
    tConfGroup* root = mCONF_New();
    for (int g = 0; g < groups; ++g)
        for (int i = 0; i < 10; ++i)
            mCONF_SetValue(root, ("group" + std::to_string(g)).c_str(), ("key" + std::to_string(i)).c_str(),
                           (tag + " value " + std::to_string(g * 10 + i) + " with some padding text").c_str(), " note");
    return root;
}

long nowUs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000L + ts.tv_nsec / 1000;
}

void sleepUs(long us)
{
    const struct timespec ts = {us / 1000000, (us % 1000000) * 1000};
    nanosleep(&ts, nullptr);
}

void killAndReap(pid_t pid)
{
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
}

// A child writes two big stores in turn, for ever, and is killed at random
// moments; the file must each time be exactly one of the two texts.
TEST(FileModeCrash, KilledWriterNeverLeavesACutFile)
{
    TempDir dir;
    const std::string path = dir.file("big.conf");
    tConfGroup* a = bigStore("A", 8000);
    tConfGroup* b = bigStore("B", 8000);
    const std::string textA = canonicalText(a), textB = canonicalText(b);
    ASSERT_GT(textA.size(), 2u << 20);
    ASSERT_EQ(mCONF_FileWrite(a, path.c_str()), 0);
    std::mt19937 rng(20240601);
    for (int round = 0; round < 12; ++round) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            for (unsigned n = 0;; ++n)
                mCONF_FileWrite(n % 2 == 0 ? b : a, path.c_str());
        sleepUs(20000 + static_cast<long>(rng() % 150000));
        killAndReap(pid);
        const std::string now = readFile(path);
        ASSERT_TRUE(now == textA || now == textB) << "round " << round << ": " << now.size() << " bytes, neither text";
    }
    mCONF_Free(a);
    mCONF_Free(b);
}

// The same through the shell: vxShell -f on a big file, killed at random,
// mostly late in the run where the file is written.
TEST(FileModeCrash, KilledShellLeavesOldOrNewFile)
{
    TempDir dir;
    tConfGroup* store = bigStore("S", 6000);
    const std::string path = dir.file("s.conf");
    ASSERT_EQ(mCONF_FileWrite(store, path.c_str()), 0);
    auto shell = [&](const std::string& value) {
        return spawnQuiet({VX_BIN_DIR "/vxShell", "-f", "s.conf,group3000,key5," + value}, dir.path());
    };
    const long t0 = nowUs();
    int status = 0;
    waitpid(shell("first"), &status, 0);
    const long fullUs = nowUs() - t0;
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    mCONF_SetValue(store, "group3000", "key5", "first", nullptr);
    ASSERT_EQ(readFile(path), canonicalText(store));

    std::mt19937 rng(7);
    for (int round = 0; round < 16; ++round) {
        const std::string old = readFile(path);
        const std::string value = "edit" + std::to_string(round);
        mCONF_SetValue(store, "group3000", "key5", value.c_str(), nullptr);
        const std::string edited = canonicalText(store);
        const pid_t pid = shell(value);
        ASSERT_GT(pid, 0);
        sleepUs(fullUs * 3 / 10 + static_cast<long>(rng() % static_cast<unsigned long>(fullUs * 8 / 10 + 1)));
        killAndReap(pid);
        const std::string now = readFile(path);
        ASSERT_TRUE(now == old || now == edited) << "round " << round << ": " << now.size() << " bytes";
        if (now == old) { // keep the model in step with the file
            mCONF_Free(store);
            store = mCONF_BufRead(old.c_str());
        }
    }
    mCONF_Free(store);
}

} // namespace
