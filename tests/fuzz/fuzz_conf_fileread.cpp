// Fuzz target: mCONF_FileRead, which reads a file in 64 KB blocks, against
// mCONF_BufRead of the same bytes: the two stores must write the same text.
// The input is placed behind a filler line so that it straddles the first
// block edge, at an offset that the first two input bytes choose.
#include "mconf.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t shift = (static_cast<size_t>(data[0]) << 8 | data[1]) % 512;
    // One long comment line up to the spot (cheap to skip), then the input.
    std::string text = "#";
    text.append(65536 - shift - 2, 'x');
    text += '\n';
    text.append(reinterpret_cast<const char*>(data + 2), size - 2);

    const int fd = memfd_create("fuzzconf", 0);
    if (fd < 0)
        return 0;
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        close(fd);
        return 0;
    }
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    tConfGroup* fromFile = mCONF_FileRead(path);
    close(fd);
    tConfGroup* fromText = mCONF_BufRead(text.c_str());
    if (fromFile == nullptr || fromText == nullptr)
        abort();
    char* a = mCONF_BufWrite(fromFile);
    char* b = mCONF_BufWrite(fromText);
    if (a == nullptr || b == nullptr || strcmp(a, b) != 0)
        abort();
    free(a);
    free(b);
    mCONF_Free(fromFile);
    mCONF_Free(fromText);
    return 0;
}
