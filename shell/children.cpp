// The process groups of the key scripts' commands: started under one lock
// with the ending flag, so that no command starts after the groups were
// ended, and ended with TERM, then KILL.
#include "children.h"

#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <unistd.h>

extern char** environ;

namespace {

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_ending = false;
pid_t g_groups[8]; // 0: free; at most the relay and the key-event thread run commands at once
constexpr int kGraceMs = 300;

} // namespace

pid_t vxStartInGroup(char* const argv[], const posix_spawn_file_actions_t* actions, posix_spawnattr_t* attr)
{
    short flags = 0;
    posix_spawnattr_getflags(attr, &flags);
    posix_spawnattr_setflags(attr, static_cast<short>(flags | POSIX_SPAWN_SETPGROUP));
    posix_spawnattr_setpgroup(attr, 0);
    pthread_mutex_lock(&g_lock);
    pid_t* slot = nullptr;
    for (pid_t& g : g_groups)
        slot = slot == nullptr && g == 0 ? &g : slot;
    pid_t pid = -1;
    if (g_ending || slot == nullptr || posix_spawn(&pid, argv[0], actions, attr, argv, environ) != 0)
        pid = -1;
    else
        *slot = pid;
    pthread_mutex_unlock(&g_lock);
    return pid;
}

void vxGroupDone(pid_t pid)
{
    pthread_mutex_lock(&g_lock);
    for (pid_t& g : g_groups)
        g = g == pid ? 0 : g;
    pthread_mutex_unlock(&g_lock);
}

void vxEndShellCommands()
{
    pid_t groups[sizeof g_groups / sizeof g_groups[0]];
    pthread_mutex_lock(&g_lock);
    g_ending = true;
    for (size_t i = 0; i < sizeof groups / sizeof groups[0]; ++i)
        groups[i] = g_groups[i];
    pthread_mutex_unlock(&g_lock);
    bool left = false;
    for (pid_t g : groups)
        left = (g > 0 && kill(-g, SIGTERM) == 0) || left;
    for (int ms = 0; left && ms < kGraceMs; ms += 10) {
        usleep(10000);
        left = false;
        for (pid_t g : groups)
            left = (g > 0 && kill(-g, 0) == 0) || left;
    }
    for (pid_t g : groups)
        if (left && g > 0)
            kill(-g, SIGKILL);
}
