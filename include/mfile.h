/*
 * mfile.h - mFILE, a thin layer over the POSIX file calls.
 *
 * Sections:
 *   1. The result word      vFILE_Errno and its codes, mFILE_Errno
 *   2. Names and handles    mFILE_Check, mFILE_Size, mFILE_Open, mFILE_OpenTmp, mFILE_Close
 *   3. Descriptor loops     mFILE_ReadFd, mFILE_WriteFd
 *   4. Whole-file calls     mFILE_Write, mFILE_Append, mFILE_Read, mFILE_Read2, mFILE_ReadAlloc
 *   5. Free names           mFILE_MksTemp
 *
 * Sizes and lengths are 32-bit signed numbers. New files get mode 0666 less
 * the umask. Nothing is logged; a whole-file call leaves no descriptor open.
 */
#ifndef MFILE_H
#define MFILE_H

#include <stdint.h>

/* ---- 1. The result word ------------------------------------------------ */

/* How the last whole-file operation went (0 at start). Independent of errno;
 * one unprotected global word. */
extern int32_t vFILE_Errno;

enum {
    MFILE_OK = 0,        /* success */
    MFILE_ERR_OPEN = 1,  /* the file could not be opened, or stat failed */
    MFILE_ERR_IO = 2,    /* a read or write call gave less than 1 */
    MFILE_ERR_STAT = 10, /* stat failed (mFILE_ReadAlloc) */
    MFILE_ERR_NOMEM = 20 /* out of memory (mFILE_ReadAlloc) */
};

/* The value of vFILE_Errno. */
int mFILE_Errno(void);

/* ---- 2. Names and handles (these leave vFILE_Errno alone unless told) --- */

/* 1 if the path exists (access F_OK), else 0; a null path is 0. */
int mFILE_Check(const char* path);

/* The file's size; -1 with vFILE_Errno 1 if stat fails or the size does not
 * fit in 32 bits. A success leaves vFILE_Errno alone. */
int mFILE_Size(const char* path);

/* Opens for writing (O_WRONLY|O_CREAT|O_TRUNC, 0666) if mode is 'w', else for
 * reading. The descriptor, or what open gave (-1; also for a null path). */
int mFILE_Open(const char* path, int mode);

/* mFILE_MksTemp on pattern, then mFILE_Open(pattern, 'w'): the descriptor, or
 * -1 if no free name was found. pattern holds the name taken. */
int mFILE_OpenTmp(char* pattern, char marker);

/* close(fd); its result. */
int mFILE_Close(int fd);

/* ---- 3. Descriptor loops ----------------------------------------------- */

/* Reads until len bytes have come or a read gives less than 1. The bytes
 * read; 0 for len < 1 or a null buf. EOF, error and short read look alike. */
int mFILE_ReadFd(int fd, void* buf, int len);

/* Writes until len bytes are out or a write gives less than 1. The bytes
 * written; 0 for len < 1 or a null buf. */
int mFILE_WriteFd(int fd, const void* buf, int len);

/* ---- 4. Whole-file calls ----------------------------------------------- */

/* Replaces the file's content in place (O_WRONLY|O_CREAT|O_TRUNC, 0666):
 * 0, or -1 with vFILE_Errno 1 (open) or 2 (write). len <= 0 leaves an empty
 * file. Not atomic: a failure after the open leaves a shortened file. */
int mFILE_Write(const char* path, const void* buf, int len);

/* As mFILE_Write, but adds to the end (O_WRONLY|O_CREAT|O_APPEND). */
int mFILE_Append(const char* path, const void* buf, int len);

/* stat, then reads the smaller of maxLen and the file size into buf: that
 * count, or -1 with vFILE_Errno 1 (stat/open) or 2 (a read gave less than 1,
 * e.g. the file shrank). maxLen <= 0 reads nothing and is itself the result. */
int mFILE_Read(const char* path, void* buf, int maxLen);

/* Reads up to len bytes without a stat; end of file is no failure. The count
 * read (vFILE_Errno 0), or -1 with vFILE_Errno 1 if the open fails. */
int mFILE_Read2(const char* path, void* buf, int len);

/* Allocates size + 1 zeroed bytes into *buf and reads the whole file there:
 * the size (vFILE_Errno 0; the caller frees *buf, also for size 0), or 0 on
 * failure with vFILE_Errno 10 (stat), 20 (memory) or mFILE_Read's code, and
 * *buf null. A null path or buf gives 0 and touches nothing. */
int mFILE_ReadAlloc(const char* path, char** buf);

/* ---- 5. Free names ----------------------------------------------------- */

/* Replaces every byte equal to marker in pattern by the digits of the first
 * number 0, 1, 2 ... whose name does not exist (rightmost marker = last
 * digit; markers beyond 8 stay '0'). pattern, or null (pattern unchanged)
 * for a null pattern, no marker, or no free name. Creates no file: the name
 * is unprotected until it is opened. */
char* mFILE_MksTemp(char* pattern, char marker);

#endif /* MFILE_H */
