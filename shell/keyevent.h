// keyevent.h - key event scripts: key tokens turned into `key` commands for
// the system shell, and the key-event test thread (menu key e).
#ifndef VX_SHELL_KEYEVENT_H
#define VX_SHELL_KEYEVENT_H

#include <cstddef>
#include <cstdint>

struct tKeyGroup {
    char keys[100];       // NUL-terminated key list, tokens separated by ","
    uint16_t keyDelayMs;  // pause after each key
    uint16_t stepDelayMs; // pause after the group
};
static_assert(sizeof(tKeyGroup) == 104, "a key group takes 104 bytes");

struct tPlayKeyEvent {
    int32_t repeat; // 0: one pass; other: passes until the flag is cleared
    int32_t count;  // groups in use, at most 20
    tKeyGroup groups[20];
    int32_t interval; // pause between passes
};

extern tPlayKeyEvent g_PlayKeyEvent;

// Room for the command text of one token: "key dss_" and up to 119
// characters of token, or any fixed text.
constexpr int kKeyTokenTextSize = 128;
// Room for the command text of one group in the key-event thread.
constexpr int kKeyGroupTextSize = 400;

// Writes the command text of one token to dst (dstSize bytes) as a
// NUL-terminated string, or leaves dst alone when the token is no key or its
// text would not fit.
void getKeyEventStr(char* dst, const char* token, size_t dstSize = kKeyTokenTextSize);

// Writes the command text of a whole key list to dst: "key 1; usleep 200000;
// key 4; usleep 200000" for "1,4" at 200 ms. `keys` is cut up in place;
// separators are merged as strtok merges them, but the split keeps no state
// between calls, so two threads may build texts at once. Returns the number
// of tokens; 0 for an empty list, and dst is then left alone.
//
// The text never runs past dstSize bytes. A token whose piece would not fit
// is left out with a log line, and so is every token behind it, so that the
// keys that remain are a prefix of the list, never a list with a gap. A
// token that is no key repeats the text of the token before it (the token
// buffer keeps it), and a first token that is no key gives an empty command.
// `leftOut`, when given, receives the number of tokens left out.
int getKeyEventString(char* dst, char* keys, uint16_t delayMs, int dstSize = kKeyGroupTextSize, int* leftOut = nullptr);

// 1 when the token is a key of the table, else 0.
int vxIsKeyToken(const char* token);

// Copies text into dst (size bytes, always terminated) for a log line: bytes
// outside printable ASCII, and the backslash, become "\xHH", so that text from
// the network can neither forge log lines nor drive a terminal.
const char* vxPrintable(char* dst, size_t size, const char* text);

// Fills `ev` with the built-in script of menu key e (g_szOppDevId, "1,4",
// three rows of digits, "s").
void vxBuiltinKeyScript(tPlayKeyEvent* ev);

void StartTestKeyEventThread();
void* TestKeyEventThread(void* arg);

#endif // VX_SHELL_KEYEVENT_H
