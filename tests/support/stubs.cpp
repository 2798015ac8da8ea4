#include "stubs.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

std::string stubDir() { return std::string(VX_SOURCE_DIR) + "/tests/support/stubs"; }

std::string stubLogPath() { return "/tmp/vx/stubcalls.log"; }

std::string stubPathEnv()
{
    const char* path = getenv("PATH");
    return "PATH=" + stubDir() + ":" + (path != nullptr ? path : "/usr/bin:/bin");
}

bool installStubPath()
{
    const char* path = getenv("PATH");
    if (path != nullptr && std::string(path).rfind(stubDir() + ":", 0) == 0)
        return true;
    const std::string entry = stubPathEnv();
    setenv("PATH", entry.substr(5).c_str(), 1);
    setenv("VX_STUB_LOG", stubLogPath().c_str(), 1);
    return true;
}

std::vector<std::string> stubCalls()
{
    std::vector<std::string> calls;
    std::ifstream in(stubLogPath());
    std::string line;
    while (std::getline(in, line))
        calls.push_back(line);
    return calls;
}

bool waitUntil(const std::function<bool()>& cond, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (cond())
            return true;
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}
