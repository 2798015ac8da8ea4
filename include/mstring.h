/*
 * mstring.h - text routines over NUL-terminated byte strings.
 *
 * Sections:
 *   1. Line readers        sgets, strgets, strgetint
 *   2. Word against list   strmcmp, strmcmp2, strmcasecmp, strmcmpa, strmcasecmpa
 *   3. Comparisons         strcmp1, strcmp2, strcasecmp2, mstring::strcasestr
 *   4. Formatting          strprint
 *
 * Bytes count as unsigned. Folded ("case") variants compare toupper() of
 * both sides in the current locale. No routine keeps state; all are
 * reentrant apart from the locale tables. A null text where a text is
 * expected is handled as the contract says, never dereferenced.
 */
#ifndef MSTRING_H
#define MSTRING_H

/* ---- 1. Line readers ----------------------------------------------------
 * src is the reading position, dst a destination or null, size a byte limit.
 * The result is the position behind the line, to pass in next time, or null
 * when the text is exhausted (also for a null src or one at its NUL). Like
 * strchr, the result points into src and is writable if src is. */

/* One line per call; a line ends at CR, LF, CR LF or LF CR, and the line
 * end is stored too. At most size bytes are stored (the rest of a longer
 * line is skipped); a terminator always follows, so dst needs size + 1.
 * Empty lines come back as just their line end. At the end of the text: the
 * NUL's position if bytes were stored, else null (always so for a null dst). */
char* sgets(const char* src, char* dst, int size);

/* One line per call; a whole run of CR and LF ends it, so empty lines do not
 * exist, and line ends are not stored. At most size bytes are stored (the
 * rest of a longer line is skipped); the terminator is written only if fewer
 * than size bytes were stored. At the end of the text: the NUL's position. */
char* strgets(const char* src, char* dst, int size);

/* Finds a line "key sep number" (key folded; blanks, CR and LF may stand
 * around key and sep) from the second line of text on, and returns the
 * number (strtol, base 10). -1 if there is none: the search also ends at
 * the first line that starts with key but lacks sep behind it. */
int strgetint(const char* text, const char* key, char sep);

/* ---- 2. Word against list -----------------------------------------------
 * The 0-based index of the first candidate that matches str, or -1 (also
 * for a null str or a null first candidate). The vararg forms take const
 * char* candidates ending at a null pointer. */

/* Candidate equal to str; "" matches only "". */
int strmcmp(const char* str, ...);
/* Candidate is a prefix of str; "" matches any str. */
int strmcmp2(const char* str, ...);
/* Candidate equal to str, folded. */
int strmcasecmp(const char* str, ...);
/* Candidate in array equal to str; the list ends at null or at "", so an
 * empty str matches nothing. A null array gives -1. */
int strmcmpa(const char* str, const char* const* array);
/* As strmcmpa, folded. */
int strmcasecmpa(const char* str, const char* const* array);

/* ---- 3. Comparisons (a null text counts as "") ---------------------------- */

/* 0 if equal; else byte of a minus byte of b at the first difference, the
 * terminator counting as 0: strcmp1("abc", "ab") is 99. */
int strcmp1(const char* a, const char* b);
/* 0 if a is a prefix of b ("" always is), else -1. */
int strcmp2(const char* a, const char* b);
/* As strcmp2, folded. */
int strcasecmp2(const char* a, const char* b);

/* The program's own case-folded search, in a namespace of its own so that
 * it never clashes with the C library's function of the same name. */
namespace mstring {
/* The first place in haystack where needle stands, folded, or null. An empty
 * haystack gives null even for an empty needle; an empty needle in any other
 * haystack gives haystack. Null arguments give null. */
char* strcasestr(const char* haystack, const char* needle);
} // namespace mstring

/* ---- 4. Formatting ------------------------------------------------------- */

/* The formatted text as a new heap string that the caller frees; cut at 4094
 * characters. Null for a null format or when memory runs out. */
char* strprint(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif /* MSTRING_H */
