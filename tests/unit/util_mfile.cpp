// mFILE: results and vFILE_Errno codes of the whole-file calls, the
// descriptor loops and the free-name generator.
#include "mfile.h"
#include "runshell_conf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using confsupport::readFile;
using confsupport::TempDir;
using confsupport::writeFile;

namespace {

class MFileTest : public ::testing::Test {
protected:
    void SetUp() override { vFILE_Errno = 77; } // a value no call leaves behind
    TempDir dir;
};

TEST_F(MFileTest, CheckAndSize)
{
    const std::string f = dir.file("a");
    ASSERT_TRUE(writeFile(f, "12345"));
    EXPECT_EQ(mFILE_Check(f.c_str()), 1);
    EXPECT_EQ(mFILE_Check(dir.file("missing").c_str()), 0);
    EXPECT_EQ(mFILE_Check(nullptr), 0);

    EXPECT_EQ(mFILE_Size(f.c_str()), 5);
    EXPECT_EQ(vFILE_Errno, 77) << "a successful mFILE_Size leaves the word alone";
    EXPECT_EQ(mFILE_Size(dir.file("missing").c_str()), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    EXPECT_EQ(mFILE_Errno(), 1);
}

TEST_F(MFileTest, SizeBeyond32BitsIsRefused)
{
    const std::string f = dir.file("sparse");
    const int fd = open(f.c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    const bool grown = ftruncate(fd, 3LL * 1024 * 1024 * 1024) == 0;
    close(fd);
    if (!grown)
        GTEST_SKIP() << "no sparse files here";
    EXPECT_EQ(mFILE_Size(f.c_str()), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    char* buf = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(mFILE_ReadAlloc(f.c_str(), &buf), 0);
    EXPECT_EQ(vFILE_Errno, 20);
    EXPECT_EQ(buf, nullptr);
}

TEST_F(MFileTest, WriteReplacesAndAppendAdds)
{
    const std::string f = dir.file("w");
    ASSERT_TRUE(writeFile(f, "old content that is long"));
    EXPECT_EQ(mFILE_Write(f.c_str(), "new", 3), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(readFile(f), "new");
    EXPECT_EQ(mFILE_Append(f.c_str(), "+more", 5), 0);
    EXPECT_EQ(readFile(f), "new+more");

    // len 0 (or less) truncates an existing file or creates an empty one.
    EXPECT_EQ(mFILE_Write(f.c_str(), "xyz", 0), 0);
    EXPECT_EQ(readFile(f), "");
    const std::string g = dir.file("created");
    EXPECT_EQ(mFILE_Write(g.c_str(), "xyz", -4), 0);
    EXPECT_EQ(mFILE_Check(g.c_str()), 1);
    EXPECT_EQ(readFile(g), "");
}

TEST_F(MFileTest, NewFilesGet0666LessUmask)
{
    const mode_t old = umask(022);
    const std::string f = dir.file("mode");
    EXPECT_EQ(mFILE_Write(f.c_str(), "x", 1), 0);
    umask(old);
    struct stat st;
    ASSERT_EQ(stat(f.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST_F(MFileTest, WriteFailures)
{
    struct Case {
        const char* what;
        std::string path;
        int code;
    } cases[] = {
        {"missing directory", dir.file("no/such/file"), 1},
        {"a directory", dir.path(), 1},
    };
    for (const Case& c : cases) {
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Write(c.path.c_str(), "x", 1), -1) << c.what;
        EXPECT_EQ(vFILE_Errno, c.code) << c.what;
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Append(c.path.c_str(), "x", 1), -1) << c.what;
        EXPECT_EQ(vFILE_Errno, c.code) << c.what;
    }
    EXPECT_EQ(mFILE_Write(nullptr, "x", 1), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(mFILE_Write("/dev/full", "x", 1), -1);
        EXPECT_EQ(vFILE_Errno, 2);
    }
}

TEST_F(MFileTest, ReadCountsAndCodes)
{
    const std::string f = dir.file("r");
    ASSERT_TRUE(writeFile(f, "0123456789"));
    char buf[32];
    struct Case {
        int maxLen;
        int result;
        const char* bytes;
    } cases[] = {
        {32, 10, "0123456789"}, // larger than the file: the file size
        {4, 4, "0123"},         // smaller: maxLen
        {10, 10, "0123456789"},
        {0, 0, ""},             // nothing read, maxLen is the result
        {-3, -3, ""},
    };
    for (const Case& c : cases) {
        memset(buf, 0, sizeof buf);
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Read(f.c_str(), buf, c.maxLen), c.result) << c.maxLen;
        EXPECT_EQ(vFILE_Errno, 0) << c.maxLen;
        EXPECT_STREQ(buf, c.bytes) << c.maxLen;
    }

    const std::string empty = dir.file("empty");
    ASSERT_TRUE(writeFile(empty, ""));
    EXPECT_EQ(mFILE_Read(empty.c_str(), buf, 32), 0);
    EXPECT_EQ(vFILE_Errno, 0);

    EXPECT_EQ(mFILE_Read(dir.file("missing").c_str(), buf, 32), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    EXPECT_EQ(mFILE_Read(nullptr, buf, 32), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    // A directory stats and opens, but its read fails.
    if (mFILE_Size(dir.path().c_str()) > 0) {
        EXPECT_EQ(mFILE_Read(dir.path().c_str(), buf, 32), -1);
        EXPECT_EQ(vFILE_Errno, 2);
    }
}

TEST_F(MFileTest, Read2TreatsEndOfFileAsSuccess)
{
    const std::string f = dir.file("r2");
    ASSERT_TRUE(writeFile(f, "abcdef"));
    char buf[32] = {};
    EXPECT_EQ(mFILE_Read2(f.c_str(), buf, 32), 6);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_STREQ(buf, "abcdef");
    memset(buf, 0, sizeof buf);
    EXPECT_EQ(mFILE_Read2(f.c_str(), buf, 2), 2);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(mFILE_Read2(dir.file("missing").c_str(), buf, 2), -1);
    EXPECT_EQ(vFILE_Errno, 1);
    // A directory opens; its read gives less than 1, which is the end.
    vFILE_Errno = 77;
    EXPECT_EQ(mFILE_Read2(dir.path().c_str(), buf, 2), 0);
    EXPECT_EQ(vFILE_Errno, 0);
}

TEST_F(MFileTest, ReadAlloc)
{
    const std::string f = dir.file("ra");
    ASSERT_TRUE(writeFile(f, "hello"));
    char* buf = nullptr;
    EXPECT_EQ(mFILE_ReadAlloc(f.c_str(), &buf), 5);
    EXPECT_EQ(vFILE_Errno, 0);
    ASSERT_NE(buf, nullptr);
    EXPECT_STREQ(buf, "hello");
    free(buf);

    // An empty file: result 0 and a block of one zero byte to free.
    const std::string empty = dir.file("empty");
    ASSERT_TRUE(writeFile(empty, ""));
    buf = nullptr;
    EXPECT_EQ(mFILE_ReadAlloc(empty.c_str(), &buf), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(buf[0], '\0');
    free(buf);

    buf = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(mFILE_ReadAlloc(dir.file("missing").c_str(), &buf), 0);
    EXPECT_EQ(vFILE_Errno, 10);
    EXPECT_EQ(buf, nullptr);

    // A failed read frees the block and keeps mFILE_Read's code.
    if (mFILE_Size(dir.path().c_str()) > 0) {
        buf = reinterpret_cast<char*>(0x1);
        EXPECT_EQ(mFILE_ReadAlloc(dir.path().c_str(), &buf), 0);
        EXPECT_EQ(vFILE_Errno, 2);
        EXPECT_EQ(buf, nullptr);
    }

    vFILE_Errno = 77;
    EXPECT_EQ(mFILE_ReadAlloc(nullptr, &buf), 0);
    EXPECT_EQ(mFILE_ReadAlloc(f.c_str(), nullptr), 0);
    EXPECT_EQ(vFILE_Errno, 77) << "null arguments touch nothing";
}

TEST_F(MFileTest, DescriptorLoops)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    EXPECT_EQ(mFILE_WriteFd(fds[1], "abcdef", 6), 6);
    EXPECT_EQ(mFILE_WriteFd(fds[1], "abc", 0), 0);
    EXPECT_EQ(mFILE_WriteFd(fds[1], nullptr, 3), 0);
    close(fds[1]);
    char buf[16] = {};
    // Asks for more than there is: stops at the end, returns what came.
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, 10), 6);
    EXPECT_STREQ(buf, "abcdef");
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, 10), 0);
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, -1), 0);
    close(fds[0]);
    EXPECT_EQ(mFILE_ReadFd(-1, buf, 4), 0);
    EXPECT_EQ(mFILE_WriteFd(-1, "x", 1), 0);
    EXPECT_EQ(vFILE_Errno, 77) << "descriptor calls leave the word alone";
}

TEST_F(MFileTest, OpenModes)
{
    const std::string f = dir.file("o");
    ASSERT_TRUE(writeFile(f, "keep"));
    int fd = mFILE_Open(f.c_str(), 'r');
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "x", 1), -1) << "any mode but 'w' is read-only";
    EXPECT_EQ(mFILE_Close(fd), 0);
    EXPECT_EQ(readFile(f), "keep");

    fd = mFILE_Open(f.c_str(), 'w');
    ASSERT_GE(fd, 0);
    EXPECT_EQ(readFile(f), "") << "'w' truncates";
    EXPECT_EQ(mFILE_Close(fd), 0);

    EXPECT_EQ(mFILE_Open(dir.file("missing").c_str(), 'r'), -1);
    EXPECT_EQ(mFILE_Open(nullptr, 'w'), -1);
    EXPECT_EQ(vFILE_Errno, 77);
}

// The temporary directory's own name is alphanumeric, so the markers of
// these cases are bytes it cannot hold, or the names are relative to it.
class ScopedChdir {
public:
    explicit ScopedChdir(const std::string& to) : fd_(open(".", O_RDONLY | O_DIRECTORY)) { ok_ = chdir(to.c_str()) == 0; }
    ~ScopedChdir()
    {
        if (fd_ >= 0) {
            (void)fchdir(fd_);
            close(fd_);
        }
    }
    bool ok() const { return ok_; }

private:
    int fd_;
    bool ok_ = false;
};

TEST_F(MFileTest, MksTempCountsUpFromTheRightmostMarker)
{
    ScopedChdir here(dir.path());
    ASSERT_TRUE(here.ok());
    char t[] = "fileXXX";
    ASSERT_EQ(mFILE_MksTemp(t, 'X'), t);
    EXPECT_STREQ(t, "file000");
    ASSERT_TRUE(writeFile(t, ""));
    strcpy(t, "fileXXX");
    EXPECT_EQ(mFILE_MksTemp(t, 'X'), t);
    EXPECT_STREQ(t, "file001");
    // Free names are found in counting order: 000..009 taken gives 010.
    for (int i = 1; i <= 9; ++i)
        ASSERT_TRUE(writeFile("file00" + std::to_string(i), ""));
    strcpy(t, "fileXXX");
    ASSERT_NE(mFILE_MksTemp(t, 'X'), nullptr);
    EXPECT_STREQ(t, "file010");
    EXPECT_EQ(mFILE_Check(t), 0) << "no file is created";
}

TEST_F(MFileTest, MksTempMarkerRules)
{
    // No marker: null, template unchanged.
    std::string t = dir.file("plain");
    const std::string before = t;
    EXPECT_EQ(mFILE_MksTemp(&t[0], '@'), nullptr);
    EXPECT_EQ(t, before);
    EXPECT_EQ(mFILE_MksTemp(nullptr, '@'), nullptr);

    // A marker in a directory part is replaced too; a missing directory
    // counts as free.
    t = dir.file("d@/f@");
    ASSERT_NE(mFILE_MksTemp(&t[0], '@'), nullptr);
    EXPECT_EQ(t, dir.file("d0/f0"));

    // Markers spread over the name: the rightmost is the last digit.
    ASSERT_TRUE(writeFile(dir.file("a0b0"), ""));
    t = dir.file("a@b@");
    ASSERT_NE(mFILE_MksTemp(&t[0], '@'), nullptr);
    EXPECT_EQ(t, dir.file("a0b1"));

    // More than 8 markers: the leftmost ones stay '0'.
    t = dir.file("~~~~~~~~~~");
    ASSERT_NE(mFILE_MksTemp(&t[0], '~'), nullptr);
    EXPECT_EQ(t, dir.file("0000000000"));
    ASSERT_TRUE(writeFile(t, ""));
    t = dir.file("~~~~~~~~~~");
    ASSERT_NE(mFILE_MksTemp(&t[0], '~'), nullptr);
    EXPECT_EQ(t, dir.file("0000000001"));

    // Every name taken: null, template unchanged.
    for (int i = 0; i <= 9; ++i)
        ASSERT_TRUE(writeFile(dir.file("k" + std::to_string(i)), ""));
    t = dir.file("k@");
    EXPECT_EQ(mFILE_MksTemp(&t[0], '@'), nullptr);
    EXPECT_EQ(t, dir.file("k@"));
}

TEST_F(MFileTest, OpenTmp)
{
    std::string t = dir.file("tmp@@");
    const int fd = mFILE_OpenTmp(&t[0], '@');
    ASSERT_GE(fd, 0);
    EXPECT_EQ(t, dir.file("tmp00"));
    EXPECT_EQ(mFILE_WriteFd(fd, "z", 1), 1);
    mFILE_Close(fd);
    EXPECT_EQ(readFile(t), "z");
    std::string none = dir.file("nomarker");
    EXPECT_EQ(mFILE_OpenTmp(&none[0], '@'), -1);
}

} // namespace
