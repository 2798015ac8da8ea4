// keyevent.h - key event scripts: key tokens turned into `key` commands for
// the system shell, and the key-event test thread (menu key e).
#ifndef VX_SHELL_KEYEVENT_H
#define VX_SHELL_KEYEVENT_H

#include <cstdint>

struct tKeyGroup {
    char keys[100];        // NUL-terminated key list, tokens separated by ","
    uint16_t keyDelayMs;   // pause after each key
    uint16_t stepDelayMs;  // pause after the group
};

struct tPlayKeyEvent {
    int32_t repeat;        // 0: one pass; other: passes until the flag is cleared
    int32_t count;         // groups in use, at most 20
    tKeyGroup groups[20];
    int32_t interval;      // pause between passes
};

extern tPlayKeyEvent g_PlayKeyEvent;

// Writes the command text of one token to dst, or leaves dst alone.
void getKeyEventStr(char* dst, const char* token);
// Writes the command text of a whole key list (cut up in place) to dst;
// returns the number of tokens. dst holds dstSize bytes.
int getKeyEventString(char* dst, char* keys, uint16_t delayMs, int dstSize = 400);

void StartTestKeyEventThread();
void* TestKeyEventThread(void* arg);

#endif // VX_SHELL_KEYEVENT_H
