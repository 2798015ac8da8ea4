// The built shell against the built stand-in service, as the README runs them.
#include "fakeservice.h"
#include "proc.h"
#include "simproc.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

int32_t wordAt(const std::vector<uint8_t>& d, size_t off)
{
    int32_t v = 0;
    if (off + 4 <= d.size())
        memcpy(&v, d.data() + off, 4);
    return v;
}

} // namespace

TEST(ShellAgainstVxsim, RegistersShowsTheMenuAndUnregistersOnQ)
{
    cleanVxDir();
    SimProc sim({"--first-channel", "5"});
    ASSERT_TRUE(sim.ok()) << sim.error();
    const ProcResult r = runProcess({binPath("vxShell"), "x"}, "q\n");
    EXPECT_EQ(r.status, 0);
    ASSERT_TRUE(sim.waitForRecords(4));
    const auto recs = sim.records();
    ASSERT_EQ(recs.size(), 4u);
    const int32_t reqNos[] = {303, 305, 15, 304};
    const size_t lengths[] = {196, 120, 144, 132};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(wordAt(recs[i], 0), reqNos[i]);
        EXPECT_EQ(recs[i].size(), lengths[i]);
    }
    EXPECT_EQ(wordAt(recs[2], 116), 5) << "the channel that vxsim gave";
    const std::string out = sim.output();
    for (const char* name : {"registApplication", "createChannel", "setAudioMode", "unregistApplication"})
        EXPECT_NE(out.find(name), std::string::npos) << name << " in\n" << out;
    EXPECT_NE(out.find("mode=2"), std::string::npos) << out;
    EXPECT_NE(r.out.find("q: To quit vxShell"), std::string::npos);
    EXPECT_EQ(sim.stop(), 0);
    cleanVxDir();
}

TEST(ShellAgainstVxsim, AnswerForAnotherNumberStillGivesAChannel)
{
    cleanVxDir();
    SimProc sim({"--wrong-reqno"});
    ASSERT_TRUE(sim.ok()) << sim.error();
    const ProcResult r = runProcess({binPath("vxShell"), "x"}, "q\n");
    EXPECT_EQ(r.status, 0);
    // The answer is taken (logged as for another number) and the run goes on
    // to the menu and the unregistration.
    EXPECT_NE(r.out.find("==== MENU"), std::string::npos);
    ASSERT_TRUE(sim.waitForRecords(4));
    EXPECT_EQ(wordAt(sim.records().back(), 0), 304);
    cleanVxDir();
}

TEST(ShellAgainstVxsim, ServiceThatStopsReadingEndsTheRunWithinTheTimeOuts)
{
    cleanVxDir();
    SimProc sim({"--no-read"});
    ASSERT_TRUE(sim.ok()) << sim.error();
    const ProcResult r = runProcess({binPath("vxShell"), "x"}, "q\n", 15000);
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find(">>> ERR, main, cannot createChannel to voxalis."), std::string::npos) << r.out;
    cleanVxDir();
}
