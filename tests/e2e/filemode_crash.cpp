// A process killed (SIGKILL) while it writes a configuration file never
// leaves a cut file behind: the file is always the old text or the new one.
#include "mconf.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using confsupport::readFile;
using confsupport::spawnQuiet;
using confsupport::TempDir;
using confsupport::writeFile;

namespace {

// A store of some megabytes: many groups, ten items each, with comments.
tConfGroup* bigStore(const std::string& tag, int groups)
{
    tConfGroup* root = mCONF_New();
    for (int g = 0; g < groups; ++g) {
        const std::string name = "group" + std::to_string(g);
        for (int i = 0; i < 10; ++i) {
            const std::string key = "key" + std::to_string(i);
            const std::string value = tag + " value " + std::to_string(g * 10 + i) + " with some padding text";
            mCONF_SetValue(root, name.c_str(), key.c_str(), value.c_str(), " a comment");
        }
    }
    return root;
}

std::string textOf(tConfGroup* root)
{
    char* t = mCONF_BufWrite(root);
    std::string s = t != nullptr ? t : "";
    free(t);
    return s;
}

void sleepUs(long us)
{
    struct timespec ts = {us / 1000000, (us % 1000000) * 1000};
    nanosleep(&ts, nullptr);
}

// A child writes two big stores in turn, for ever; it is killed at random
// moments. Each time the file must be exactly one of the two texts.
TEST(FileModeCrash, KilledWriterNeverLeavesACutFile)
{
    TempDir dir;
    const std::string path = dir.file("big.conf");
    tConfGroup* a = bigStore("A", 8000);
    tConfGroup* b = bigStore("B", 8000);
    const std::string textA = textOf(a);
    const std::string textB = textOf(b);
    ASSERT_GT(textA.size(), 2u * 1024 * 1024);
    ASSERT_EQ(mCONF_FileWrite(a, path.c_str()), 0);

    std::mt19937 rng(20240601);
    int sawA = 0, sawB = 0;
    for (int round = 0; round < 12; ++round) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (unsigned n = 0;; ++n)
                mCONF_FileWrite(n % 2 == 0 ? b : a, path.c_str());
        }
        sleepUs(static_cast<long>(20000 + rng() % 150000));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));

        const std::string now = readFile(path);
        const bool isA = now == textA;
        const bool isB = now == textB;
        ASSERT_TRUE(isA || isB) << "round " << round << ": " << now.size() << " bytes, neither text";
        sawA += isA;
        sawB += isB;
        // The file still reads as a whole store.
        tConfGroup* back = mCONF_FileRead(path.c_str());
        ASSERT_NE(back, nullptr);
        EXPECT_NE(mCONF_GetValue(back, "group7999", "key9"), nullptr);
        mCONF_Free(back);
    }
    EXPECT_GT(sawA + sawB, 0);
    mCONF_Free(a);
    mCONF_Free(b);
}

// The same through the shell: vxShell -f on a big file, killed at random.
TEST(FileModeCrash, KilledShellLeavesOldOrNewFile)
{
    TempDir dir;
    tConfGroup* store = bigStore("S", 6000);
    const std::string path = dir.file("s.conf");
    ASSERT_EQ(mCONF_FileWrite(store, path.c_str()), 0);

    // Time one whole edit, so that the kills fall mostly where the file is
    // written: the end of the run.
    long fullUs = 0;
    {
        struct timespec t0, t1;
        clock_gettime(CLOCK_MONOTONIC, &t0);
        const pid_t pid = spawnQuiet({VX_BIN_DIR "/vxShell", "-f", "s.conf,group1,key1,timing"}, dir.path());
        ASSERT_GT(pid, 0);
        int status = 0;
        waitpid(pid, &status, 0);
        clock_gettime(CLOCK_MONOTONIC, &t1);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        fullUs = (t1.tv_sec - t0.tv_sec) * 1000000L + (t1.tv_nsec - t0.tv_nsec) / 1000;
        mCONF_SetValue(store, "group1", "key1", "timing", nullptr);
        ASSERT_EQ(readFile(path), textOf(store));
    }

    std::mt19937 rng(7);
    for (int round = 0; round < 16; ++round) {
        const std::string old = readFile(path);
        const std::string value = "edit" + std::to_string(round);
        mCONF_SetValue(store, "group3000", "key5", value.c_str(), nullptr);
        const std::string edited = textOf(store);

        const pid_t pid = spawnQuiet({VX_BIN_DIR "/vxShell", "-f", "s.conf,group3000,key5," + value}, dir.path());
        ASSERT_GT(pid, 0);
        sleepUs(fullUs * 3 / 10 + static_cast<long>(rng() % static_cast<unsigned long>(fullUs * 8 / 10 + 1)));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);

        const std::string now = readFile(path);
        ASSERT_TRUE(now == old || now == edited) << "round " << round << ": " << now.size() << " bytes";
        // Keep the model in step with what the file holds.
        if (now == old) {
            tConfGroup* back = mCONF_BufRead(old.c_str());
            mCONF_Free(store);
            store = back;
        }
    }
    mCONF_Free(store);
}

} // namespace
