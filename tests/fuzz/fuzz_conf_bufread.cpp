// Fuzz target: mCONF_BufRead on any text, the writer behind it, and a second
// reading of the written text. Besides memory faults it checks that the
// writer's text is a fixed point whenever the store stays within the bounds
// under which a canonical text must read back byte-identical.
#include "mconf.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

size_t escapedSize(const char* s)
{
    size_t n = 0;
    for (; *s != '\0'; ++s)
        n += (*s == '[' || *s == ']' || *s == ' ') ? 3 : 1;
    return n;
}

bool hasAny(const char* s, const char* set) { return strpbrk(s, set) != nullptr; }

// Names without '%', CR, LF; keys without '%', '=', tab, CR, LF and not
// starting with ';' or '#'; values without '"', CR, LF; comments without
// CR, LF; no written line beyond 255 bytes.
bool withinRoundTripBounds(tConfGroup* root)
{
    for (tConfGroup* g = root; g != nullptr; g = g->next) {
        if (g->name == nullptr || g->name[0] == '\0')
            continue;
        if (hasAny(g->name, "%\r\n") || escapedSize(g->name) + 2 > 255)
            return false;
        for (tConfItem* it = g->items; it != nullptr; it = it->next) {
            if (hasAny(it->key, "%=\t\r\n") || it->key[0] == ';' || it->key[0] == '#')
                return false;
            if (hasAny(it->value, "\"\r\n"))
                return false;
            if (it->comment != nullptr && hasAny(it->comment, "\r\n"))
                return false;
            size_t line = escapedSize(it->key) + 3 + strlen(it->value);
            if (it->comment != nullptr)
                line += 2 + strlen(it->comment);
            if (line > 255)
                return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An exact-size copy, so that a read past the terminator is caught.
    char* text = static_cast<char*>(malloc(size + 1));
    if (text == nullptr)
        return 0;
    memcpy(text, data, size);
    text[size] = '\0';

    tConfGroup* first = mCONF_BufRead(text);
    free(text);
    if (first == nullptr)
        return 0;
    char* written = mCONF_BufWrite(first);
    if (written == nullptr) {
        mCONF_Free(first);
        return 0;
    }
    tConfGroup* second = mCONF_BufRead(written);
    char* again = second != nullptr ? mCONF_BufWrite(second) : nullptr;
    if (again != nullptr && withinRoundTripBounds(first) && strcmp(written, again) != 0)
        abort(); // a canonical text within the bounds must read back unchanged
    free(again);
    free(written);
    mCONF_Free(second);
    mCONF_Free(first);
    return 0;
}
