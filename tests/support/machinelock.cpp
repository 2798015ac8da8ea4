#include "machinelock.h"

#include <fcntl.h>
#include <mutex>
#include <sys/file.h>
#include <unistd.h>

void vxTestMachineLock()
{
    static std::once_flag once;
    std::call_once(once, [] {
        const int fd = open("/tmp/vx-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd >= 0)
            flock(fd, LOCK_EX); // released by the kernel when the process ends
    });
}
