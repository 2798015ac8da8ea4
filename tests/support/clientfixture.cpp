#include "clientfixture.h"

#include <chrono>
#include <regex>
#include <syslog.h>
#include <thread>
#include <unistd.h>

bool isCheckLine(const std::string& text, const std::string& cond, const std::string& fn)
{
    const std::string prefix = cond + "(" + fn + ":";
    if (text.compare(0, prefix.size(), prefix) != 0)
        return false;
    static const std::regex tail(R"(\d+\)\n)");
    return std::regex_match(text.substr(prefix.size()), tail);
}

void ClientTest::SetUp()
{
    cleanVxDir();
    svc = std::make_unique<FakeService>();
    log = std::make_unique<SyslogCapture>();
    sock = registApplication("test", 0, -1, "127.0.0.1");
    ASSERT_GE(sock, 0);
    ASSERT_TRUE(svc->waitFor(1));
    clear();
}

void ClientTest::TearDown()
{
    if (sock >= 0)
        close(sock);
    svc.reset();
    log.reset();
    cleanVxDir();
}

void ClientTest::clear()
{
    svc->clear();
    log->clear();
}

Datagram ClientTest::only()
{
    auto got = settle(1);
    EXPECT_EQ(got.size(), 1u);
    return got.empty() ? Datagram{} : got.back();
}

std::vector<Datagram> ClientTest::settle(size_t n)
{
    svc->waitFor(n, 2000);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return svc->received();
}

std::vector<std::string> ClientTest::infoLines()
{
    std::vector<std::string> r;
    for (const auto& l : log->lines())
        if (l.level() == LOG_INFO)
            r.push_back(l.text);
    return r;
}
