// relay.h - the UDP relay listener of run mode -R.
#ifndef VX_SHELL_RELAY_H
#define VX_SHELL_RELAY_H

#include <sys/types.h>

int Create_UDP_SOCK(const char* ip, int port);
ssize_t Send_UDP_SendTo(int sock, const void* buf, size_t len, int flags, const char* ip, int port);
// Acts on one received datagram of len bytes; 0 tells the thread to stop.
int vxReqReqHandler(unsigned char* msg, int len);
void* vxRelayReqThread(void* arg);

#endif // VX_SHELL_RELAY_H
