// shellthreads.h - fixture for tests of the shell's commands and threads:
// the client fixture's fake service and registered socket, installed as the
// shell's registration, with every run parameter at its default.
#ifndef VX_TEST_SHELLTHREADS_H
#define VX_TEST_SHELLTHREADS_H

#include "clientfixture.h"
#include "stubs.h"

#include <string>
#include <vector>

class ShellThreadsTest : public ClientTest {
protected:
    void SetUp() override;
    // Stops every test thread and waits (bounded) until all have returned,
    // so that none outlives the fake service and the socket.
    void TearDown() override;

    // True once no test thread is left (bounded wait).
    static bool threadsEnded(int timeoutMs);
    // The datagrams received so far with the given reqNo.
    std::vector<Datagram> withReqNo(int reqNo);
};

// Captures what the process prints on stdout between begin() and end(),
// timestamps stripped.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();
    std::string end();

private:
    bool active_ = false;
};

#endif // VX_TEST_SHELLTHREADS_H
