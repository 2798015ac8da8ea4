// playback.h - tones and wave files: menu keys d and f, the run modes
// -t, -T, -W, -w.
#ifndef VX_SHELL_PLAYBACK_H
#define VX_SHELL_PLAYBACK_H

void PlayRingSound();
void PlayKeyTone();
void vxPlayDualTone(int toneKind, int toneLong);

// The four run modes of main, each up to (not including) the common end.
void RunPresetTone();
void RunExtendedTone();
void RunPlayWavIndex();
void RunTestPlayWav();

#endif // VX_SHELL_PLAYBACK_H
