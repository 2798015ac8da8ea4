// session.h - the session commands behind menu keys r u s t c m n, and the
// orderly end of the shell on a signal.
#ifndef VX_SHELL_SESSION_H
#define VX_SHELL_SESSION_H

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

// Runs command with /bin/sh -c as system() does and returns its wait status
// (-1 when no child could be started; for a null command, whether a shell is
// there). The child gets the signal mask the shell was started with and the
// four signals at their default action: a plain system() would hand on the
// mask of the calling thread, in which the shell blocks them, and the command
// could then be neither interrupted nor terminated. Every command the shell
// starts goes through here.
int vxSystem(const char* command);

// Taken by whichever ends the process first, main's common end or the
// signal handler, so that exit never runs twice at once.
void vxClaimExit();

#endif // VX_SHELL_SESSION_H
