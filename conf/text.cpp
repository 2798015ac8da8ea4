// mCONF's text form: the line parser, the reader, the canonical writer and
// the file wrappers.
#include "confstore.h"
#include "mfile.h"
#include "mstring.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// ---- Parser ---------------------------------------------------------------

// Every field is parsed into a buffer of this size. Lines from the reader
// are at most 255 bytes and always fit; a longer line given straight to
// mCONF_ParseLine has each field cut at kFieldMax bytes, while the scan
// itself goes on by the same rules (so the comment is still found).
constexpr size_t kParseBuf = 260;
constexpr size_t kFieldMax = kParseBuf - 1;
// The reader's line buffer: 255 bytes and a terminator.
constexpr int kLineMax = 255;

struct Field {
    char text[kParseBuf];
    size_t len = 0;       // bytes stored
    bool hasNul = false;  // a decoded %00 is among them

    void clear()
    {
        len = 0;
        hasNul = false;
    }
    void put(char c)
    {
        if (len < kFieldMax) {
            text[len++] = c;
            hasNul = hasNul || c == '\0';
        }
    }
    void append(const char* p, size_t n)
    {
        const size_t room = kFieldMax - len;
        if (n > room)
            n = room;
        memcpy(text + len, p, n);
        len += n;
    }
    void finish()
    {
        text[len] = '\0';
        if (hasNul)
            len = strlen(text); // a decoded %00 ends the text there
    }
};

struct ParsedLine {
    Field key;   // or the group name of a head
    Field value;
    Field comment;
    bool hasComment = false;
    bool hashed = false;  // keyHash holds the key's hash in its group
    uint32_t keyHash = 0;

    void clear()
    {
        key.clear();
        value.clear();
        comment.clear();
        hasComment = false;
        hashed = false;
    }
};

// Byte classes of the format.
enum : unsigned char { kBlank = 1, kEnd = 2, kCommentSign = 4, kPercent = 8, kClose = 16 };

struct ClassTable {
    unsigned char of[256] = {};
    constexpr ClassTable()
    {
        of[static_cast<unsigned char>(' ')] = kBlank;
        of[static_cast<unsigned char>('\t')] = kBlank;
        of[0] = kEnd;
        of[static_cast<unsigned char>('\r')] = kEnd;
        of[static_cast<unsigned char>('\n')] = kEnd;
        of[static_cast<unsigned char>(';')] = kCommentSign;
        of[static_cast<unsigned char>('#')] = kCommentSign;
        of[static_cast<unsigned char>('%')] = kPercent;
        of[static_cast<unsigned char>(']')] = kClose;
    }
};
constexpr ClassTable kClasses;

inline unsigned char classOf(char c) { return kClasses.of[static_cast<unsigned char>(c)]; }
inline bool isBlank(char c) { return (classOf(c) & kBlank) != 0; }
inline bool isLineEnd(char c) { return (classOf(c) & kEnd) != 0; }
inline bool isXDigit(char c) { return isxdigit(static_cast<unsigned char>(c)) != 0; }

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return toupper(static_cast<unsigned char>(c)) - 'A' + 10;
}

// The separator set; one byte (the usual "=") is a plain comparison.
class SeparatorSet {
public:
    explicit SeparatorSet(const char* set) : set_(set), one_(set[0] != '\0' && set[1] == '\0' ? set[0] : '\0') {}
    bool has(char c) const
    {
        if (one_ != '\0')
            return c == one_;
        return c != '\0' && strchr(set_, c) != nullptr;
    }

private:
    const char* set_;
    char one_;
};

// Decodes the escape at p ("%XX") into *out and moves p behind it; false for
// anything else behind a '%'. Stops at the NUL, never past it.
bool decodeEscape(const char*& p, char* out)
{
    if (!isXDigit(p[1]) || !isXDigit(p[2]))
        return false;
    *out = static_cast<char>(hexValue(p[1]) * 16 + hexValue(p[2]));
    p += 3;
    return true;
}

// The line rules: -1 nothing, 0 a head (name in key), 1 an item. `out` must
// be clear.
int parseLine(const char* line, const SeparatorSet& separators, bool wantComment, ParsedLine& out)
{
    const char* p = line;
    while (isBlank(*p))
        ++p;
    if ((classOf(*p) & (kEnd | kCommentSign)) != 0)
        return -1;

    if (*p == '[') {
        // The name runs to the first ']' that is no escape.
        ++p;
        for (;;) {
            const char* run = p;
            while ((classOf(*p) & (kEnd | kPercent | kClose)) == 0)
                ++p;
            out.key.append(run, static_cast<size_t>(p - run));
            if (*p == ']')
                break;
            if (*p != '%')
                return -1; // line end before ']'
            char byte;
            if (!decodeEscape(p, &byte))
                return -1;
            out.key.put(byte);
        }
        out.key.finish();
        return 0;
    }

    // The first separator byte of the line.
    const char* sep = p;
    while (!isLineEnd(*sep) && !separators.has(*sep))
        ++sep;
    if (isLineEnd(*sep))
        return -1;

    // The key: the first blank-free run, decoding escapes.
    for (const char* k = p;;) {
        const char* run = k;
        while ((classOf(*k) & (kBlank | kEnd | kPercent)) == 0 && !separators.has(*k))
            ++k;
        out.key.append(run, static_cast<size_t>(k - run));
        if (*k != '%' || separators.has(*k))
            break;
        char byte;
        if (!decodeEscape(k, &byte))
            return -1;
        out.key.put(byte);
    }
    out.key.finish();

    // The value.
    const char* v = sep + 1;
    while (isBlank(*v))
        ++v;
    if (*v == '"' || *v == '\'') {
        // Quoted: to the same quote, or to the NUL; no escapes inside.
        const char quote = *v++;
        const char* end = v;
        while (*end != '\0' && *end != quote)
            ++end;
        out.value.append(v, static_cast<size_t>(end - v));
        v = *end == quote ? end + 1 : end;
    } else {
        const char* run = v;
        while ((classOf(*v) & (kBlank | kEnd | kCommentSign)) == 0)
            ++v;
        out.value.append(run, static_cast<size_t>(v - run));
    }
    out.value.finish();

    // The comment: behind the first ';' or '#' that follows the value.
    if (wantComment) {
        while ((classOf(*v) & (kEnd | kCommentSign)) == 0)
            ++v;
        if (!isLineEnd(*v)) {
            ++v;
            // Scanned by hand: the line may be part of a larger text.
            const char* end = v;
            while (!isLineEnd(*end))
                ++end;
            out.comment.append(v, static_cast<size_t>(end - v));
            out.comment.finish();
            out.hasComment = true;
        }
    }
    return 1;
}

char* heapCopy(const Field& f)
{
    char* p = static_cast<char*>(malloc(f.len + 1));
    if (p != nullptr) {
        memcpy(p, f.text, f.len);
        p[f.len] = '\0';
    }
    return p;
}

// ---- Writer ---------------------------------------------------------------

// The bytes that the writer escapes in names and keys.
constexpr char kEscaped[] = "[] ";

size_t escapedLength(const char* s)
{
    size_t n = 0;
    for (;;) {
        const size_t run = strcspn(s, kEscaped);
        n += run;
        s += run;
        if (*s == '\0')
            return n;
        n += 3;
        ++s;
    }
}

inline bool isWritten(const tConfGroup* g) { return g->name != nullptr && g->name[0] != '\0'; }

// The exact size of the canonical text, terminator included.
size_t canonicalSize(const tConfGroup* root)
{
    size_t size = 1;
    for (const tConfGroup* g = root; g != nullptr; g = g->next) {
        if (!isWritten(g))
            continue;
        size += 1 + escapedLength(g->name) + 1 + 2 + 2;
        for (const tConfItem* it = g->items; it != nullptr; it = it->next) {
            size += escapedLength(it->key) + 3 + strlen(it->value) + 1 + 2;
            if (it->comment != nullptr)
                size += 2 + strlen(it->comment);
        }
    }
    return size;
}

// Renders into memory that was sized by canonicalSize.
class MemoryOut {
public:
    explicit MemoryOut(char* at) : at_(at) {}
    void put(const char* s, size_t n)
    {
        memcpy(at_, s, n);
        at_ += n;
    }
    void put(char c) { *at_++ = c; }
    char* end() const { return at_; }

private:
    char* at_;
};

// Renders into a file through a buffer of its own. The first failed write
// ends the output; finish() tells.
class FdOut {
public:
    explicit FdOut(int fd) : fd_(fd), buf_(static_cast<char*>(malloc(kCap))) {}
    ~FdOut() { free(buf_); }
    FdOut(const FdOut&) = delete;
    FdOut& operator=(const FdOut&) = delete;

    bool ready() const { return buf_ != nullptr; }
    void put(const char* s, size_t n)
    {
        if (n > kCap - len_) {
            flush();
            if (n >= kCap) {
                failed_ = failed_ || !writeAll(s, n);
                return;
            }
        }
        memcpy(buf_ + len_, s, n);
        len_ += n;
    }
    void put(char c)
    {
        if (len_ == kCap)
            flush();
        buf_[len_++] = c;
    }
    bool finish()
    {
        flush();
        return !failed_;
    }

private:
    static constexpr size_t kCap = 64 * 1024;

    void flush()
    {
        failed_ = failed_ || !writeAll(buf_, len_);
        len_ = 0;
    }
    bool writeAll(const char* p, size_t n)
    {
        while (n > 0) {
            const ssize_t w = write(fd_, p, n);
            if (w < 0 && errno == EINTR)
                continue;
            if (w < 1)
                return false;
            p += w;
            n -= static_cast<size_t>(w);
        }
        return true;
    }

    int fd_;
    char* buf_;
    size_t len_ = 0;
    bool failed_ = false;
};

template <class Out>
void putEscaped(Out& out, const char* s)
{
    for (;;) {
        const size_t run = strcspn(s, kEscaped);
        out.put(s, run);
        s += run;
        if (*s == '\0')
            return;
        out.put(*s == '[' ? "%5B" : *s == ']' ? "%5D" : "%20", 3);
        ++s;
    }
}

// The canonical form: per group with a name, "[name]" CR LF, the items as
// key="value", with TAB ";comment" if any, CR LF each, and CR LF to close.
template <class Out>
void render(const tConfGroup* root, Out& out)
{
    for (const tConfGroup* g = root; g != nullptr; g = g->next) {
        if (!isWritten(g))
            continue;
        out.put('[');
        putEscaped(out, g->name);
        out.put("]\r\n", 3);
        for (const tConfItem* it = g->items; it != nullptr; it = it->next) {
            putEscaped(out, it->key);
            out.put("=\"", 2);
            out.put(it->value, strlen(it->value));
            out.put('"');
            if (it->comment != nullptr) {
                out.put("\t;", 2);
                out.put(it->comment, strlen(it->comment));
            }
            out.put("\r\n", 2);
        }
        out.put("\r\n", 2);
    }
}

// ---- Files ----------------------------------------------------------------

std::string dirOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

std::string baseOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Follows symbolic links in the last part of the path, so that the file
// they point to is the one replaced (as an open for writing would). A
// missing end is fine: the target is then created. False if the links do
// not resolve (a loop, an unreadable link).
bool resolveTarget(const char* path, std::string& target)
{
    target = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            return true;
        std::string link(st.st_size > 0 && st.st_size < 65536 ? static_cast<size_t>(st.st_size) + 1 : 4096, '\0');
        const ssize_t n = readlink(target.c_str(), &link[0], link.size());
        if (n <= 0 || static_cast<size_t>(n) >= link.size())
            return false;
        link.resize(static_cast<size_t>(n));
        target = link[0] == '/' ? link : dirOf(target) + "/" + link;
    }
    return false;
}

// Creates a new file beside the target, mode 0666 less the umask like any
// new file; the name is hidden and unique. -1 with errno on failure.
int createSibling(const std::string& dir, const std::string& base, std::string& name)
{
    static std::atomic<unsigned> counter{0};
    const std::string stem = dir + "/." + base.substr(0, 200) + ".tmp";
    for (int attempt = 0; attempt < 100; ++attempt) {
        struct timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        const unsigned long mix = static_cast<unsigned long>(ts.tv_nsec) ^
                                  (static_cast<unsigned long>(getpid()) << 20) ^ ((counter.fetch_add(1) + 1) * 2654435761u);
        char suffix[24];
        snprintf(suffix, sizeof suffix, "%08lx", mix & 0xffffffffUL);
        name = stem + suffix;
        const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}

void syncDirectory(const std::string& dir)
{
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    // Some file systems cannot sync a directory; the rename stands anyway.
    (void)fsync(fd);
    close(fd);
}

// The plain write over the file itself, for where no new file can be made:
// the whole text, then mFILE_Write with its results and codes.
int writeInPlace(tConfGroup* root, const char* path)
{
    char* text = mCONF_BufWrite(root);
    if (text == nullptr)
        return -1;
    const size_t len = strlen(text);
    int result;
    if (len > static_cast<size_t>(INT32_MAX)) {
        vFILE_Errno = MFILE_ERR_IO;
        result = -1;
    } else {
        result = mFILE_Write(path, text, static_cast<int>(len));
    }
    free(text);
    return result;
}

// The new text is rendered straight into a new file in the target's
// directory, which is synced, given the target's permission bits (and owner,
// where allowed) and renamed over the target; then the directory is synced.
// A crash leaves the old file or the new one, never a mix; at worst a stray
// hidden temp file.
int replaceFile(tConfGroup* root, const char* path)
{
    std::string target;
    if (!resolveTarget(path, target))
        return writeInPlace(root, path);
    struct stat old;
    const bool exists = stat(target.c_str(), &old) == 0;
    // Something that is no plain file (a device, a pipe) must not be swapped
    // for one, and a file with several hard links would lose them: both are
    // written in place.
    if (exists && (!S_ISREG(old.st_mode) || old.st_nlink > 1))
        return writeInPlace(root, path);

    const std::string dir = dirOf(target);
    std::string temp;
    const int fd = createSibling(dir, baseOf(target), temp);
    if (fd < 0) {
        // A full disk is no reason to risk the in-place write.
        if (errno == ENOSPC || errno == EDQUOT) {
            vFILE_Errno = MFILE_ERR_IO;
            return -1;
        }
        return writeInPlace(root, path);
    }
    if (exists) {
        // Owner first: a change of owner may clear the set-id bits.
        if (fchown(fd, old.st_uid, old.st_gid) != 0) {
            // Not allowed: the file gets this process's owner.
        }
        if (fchmod(fd, old.st_mode & 07777) != 0) {
            close(fd);
            unlink(temp.c_str());
            return writeInPlace(root, path);
        }
    }
    FdOut out(fd);
    if (!out.ready()) {
        // Out of memory, as the whole text would be.
        close(fd);
        unlink(temp.c_str());
        return -1;
    }
    render(root, out);
    if (!out.finish() || fsync(fd) != 0) {
        close(fd);
        unlink(temp.c_str());
        vFILE_Errno = MFILE_ERR_IO;
        return -1;
    }
    if (close(fd) != 0) {
        unlink(temp.c_str());
        vFILE_Errno = MFILE_ERR_IO;
        return -1;
    }
    if (rename(temp.c_str(), target.c_str()) != 0) {
        // E.g. a file mounted over itself cannot be renamed over.
        unlink(temp.c_str());
        return writeInPlace(root, path);
    }
    syncDirectory(dir);
    vFILE_Errno = MFILE_OK;
    return 0;
}

// ---- Reader ---------------------------------------------------------------

// Builds a store from lines as mCONF_BufRead defines it: heads select (and
// make) the current group, items go to it, anything else is skipped.
//
// Items are stored a few lines behind the parse: each parsed item asks for
// its slot of the group's key table at once, and by the time it is stored
// the slot has come in from memory. Every queued item belongs to the current
// group, as a head empties the queue first, so the store sees the same calls
// in the same order.
class StoreReader {
public:
    StoreReader()
        : root_(mCONF_New()), queue_(new (std::nothrow) ParsedLine[kAhead]),
          depth_(queue_ != nullptr ? kAhead : 1), ring_(queue_ != nullptr ? queue_ : &single_), group_(root_)
    {
        current_.finish();
    }
    ~StoreReader()
    {
        delete[] queue_;
        mCONF_Free(root_);
    }
    StoreReader(const StoreReader&) = delete;
    StoreReader& operator=(const StoreReader&) = delete;

    bool ready() const { return root_ != nullptr; }

    // One line: no line end, NUL-terminated, at most 255 bytes.
    void line(const char* text)
    {
        while (isBlank(*text))
            ++text;
        ParsedLine& parsed = ring_[(first_ + queued_) % depth_];
        parsed.clear();
        const int kind = parseLine(text, equals_, true, parsed);
        if (kind == 0) {
            current_ = parsed.key;
            storeQueued();
            group_ = confAddGroupN(root_, current_.text, current_.len);
        } else if (kind == 1) {
            if (group_ != nullptr)
                parsed.hashed = confPrefetchItem(group_, parsed.key.text, parsed.key.len, &parsed.keyHash);
            if (++queued_ == depth_) {
                store(ring_[first_]);
                first_ = (first_ + 1) % depth_;
                --queued_;
            }
        }
    }

    // The store, which the caller then owns.
    tConfGroup* finish()
    {
        storeQueued();
        tConfGroup* root = root_;
        root_ = nullptr;
        return root;
    }

private:
    static constexpr size_t kAhead = 8;

    void store(const ParsedLine& item)
    {
        const char* comment = item.hasComment ? item.comment.text : nullptr;
        if (group_ != nullptr)
            confAddItemN(group_, item.key.text, item.key.len, item.value.text, item.value.len, comment,
                         item.comment.len, item.hashed ? &item.keyHash : nullptr);
        else // the group could not be made: try again by its name
            mCONF_SetValue(root_, current_.text, item.key.text, item.value.text, comment);
    }
    void storeQueued()
    {
        for (; queued_ > 0; --queued_, first_ = (first_ + 1) % depth_)
            store(ring_[first_]);
    }

    tConfGroup* root_;
    ParsedLine single_;
    ParsedLine* queue_;
    size_t depth_;
    ParsedLine* ring_;
    size_t first_ = 0;
    size_t queued_ = 0;
    Field current_;        // the current group's name
    tConfGroup* group_;    // and its node (null if it could not be made)
    const SeparatorSet equals_{"="};
};

// Cuts a text that comes in blocks into the lines that strgets would give:
// a run of CR and LF ends a line, lines are cut at 255 bytes, and the text
// ends at its first NUL.
class LineFeeder {
public:
    explicit LineFeeder(StoreReader& reader) : reader_(reader) {}

    void feed(const char* p, size_t n)
    {
        const char* const end = p + n;
        while (p < end && !ended_) {
            const char* e = p;
            while (e < end && !isLineEnd(*e))
                ++e;
            if (e > p) {
                const size_t run = static_cast<size_t>(e - p);
                const size_t room = static_cast<size_t>(kLineMax) - len_;
                memcpy(line_ + len_, p, run < room ? run : room);
                len_ += run < room ? run : room;
                hadByte_ = true;
            }
            if (e == end)
                return; // the line goes on in the next block
            if (*e == '\0')
                ended_ = true;
            emit();
            p = e + 1;
        }
    }

    void finish()
    {
        if (!ended_)
            emit();
    }

private:
    void emit()
    {
        if (hadByte_) {
            line_[len_] = '\0';
            reader_.line(line_);
        }
        len_ = 0;
        hadByte_ = false;
    }

    StoreReader& reader_;
    char line_[kLineMax + 1];
    size_t len_ = 0;
    bool hadByte_ = false;
    bool ended_ = false;
};

} // namespace

int mCONF_ParseLine(const char* line, char** key, char** value, char** comment, const char* separators)
{
    if (key != nullptr)
        *key = nullptr;
    if (value != nullptr)
        *value = nullptr;
    if (comment != nullptr)
        *comment = nullptr;
    if (line == nullptr || key == nullptr || value == nullptr)
        return -1;
    ParsedLine parsed;
    const int kind =
        parseLine(line, SeparatorSet(separators != nullptr ? separators : ""), comment != nullptr, parsed);
    if (kind < 0)
        return -1;
    *key = heapCopy(parsed.key);
    if (*key == nullptr)
        return -1;
    if (kind == 0)
        return 0;
    *value = heapCopy(parsed.value);
    char* c = parsed.hasComment ? heapCopy(parsed.comment) : nullptr;
    if (*value == nullptr || (parsed.hasComment && c == nullptr)) {
        free(*key);
        free(*value);
        free(c);
        *key = nullptr;
        *value = nullptr;
        return -1;
    }
    if (comment != nullptr)
        *comment = c;
    return 1;
}

tConfGroup* mCONF_BufRead(const char* text)
{
    StoreReader reader;
    if (!reader.ready())
        return nullptr;
    char line[kLineMax + 1];
    // strgets leaves a full line of 255 bytes unterminated: this byte ends it.
    line[kLineMax] = '\0';
    for (const char* pos = text; (pos = strgets(pos, line, kLineMax)) != nullptr;)
        reader.line(line);
    return reader.finish();
}

tConfGroup* readBuf(const char* text, const char* groupName)
{
    tConfGroup* root = mCONF_New();
    if (root == nullptr)
        return nullptr;
    tConfGroup* group = groupName != nullptr ? mCONF_AddGroup(root, groupName) : root;
    char line[kLineMax + 1];
    line[kLineMax] = '\0';
    ParsedLine parsed;
    const SeparatorSet equals("=");
    for (const char* pos = text; (pos = strgets(pos, line, kLineMax)) != nullptr;) {
        const char* p = line;
        while (isBlank(*p))
            ++p;
        parsed.clear();
        if (parseLine(p, equals, false, parsed) != 1)
            continue;
        if (group != nullptr)
            confAddItemN(group, parsed.key.text, parsed.key.len, parsed.value.text, parsed.value.len, nullptr, 0);
        else
            mCONF_SetValue(root, groupName, parsed.key.text, parsed.value.text, nullptr);
    }
    return root;
}

char* mCONF_BufWrite(tConfGroup* root)
{
    // Measuring pass, one allocation of the exact size, writing pass.
    const size_t size = canonicalSize(root);
    char* text = static_cast<char*>(malloc(size));
    if (text == nullptr)
        return nullptr;
    MemoryOut out(text);
    render(root, out);
    *out.end() = '\0';
    return text;
}

tConfGroup* mCONF_FileRead(const char* path)
{
    // The file is read in blocks and fed to the reader as it comes, rather
    // than whole into one buffer: the lines, and so the store, are the same,
    // and the text never has to fit in memory beside the store.
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return nullptr;
    }
    // Sizes are 32-bit in this library.
    if (st.st_size >= INT32_MAX) {
        vFILE_Errno = MFILE_ERR_NOMEM;
        return nullptr;
    }
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return nullptr;
    }
    // As mFILE_Read: what the file holds now, but no more than at the stat.
    off_t left = st.st_size;
    struct stat now;
    if (fstat(fd, &now) == 0 && now.st_size < left)
        left = now.st_size;

    StoreReader reader;
    constexpr size_t kBlock = 64 * 1024;
    char* block = static_cast<char*>(malloc(kBlock));
    if (!reader.ready() || block == nullptr) {
        free(block);
        close(fd);
        vFILE_Errno = MFILE_ERR_NOMEM;
        return nullptr;
    }
    LineFeeder feeder(reader);
    while (left > 0) {
        const size_t want = left < static_cast<off_t>(kBlock) ? static_cast<size_t>(left) : kBlock;
        const ssize_t n = read(fd, block, want);
        if (n < 1) {
            // A file that shrank or cannot be read: no store.
            free(block);
            close(fd);
            mCONF_Free(reader.finish());
            vFILE_Errno = MFILE_ERR_IO;
            return nullptr;
        }
        feeder.feed(block, static_cast<size_t>(n));
        left -= n;
    }
    free(block);
    close(fd);
    feeder.finish();
    vFILE_Errno = MFILE_OK;
    return reader.finish();
}

int mCONF_FileWrite(tConfGroup* root, const char* path)
{
    if (path == nullptr) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return -1;
    }
    // The path handling builds strings; running out of memory there is a
    // failed write like any other, not an exception for the caller.
    try {
        return replaceFile(root, path);
    } catch (const std::bad_alloc&) {
        return -1;
    }
}
