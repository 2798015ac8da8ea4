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

class MFile : public ::testing::Test {
protected:
    void SetUp() override { vFILE_Errno = 77; } // a value no call leaves behind
    TempDir dir;
};

TEST_F(MFile, CheckSizeOpen)
{
    const std::string f = dir.file("a");
    const std::string missing = dir.file("missing");
    ASSERT_TRUE(writeFile(f, "12345"));
    EXPECT_EQ(mFILE_Check(f.c_str()), 1);
    EXPECT_EQ(mFILE_Check(missing.c_str()), 0);
    EXPECT_EQ(mFILE_Size(f.c_str()), 5);
    EXPECT_EQ(vFILE_Errno, 77) << "a successful mFILE_Size leaves the word alone";
    EXPECT_EQ(mFILE_Size(missing.c_str()), -1);
    EXPECT_EQ(mFILE_Errno(), 1);

    int fd = mFILE_Open(f.c_str(), 'r');
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "x", 1), -1) << "any mode but 'w' is read-only";
    mFILE_Close(fd);
    fd = mFILE_Open(f.c_str(), 'w');
    EXPECT_GE(fd, 0);
    mFILE_Close(fd);
    EXPECT_EQ(readFile(f), "") << "'w' truncates";
    EXPECT_EQ(mFILE_Open(missing.c_str(), 'r'), -1);
    EXPECT_EQ(mFILE_Open(nullptr, 'w'), -1);
}

// Sizes are 32-bit: a larger file is refused, not read cut.
TEST_F(MFile, SizeBeyond32Bits)
{
    const std::string f = dir.file("sparse");
    const int fd = open(f.c_str(), O_WRONLY | O_CREAT, 0644);
    const bool grown = fd >= 0 && ftruncate(fd, 3LL << 30) == 0;
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

TEST_F(MFile, WriteAndAppend)
{
    const std::string f = dir.file("w");
    ASSERT_TRUE(writeFile(f, "old content that is long"));
    EXPECT_EQ(mFILE_Write(f.c_str(), "new", 3), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(mFILE_Append(f.c_str(), "+more", 5), 0);
    EXPECT_EQ(readFile(f), "new+more");
    // len 0 or less truncates, or creates with 0666 less the umask.
    EXPECT_EQ(mFILE_Write(f.c_str(), "xyz", 0), 0);
    EXPECT_EQ(readFile(f), "");
    const mode_t old = umask(022);
    EXPECT_EQ(mFILE_Write(dir.file("new").c_str(), "xyz", -4), 0);
    umask(old);
    struct stat st;
    ASSERT_EQ(stat(dir.file("new").c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);

    const std::pair<std::string, int> failures[] = {
        {dir.file("no/such/file"), 1}, {dir.path(), 1}, {"/dev/full", 2}};
    for (const auto& c : failures) {
        if (c.first == "/dev/full" && access("/dev/full", W_OK) != 0)
            continue;
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Write(c.first.c_str(), "x", 1), -1) << c.first;
        EXPECT_EQ(vFILE_Errno, c.second) << c.first;
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Append(c.first.c_str(), "x", 1), -1) << c.first;
        EXPECT_EQ(vFILE_Errno, c.second) << c.first;
    }
}

TEST_F(MFile, ReadCountsAndCodes)
{
    const std::string f = dir.file("r");
    ASSERT_TRUE(writeFile(f, "0123456789"));
    ASSERT_TRUE(writeFile(dir.file("empty"), ""));
    struct Case {
        std::string path;
        int maxLen, result, code;
        const char* bytes;
    } cases[] = {
        {f, 32, 10, 0, "0123456789"}, // larger than the file: the file size
        {f, 4, 4, 0, "0123"},
        {f, 0, 0, 0, ""},
        {f, -3, -3, 0, ""}, // nothing is read; maxLen itself is the result
        {dir.file("empty"), 32, 0, 0, ""},
        {dir.file("missing"), 32, -1, 1, ""},
        {dir.path(), 32, -1, 2, ""}, // a directory stats and opens; its read fails
    };
    for (const Case& c : cases) {
        char buf[33] = {};
        vFILE_Errno = 77;
        EXPECT_EQ(mFILE_Read(c.path.c_str(), buf, c.maxLen), c.result) << c.path << " " << c.maxLen;
        EXPECT_EQ(vFILE_Errno, c.code) << c.path << " " << c.maxLen;
        EXPECT_STREQ(buf, c.bytes);
    }
    // mFILE_Read2: no stat, and the end of the file is no failure.
    char buf[33] = {};
    EXPECT_EQ(mFILE_Read2(f.c_str(), buf, 32), 10);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(mFILE_Read2(dir.path().c_str(), buf, 2), 0);
    EXPECT_EQ(vFILE_Errno, 0);
    EXPECT_EQ(mFILE_Read2(dir.file("missing").c_str(), buf, 2), -1);
    EXPECT_EQ(vFILE_Errno, 1);
}

TEST_F(MFile, ReadAlloc)
{
    ASSERT_TRUE(writeFile(dir.file("ra"), "hello"));
    ASSERT_TRUE(writeFile(dir.file("empty"), ""));
    struct Case {
        std::string path;
        int result, code;
        const char* content; // null: no block is handed out
    } cases[] = {
        {dir.file("ra"), 5, 0, "hello"},
        {dir.file("empty"), 0, 0, ""}, // result 0, yet a block of one zero byte
        {dir.file("missing"), 0, 10, nullptr},
        {dir.path(), 0, 2, nullptr}, // the read fails: block freed, mFILE_Read's code
    };
    for (const Case& c : cases) {
        char* buf = reinterpret_cast<char*>(0x1);
        EXPECT_EQ(mFILE_ReadAlloc(c.path.c_str(), &buf), c.result) << c.path;
        EXPECT_EQ(vFILE_Errno, c.code) << c.path;
        if (c.content == nullptr) {
            EXPECT_EQ(buf, nullptr) << c.path;
        } else {
            ASSERT_NE(buf, nullptr);
            EXPECT_STREQ(buf, c.content);
            free(buf);
        }
    }
    vFILE_Errno = 77;
    EXPECT_EQ(mFILE_ReadAlloc(nullptr, nullptr), 0);
    EXPECT_EQ(vFILE_Errno, 77) << "null arguments touch nothing";
}

TEST_F(MFile, DescriptorLoops)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    EXPECT_EQ(mFILE_WriteFd(fds[1], "abcdef", 6), 6);
    EXPECT_EQ(mFILE_WriteFd(fds[1], "abc", 0), 0);
    close(fds[1]);
    char buf[16] = {};
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, 10), 6) << "stops at the end with what came";
    EXPECT_STREQ(buf, "abcdef");
    EXPECT_EQ(mFILE_ReadFd(fds[0], buf, 10), 0);
    close(fds[0]);
    EXPECT_EQ(mFILE_ReadFd(-1, buf, 4), 0);
    EXPECT_EQ(vFILE_Errno, 77) << "descriptor calls leave the word alone";
}

// Markers are bytes the directory's own (alphanumeric) name cannot hold,
// or the names are relative to it.
TEST_F(MFile, MksTemp)
{
    const int cwd = open(".", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    char t[] = "fileXXX";
    EXPECT_EQ(mFILE_MksTemp(t, 'X'), t);
    EXPECT_STREQ(t, "file000");
    for (int i = 0; i <= 9; ++i)
        ASSERT_TRUE(writeFile("file00" + std::to_string(i), ""));
    strcpy(t, "fileXXX");
    EXPECT_EQ(mFILE_MksTemp(t, 'X'), t);
    EXPECT_STREQ(t, "file010") << "the rightmost marker is the last digit";
    EXPECT_EQ(mFILE_Check(t), 0) << "no file is created";
    ASSERT_EQ(fchdir(cwd), 0);
    close(cwd);

    struct Case {
        const char* pattern;
        char marker;
        const char* result; // null: no name, pattern unchanged
    } cases[] = {
        {"plain", '@', nullptr},
        {"d@/f@", '@', "d0/f0"}, // in a directory part too; a missing directory is free
        {"a@b@", '@', "a0b1"},   // a0b0 exists
        {"~~~~~~~~~~", '~', "0000000000"}, // beyond 8 markers the left ones stay '0'
        {"k@", '@', nullptr},    // k0..k9 all exist
    };
    ASSERT_TRUE(writeFile(dir.file("a0b0"), ""));
    for (int i = 0; i <= 9; ++i)
        ASSERT_TRUE(writeFile(dir.file("k" + std::to_string(i)), ""));
    for (const Case& c : cases) {
        std::string p = dir.file(c.pattern);
        EXPECT_EQ(mFILE_MksTemp(&p[0], c.marker) != nullptr, c.result != nullptr) << c.pattern;
        EXPECT_EQ(p, dir.file(c.result != nullptr ? c.result : c.pattern));
    }
    EXPECT_EQ(mFILE_MksTemp(nullptr, 'X'), nullptr);

    std::string p = dir.file("tmp@@");
    const int fd = mFILE_OpenTmp(&p[0], '@');
    ASSERT_GE(fd, 0);
    EXPECT_EQ(p, dir.file("tmp00"));
    mFILE_Close(fd);
    EXPECT_EQ(mFILE_Check(p.c_str()), 1);
    std::string none = dir.file("plain");
    EXPECT_EQ(mFILE_OpenTmp(&none[0], '@'), -1);
}

} // namespace
