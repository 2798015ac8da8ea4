// The shell from the outside: start-up, registration, the menu and the
// common end, against the in-process fake service.
#include "fakeservice.h"
#include "proc.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

int appSockets()
{
    int n = 0;
    DIR* d = opendir("/tmp/vx");
    if (d == nullptr)
        return 0;
    while (struct dirent* e = readdir(d))
        n += strncmp(e->d_name, "app", 3) == 0;
    closedir(d);
    return n;
}

class ShellEntry : public ::testing::Test {
protected:
    void SetUp() override
    {
        cleanVxDir();
        svc = std::make_unique<FakeService>();
    }
    void TearDown() override
    {
        svc.reset();
        cleanVxDir();
    }
    ProcResult shell(std::vector<std::string> args, const std::string& keys, int timeoutMs = 10000)
    {
        args.insert(args.begin(), binPath("vxShell"));
        return runProcess(args, keys, timeoutMs);
    }
    std::unique_ptr<FakeService> svc;
};

} // namespace

TEST_F(ShellEntry, NoArgumentPrintsUsageAndMakesNoSocket)
{
    const ProcResult r = shell({}, "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind(" [-h help] [-s 1stOIp]", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("  -W    Play Wave File by Index\t\n"), std::string::npos);
    EXPECT_EQ(appSockets(), 0);
    EXPECT_TRUE(svc->received().empty());
}

TEST_F(ShellEntry, UnknownOptionGivesUsageAndStatusOne)
{
    const ProcResult r = shell({"-q", "9000"}, "");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("invalid option"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("Options:"), std::string::npos);
    EXPECT_TRUE(svc->received().empty());
}

TEST_F(ShellEntry, OneWordRegistersShowsTheMenuAndUnregistersOnQ)
{
    svc->setResult(305, 7);
    const ProcResult r = shell({"x"}, "q\n");
    EXPECT_EQ(r.status, 0) << r.err;
    const auto got = svc->received();
    ASSERT_EQ(got.size(), 4u);
    // Registration: name cut to nine characters, loopback, port 7700, priority 0.
    EXPECT_EQ(got[0].reqNo(), 303);
    EXPECT_EQ(got[0].size(), 196u);
    EXPECT_EQ(got[0].text(120, 10), "vxShell V");
    EXPECT_EQ(got[0].text(132, 50), "127.0.0.1");
    EXPECT_EQ(got[0].word(184), 7700);
    EXPECT_EQ(got[0].word(188), 0);
    EXPECT_EQ(got[1].reqNo(), 305);
    EXPECT_EQ(got[1].size(), 120u);
    // The menu's audio mode, on the channel the service gave.
    EXPECT_EQ(got[2].reqNo(), 15);
    EXPECT_EQ(got[2].size(), 144u);
    EXPECT_EQ(got[2].channel(), 7);
    EXPECT_EQ(got[2].word(132), 2);
    EXPECT_EQ(got[3].reqNo(), 304);
    EXPECT_EQ(got[3].size(), 132u);
    for (const auto& d : got)
        EXPECT_EQ(d.from, got[0].from) << "one socket for the whole run";
    EXPECT_NE(r.out.find("==== MENU ====="), std::string::npos);
    EXPECT_NE(r.out.find("u: Unregist Application\n\n"), std::string::npos);
    EXPECT_NE(r.out.find("q: To quit vxShell \n\n"), std::string::npos);
}

TEST_F(ShellEntry, MenuKeysAndTheEndOfInput)
{
    struct Case {
        const char* what;
        std::vector<std::string> args;
        std::string keys;
        std::vector<int32_t> reqNos;
    } cases[] = {
        {"end of input acts as q", {"x"}, "", {303, 305, 15, 304}},
        {"quit works as q", {"x"}, "quit\n", {303, 305, 15, 304}},
        {"Q and an empty line do nothing", {"x"}, "Q\n\nq\n", {303, 305, 15, 304}},
        {"u then q unregisters once", {"x"}, "u\nq\n", {303, 305, 15, 304}},
        {"a 3 sets mode 3 once", {"x"}, "a\n3\na\n3\nq\n", {303, 305, 15, 15, 304}},
        {"a with junk then 4", {"x"}, "a\nzz\n0\n4\nq\n", {303, 305, 15, 15, 304}},
        {"a at the end of input", {"x"}, "a\n", {303, 305, 15, 304}},
        {"long line: only its first byte counts", {"x"}, std::string(150, 'k') + "\nq\n", {303, 305, 15, 304}},
    };
    for (const auto& c : cases) {
        svc->clear();
        std::vector<std::string> args = c.args;
        const ProcResult r = shell(args, c.keys);
        EXPECT_EQ(r.status, 0) << c.what;
        EXPECT_FALSE(r.timedOut) << c.what;
        EXPECT_EQ(svc->reqNos(), c.reqNos) << c.what;
    }
}

TEST_F(ShellEntry, AudioModePromptTextsAndTheModeSent)
{
    const ProcResult r = shell({"x"}, "a\n9\n3\nq\n");
    EXPECT_NE(r.out.find("\nSelect Audio Mode ... \n\t1.Handset\n\t2.Speaker\n\t4.Headset\n"), std::string::npos);
    EXPECT_NE(r.out.find("Your input is invalid, select 0 or 1 or 2\n."), std::string::npos);
    const auto got = svc->received();
    ASSERT_EQ(got.size(), 5u);
    EXPECT_EQ(got[3].reqNo(), 15);
    EXPECT_EQ(got[3].word(132), 3);
}

TEST_F(ShellEntry, OptionClampsShowInTheRequests)
{
    struct {
        std::vector<std::string> args;
        int32_t mode;
    } cases[] = {{{"-a", "12"}, 1}, {{"-a", "4"}, 4}, {{"-a", "11"}, 11}, {{"-a", "abc"}, 1}};
    for (const auto& c : cases) {
        svc->clear();
        shell(c.args, "q\n");
        const auto got = svc->received();
        ASSERT_EQ(got.size(), 4u) << c.args[1];
        EXPECT_EQ(got[2].word(132), c.mode) << c.args[1];
    }
}

TEST_F(ShellEntry, SilentServiceEndsAfterTheCreateChannelErrorWithoutUnregistering)
{
    svc->setPolicy(FakeService::Policy::Silent);
    const ProcResult r = shell({"x"}, "q\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(stripTimestamps(r.out).find(">>> ERR, main, cannot createChannel to voxalis.\n\n"), std::string::npos)
        << r.out;
    EXPECT_EQ(svc->reqNos(), (std::vector<int32_t>{303, 305}));
}

TEST_F(ShellEntry, NegativeChannelIsAFailedRegistration)
{
    svc->setResult(305, -3);
    const ProcResult r = shell({"x"}, "q\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("cannot createChannel to voxalis."), std::string::npos);
    EXPECT_EQ(svc->reqNos(), (std::vector<int32_t>{303, 305}));
}

TEST(ShellEntryNoDir, MissingDirectoryFailsTheRegistration)
{
    cleanVxDir();
    rename("/tmp/vx", "/tmp/vx.moved");
    const ProcResult r = runProcess({binPath("vxShell"), "x"}, "q\n");
    rename("/tmp/vx.moved", "/tmp/vx");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find(">>> ERR, main, cannot regist App to voxalis."), std::string::npos) << r.out;
}
