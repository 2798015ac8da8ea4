// children.h - the commands the shell starts for key scripts, each in a
// process group of its own, so that they end with the shell: no `key` or
// `usleep` keeps pressing keys after vxShell is gone.
#ifndef VX_SHELL_CHILDREN_H
#define VX_SHELL_CHILDREN_H

#include <spawn.h>
#include <sys/types.h>

// posix_spawn of argv[0] in a new process group, unless the shell is ending
// (then -1): the child's pid, or -1.
pid_t vxStartInGroup(char* const argv[], const posix_spawn_file_actions_t* actions, posix_spawnattr_t* attr);
// The child has been waited for.
void vxGroupDone(pid_t pid);
// Ends every group still running (SIGTERM, then SIGKILL after a short grace)
// and lets no new one start. For q, end of input, the common end and every
// handled signal.
void vxEndShellCommands();

#endif // VX_SHELL_CHILDREN_H
