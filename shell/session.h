// session.h - the session commands behind menu keys r u s t c m n, and the
// orderly end of the shell on a signal.
#ifndef VX_SHELL_SESSION_H
#define VX_SHELL_SESSION_H

#include <csignal>

void RegistApplication();
void UnregistApplication();
void StartRtpSession();
void StartRecording();
void StartOscRecording();
void StopRtpSession();
void StopRecording();

// The orderly end on SIGINT, SIGHUP, SIGTERM or SIGQUIT: log line, stop of
// forwarding and session, 500 ms, unregistration, end of the process with
// status sigNum. Runs on the signal thread, never in signal context. Does
// not return.
[[noreturn]] void signal_callback_handler(int sigNum);

// Blocks the four signals in the calling thread (and so in every thread it
// starts later) and starts the thread that waits for them and runs
// signal_callback_handler. Called first thing in main; a second call does
// nothing.
void vxInstallSignalHandling();

// The signal mask a child process should start with: the one the shell
// started with, before the shutdown signals were blocked.
void vxChildSignalMask(sigset_t* mask);

// Taken by whichever ends the process first, main's common end or the
// signal handler, so that exit never runs twice at once.
void vxClaimExit();

#endif // VX_SHELL_SESSION_H
