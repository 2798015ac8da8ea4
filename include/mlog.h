/*
 * mlog.h - the shell's timestamped log line and its small clock routines.
 *
 *   logPrt     printf-style line "[hh:mm:ss.mmm] text" on stdout
 *   msleep     sleep in milliseconds
 *   getTimeMs  milliseconds since the whole second of the first call
 *   hex_dump   bytes in hexadecimal on stdout
 */
#ifndef MLOG_H
#define MLOG_H

#include <stdint.h>

/* Formats the arguments and prints "[%02d:%02d:%02d.%03d] %s\n" with the local
 * time; a text of no characters prints nothing. Nothing is flushed. */
void logPrt(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* Sleeps ms milliseconds (32-bit unsigned arithmetic). Always 0. */
int msleep(uint32_t ms);

/* Milliseconds since the whole second of the first call (32-bit signed). */
int32_t getTimeMs(void);

/* Prints each byte as "\t %x " and then one newline. Returns 0. */
int hex_dump(int length, const unsigned char* bytes);

#endif /* MLOG_H */
