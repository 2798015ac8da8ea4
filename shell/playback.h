// playback.h - tones and wave files: menu keys d and f, the run modes
// -t, -T, -W, -w.
#ifndef VX_SHELL_PLAYBACK_H
#define VX_SHELL_PLAYBACK_H

void PlayRingSound();
void PlayKeyTone();
// A short dual tone by kind (0..10) and length; refused while unregistered.
void vxPlayDualTone(int toneKind, int toneLong);

// The four run modes of main, each up to (not including) the common end.
void RunPresetTone();
void RunExtendedTone();
void RunPlayWavIndex();
void RunTestPlayWav();

// Step 3 of the preset tone mode: startTripleTone with the preset row of
// `index` (0..8). Returns 0 when no such row exists and nothing was sent,
// else 1.
int vxStartPresetTone(int index);

// How the extended tone mode waits after its start request: a first wait,
// a second wait, and whether stopDualTone follows.
struct tToneWaitPlan {
    int firstMs;
    int secondMs;
    int stop;
};
// The plan for the current tone parameters (g_ToneRepeat and the six times).
tToneWaitPlan vxExtendedTonePlan();

#endif // VX_SHELL_PLAYBACK_H
