// vxShell: the diagnostic shell of the voxalis media service.
#include "menu.h"
#include "session.h"

#include <malloc.h>

int main(int argc, char** argv)
{
    // One malloc arena for all threads. The test threads come and go all
    // through an endurance run, and an arena of their own would spread their
    // few heap blocks over pages that stay resident; the shell's threads
    // hardly allocate, so they never contend for the one arena.
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1);
#endif
    const int status = vxShellMain(argc, argv);
    vxClaimExit();
    return status;
}
