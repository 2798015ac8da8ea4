// Command lines for the system shell and the key-script pause. Nothing else
// belongs in this file (see shellcmd.h).
#include "shellcmd.h"

#include "children.h"
#include "mlog.h"
#include "session.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <spawn.h>
#include <sys/wait.h>

// Not system(): the shell blocks SIGINT, SIGHUP, SIGTERM and SIGQUIT in all
// of its threads (a thread of its own takes them with sigwait), and a child
// made by system() would inherit that mask, so `key` and `usleep` could not
// be interrupted. posix_spawn sets the child's mask and actions explicitly.
int vxRunShellCommand(const char* cmd)
{
    if (cmd == nullptr)
        return -1;
    fflush(stdout);

    posix_spawnattr_t attr;
    if (posix_spawnattr_init(&attr) != 0)
        return -1;
    sigset_t startMask;
    vxChildSignalMask(&startMask);
    sigset_t defaults;
    sigemptyset(&defaults);
    static const int kDefaulted[] = {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGPIPE};
    for (int sig : kDefaulted)
        sigaddset(&defaults, sig);
    posix_spawnattr_setsigmask(&attr, &startMask);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    // -f: no pathname expansion, so the key '*' ("key *") is not replaced
    // by the names of the files in the working directory.
    char sh[] = "/bin/sh";
    char noGlob[] = "-f";
    char dashC[] = "-c";
    char* argv[] = {sh, noGlob, dashC, const_cast<char*>(cmd), nullptr};
    // The child sees the standard descriptors alone, whatever the shell holds.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    const pid_t pid = vxStartInGroup(argv, &actions, &attr);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (pid < 0)
        return -1;

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    vxGroupDone(pid);
    return status;
}

int vxScriptPause(uint32_t ms) { return msleep(ms); }
