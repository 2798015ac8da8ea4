// The tone and wave run modes of the built shell against the fake service:
// what each sends, and how long each keeps the run alive.
#include "arrivals.h"
#include "proc.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

class PlaybackModes : public ::testing::Test {
protected:
    void SetUp() override
    {
        cleanVxDir();
        svc = std::make_unique<FakeService>();
        clock = std::make_unique<ArrivalClock>(*svc);
    }
    void TearDown() override
    {
        clock.reset();
        svc.reset();
        cleanVxDir();
    }
    std::unique_ptr<FakeService> svc;
    std::unique_ptr<ArrivalClock> clock;
};

bool isToneStart(const Datagram& d) { return d.reqNo() == 1 && d.word(164) == 1; }
bool isToneStop(const Datagram& d) { return d.reqNo() == 1 && d.word(164) == 0; }

} // namespace

// All tone runs at once (each waits up to 5 s by design), told apart by the
// volume each gives with -V.
TEST_F(PlaybackModes, ToneRunsSendTheirToneAndWaitByTheirRule)
{
    struct Run {
        std::vector<std::string> args;
        int volume;
        bool starts;    // a tone start request goes out
        int hz1;        // ... with this first frequency
        int repeat;     // ... and this repeat word
        long waitMs;    // from the start (or the volume) to the last request
        bool stops;     // stopDualTone before the unregistration
    };
    const std::vector<Run> runs = {
        {{"-t", "7", "-c", "3"}, 1, true, 650, 3, 5000, true},
        {{"-t", "9"}, 2, false, 0, 0, 5000, true},
        // -T freq1,freq2,on1,off1,on2,off2,on3,off3,repeat,intermit
        {{"-T", "401,0,100,100,50,50,0,0,1,0"}, 3, true, 401, 1, 1000, false},     // total 300
        {{"-T", "402,0,250,250,250,250,0,0,0,0"}, 4, true, 402, 0, 1000, false},   // total 1000
        {{"-T", "403,0,1000,1000,1000,1000,500,500,1,0"}, 5, true, 403, 1, 5000, false},
        {{"-T", "404,0,1000,1000,1000,1000,500,501,1,0"}, 6, true, 404, 1, 5000, true},
        {{"-T", "405,0,100,100,50,50,0,0,2,0"}, 7, true, 405, 2, 5000, true},
        {{"-T", "406,0,100,100,50,50,0,0,-1,0"}, 8, true, 406, -1, 5000, true},
        // Every time left at -1: refused by the library, and the negative
        // total waits the 1000 ms floor.
        {{"-T", ""}, 9, false, 0, 0, 1000, false},
    };
    std::vector<std::unique_ptr<Child>> children;
    for (const Run& r : runs) {
        std::vector<std::string> argv = {binPath("vxShell"), "-V", std::to_string(r.volume)};
        argv.insert(argv.end(), r.args.begin(), r.args.end());
        children.push_back(std::make_unique<Child>(argv));
    }
    for (size_t i = 0; i < children.size(); ++i) {
        const ProcResult res = children[i]->wait(15000);
        EXPECT_TRUE(res.exited && res.status == 0) << "run " << i << ": " << res.out << res.err;
    }

    const auto clients = clock->byClient();
    for (const Run& r : runs) {
        const std::string what = r.args[0] + " " + r.args[1] + (r.args.size() > 2 ? " " + r.args[2] : "");
        const std::vector<ArrivalClock::Arrival>* mine = nullptr;
        for (const auto& [path, arrivals] : clients)
            for (const auto& a : arrivals)
                if (a.d.reqNo() == 8 && a.d.word(124) == r.volume)
                    mine = &arrivals;
        ASSERT_NE(mine, nullptr) << what << ": no volume request";
        std::vector<int> reqNos;
        for (const auto& a : *mine)
            reqNos.push_back(a.d.reqNo());
        // register, channel, audio mode, volume, [tone], [stop], unregister
        std::vector<int> expect = {303, 305, 15, 8};
        if (r.starts)
            expect.push_back(1);
        if (r.stops)
            expect.push_back(1);
        expect.push_back(304);
        EXPECT_EQ(reqNos, expect) << what;
        if (reqNos != expect)
            continue;
        const auto& volume = (*mine)[3];
        const auto& last = mine->back();
        if (r.starts) {
            const Datagram& tone = (*mine)[4].d;
            EXPECT_TRUE(isToneStart(tone)) << what;
            EXPECT_EQ(tone.word(124), r.hz1) << what;
            EXPECT_EQ(tone.word(156), r.repeat) << what;
        }
        if (r.stops) {
            EXPECT_TRUE(isToneStop((*mine)[mine->size() - 2].d)) << what;
        }
        const long waited = msBetween(volume.at, last.at);
        EXPECT_GE(waited, r.waitMs - 50) << what;
        EXPECT_LT(waited, r.waitMs + 1500) << what;
    }
}

TEST_F(PlaybackModes, WaveByIndex)
{
    const ProcResult res = runProcess({binPath("vxShell"), "-W", "10"});
    ASSERT_TRUE(res.exited);
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(stripTimestamps(res.out), ">>> setRecordVolume[v:7, mode:2]\n"
                                        ">>> PlayWavIndex Wave File[/sound/ring10.wav]\n");
    const auto got = svc->received();
    ASSERT_EQ(got.size(), 6u);
    EXPECT_EQ(got[2].reqNo(), 15);
    EXPECT_EQ(got[3].reqNo(), 9);
    EXPECT_EQ(got[3].word(124), 7);
    EXPECT_EQ(got[4].reqNo(), 3);
    EXPECT_EQ(got[4].text(120, 128), "/sound/ring10.wav");
    EXPECT_EQ(got[4].word(264), 0); // repeat
    EXPECT_EQ(got[4].word(268), 1); // wavParam4
    // No wait for the sound: straight to the unregistration.
    EXPECT_EQ(got[5].reqNo(), 304);
}

TEST_F(PlaybackModes, WaveByIndexLogsTheVolumeButSendsSeven)
{
    const ProcResult res = runProcess({binPath("vxShell"), "-V", "3", "-W", "2"});
    ASSERT_TRUE(res.exited);
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(stripTimestamps(res.out), ">>> setRecordVolume[v:3, mode:2]\n"
                                        ">>> PlayWavIndex Wave File[/sound/ring2.wav]\n");
    const auto got = svc->received();
    ASSERT_EQ(got.size(), 6u);
    EXPECT_EQ(got[3].reqNo(), 9);
    EXPECT_EQ(got[3].word(124), 7);
    EXPECT_EQ(got[4].text(120, 128), "/sound/ring2.wav");
}

TEST_F(PlaybackModes, TestWaveAndMenuKeys)
{
    {
        // The longest path -w keeps (127 characters) goes out whole.
        const std::string path = "/sound/" + std::string(116, 'x') + ".wav";
        const ProcResult res = runProcess({binPath("vxShell"), "-V", "3", "-w", path});
        ASSERT_TRUE(res.exited);
        EXPECT_EQ(res.status, 0);
        EXPECT_EQ(stripTimestamps(res.out), ">>> setRecordVolume[v:7, mode:2]\n>>> Test Play Wave File[" + path + "]\n");
        const auto got = svc->received();
        ASSERT_EQ(got.size(), 6u);
        EXPECT_EQ(got[3].reqNo(), 9);
        EXPECT_EQ(got[3].word(124), 7);
        EXPECT_EQ(got[4].text(120, 128), path);
        EXPECT_EQ(got[4].word(268), 0);
    }
    svc->clear();
    {
        // Key d with key type 2, then f.
        const ProcResult res = runProcess({binPath("vxShell"), "menu"}, "2\nd\nf\nq\n");
        ASSERT_TRUE(res.exited);
        EXPECT_EQ(res.status, 0);
        const std::string out = stripTimestamps(res.out);
        EXPECT_NE(out.find(">>> PlayKeyTone, g_iKeyType:2, Wav[/sound/tone_2_0.wav]\n"), std::string::npos);
        EXPECT_NE(out.find(">>> PlayRingSound, Wav[/sound/ring1.wav]\n"), std::string::npos);
        std::vector<std::string> paths;
        for (const auto& d : svc->received())
            if (d.reqNo() == 3)
                paths.push_back(d.text(120, 128) + " repeat " + std::to_string(d.word(264)));
        EXPECT_EQ(paths, (std::vector<std::string>{"/sound/tone_2_0.wav repeat 0", "/sound/ring1.wav repeat 1"}));
    }
}
