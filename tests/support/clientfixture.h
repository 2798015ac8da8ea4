// clientfixture.h - the common ground of the client-library unit tests: a
// fake service, a syslog capture and a registered socket.
#ifndef VX_TEST_CLIENTFIXTURE_H
#define VX_TEST_CLIENTFIXTURE_H

#include "fakeservice.h"
#include "syslogcap.h"
#include "vxclient.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// True when `text` is "<cond>(<fn>:<line>)\n" for some line number: the
// library's log line of a failed check or send.
bool isCheckLine(const std::string& text, const std::string& cond, const std::string& fn);

class ClientTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The single datagram that the last operation sent (fails the test
    // unless exactly one arrived since the last clear()).
    Datagram only();
    // Texts logged at LOG_INFO since the last clear().
    std::vector<std::string> infoLines();
    // Forgets what was received and logged so far.
    void clear();
    // Waits until n datagrams arrived; then nothing more for a short while.
    std::vector<Datagram> settle(size_t n);

    std::unique_ptr<FakeService> svc;
    std::unique_ptr<SyslogCapture> log;
    int sock = -1;
    const int ch = 3;
};

#endif // VX_TEST_CLIENTFIXTURE_H
