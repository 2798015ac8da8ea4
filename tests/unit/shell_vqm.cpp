// VQM_StaartMonitor: what it sends, what it prints and how the two flags
// move, for every combination of registration and flags that matters.
#include "clientfixture.h"
#include "params.h"
#include "proc.h"
#include "vqm.h"

#include <sstream>
#include <string>

namespace {

class VqmTest : public ClientTest {
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        vxResetParams();
        g_regi_sock = sock;
        g_regi_channel = ch;
    }
    void TearDown() override
    {
        vxResetParams();
        ClientTest::TearDown();
    }
    // Runs the command with stdout captured; returns the shell's own lines
    // (">>> "), timestamps dropped. The transport may print lines of its own
    // (no pid file), which are not the command's.
    std::string run()
    {
        testing::internal::CaptureStdout();
        VQM_StaartMonitor();
        fflush(stdout);
        std::istringstream in(stripTimestamps(testing::internal::GetCapturedStdout()));
        std::string shell;
        for (std::string line; std::getline(in, line);)
            if (line.rfind(">>> ", 0) == 0)
                shell += line + "\n";
        return shell;
    }
};

const char kStartLine[] = ">>> g_bVQMonEnable:1, so Start VQMon Request ...\n";
const char kStopLine[] = ">>> g_bVQMonEnable:1, so Stop VQMon Request ...\n";

} // namespace

TEST_F(VqmTest, OneCallForEachStateOfRegistrationAndFlags)
{
    struct Row {
        const char* what;
        int sockValue; // 1: the registered socket
        int channel;   // 1: the channel
        int mos, enable;
        int sentCmd; // -1: nothing sent
        int sentParam;
        int enableAfter, mosAfter;
        const char* line;
    };
    const Row rows[] = {
        {"start", 1, 1, 0, 0, 1, 5, 1, 0, kStartLine},
        {"stop", 1, 1, 0, 1, 0, 5, 0, 0, kStopLine},
        {"MOS, monitor off", 1, 1, 1, 0, 100, 0, 0, 0, ""},
        {"MOS, monitor on: stays on", 1, 1, 1, 1, 100, 0, 1, 0, ""},
        {"no socket: flag cleared", -1, 1, 0, 1, -1, 0, 0, 0, ""},
        {"no channel: flag cleared", 1, -1, 0, 1, -1, 0, 0, 0, ""},
        {"no socket, off", -1, -1, 0, 0, -1, 0, 0, 0, ""},
        {"no socket: MOS request kept for later", -1, 1, 1, 1, -1, 0, 0, 1, ""},
    };
    for (const Row& r : rows) {
        clear();
        g_regi_sock = r.sockValue == 1 ? sock : r.sockValue;
        g_regi_channel = r.channel == 1 ? ch : r.channel;
        g_bVQMRequestMOS = r.mos;
        g_bVQMonEnable = r.enable;
        EXPECT_EQ(run(), r.line) << r.what;
        EXPECT_EQ(g_bVQMonEnable.load(), r.enableAfter) << r.what;
        EXPECT_EQ(g_bVQMRequestMOS.load(), r.mosAfter) << r.what;
        if (r.sentCmd < 0) {
            EXPECT_TRUE(settle(0).empty()) << r.what;
            continue;
        }
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), 311) << r.what;
        EXPECT_EQ(d.size(), 1664u) << r.what;
        EXPECT_EQ(d.word(120), r.sentCmd) << r.what;
        EXPECT_EQ(d.word(124), r.sentParam) << r.what;
    }
}

TEST_F(VqmTest, RepeatedCallsToggleStartStopStart)
{
    std::string out;
    for (int i = 0; i < 3; ++i)
        out += run();
    EXPECT_EQ(out, std::string(kStartLine) + kStopLine + kStartLine);
    const auto got = settle(3);
    ASSERT_EQ(got.size(), 3u);
    const int cmds[] = {1, 0, 1};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(got[i].reqNo(), 311);
        EXPECT_EQ(got[i].word(120), cmds[i]) << i;
        EXPECT_EQ(got[i].word(124), 5) << i;
    }
    EXPECT_EQ(g_bVQMonEnable.load(), 1);
}

TEST_F(VqmTest, TheFlagFollowsTheRequestNotTheTransport)
{
    svc.reset(); // every send now fails
    run();
    EXPECT_EQ(g_bVQMonEnable.load(), 1);
    run();
    EXPECT_EQ(g_bVQMonEnable.load(), 0);
    g_bVQMRequestMOS = 1;
    run();
    EXPECT_EQ(g_bVQMRequestMOS.load(), 0);
}
