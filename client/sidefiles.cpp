// Side-file probes. Every request must see the side files as they are at
// that moment, but opening three files per request costs several times the
// send itself. So the answers are cached and the cache is kept exact with an
// inotify watch on /tmp/vx/: the kernel queues an event inside the very
// system call that creates, removes, renames or re-permissions an entry, so a
// change that completed before a probe is always in the queue when the probe
// drains it (one non-blocking read). Any event drops the cache and the files
// are opened afresh. Without inotify, or while /tmp/vx/ is missing, every
// probe opens the file, as the plain cost model does.
//
// Not seen by the watch: a side file that is a symbolic link whose target
// changes elsewhere. Side files are plain files created by hand.
#include "sidefiles.h"

#include "vxclient.h"

#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

// In the order of the VxSideFile bits.
const char* const kPaths[3] = {VX_IGNORE_FILE, VX_SAVEMSG_FILE, VX_PRINTTIME_FILE};

bool openable(const char* path)
{
    // O_NONBLOCK: a FIFO put there by hand must not hang the request.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

struct Cache {
    pthread_mutex_t mu;
    int ifd;    // inotify descriptor, -1 when not watching
    bool valid; // mask reflects the files
    unsigned mask;
};

Cache g_cache = {PTHREAD_MUTEX_INITIALIZER, -1, false, 0};

void resetLocked(Cache& c)
{
    if (c.ifd >= 0)
        close(c.ifd);
    c.ifd = -1;
    c.valid = false;
}

// After fork the child shares the parent's inotify queue: reading it in one
// process would steal the other's events. The child starts a watch of its
// own; the lock is held across fork so the child never inherits it taken.
void atforkPrepare() { pthread_mutex_lock(&g_cache.mu); }
void atforkParent() { pthread_mutex_unlock(&g_cache.mu); }
void atforkChild()
{
    resetLocked(g_cache);
    pthread_mutex_unlock(&g_cache.mu);
}

// Starts the watch; false when inotify or the directory is not available.
bool startWatchLocked(Cache& c)
{
    c.ifd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (c.ifd < 0)
        return false;
    const uint32_t mask =
        IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    if (inotify_add_watch(c.ifd, VX_DIR, mask) < 0) {
        resetLocked(c);
        return false;
    }
    c.valid = false;
    return true;
}

// Reads every queued event. Returns false when the watch was lost (the
// directory went away) and has been dropped.
bool drainLocked(Cache& c)
{
    alignas(struct inotify_event) char buf[4096];
    for (;;) {
        const ssize_t n = read(c.ifd, buf, sizeof buf);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return true; // EAGAIN: the queue is empty
        }
        c.valid = false;
        for (ssize_t off = 0; off < n;) {
            const auto* ev = reinterpret_cast<const struct inotify_event*>(buf + off);
            if (ev->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_Q_OVERFLOW)) {
                resetLocked(c);
                return false;
            }
            off += static_cast<ssize_t>(sizeof(struct inotify_event) + ev->len);
        }
    }
}

unsigned probeAll()
{
    unsigned mask = 0;
    for (int i = 0; i < 3; ++i)
        if (openable(kPaths[i]))
            mask |= 1u << i;
    return mask;
}

// The fork handlers, registered once before the first probe.
pthread_once_t g_atforkOnce = PTHREAD_ONCE_INIT;
void registerAtfork() { pthread_atfork(atforkPrepare, atforkParent, atforkChild); }

unsigned sideFilesLocked(Cache& c)
{
    if ((c.ifd < 0 && !startWatchLocked(c)) || !drainLocked(c))
        return probeAll();
    if (!c.valid) {
        c.mask = probeAll();
        c.valid = true;
    }
    return c.mask;
}

} // namespace

unsigned vxSideFiles()
{
    pthread_once(&g_atforkOnce, registerAtfork);
    pthread_mutex_lock(&g_cache.mu);
    const unsigned mask = sideFilesLocked(g_cache);
    pthread_mutex_unlock(&g_cache.mu);
    return mask;
}
