// mCONF's text form: the line parser, the reader, the canonical writer and
// the file wrappers.
#include "confstore.h"
#include "mfile.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// ---- Parser ---------------------------------------------------------------
// Every field is parsed into a buffer of this size. Lines from the reader
// are at most 255 bytes and always fit; a longer line given straight to
// mCONF_ParseLine has each field cut at kParseBuf - 1 bytes, while the scan
// goes on by the same rules (so the comment is still found).
const size_t kParseBuf = 260;
const size_t kLineMax = 255; // the reader's lines, without their terminator

struct Field {
    char text[kParseBuf];
    size_t len;
};

struct ParsedLine {
    Field key; // or the group name of a head
    Field value, comment;
    bool hasComment;
    bool isSep[256]; // the separator bytes (never NUL)
};

void setSeparators(ParsedLine& l, const char* set)
{
    memset(l.isSep, 0, sizeof l.isSep);
    for (; set != nullptr && *set != '\0'; ++set)
        l.isSep[static_cast<unsigned char>(*set)] = true;
}

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }
inline bool isEnd(char c) { return c == '\0' || c == '\r' || c == '\n'; }
inline bool isCommentSign(char c) { return c == ';' || c == '#'; }
inline bool isSep(const ParsedLine& l, char c) { return l.isSep[static_cast<unsigned char>(c)]; }

// Appends n bytes to a field, as far as it has room, and terminates it.
void add(Field& f, const char* p, size_t n)
{
    n = n < kParseBuf - 1 - f.len ? n : kParseBuf - 1 - f.len;
    memcpy(f.text + f.len, p, n);
    f.len += n;
    f.text[f.len] = '\0';
}

// The key, or the name of a head, from p up to the byte that ends it: a line
// end, for a head ']', else a blank or a separator. Each "%XX" is decoded on
// the way (a decoded %00 ends the text); false for a '%' with anything else
// behind it, read no further than the NUL.
bool scanKey(ParsedLine& l, const char*& p, bool head)
{
    for (;;) {
        const char* run = p;
        while (!isEnd(*p) && *p != '%' && (head ? *p != ']' : !isBlank(*p) && !isSep(l, *p)))
            ++p;
        add(l.key, run, static_cast<size_t>(p - run));
        if (*p != '%' || (!head && isSep(l, *p))) {
            l.key.len = strlen(l.key.text);
            return true;
        }
        if (!isxdigit(static_cast<unsigned char>(p[1])) || !isxdigit(static_cast<unsigned char>(p[2])))
            return false;
        const char hex[3] = {p[1], p[2], '\0'};
        const char byte = static_cast<char>(strtol(hex, nullptr, 16));
        add(l.key, &byte, 1);
        p += 3;
    }
}

// The line rules: -1 nothing, 0 a head (name in key), 1 an item.
int parseLine(const char* p, bool wantComment, ParsedLine& out)
{
    out.key.len = out.value.len = out.comment.len = 0;
    out.key.text[0] = out.value.text[0] = out.comment.text[0] = '\0';
    out.hasComment = false;
    while (isBlank(*p))
        ++p;
    if (isEnd(*p) || isCommentSign(*p))
        return -1;
    if (*p == '[') // the name runs to the first ']' that is no escape
        return scanKey(out, ++p, true) && *p == ']' ? 0 : -1;
    const char* sep = p; // the first separator byte of the line
    while (!isEnd(*sep) && !isSep(out, *sep))
        ++sep;
    if (isEnd(*sep) || !scanKey(out, p, false)) // the key: the first blank-free run
        return -1;

    const char* v = sep + 1;
    while (isBlank(*v))
        ++v;
    if (*v == '"' || *v == '\'') { // quoted: to the same quote or the NUL
        const char* end = strchrnul(v + 1, *v);
        add(out.value, v + 1, static_cast<size_t>(end - v - 1));
        v = *end != '\0' ? end + 1 : end;
    } else {
        const char* run = v;
        while (!isBlank(*v) && !isEnd(*v) && !isCommentSign(*v))
            ++v;
        add(out.value, run, static_cast<size_t>(v - run));
    }

    if (wantComment) { // the comment: behind the next ';' or '#'
        while (!isEnd(*v) && !isCommentSign(*v))
            ++v;
        out.hasComment = !isEnd(*v);
        if (out.hasComment)
            add(out.comment, v + 1, strcspn(v + 1, "\r\n"));
    }
    return 1;
}

// ---- Reader ---------------------------------------------------------------
// The reader's state: the store, the current group by name and by node (null
// if it could not be made), the line being parsed and the line being cut from
// the text. oneGroup: heads are ignored and comments dropped (readBuf).
struct Reader {
    tConfGroup *root, *group;
    const char* name;
    char head[kParseBuf];
    ParsedLine line;
    char cut[kLineMax + 1];
    size_t cutLen;
    bool ended, oneGroup;
};

// A reader into a new store; oneGroup: every item goes into the group
// groupName (null: the root), as readBuf has it.
bool startReader(Reader& r, bool oneGroup = false, const char* groupName = nullptr)
{
    memset(&r, 0, sizeof r);
    r.root = r.group = mCONF_New();
    r.oneGroup = oneGroup;
    r.name = groupName;
    if (r.root != nullptr && groupName != nullptr)
        r.group = mCONF_AddGroup(r.root, groupName);
    setSeparators(r.line, "=");
    return r.root != nullptr;
}

// One line as mCONF_BufRead defines it: a head selects (and makes) the
// current group, an item goes to it, anything else is skipped.
void readLine(Reader& r, const char* text)
{
    const ParsedLine& l = r.line;
    const int kind = parseLine(text, !r.oneGroup, r.line);
    const char* comment = l.hasComment ? l.comment.text : nullptr;
    if (kind == 0 && !r.oneGroup) {
        confSettle(r.group);
        r.name = static_cast<const char*>(memcpy(r.head, l.key.text, l.key.len + 1));
        r.group = mCONF_AddGroup(r.root, r.name);
    } else if (kind == 1) {
        if (r.group == nullptr) // the group could not be made: try again
            r.group = mCONF_AddGroup(r.root, r.name);
        if (r.group != nullptr)
            confAppendItem(r.group, l.key.text, l.key.len, l.value.text, comment);
    }
}

// Cuts a text into lines as strgets does: a run of CR and LF ends a line, a
// line is cut at 255 bytes, and the text ends at its first NUL. A file comes
// in blocks, each with a NUL of its own at blockEnd, where the line goes on
// in the next block; the last block, and a text in memory, pass null.
void cutLines(Reader& r, const char* p, const char* blockEnd)
{
    while (!r.ended) {
        const char* e = p;
        while (!isEnd(*e))
            ++e;
        const size_t run = static_cast<size_t>(e - p), room = kLineMax - r.cutLen;
        memcpy(r.cut + r.cutLen, p, run < room ? run : room);
        r.cutLen += run < room ? run : room;
        if (e == blockEnd)
            return;
        r.ended = *e == '\0';
        r.cut[r.cutLen] = '\0';
        if (r.cutLen > 0) // a run of line ends gives no line
            readLine(r, r.cut);
        r.cutLen = 0;
        p = e + 1;
    }
}

// A whole text in memory.
tConfGroup* readText(const char* text, bool oneGroup, const char* groupName)
{
    Reader r;
    if (!startReader(r, oneGroup, groupName))
        return nullptr;
    cutLines(r, text != nullptr ? text : "", nullptr);
    confSettle(r.group);
    return r.root;
}

// ---- Writer ---------------------------------------------------------------
// Where the canonical text goes: nowhere but counted (buf null), into memory of
// the counted size, or into a file (fd >= 0) through buf, up to a failed write.
struct Out {
    char* buf;
    size_t len, cap;
    int fd;
    bool failed;
};

bool flushOut(Out& o)
{
    for (size_t done = 0; done < o.len && !o.failed;) {
        const ssize_t w = write(o.fd, o.buf + done, o.len - done);
        if (w > 0)
            done += static_cast<size_t>(w);
        else if (w == 0 || errno != EINTR)
            o.failed = true;
    }
    o.len = 0;
    return !o.failed;
}

void put(Out& o, const char* s, size_t n)
{
    if (o.buf == nullptr)
        o.len += n;
    while (o.buf != nullptr && n > 0) {
        if (o.len == o.cap && (o.fd < 0 || !flushOut(o)))
            return;
        const size_t k = n < o.cap - o.len ? n : o.cap - o.len;
        memcpy(o.buf + o.len, s, k);
        o.len += k;
        s += k;
        n -= k;
    }
}

// Names and keys: '[', ']' and ' ' as %5B, %5D and %20.
void putEscaped(Out& o, const char* s)
{
    for (;;) {
        const size_t run = strcspn(s, "[] ");
        put(o, s, run);
        if (s[run] == '\0')
            return;
        put(o, s[run] == '[' ? "%5B" : s[run] == ']' ? "%5D" : "%20", 3);
        s += run + 1;
    }
}

// The canonical form: per group with a name, "[name]" CR LF, the items as
// key="value", with TAB ";comment" if any, CR LF each, and CR LF to close.
void render(const tConfGroup* root, Out& o)
{
    for (const tConfGroup* g = root; g != nullptr; g = g->next) {
        if (g->name == nullptr || g->name[0] == '\0')
            continue;
        put(o, "[", 1);
        putEscaped(o, g->name);
        put(o, "]\r\n", 3);
        for (const tConfItem* it = g->items; it != nullptr; it = it->next) {
            putEscaped(o, it->key);
            put(o, "=\"", 2);
            put(o, it->value, strlen(it->value));
            put(o, "\"", 1);
            if (it->comment != nullptr) {
                put(o, "\t;", 2);
                put(o, it->comment, strlen(it->comment));
            }
            put(o, "\r\n", 2);
        }
        put(o, "\r\n", 2);
    }
}

// ---- Files ----------------------------------------------------------------
const size_t kBlock = 64 * 1024; // files are read and written in blocks of this size
unsigned g_tempCount = 0;        // makes the names of temporary files unique

// Renders the canonical text into fd: true if every byte went out.
bool writeTo(const tConfGroup* root, int fd)
{
    Out o = {static_cast<char*>(malloc(kBlock)), 0, kBlock, fd, false};
    if (o.buf != nullptr)
        render(root, o);
    const bool ok = o.buf != nullptr && !o.failed && flushOut(o);
    free(o.buf);
    return ok;
}

// Ends a read or write: closes fd, removes temp, sets the code. 0 for
// MFILE_OK, else -1.
int finish(int code, int fd = -1, const char* temp = nullptr)
{
    if (fd >= 0)
        close(fd);
    if (temp != nullptr)
        unlink(temp);
    vFILE_Errno = code;
    return code == MFILE_OK ? 0 : -1;
}

// The directory of path into dir ("." for none); *base is the last part.
// False if it does not fit.
bool splitPath(const char* path, char* dir, const char** base)
{
    const char* slash = strrchr(path, '/');
    *base = slash != nullptr ? slash + 1 : path;
    const size_t n = slash == nullptr ? 0 : slash == path ? 1 : static_cast<size_t>(slash - path);
    return n < PATH_MAX && snprintf(dir, PATH_MAX, "%.*s", static_cast<int>(n != 0 ? n : 1), n != 0 ? path : ".") > 0;
}

// Follows the links of the last part of path into target as an open would,
// but in a sticky world-writable directory (such as /tmp) only a link of the
// caller or of the directory's owner, as the kernel's rule for protected
// links has it. False for a refused link, a loop or a path too long.
bool resolveTarget(const char* path, char* target)
{
    if (snprintf(target, PATH_MAX, "%s", path) >= PATH_MAX)
        return false;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat link, parent;
        char dir[PATH_MAX], to[PATH_MAX];
        const char* base;
        if (lstat(target, &link) != 0 || !S_ISLNK(link.st_mode))
            return true;
        if (!splitPath(target, dir, &base) || stat(dir, &parent) != 0)
            return false;
        // On purpose this rule holds whatever fs.protected_symlinks says: a planted link never redirects the write.
        if ((parent.st_mode & (S_ISVTX | S_IWOTH)) == (S_ISVTX | S_IWOTH) && link.st_uid != geteuid() &&
            link.st_uid != parent.st_uid)
            return false;
        const ssize_t n = readlink(target, to, sizeof to);
        if (n <= 0 || n >= PATH_MAX)
            return false;
        to[n] = '\0';
        if (snprintf(target, PATH_MAX, "%s%s%s", to[0] == '/' ? "" : dir, to[0] == '/' ? "" : "/", to) >= PATH_MAX)
            return false;
    }
    return false;
}

// A new file beside the target under a hidden unique name, with the given
// mode (less the umask). The descriptor, or -1 with errno.
int createTemp(const char* dir, const char* base, mode_t mode, char* name)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const unsigned n = __atomic_add_fetch(&g_tempCount, 1, __ATOMIC_RELAXED);
        if (snprintf(name, PATH_MAX, "%s/.%.200s.%d-%u.tmp", dir, base, static_cast<int>(getpid()), n) >= PATH_MAX) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const int fd = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}

// The plain write over the file itself: through fd, the target opened for
// writing, or else into a new file made at the target's name.
int writeInPlace(const tConfGroup* root, const char* target, int fd, bool regular)
{
    if (fd < 0 && (fd = open(target, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666)) < 0)
        return finish(MFILE_ERR_OPEN);
    if ((regular && ftruncate(fd, 0) != 0) || !writeTo(root, fd))
        return finish(MFILE_ERR_IO, fd);
    return finish(MFILE_OK, fd);
}

// The text goes into a new file beside the target, which gets the target's
// owner and mode, is synced and renamed over it, and the directory synced:
// a crash leaves the old file or the new one, at worst a stray temporary.
int replaceFile(const tConfGroup* root, const char* path)
{
    char target[PATH_MAX], dir[PATH_MAX], temp[PATH_MAX];
    const char* base;
    struct stat old;
    if (!resolveTarget(path, target) || !splitPath(target, dir, &base))
        return finish(MFILE_ERR_OPEN);
    // A replacement does no more than an in-place write could: the caller must
    // be able to open the file for writing, as the kernel decides (root passes
    // the permission bits, so root replaces a 0444 file as its in-place write
    // would rewrite it). An in-place write uses this descriptor, to that file.
    const int fd = open(target, O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && errno != ENOENT)
        return finish(MFILE_ERR_OPEN);
    if (fd >= 0 && fstat(fd, &old) != 0)
        return finish(MFILE_ERR_OPEN, fd);
    // Something that is no plain file (a device, a pipe) must not be swapped
    // for one, and a file with several hard links would lose them.
    if (fd >= 0 && (!S_ISREG(old.st_mode) || old.st_nlink > 1))
        return writeInPlace(root, target, fd, S_ISREG(old.st_mode));

    // On purpose 0600 until it has the old file's owner and mode, not 0666 less the umask as a plain new file.
    // A new target has no mode to keep, and is made as any new file.
    const int tfd = createTemp(dir, base, fd >= 0 ? 0600 : 0666, temp);
    if (tfd < 0) // a full disk is no reason to risk the in-place write
        return errno == ENOSPC || errno == EDQUOT ? finish(MFILE_ERR_IO, fd) : writeInPlace(root, target, fd, true);
    // Owner first, as a change of owner may clear the set-id bits. If owner or
    // group cannot be kept, the text goes in place, so that they never drift.
    if (fd >= 0 && (fchown(tfd, old.st_uid, old.st_gid) != 0 || fchmod(tfd, old.st_mode & 07777) != 0)) {
        close(tfd);
        unlink(temp);
        return writeInPlace(root, target, fd, true);
    }
    const bool written = writeTo(root, tfd) && fsync(tfd) == 0;
    if (close(tfd) != 0 || !written)
        return finish(MFILE_ERR_IO, fd, temp);
    if (rename(temp, target) != 0) {
        const int err = errno;
        unlink(temp);
        // In place only where a rename cannot work by nature (a file mounted over itself, another file system).
        // On purpose no in-place write after any other failure (a full disk, I/O): it would truncate the old file.
        return err == EBUSY || err == EXDEV ? writeInPlace(root, target, fd, true) : finish(MFILE_ERR_IO, fd);
    }
    const int dfd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) { // some file systems cannot sync a directory; the rename stands anyway
        (void)fsync(dfd);
        close(dfd);
    }
    return finish(MFILE_OK, fd);
}

} // namespace

int mCONF_ParseLine(const char* line, char** key, char** value, char** comment, const char* separators)
{
    ParsedLine parsed;
    setSeparators(parsed, separators);
    const int kind =
        line != nullptr && key != nullptr && value != nullptr ? parseLine(line, comment != nullptr, parsed) : -1;
    char* k = kind >= 0 ? strdup(parsed.key.text) : nullptr;
    char* v = kind == 1 ? strdup(parsed.value.text) : nullptr;
    char* c = kind == 1 && parsed.hasComment ? strdup(parsed.comment.text) : nullptr;
    const bool whole = k != nullptr && (kind == 0 || (v != nullptr && (c != nullptr || !parsed.hasComment)));
    if (!whole) { // none, or memory ran out
        free(k);
        free(v);
        free(c);
        k = v = c = nullptr;
    }
    if (key != nullptr)
        *key = k;
    if (value != nullptr)
        *value = v;
    if (comment != nullptr)
        *comment = c;
    return whole ? kind : -1;
}

tConfGroup* mCONF_BufRead(const char* text) { return readText(text, false, nullptr); }

tConfGroup* readBuf(const char* text, const char* groupName) { return readText(text, true, groupName); }

char* mCONF_BufWrite(tConfGroup* root)
{
    // A measuring pass, one allocation of the exact size, a writing pass.
    Out count = {nullptr, 0, 0, -1, false};
    render(root, count);
    Out o = {static_cast<char*>(count.len < SIZE_MAX ? malloc(count.len + 1) : nullptr), 0, count.len, -1, false};
    if (o.buf != nullptr) {
        render(root, o);
        o.buf[o.len] = '\0';
    }
    return o.buf;
}

tConfGroup* mCONF_FileRead(const char* path)
{
    // The file is read in blocks and cut into lines as it comes: the store is
    // the one mCONF_BufRead gives for the whole text, which never has to fit
    // in memory beside it.
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0)
        return finish(MFILE_ERR_OPEN), nullptr;
    if (st.st_size >= INT32_MAX)
        return finish(MFILE_ERR_NOMEM), nullptr; // sizes are 32-bit in this library
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return finish(MFILE_ERR_OPEN), nullptr;
    // As mFILE_Read: what the file holds now, but no more than at the stat.
    off_t left = st.st_size;
    if (fstat(fd, &st) == 0 && st.st_size < left)
        left = st.st_size;
    Reader r;
    char* block = static_cast<char*>(malloc(kBlock + 1));
    int code = startReader(r) && block != nullptr ? MFILE_OK : MFILE_ERR_NOMEM;
    for (ssize_t n; code == MFILE_OK && left > 0; left -= n) {
        n = read(fd, block, left < static_cast<off_t>(kBlock) ? static_cast<size_t>(left) : kBlock);
        code = n > 0 ? MFILE_OK : MFILE_ERR_IO; // a file that shrank or cannot be read gives no store
        if (n > 0) {
            block[n] = '\0';                                    // where cutLines stops
            cutLines(r, block, n < left ? block + n : nullptr); // the last block's NUL ends the text
        }
    }
    free(block);
    confSettle(r.group);
    if (finish(code, fd) == 0)
        return r.root;
    mCONF_Free(r.root);
    return nullptr;
}

int mCONF_FileWrite(tConfGroup* root, const char* path)
{
    return path != nullptr && path[0] != '\0' ? replaceFile(root, path) : finish(MFILE_ERR_OPEN);
}
