// mCONF's text form: the line parser, the reader, the canonical writer and
// the file wrappers.
#include "confstore.h"
#include "mfile.h"
#include "mstring.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
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
    size_t len = 0; // bytes stored, up to the first NUL

    void put(char c)
    {
        if (len < kFieldMax)
            text[len++] = c;
    }
    void finish()
    {
        text[len] = '\0';
        len = strlen(text); // a decoded %00 ends the text there
    }
};

struct ParsedLine {
    Field key;   // or the group name of a head
    Field value;
    Field comment;
    bool hasComment = false;
};

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }
inline bool isLineEnd(char c) { return c == '\0' || c == '\r' || c == '\n'; }
inline bool isXDigit(char c) { return isxdigit(static_cast<unsigned char>(c)) != 0; }

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return toupper(static_cast<unsigned char>(c)) - 'A' + 10;
}

inline bool isSeparator(char c, const char* separators)
{
    return c != '\0' && strchr(separators, c) != nullptr;
}

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

// The line rules: -1 nothing, 0 a head (name in key), 1 an item.
int parseLine(const char* line, const char* separators, bool wantComment, ParsedLine& out)
{
    const char* p = line;
    while (isBlank(*p))
        ++p;
    if (isLineEnd(*p) || *p == '#' || *p == ';')
        return -1;

    if (*p == '[') {
        // The name runs to the first ']' that is no escape.
        ++p;
        for (;;) {
            const char c = *p;
            if (isLineEnd(c))
                return -1;
            if (c == ']')
                break;
            char byte = c;
            if (c == '%') {
                if (!decodeEscape(p, &byte))
                    return -1;
            } else {
                ++p;
            }
            out.key.put(byte);
        }
        out.key.finish();
        return 0;
    }

    // The first separator byte of the line.
    const char* sep = p;
    while (!isLineEnd(*sep) && !isSeparator(*sep, separators))
        ++sep;
    if (isLineEnd(*sep))
        return -1;

    // The key: the first blank-free run, decoding escapes.
    for (const char* k = p; !isBlank(*k) && !isLineEnd(*k) && !isSeparator(*k, separators);) {
        char byte = *k;
        if (byte == '%') {
            if (!decodeEscape(k, &byte))
                return -1;
        } else {
            ++k;
        }
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
        while (*v != '\0' && *v != quote)
            out.value.put(*v++);
        if (*v == quote)
            ++v;
    } else {
        while (!isBlank(*v) && !isLineEnd(*v) && *v != ';' && *v != '#')
            out.value.put(*v++);
    }
    out.value.finish();

    // The comment: behind the first ';' or '#' that follows the value.
    if (wantComment) {
        while (!isLineEnd(*v) && *v != ';' && *v != '#')
            ++v;
        if (*v == ';' || *v == '#') {
            ++v;
            while (!isLineEnd(*v))
                out.comment.put(*v++);
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

inline bool needsEscape(char c) { return c == '[' || c == ']' || c == ' '; }

size_t escapedLength(const char* s)
{
    size_t n = 0;
    for (; *s != '\0'; ++s)
        n += needsEscape(*s) ? 3 : 1;
    return n;
}

char* putEscaped(char* out, const char* s)
{
    for (; *s != '\0'; ++s) {
        switch (*s) {
        case '[':
            memcpy(out, "%5B", 3);
            out += 3;
            break;
        case ']':
            memcpy(out, "%5D", 3);
            out += 3;
            break;
        case ' ':
            memcpy(out, "%20", 3);
            out += 3;
            break;
        default:
            *out++ = *s;
        }
    }
    return out;
}

char* putText(char* out, const char* s, size_t len)
{
    memcpy(out, s, len);
    return out + len;
}

inline bool isWritten(const tConfGroup* g) { return g->name != nullptr && g->name[0] != '\0'; }

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

bool writeAll(int fd, const char* p, size_t len)
{
    while (len > 0) {
        const ssize_t n = write(fd, p, len);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 1)
            return false;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
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

// The plain write over the file itself, for where no new file can be made.
int writeInPlace(const char* path, const char* text, size_t len)
{
    if (len > static_cast<size_t>(INT32_MAX)) {
        vFILE_Errno = MFILE_ERR_IO;
        return -1;
    }
    return mFILE_Write(path, text, static_cast<int>(len));
}

// The new text goes to a new file in the target's directory, which is
// synced, given the target's permission bits (and owner, where allowed) and
// renamed over the target; then the directory is synced. A crash leaves the
// old file or the new one, never a mix; at worst a stray hidden temp file.
int replaceFile(const char* path, const char* text, size_t len)
{
    std::string target;
    if (!resolveTarget(path, target))
        return writeInPlace(path, text, len);
    struct stat old;
    const bool exists = stat(target.c_str(), &old) == 0;
    // Something that is no plain file (a device, a pipe) must not be swapped
    // for one, and a file with several hard links would lose them: both are
    // written in place.
    if (exists && (!S_ISREG(old.st_mode) || old.st_nlink > 1))
        return writeInPlace(path, text, len);

    const std::string dir = dirOf(target);
    std::string temp;
    const int fd = createSibling(dir, baseOf(target), temp);
    if (fd < 0) {
        // A full disk is no reason to risk the in-place write.
        if (errno == ENOSPC || errno == EDQUOT) {
            vFILE_Errno = MFILE_ERR_IO;
            return -1;
        }
        return writeInPlace(path, text, len);
    }
    if (exists) {
        // Owner first: a change of owner may clear the set-id bits.
        if (fchown(fd, old.st_uid, old.st_gid) != 0) {
            // Not allowed: the file gets this process's owner.
        }
        if (fchmod(fd, old.st_mode & 07777) != 0) {
            close(fd);
            unlink(temp.c_str());
            return writeInPlace(path, text, len);
        }
    }
    if (!writeAll(fd, text, len) || fsync(fd) != 0) {
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
        return writeInPlace(path, text, len);
    }
    syncDirectory(dir);
    vFILE_Errno = MFILE_OK;
    return 0;
}

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
    const int kind = parseLine(line, separators != nullptr ? separators : "", comment != nullptr, parsed);
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
    tConfGroup* root = mCONF_New();
    if (root == nullptr)
        return nullptr;
    char line[kLineMax + 1];
    // strgets leaves a full line of 255 bytes unterminated: this byte ends it.
    line[kLineMax] = '\0';
    // The current group is remembered by name (for the rare case that it
    // could not be made) and by node.
    Field current;
    current.finish();
    tConfGroup* group = root;
    ParsedLine parsed;
    for (const char* pos = text; (pos = strgets(pos, line, kLineMax)) != nullptr;) {
        const char* p = line;
        while (isBlank(*p))
            ++p;
        parsed.key.len = parsed.value.len = parsed.comment.len = 0;
        parsed.hasComment = false;
        const int kind = parseLine(p, "=", true, parsed);
        if (kind == 0) {
            current = parsed.key;
            group = confAddGroupN(root, current.text, current.len);
        } else if (kind == 1) {
            const char* comment = parsed.hasComment ? parsed.comment.text : nullptr;
            if (group != nullptr) {
                confAddItemN(group, parsed.key.text, parsed.key.len, parsed.value.text, parsed.value.len, comment,
                             parsed.comment.len);
            } else {
                mCONF_SetValue(root, current.text, parsed.key.text, parsed.value.text, comment);
            }
        }
    }
    return root;
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
    for (const char* pos = text; (pos = strgets(pos, line, kLineMax)) != nullptr;) {
        const char* p = line;
        while (isBlank(*p))
            ++p;
        parsed.key.len = parsed.value.len = 0;
        if (parseLine(p, "=", false, parsed) != 1)
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
    // Measuring pass: the exact size of the canonical text.
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
    char* text = static_cast<char*>(malloc(size));
    if (text == nullptr)
        return nullptr;
    // Writing pass, in place.
    char* out = text;
    for (const tConfGroup* g = root; g != nullptr; g = g->next) {
        if (!isWritten(g))
            continue;
        *out++ = '[';
        out = putEscaped(out, g->name);
        out = putText(out, "]\r\n", 3);
        for (const tConfItem* it = g->items; it != nullptr; it = it->next) {
            out = putEscaped(out, it->key);
            out = putText(out, "=\"", 2);
            out = putText(out, it->value, strlen(it->value));
            *out++ = '"';
            if (it->comment != nullptr) {
                out = putText(out, "\t;", 2);
                out = putText(out, it->comment, strlen(it->comment));
            }
            out = putText(out, "\r\n", 2);
        }
        out = putText(out, "\r\n", 2);
    }
    *out = '\0';
    return text;
}

tConfGroup* mCONF_FileRead(const char* path)
{
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) {
        vFILE_Errno = MFILE_ERR_OPEN;
        return nullptr;
    }
    // The read goes through a 32-bit length.
    if (st.st_size >= INT32_MAX) {
        vFILE_Errno = MFILE_ERR_NOMEM;
        return nullptr;
    }
    const int size = static_cast<int>(st.st_size);
    char* buffer = static_cast<char*>(calloc(static_cast<size_t>(size) + 1, 1));
    if (buffer == nullptr) {
        vFILE_Errno = MFILE_ERR_NOMEM;
        return nullptr;
    }
    if (mFILE_Read(path, buffer, size) < 0) {
        free(buffer);
        return nullptr;
    }
    tConfGroup* root = mCONF_BufRead(buffer);
    free(buffer);
    return root;
}

int mCONF_FileWrite(tConfGroup* root, const char* path)
{
    char* text = mCONF_BufWrite(root);
    if (text == nullptr)
        return -1;
    int result;
    if (path == nullptr) {
        vFILE_Errno = MFILE_ERR_OPEN;
        result = -1;
    } else {
        result = replaceFile(path, text, strlen(text));
    }
    free(text);
    return result;
}
