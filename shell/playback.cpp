// Tones and wave files (menu keys d f, run modes -t -T -W -w). The shell only
// picks the parameters and decides how long a run stays alive; the sound
// itself comes from the service.
#include "playback.h"

#include "mlog.h"
#include "params.h"
#include "vxclient.h"

#include <cstdint>
#include <cstdio>

namespace {

// Arguments of startTripleTone for one preset, in argument order.
struct TonePreset {
    int hz1;
    int hz2;
    int firstOntime;
    int firstOfftime;
    int secondOntime;
    int secondOfftime;
    int repeat; // kRepeatFromCount: g_nRepeatCnt (option -c)
    int thirdOnTime;
    int thirdOffTime;
    int intermitMs;
};

constexpr int kRepeatFromCount = -1000;

// Indexed by g_nToneIndex; -t lets 9 and 10 pass, and they start nothing.
// clang-format off
const TonePreset kTonePresets[] = {
    {350, 440, 1000, 250, 1000, 250, 65535, 0, 0, 999},
    {440, 480, 1000, 2000, 1000, 2000, 65535, 0, 0, 0},
    {800, 1000, 400, 200, 400, 3000, 65535, 0, 0, 60},
    {300, 400, 1000, 2000, 1000, 2000, 65535, 0, 0, 60},
    {400, 600, 200, 200, 200, 200, 65535, 200, 4000, 60},
    {480, 620, 500, 500, 500, 500, 65535, 0, 0, 999},
    {350, 440, 50, 50, 50, 50, 65535, 0, 0, 0},
    {650, 0, 100, 100, 100, 1000, kRepeatFromCount, 0, 0, 0},
    {1552, 1000, 150, 150, 150, 150, 8, 0, 0, 0},
};
// clang-format on
constexpr int kPresetCount = static_cast<int>(sizeof kTonePresets / sizeof kTonePresets[0]);

// How long the tone run modes keep a tone that would go on by itself.
constexpr int kToneRunMs = 5000;
// The shortest extended tone run.
constexpr int kToneFloorMs = 1000;

// Arguments of playWavFile behind the path.
struct WavArgs {
    int wavParam1, playFile, wavParam2, wavParam3, repeat, wavParam4, wavParam5;
};
const WavArgs kRingArgs = {1, 1, 0, 0, 1, 0, 1};
const WavArgs kKeyToneArgs = {1, 1, 0, 0, 0, 0, 1};
const WavArgs kWavIndexArgs = {1, 1, 0, 0, 0, 1, 1};
const WavArgs kTestWavArgs = {1, 1, 0, 0, 0, 0, 1};

int playWav(const char* path, const WavArgs& a)
{
    return playWavFile(g_regi_sock, g_regi_channel, path, a.wavParam1, a.playFile, a.wavParam2, a.wavParam3, a.repeat,
                       a.wavParam4, a.wavParam5);
}

// Arguments of the ten-argument startDualTone of vxPlayDualTone.
struct DualTone {
    int hz1, hz2, firstOntime, firstOfftime, secondOntime, secondOfftime, repeat;
};
const DualTone kDualLong = {350, 440, 1000, 0, 0, 0, 1};
const DualTone kDualShort = {350, 440, 500, 100, 500, 500, 1};
const DualTone kDualLow = {50, 440, 500, 100, 500, 500, 1};

} // namespace

void PlayRingSound()
{
    char path[128] = {};
    snprintf(path, sizeof path, "/sound/ring%d.wav", 1);
    logPrt(">>> %s, Wav[%s]", "PlayRingSound", path);
    playWav(path, kRingArgs);
}

void PlayKeyTone()
{
    char path[128] = {};
    const int keyType = g_iKeyType;
    snprintf(path, sizeof path, "/sound/tone_%d_%d.wav", keyType, 0);
    logPrt(">>> %s, g_iKeyType:%d, Wav[%s]", "PlayKeyTone", keyType, path);
    playWav(path, kKeyToneArgs);
}

void vxPlayDualTone(int toneKind, int toneLong)
{
    if (g_regi_sock < 0) {
        logPrt(">>> ERR, %s, g_regi_sock:-1, so Ignore !!!", "vxPlayDualTone");
        return;
    }
    const DualTone* t = nullptr;
    if (toneKind == 0)
        t = toneLong ? &kDualLong : &kDualShort;
    else if (toneKind >= 1 && toneKind <= 9)
        t = &kDualShort;
    else if (toneKind == 10)
        t = &kDualLow;
    if (t == nullptr)
        return;
    startDualTone(g_regi_sock, g_regi_channel, TONE_NORMAL, t->hz1, t->hz2, t->firstOntime, t->firstOfftime,
                  t->secondOntime, t->secondOfftime, t->repeat);
}

int vxStartPresetTone(int index)
{
    if (index < 0 || index >= kPresetCount)
        return 0;
    const TonePreset& p = kTonePresets[index];
    const int repeat = p.repeat == kRepeatFromCount ? g_nRepeatCnt : p.repeat;
    startTripleTone(g_regi_sock, g_regi_channel, TONE_NORMAL, p.hz1, p.hz2, p.firstOntime, p.firstOfftime,
                    p.secondOntime, p.secondOfftime, repeat, p.thirdOnTime, p.thirdOffTime, p.intermitMs);
    return 1;
}

void RunPresetTone()
{
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    setPlaybackVolume(g_regi_sock, g_regi_channel, g_nVolumeIndex, g_AudMode);
    vxStartPresetTone(g_nToneIndex);
    msleep(kToneRunMs);
    // Sent even when no preset was started.
    stopDualTone(g_regi_sock, g_regi_channel);
}

tToneWaitPlan vxExtendedTonePlan()
{
    // A repeated tone (or one repeated for ever) is cut after 5000 ms.
    if (g_ToneRepeat == -1 || g_ToneRepeat > 1)
        return {kToneRunMs, 0, 1};
    // One pass: the sum of the six times, in wrapping 32-bit arithmetic.
    const uint32_t sum = static_cast<uint32_t>(g_Tone1OnTime) + static_cast<uint32_t>(g_Tone1OffTime) +
                         static_cast<uint32_t>(g_Tone2OnTime) + static_cast<uint32_t>(g_Tone2OffTime) +
                         static_cast<uint32_t>(g_Tone3OnTime) + static_cast<uint32_t>(g_Tone3OffTime);
    const int32_t total = static_cast<int32_t>(sum);
    if (total > kToneRunMs)
        return {kToneRunMs, 0, 1};
    // A negative total (times left at -1, or negative times, which the
    // library refuses anyway) waits the floor of 1000 ms, never the hour
    // that an unsigned reading of it would give.
    if (total < 0)
        return {0, kToneFloorMs, 0};
    // The single pass runs out by itself; the run lasts at least 1000 ms.
    return {total, total < kToneFloorMs ? kToneFloorMs - total : 0, 0};
}

void RunExtendedTone()
{
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    setPlaybackVolume(g_regi_sock, g_regi_channel, g_nVolumeIndex, g_AudMode);
    // g_ToneRepeat stands between the second and the third pair of times.
    startTripleTone(g_regi_sock, g_regi_channel, TONE_NORMAL, g_ToneFreq1, g_ToneFreq2, g_Tone1OnTime, g_Tone1OffTime,
                    g_Tone2OnTime, g_Tone2OffTime, g_ToneRepeat, g_Tone3OnTime, g_Tone3OffTime, g_ToneInterMitMs);
    const tToneWaitPlan plan = vxExtendedTonePlan();
    if (plan.firstMs > 0)
        msleep(static_cast<uint32_t>(plan.firstMs));
    if (plan.secondMs > 0)
        msleep(static_cast<uint32_t>(plan.secondMs));
    if (plan.stop)
        stopDualTone(g_regi_sock, g_regi_channel);
}

void RunPlayWavIndex()
{
    char path[128] = {};
    snprintf(path, sizeof path, "/sound/ring%d.wav", g_nWaveIndex);
    logPrt(">>> setRecordVolume[v:%d, mode:%d]", g_nVolumeIndex, g_AudMode.load());
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    // The constant 7, whatever the log line shows.
    setRecordVolumeMode(g_regi_sock, g_regi_channel, 7, g_AudMode);
    msleep(100);
    logPrt(">>> PlayWavIndex Wave File[%s]", path);
    playWav(path, kWavIndexArgs);
}

void RunTestPlayWav()
{
    logPrt(">>> setRecordVolume[v:%d, mode:%d]", 7, g_AudMode.load());
    setAudioMode(g_regi_sock, g_regi_channel, g_AudMode, nullptr, 0, 0);
    setRecordVolumeMode(g_regi_sock, g_regi_channel, 7, g_AudMode);
    msleep(100);
    logPrt(">>> Test Play Wave File[%s]", g_WaveFile);
    // playWavFile refuses a path of 128 characters or more; g_WaveFile
    // holds at most 127.
    playWav(g_WaveFile, kTestWavArgs);
}
