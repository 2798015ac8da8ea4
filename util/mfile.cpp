// mFILE: whole-file reads and writes over the POSIX calls, with a result word
// of its own (vFILE_Errno) and a generator of free names.
#include "mfile.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int32_t vFILE_Errno = 0;

namespace {

constexpr mode_t kNewFileMode = 0666; // less the umask

// stat into a zeroed record; false on failure.
bool statPath(const char* path, struct stat* st)
{
    memset(st, 0, sizeof *st);
    return path != nullptr && stat(path, st) == 0;
}

// The write loop shared by mFILE_Write and mFILE_Append. No retry on EINTR:
// an interrupted write counts as a failed one.
int writeWhole(const char* path, int flags, const void* buf, int len)
{
    const int fd = path != nullptr ? open(path, flags | O_CLOEXEC, kNewFileMode) : -1;
    if (fd < 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    const char* p = static_cast<const char*>(buf);
    int left = len;
    while (left > 0) {
        const ssize_t n = p != nullptr ? write(fd, p, static_cast<size_t>(left)) : -1;
        if (n < 1) {
            vFILE_Errno = MFILE_ERR_IO;
            close(fd);
            return -1;
        }
        p += n;
        left -= static_cast<int>(n);
    }
    vFILE_Errno = MFILE_OK;
    close(fd);
    return 0;
}

} // namespace

int mFILE_Errno(void) { return vFILE_Errno; }

int mFILE_Check(const char* path) { return path != nullptr && access(path, F_OK) == 0 ? 1 : 0; }

int mFILE_Size(const char* path)
{
    struct stat st;
    // A size that a 32-bit result cannot carry is reported like a failed
    // stat rather than truncated, so no caller reads a cut file as whole.
    if (!statPath(path, &st) || st.st_size > INT32_MAX) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    return static_cast<int>(st.st_size);
}

int mFILE_Open(const char* path, int mode)
{
    if (path == nullptr)
        return -1;
    if (mode == 'w')
        return open(path, O_WRONLY | O_CREAT | O_TRUNC, kNewFileMode);
    return open(path, O_RDONLY);
}

int mFILE_OpenTmp(char* pattern, char marker)
{
    if (mFILE_MksTemp(pattern, marker) == nullptr)
        return -1;
    return mFILE_Open(pattern, 'w');
}

int mFILE_Close(int fd) { return close(fd); }

int mFILE_ReadFd(int fd, void* buf, int len)
{
    if (len < 1 || buf == nullptr)
        return 0;
    char* p = static_cast<char*>(buf);
    int done = 0;
    while (done < len) {
        const ssize_t n = read(fd, p + done, static_cast<size_t>(len - done));
        if (n < 1)
            break;
        done += static_cast<int>(n);
    }
    return done;
}

int mFILE_WriteFd(int fd, const void* buf, int len)
{
    if (len < 1 || buf == nullptr)
        return 0;
    const char* p = static_cast<const char*>(buf);
    int done = 0;
    while (done < len) {
        const ssize_t n = write(fd, p + done, static_cast<size_t>(len - done));
        if (n < 1)
            break;
        done += static_cast<int>(n);
    }
    return done;
}

int mFILE_Write(const char* path, const void* buf, int len)
{
    return writeWhole(path, O_WRONLY | O_CREAT | O_TRUNC, buf, len);
}

int mFILE_Append(const char* path, const void* buf, int len)
{
    return writeWhole(path, O_WRONLY | O_CREAT | O_APPEND, buf, len);
}

int mFILE_Read(const char* path, void* buf, int maxLen)
{
    struct stat st;
    if (!statPath(path, &st)) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    const int n = static_cast<off_t>(maxLen) < st.st_size ? maxLen : static_cast<int>(st.st_size);
    char* p = static_cast<char*>(buf);
    int done = 0;
    while (done < n) {
        // A file that shrank since the stat ends here with a read of 0.
        const ssize_t r = p != nullptr ? read(fd, p + done, static_cast<size_t>(n - done)) : -1;
        if (r < 1) {
            vFILE_Errno = MFILE_ERR_IO;
            close(fd);
            return -1;
        }
        done += static_cast<int>(r);
    }
    vFILE_Errno = MFILE_OK;
    close(fd);
    return n;
}

int mFILE_Read2(const char* path, void* buf, int len)
{
    const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    const int done = mFILE_ReadFd(fd, buf, len);
    vFILE_Errno = MFILE_OK;
    close(fd);
    return done;
}

int mFILE_ReadAlloc(const char* path, char** buf)
{
    if (path == nullptr || buf == nullptr)
        return 0;
    *buf = nullptr;
    struct stat st;
    if (!statPath(path, &st)) {
        vFILE_Errno = MFILE_ERR_STAT;
        return 0;
    }
    // size + 1 must stay a 32-bit length.
    if (st.st_size >= INT32_MAX) {
        vFILE_Errno = MFILE_ERR_NOMEM;
        return 0;
    }
    const int size = static_cast<int>(st.st_size);
    char* block = static_cast<char*>(calloc(static_cast<size_t>(size) + 1, 1));
    if (block == nullptr) {
        vFILE_Errno = MFILE_ERR_NOMEM;
        return 0;
    }
    if (mFILE_Read(path, block, size) < 0) {
        // After a failed read the pointer is cleared rather than left
        // dangling; the caller still goes by the result.
        free(block);
        return 0;
    }
    *buf = block;
    vFILE_Errno = MFILE_OK;
    return size;
}

char* mFILE_MksTemp(char* pattern, char marker)
{
    if (pattern == nullptr)
        return nullptr;
    const size_t len = strlen(pattern);
    int markers = 0;
    for (size_t i = 0; i < len; ++i)
        if (pattern[i] == marker)
            ++markers;
    if (markers == 0)
        return nullptr;
    const int digits = markers < 8 ? markers : 8;
    uint32_t tries = 1;
    for (int i = 0; i < digits; ++i)
        tries *= 10;

    char* candidate = static_cast<char*>(malloc(len + 1));
    if (candidate == nullptr)
        return nullptr;
    for (uint32_t n = 0; n < tries; ++n) {
        memcpy(candidate, pattern, len + 1);
        uint32_t rest = n;
        for (size_t i = len; i-- > 0;) {
            if (pattern[i] != marker)
                continue;
            candidate[i] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        }
        // Any failure of access counts as a free name, as open would then
        // create it (or fail on its own).
        if (access(candidate, F_OK) != 0) {
            memcpy(pattern, candidate, len + 1);
            free(candidate);
            return pattern;
        }
    }
    free(candidate);
    return nullptr;
}
