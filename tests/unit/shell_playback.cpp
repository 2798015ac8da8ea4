// Tone and wave playback: the preset table and the dual tones as they reach
// the wire, the waits of the extended tone mode, the wave paths and rows.
#include "playback.h"
#include "params.h"
#include "shellthreads.h"

#include <chrono>
#include <climits>
#include <string>

namespace {

// Offsets of the cadence record.
enum : size_t { kAmp = 120, kHz1 = 124, kHz2 = 128, kOn1 = 132, kOff1 = 136, kOn2 = 140, kOff2 = 144,
                kOn3 = 148, kOff3 = 152, kRepeat = 156, kIntermit = 160, kStart = 164 };

struct Cadence {
    int hz1, hz2, on1, off1, on2, off2, repeat, on3, off3, intermit;
};

void expectCadence(const Datagram& d, const Cadence& c, const std::string& what)
{
    EXPECT_EQ(d.reqNo(), 1) << what;
    EXPECT_EQ(d.size(), 168u) << what;
    EXPECT_EQ(d.word(kAmp), 200) << what;
    EXPECT_EQ(d.word(kHz1), c.hz1) << what;
    EXPECT_EQ(d.word(kHz2), c.hz2) << what;
    EXPECT_EQ(d.word(kOn1), c.on1) << what;
    EXPECT_EQ(d.word(kOff1), c.off1) << what;
    EXPECT_EQ(d.word(kOn2), c.on2) << what;
    EXPECT_EQ(d.word(kOff2), c.off2) << what;
    EXPECT_EQ(d.word(kOn3), c.on3) << what;
    EXPECT_EQ(d.word(kOff3), c.off3) << what;
    EXPECT_EQ(d.word(kRepeat), c.repeat) << what;
    EXPECT_EQ(d.word(kIntermit), c.intermit) << what;
    EXPECT_EQ(d.word(kStart), 1) << what;
}

// Wave record offsets.
enum : size_t { kPath = 120, kWav1 = 248, kPlayFile = 252, kWav2 = 256, kWav3 = 260, kWavRepeat = 264,
                kWav4 = 268, kWav5 = 272 };

void expectWave(const Datagram& d, const std::string& path, std::initializer_list<int> row)
{
    ASSERT_EQ(d.reqNo(), 3);
    ASSERT_EQ(d.size(), 280u);
    EXPECT_EQ(d.text(kPath, 128), path);
    const size_t offsets[] = {kWav1, kPlayFile, kWav2, kWav3, kWavRepeat, kWav4, kWav5};
    size_t i = 0;
    for (int v : row)
        EXPECT_EQ(d.word(offsets[i++]), v) << "word at " << offsets[i - 1] << " of " << path;
}

} // namespace

using PlaybackTest = ShellThreadsTest;

TEST_F(PlaybackTest, PresetRowsReachTheCadenceRecord)
{
    g_nRepeatCnt = 3; // -c 3: the repeat of preset 7
    const Cadence rows[] = {
        {350, 440, 1000, 250, 1000, 250, 65535, 0, 0, 999},
        {440, 480, 1000, 2000, 1000, 2000, 65535, 0, 0, 0},
        {800, 1000, 400, 200, 400, 3000, 65535, 0, 0, 60},
        {300, 400, 1000, 2000, 1000, 2000, 65535, 0, 0, 60},
        {400, 600, 200, 200, 200, 200, 65535, 200, 4000, 60},
        {480, 620, 500, 500, 500, 500, 65535, 0, 0, 999},
        {350, 440, 50, 50, 50, 50, 65535, 0, 0, 0},
        {650, 0, 100, 100, 100, 1000, 3, 0, 0, 0},
        {1552, 1000, 150, 150, 150, 150, 8, 0, 0, 0},
    };
    for (int i = 0; i < 9; ++i) {
        clear();
        EXPECT_EQ(vxStartPresetTone(i), 1);
        expectCadence(only(), rows[i], "preset " + std::to_string(i));
    }
    // -t lets 9 and 10 pass; they, and anything else, start nothing.
    for (int i : {9, 10, -1, 11}) {
        clear();
        EXPECT_EQ(vxStartPresetTone(i), 0) << i;
        EXPECT_FALSE(svc->waitFor(1, 50)) << "preset " << i << " sent something";
    }
}

TEST(ExtendedTonePlan, WaitsByRepeatAndTotal)
{
    struct Row {
        int repeat;
        int times[6];
        tToneWaitPlan plan;
    };
    const Row rows[] = {
        // One pass: the total, then up to the 1000 ms floor, no stop.
        {1, {100, 100, 50, 50, 0, 0}, {300, 700, 0}},
        {0, {500, 500, 0, 0, 0, 0}, {1000, 0, 0}},
        {-2, {100, 100, 50, 50, 0, 0}, {300, 700, 0}},
        {1, {1000, 1000, 1000, 1000, 500, 500}, {5000, 0, 0}},
        // Longer than 5000: cut after 5000 ms with a stop.
        {1, {1000, 1000, 1000, 1000, 500, 501}, {5000, 0, 1}},
        // Repeated or endless tones are cut after 5000 ms, however short.
        {2, {100, 100, 50, 50, 0, 0}, {5000, 0, 1}},
        {-1, {100, 100, 50, 50, 0, 0}, {5000, 0, 1}},
        {65535, {0, 0, 0, 0, 0, 0}, {5000, 0, 1}},
        // Negative totals (every time left at -1, negative times, a sum that
        // wraps) wait the floor, not an unsigned hour.
        {0, {-1, -1, -1, -1, -1, -1}, {0, 1000, 0}},
        {1, {-100, 50, 0, 0, 0, 0}, {0, 1000, 0}},
        {1, {INT_MAX, INT_MAX, 0, 0, 0, 0}, {0, 1000, 0}},
        {1, {INT_MAX, 1, 0, 0, 0, 0}, {0, 1000, 0}},
        {1, {0, 0, 0, 0, 0, 0}, {0, 1000, 0}},
    };
    for (const Row& r : rows) {
        vxResetParams();
        g_ToneRepeat = r.repeat;
        int* times[] = {&g_Tone1OnTime, &g_Tone1OffTime, &g_Tone2OnTime, &g_Tone2OffTime, &g_Tone3OnTime,
                        &g_Tone3OffTime};
        for (int i = 0; i < 6; ++i)
            *times[i] = r.times[i];
        const tToneWaitPlan p = vxExtendedTonePlan();
        const std::string what = "repeat " + std::to_string(r.repeat) + ", first time " + std::to_string(r.times[0]);
        EXPECT_EQ(p.firstMs, r.plan.firstMs) << what;
        EXPECT_EQ(p.secondMs, r.plan.secondMs) << what;
        EXPECT_EQ(p.stop, r.plan.stop) << what;
        EXPECT_GE(p.firstMs + p.secondMs, 1000) << what;
        EXPECT_LE(p.firstMs + p.secondMs, 5000) << what;
    }
    vxResetParams();
}

TEST_F(PlaybackTest, DualToneRowsByKindAndLength)
{
    struct Row {
        int kind, isLong;
        int hz1, on1, off1, on2, off2;
    };
    const Row rows[] = {
        {0, 1, 350, 1000, 0, 0, 0},
        {0, 0, 350, 500, 100, 500, 500},
        {1, 1, 350, 500, 100, 500, 500},
        {9, 0, 350, 500, 100, 500, 500},
        {10, 1, 50, 500, 100, 500, 500},
    };
    for (const Row& r : rows) {
        clear();
        vxPlayDualTone(r.kind, r.isLong);
        const Datagram d = only();
        const std::string what = "kind " + std::to_string(r.kind) + " long " + std::to_string(r.isLong);
        // The ten-argument form: no third phase, no intermission.
        expectCadence(d, {r.hz1, 440, r.on1, r.off1, r.on2, r.off2, 1, 0, 0, 0}, what);
    }
    for (int kind : {-1, 11, 100}) {
        clear();
        vxPlayDualTone(kind, 0);
        EXPECT_FALSE(svc->waitFor(1, 50)) << "kind " << kind;
    }
}

TEST_F(PlaybackTest, DualToneWhileUnregisteredOnlyLogs)
{
    g_regi_sock = -1;
    StdoutCapture out;
    vxPlayDualTone(0, 1);
    EXPECT_EQ(out.end(), ">>> ERR, vxPlayDualTone, g_regi_sock:-1, so Ignore !!!\n");
    EXPECT_FALSE(svc->waitFor(1, 50));
}

TEST_F(PlaybackTest, RingAndKeyToneFilesAndRows)
{
    StdoutCapture out;
    PlayRingSound();
    expectWave(only(), "/sound/ring1.wav", {1, 1, 0, 0, 1, 0, 1});
    clear();
    g_iKeyType = 2;
    PlayKeyTone();
    expectWave(only(), "/sound/tone_2_0.wav", {1, 1, 0, 0, 0, 0, 1});
    EXPECT_EQ(out.end(), ">>> PlayRingSound, Wav[/sound/ring1.wav]\n"
                         ">>> PlayKeyTone, g_iKeyType:2, Wav[/sound/tone_2_0.wav]\n");
}

