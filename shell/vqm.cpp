// The voice-quality monitor command.
#include "vqm.h"

void VQM_StaartMonitor() {}
