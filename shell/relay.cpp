// The UDP relay listener.
#include "relay.h"

#include "params.h"

int Create_UDP_SOCK(const char*, int) { return -1; }
ssize_t Send_UDP_SendTo(int, const void*, size_t, int, const char*, int) { return -1; }
int vxReqReqHandler(unsigned char*, int) { return 1; }
void* vxRelayReqThread(void*)
{
    g_vx_RelayThId = 0;
    return nullptr;
}
