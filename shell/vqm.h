// vqm.h - the voice-quality monitor command (menu key v, run mode -v).
#ifndef VX_SHELL_VQM_H
#define VX_SHELL_VQM_H

void VQM_StaartMonitor();

#endif // VX_SHELL_VQM_H
