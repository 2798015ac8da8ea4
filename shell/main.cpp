// vxShell: the diagnostic shell of the voxalis media service.
#include "menu.h"
#include "session.h"

int main(int argc, char** argv)
{
    const int status = vxShellMain(argc, argv);
    vxClaimExit();
    return status;
}
