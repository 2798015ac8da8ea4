// Text routines: line readers over a text in memory, a key lookup in such a
// text, word-list matchers and comparison variants.
#include "mstring.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

inline bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

// CR, LF and NUL, by table: the line readers' inner loop.
struct LineEndTable {
    bool of[256] = {};
    constexpr LineEndTable()
    {
        of[0] = true;
        of[static_cast<unsigned char>('\r')] = true;
        of[static_cast<unsigned char>('\n')] = true;
    }
};
constexpr LineEndTable kLineEnds;

inline bool isLineEndOrNul(char c) { return kLineEnds.of[static_cast<unsigned char>(c)]; }

inline int fold(char c) { return toupper(static_cast<unsigned char>(c)); }

inline bool equalFolded(const char* a, const char* b)
{
    for (; *a != '\0' && *b != '\0'; ++a, ++b)
        if (fold(*a) != fold(*b))
            return false;
    return *a == *b;
}

// True if `prefix` starts `text`; stops at the first difference, so it never
// reads past either terminator.
inline bool isPrefix(const char* prefix, const char* text)
{
    for (; *prefix != '\0'; ++prefix, ++text)
        if (*prefix != *text)
            return false;
    return true;
}

inline bool isPrefixFolded(const char* prefix, const char* text)
{
    for (; *prefix != '\0'; ++prefix, ++text)
        if (*text == '\0' || fold(*prefix) != fold(*text))
            return false;
    return true;
}

inline const char* skipSpace(const char* p)
{
    while (*p == '\r' || *p == '\n' || *p == '\t' || *p == ' ')
        ++p;
    return p;
}

enum class Match { Exact, Prefix, Folded };

bool matches(Match how, const char* str, const char* candidate)
{
    switch (how) {
    case Match::Exact:
        return strcmp(str, candidate) == 0;
    case Match::Prefix:
        return isPrefix(candidate, str);
    case Match::Folded:
        return equalFolded(str, candidate);
    }
    return false;
}

int matchList(Match how, const char* str, va_list ap)
{
    if (str == nullptr)
        return -1;
    for (int i = 0;; ++i) {
        const char* candidate = va_arg(ap, const char*);
        if (candidate == nullptr)
            return -1;
        if (matches(how, str, candidate))
            return i;
    }
}

int matchArray(Match how, const char* str, const char* const* array)
{
    if (str == nullptr || array == nullptr)
        return -1;
    for (int i = 0; array[i] != nullptr && array[i][0] != '\0'; ++i)
        if (matches(how, str, array[i]))
            return i;
    return -1;
}

} // namespace

char* sgets(const char* src, char* dst, int size)
{
    if (src == nullptr || *src == '\0')
        return nullptr;
    int stored = 0;
    const char* p = src;
    auto keep = [&](char c) {
        if (dst != nullptr && stored < size)
            dst[stored++] = c;
    };
    while (*p != '\0' && !isLineEnd(*p))
        keep(*p++);
    if (isLineEnd(*p)) {
        const char first = *p++;
        keep(first);
        // CR LF and LF CR are one line end of two bytes.
        if ((first == '\r' && *p == '\n') || (first == '\n' && *p == '\r'))
            keep(*p++);
    }
    if (dst != nullptr)
        dst[stored] = '\0';
    if (*p == '\0' && stored == 0)
        return nullptr;
    return const_cast<char*>(p);
}

char* strgets(const char* src, char* dst, int size)
{
    if (src == nullptr || *src == '\0')
        return nullptr;
    // A line is complete at a run of line ends once it has had an ordinary
    // byte. With a destination that is the same as "a byte was stored"; with
    // a null dst or a size below 1 the bytes are counted though not stored,
    // so the reader still steps line by line instead of swallowing the text.
    const char* p = src;
    size_t stored = 0;
    const size_t room = dst != nullptr && size > 0 ? static_cast<size_t>(size) : 0;
    for (;;) {
        // Leading line ends are skipped; then the line runs to the next CR,
        // LF or the NUL.
        while (isLineEnd(*p))
            ++p;
        // The scan stays within this line: library calls such as strcspn may
        // look at the whole rest of the text (sanitizers' string checks do),
        // which over a large text would cost time for every line.
        const char* end = p;
        while (!isLineEndOrNul(*end))
            ++end;
        const size_t n = static_cast<size_t>(end - p);
        if (n > 0) {
            stored = n < room ? n : room;
            if (stored > 0)
                memcpy(dst, p, stored);
            p += n;
            while (isLineEnd(*p))
                ++p;
            break;
        }
        if (*p == '\0')
            break; // nothing but line ends were left
    }
    if (dst != nullptr && static_cast<int>(stored) < size)
        dst[stored] = '\0';
    return const_cast<char*>(p);
}

int strgetint(const char* text, const char* key, char sep)
{
    if (text == nullptr || key == nullptr)
        return -1;
    const size_t keyLen = strlen(key);
    const char* p = text;
    for (;;) {
        p = sgets(p, nullptr, 0);
        if (p == nullptr)
            return -1;
        p = skipSpace(p);
        if (isPrefixFolded(key, p))
            break;
    }
    p = skipSpace(p + keyLen);
    if (*p != sep)
        return -1;
    p = skipSpace(p + 1);
    return static_cast<int>(strtol(p, nullptr, 10));
}

int strmcmp(const char* str, ...)
{
    va_list ap;
    va_start(ap, str);
    const int r = matchList(Match::Exact, str, ap);
    va_end(ap);
    return r;
}

int strmcmp2(const char* str, ...)
{
    va_list ap;
    va_start(ap, str);
    const int r = matchList(Match::Prefix, str, ap);
    va_end(ap);
    return r;
}

int strmcasecmp(const char* str, ...)
{
    va_list ap;
    va_start(ap, str);
    const int r = matchList(Match::Folded, str, ap);
    va_end(ap);
    return r;
}

int strmcmpa(const char* str, const char* const* array) { return matchArray(Match::Exact, str, array); }

int strmcasecmpa(const char* str, const char* const* array) { return matchArray(Match::Folded, str, array); }

int strcmp1(const char* a, const char* b)
{
    const unsigned char* x = reinterpret_cast<const unsigned char*>(a != nullptr ? a : "");
    const unsigned char* y = reinterpret_cast<const unsigned char*>(b != nullptr ? b : "");
    while (*x != '\0' && *x == *y) {
        ++x;
        ++y;
    }
    return static_cast<int>(*x) - static_cast<int>(*y);
}

int strcmp2(const char* a, const char* b) { return isPrefix(a != nullptr ? a : "", b != nullptr ? b : "") ? 0 : -1; }

int strcasecmp2(const char* a, const char* b)
{
    return isPrefixFolded(a != nullptr ? a : "", b != nullptr ? b : "") ? 0 : -1;
}

namespace mstring {

char* strcasestr(const char* haystack, const char* needle)
{
    if (haystack == nullptr || needle == nullptr || *haystack == '\0')
        return nullptr;
    for (const char* h = haystack; *h != '\0'; ++h)
        if (isPrefixFolded(needle, h))
            return const_cast<char*>(h);
    return nullptr;
}

} // namespace mstring

char* strprint(const char* format, ...)
{
    if (format == nullptr)
        return nullptr;
    // 4096 bytes with a limit of 4095: at most 4094 characters.
    char buffer[4096];
    va_list ap;
    va_start(ap, format);
    const int n = vsnprintf(buffer, 4095, format, ap);
    va_end(ap);
    if (n < 0)
        buffer[0] = '\0';
    return strdup(buffer);
}
