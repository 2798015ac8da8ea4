// Fuzz target: mCONF_ParseLine on any line and separator set. The first
// input byte picks the separator set and whether a comment is asked for; the
// rest is the line, in an exact-size buffer so that any read past its
// terminator is caught. The results must keep the contract.
#include "mconf.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    static const char* const kSeparators[] = {"=", ":=", " ", nullptr, "", "%", "]"};
    const uint8_t mode = data[0];
    const char* seps = kSeparators[(mode & 0x7f) % (sizeof kSeparators / sizeof kSeparators[0])];
    const bool wantComment = (mode & 0x80) == 0;

    char* line = static_cast<char*>(malloc(size));
    if (line == nullptr)
        return 0;
    memcpy(line, data + 1, size - 1);
    line[size - 1] = '\0';

    char* key = nullptr;
    char* value = nullptr;
    char* comment = nullptr;
    const int r = mCONF_ParseLine(line, &key, &value, wantComment ? &comment : nullptr, seps);
    bool ok;
    switch (r) {
    case -1:
        ok = key == nullptr && value == nullptr && comment == nullptr;
        break;
    case 0:
        ok = key != nullptr && value == nullptr && comment == nullptr && strlen(key) <= 259;
        break;
    case 1:
        ok = key != nullptr && value != nullptr && strlen(key) <= 259 && strlen(value) <= 259 &&
             (comment == nullptr || strlen(comment) <= 259);
        break;
    default:
        ok = false;
    }
    if (!ok)
        abort();
    free(key);
    free(value);
    free(comment);
    free(line);
    return 0;
}
