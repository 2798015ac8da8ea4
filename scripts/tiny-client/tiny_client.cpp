// An application developer's first program: built against an installed
// tree with nothing but `pkg-config --cflags --libs vxclient` (or
// find_package(vxShell)), then run. It calls the public API where the
// answer needs no running service: both calls are refused by their argument
// checks before a socket is made or anything is sent.
#include <vxclient.h>

#include <cstdio>

int main()
{
    const int sock = registApplication("tiny", -1, 7700, "127.0.0.1"); // negative priority
    const int unreg = unregistApplication(-1);                         // no socket
    std::printf("registApplication:%d unregistApplication:%d\n", sock, unreg);
    return sock == VX_ERR_ARGUMENT && unreg == VX_ERR_RESOURCE ? 0 : 1;
}
