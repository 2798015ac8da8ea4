/*
 * mconf.h - mCONF, an INI-style configuration store.
 *
 * Sections:
 *   1. Records            tConfGroup, tConfItem
 *   2. Store and lookups  mCONF_New, mCONF_Free, mCONF_GetGroup, mCONF_GetItem, mCONF_GetValue
 *   3. Changes            mCONF_SetValue, mCONF_SetValueInt
 *   4. Typed reads        mCONF_GetIntValue, mCONF_GetHexaValue, mCONF_GetStrValue
 *   5. Diagnostics        printAllItemOfGroup, mCONF_SetDebugLevel
 *   6. Text form          mCONF_ParseLine, mCONF_BufRead, readBuf, mCONF_BufWrite
 *   7. Files              mCONF_FileRead, mCONF_FileWrite
 *
 * A store is an ordered list of named groups, each with an ordered list of
 * key/value/comment items, handled through its first group, the root (name
 * "", made by mCONF_New, holds the items that stand in no group). Groups and
 * items keep the order of first insertion; an update leaves a node in place.
 * Names are unique; keys are unique per group except in the group named
 * exactly "COMMAND", where every set appends. Everything is compared as raw
 * bytes, case-sensitively. The store owns copies of all its strings.
 *
 * Lookups and sets take O(1) time on average: the library keeps a private
 * index beside the lists. The record fields are for reading; change a store
 * only through these calls. A store belongs to one thread.
 */
#ifndef MCONF_H
#define MCONF_H

/* ---- 1. Records ---------------------------------------------------------- */

/* One entry of a group. */
typedef struct tConfItem {
    struct tConfItem* next; /* next item, null at the end */
    char* key;              /* the key */
    char* value;            /* the value, never null */
    char* comment;          /* the comment, or null for none ("" is an empty one) */
} tConfItem;

struct tConfIndex; /* the library's lookup index (private) */

/* One group; the first group of a store is its root. */
typedef struct tConfGroup {
    struct tConfGroup* next;  /* next group, null at the end */
    tConfItem* items;         /* first item, null for an empty group */
    char* name;               /* the group's name ("" for the root) */
    struct tConfIndex* index; /* private to the library: never touch */
} tConfGroup;

/* ---- 2. Store and lookups ------------------------------------------------ */

/* A new store holding only the root group, or null if memory runs out. */
tConfGroup* mCONF_New(void);

/* Frees every group and item with their strings; root may be null. Always 0. */
int mCONF_Free(tConfGroup* root);

/* The group of that name, or null. A null or "" name finds the root. A null
 * root gives null. */
tConfGroup* mCONF_GetGroup(tConfGroup* root, const char* name);

/* The first item of that key in group, or null (also for a null group or key). */
tConfItem* mCONF_GetItem(tConfGroup* group, const char* key);

/* The value of the first matching item, or null. The text stays the store's,
 * valid until that item's value is replaced or the store is freed. */
char* mCONF_GetValue(tConfGroup* root, const char* groupName, const char* key);

/* ---- 3. Changes ---------------------------------------------------------- */

/* Finds or creates the group (null/"" is the root), then adds the item or
 * replaces the value of the existing one (which keeps its place and its
 * comment; "COMMAND" always appends). The item, or null: for a null root,
 * for a null key or value (a missing group is created all the same) or when
 * memory runs out. */
tConfItem* mCONF_SetValue(tConfGroup* root, const char* groupName, const char* key, const char* value,
                          const char* comment);

/* mCONF_SetValue with value written as "%d". */
tConfItem* mCONF_SetValueInt(tConfGroup* root, const char* groupName, const char* key, int value, const char* comment);

/* ---- 4. Typed reads ------------------------------------------------------ */

/* The value as strtol base 10 (non-numeric text gives 0), or defaultValue if
 * the item is missing. Logs the lookup through logPrt either way. */
int mCONF_GetIntValue(tConfGroup* root, const char* groupName, const char* key, int defaultValue);

/* The value read as "0x"/"0X" and hex digits up to the first other byte, in
 * 32 bits (higher digits drop out); defaultValue if the item is missing,
 * shorter than 3 bytes or without the prefix. */
int mCONF_GetHexaValue(tConfGroup* root, const char* groupName, const char* key, int defaultValue);

/* Copies the value, or else a non-null defaultValue, into dst (which the
 * caller sizes for it) and returns dst; null, dst untouched, if neither. */
char* mCONF_GetStrValue(tConfGroup* root, const char* groupName, const char* key, char* dst, const char* defaultValue);

/* ---- 5. Diagnostics ------------------------------------------------------ */

/* Prints "group:%s\n" and "\t %s=%s\n" per item on stdout: 1, or 0 (nothing
 * printed) if the group does not exist. */
int printAllItemOfGroup(tConfGroup* root, const char* groupName);

/* Records a debug level that nothing else reads. */
void mCONF_SetDebugLevel(int level);

/* ---- 6. Text form -------------------------------------------------------- */

/* Parses one line (CR, LF and NUL end it). *key, *value and *comment (comment
 * may be null: then none is extracted) are set to null first and receive new
 * heap strings that the caller frees. Result: 0 for a group head "[name]"
 * (name in *key), 1 for an item "key <sep> value [;#comment]" (*value never
 * null), -1 for a line that gives nothing or null line/key/value. Names and
 * keys decode %XX; a bad escape voids the line. Each field is cut at 259
 * bytes. separators is the set of separator bytes (null: none). */
int mCONF_ParseLine(const char* line, char** key, char** value, char** comment, const char* separators);

/* A new store from a text (which stays unchanged; null reads as empty), or
 * null if memory runs out. Bad lines are skipped silently; lines are cut at
 * 255 bytes. */
tConfGroup* mCONF_BufRead(const char* text);

/* A new store whose group groupName (null: the root) gets every item line of
 * text; heads are ignored and comments dropped. Null if memory runs out. */
tConfGroup* readBuf(const char* text, const char* groupName);

/* The canonical text of a store as a new heap string that the caller frees:
 * per named group "[name]\r\n", items key="value" with "\t;comment" if any,
 * "\r\n" each, and "\r\n" after the group; '[', ']' and ' ' in names and
 * keys as %5B, %5D, %20. The root and its items are not written. A null root
 * gives "". Null if memory runs out. */
char* mCONF_BufWrite(tConfGroup* root);

/* ---- 7. Files ------------------------------------------------------------ */

/* A new store from a file, or null (vFILE_Errno set) if it cannot be read. */
tConfGroup* mCONF_FileRead(const char* path);

/* Writes the canonical text to path: 0, or -1 with vFILE_Errno 1 (cannot
 * open: also a refused link, or a file that the caller may not open for
 * writing) or 2 (a write, sync or rename failed). The file is replaced
 * atomically: a new file in the same directory, private (0600) from its
 * first byte, then given the old owner, group and mode, synced and renamed
 * over it; so a crash or a full disk leaves the old file whole. Links in the
 * last part of path are followed to the file they name, but in a sticky
 * world-writable directory (such as /tmp) only a link of the caller or of
 * the directory's owner, whatever fs.protected_symlinks says. The write is
 * never more than an in-place write could do: a file that the caller cannot
 * open for writing is left as it is (for root, who passes the permission
 * bits, a 0444 file is written). The text goes in place, over the file
 * itself, where the directory takes no new file, the owner or group cannot
 * be kept, the target is no regular file or has several hard links, or the
 * rename cannot work by nature (EBUSY, EXDEV); after any other failed rename
 * the old file stays. A new file gets 0666 less the umask. */
int mCONF_FileWrite(tConfGroup* root, const char* path);

#endif /* MCONF_H */
