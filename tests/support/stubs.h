// stubs.h - the PATH stand-ins for the target's `key` and `usleep`
// (tests/support/stubs/), which log each call to a file under /tmp/vx/.
#ifndef VX_TEST_STUBS_H
#define VX_TEST_STUBS_H

#include <functional>
#include <string>
#include <vector>

// Directory of the stub scripts.
std::string stubDir();
// The file the stubs append to (removed by cleanVxDir).
std::string stubLogPath();
// "PATH=<stubs>:<current PATH>", for a Child's environment.
std::string stubPathEnv();
// Puts the stubs first on this process's PATH. Call before any thread
// starts (a static initialiser of the test file does).
bool installStubPath();
// The calls logged so far, one "key ..." or "usleep ..." per entry.
std::vector<std::string> stubCalls();

// Polls `cond` every few milliseconds until it holds or timeoutMs passed.
bool waitUntil(const std::function<bool()>& cond, int timeoutMs);

#endif // VX_TEST_STUBS_H
