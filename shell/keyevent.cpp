// Key event scripts.
#include "keyevent.h"

tPlayKeyEvent g_PlayKeyEvent;

void getKeyEventStr(char*, const char*) {}
int getKeyEventString(char*, char*, uint16_t, int) { return 0; }
void StartTestKeyEventThread() {}
void* TestKeyEventThread(void*) { return nullptr; }
