// The configuration text from outside: the first byte picks the way in.
//   0: mCONF_BufRead, the writer, and a second reading; within the bounds
//      under which a canonical text reads back unchanged, it must.
//   1: mCONF_FileRead of the bytes placed across the reader's 64 KB block
//      edge, against mCONF_BufRead of the same text.
//   2: mCONF_ParseLine with the separator set of the second byte.
#include "mconf.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

size_t escapedSize(const char* s)
{
    size_t n = 0;
    for (; *s != '\0'; ++s)
        n += strchr("[] ", *s) != nullptr ? 3 : 1;
    return n;
}

// Names without '%', CR, LF; keys without '%', '=', tab, CR, LF, not
// starting with ';' or '#'; values without '"', CR, LF; comments without
// CR, LF; no written line beyond 255 bytes.
bool roundTrips(tConfGroup* root)
{
    for (tConfGroup* g = root->next; g != nullptr; g = g->next) {
        if (strpbrk(g->name, "%\r\n") != nullptr || escapedSize(g->name) + 2 > 255)
            return false;
        for (tConfItem* it = g->items; it != nullptr; it = it->next) {
            const size_t line =
                escapedSize(it->key) + 3 + strlen(it->value) + (it->comment != nullptr ? 2 + strlen(it->comment) : 0);
            if (strpbrk(it->key, "%=\t\r\n") != nullptr || it->key[0] == ';' || it->key[0] == '#' ||
                strpbrk(it->value, "\"\r\n") != nullptr || (it->comment != nullptr && strpbrk(it->comment, "\r\n")) ||
                line > 255)
                return false;
        }
    }
    return true;
}

std::string written(tConfGroup* root)
{
    char* text = mCONF_BufWrite(root);
    std::string s = text != nullptr ? text : "";
    free(text);
    mCONF_Free(root);
    return s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    // An exact-size copy, so that a read past the terminator is caught.
    char* text = static_cast<char*>(malloc(size - 1));
    memcpy(text, data + 2, size - 2);
    text[size - 2] = '\0';
    if (data[0] == 0) {
        tConfGroup* first = mCONF_BufRead(text);
        const bool bounded = roundTrips(first);
        const std::string once = written(first);
        if (written(mCONF_BufRead(once.c_str())) != once && bounded)
            abort();
    } else if (data[0] == 1) {
        std::string file = "#" + std::string(65533 - data[1], 'x') + "\n" + std::string(text, size - 2);
        const int fd = memfd_create("fuzzconf", 0);
        char path[64];
        snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
        if (write(fd, file.data(), file.size()) == static_cast<ssize_t>(file.size()) &&
            written(mCONF_FileRead(path)) != written(mCONF_BufRead(file.c_str())))
            abort();
        close(fd);
    } else {
        const char separators[2] = {static_cast<char>(data[1]), '\0'};
        char *key = nullptr, *value = nullptr, *comment = nullptr;
        const int kind = mCONF_ParseLine(text, &key, &value, &comment, separators);
        if (kind < -1 || kind > 1 || (kind == 1 && value == nullptr) || (kind == -1 && key != nullptr))
            abort();
        free(key);
        free(value);
        free(comment);
    }
    free(text);
    return 0;
}
