// shellcmd.h - the two ways the key scripts touch the outside world: a
// command line handed to the system shell, and a pause between groups.
//
// Both live alone in shellcmd.cpp so that a test program (the fuzz target of
// the relay handler) can define them itself: the linker then takes its
// definitions and never pulls shellcmd.o out of the library.
#ifndef VX_SHELL_SHELLCMD_H
#define VX_SHELL_SHELLCMD_H

#include <cstdint>

// Runs `cmd` with /bin/sh -f -c (pathname expansion off) and waits for it.
// The child starts in a process group of its own (see children.h), with the
// standard descriptors alone, the signal mask the shell started with and
// default actions for the four shutdown signals, which every thread of the
// shell keeps blocked. Returns the wait status, or -1 when the shell could
// not be started (or the shell is ending). stdout is flushed first so that
// the command's output follows the log lines before it.
int vxRunShellCommand(const char* cmd);

// The pause between the groups of a key script: msleep.
int vxScriptPause(uint32_t ms);

#endif // VX_SHELL_SHELLCMD_H
