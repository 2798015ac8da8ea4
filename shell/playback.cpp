// Tones and wave files (menu keys d f, run modes -t -T -W -w).
#include "playback.h"

void PlayRingSound() {}
void PlayKeyTone() {}
void vxPlayDualTone(int, int) {}
void RunPresetTone() {}
void RunExtendedTone() {}
void RunPlayWavIndex() {}
void RunTestPlayWav() {}
