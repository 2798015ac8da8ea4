// Relay mode of the built shell: datagrams sent over loopback to port 55555.
#include "fakeservice.h"
#include "proc.h"
#include "relay.h"
#include "stubs.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <unistd.h>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes head(unsigned char type, int32_t repeat, int32_t count)
{
    Bytes b(10, 0);
    b[1] = type;
    memcpy(b.data() + 2, &repeat, 4);
    memcpy(b.data() + 6, &count, 4);
    return b;
}

Bytes keyTone(const std::vector<std::pair<char, char>>& tones, int32_t repeat = 0)
{
    Bytes b = head(PLAY_KEYTONE, repeat, static_cast<int32_t>(tones.size()));
    for (const auto& t : tones) {
        b.push_back(static_cast<unsigned char>(t.first));
        b.push_back(static_cast<unsigned char>(t.second));
        b.push_back(0);
        b.push_back(0);
    }
    return b;
}

Bytes keyEvent(const std::vector<std::string>& lists)
{
    Bytes b = head(PLAY_KEYEVENT, 0, static_cast<int32_t>(lists.size()));
    for (const auto& keys : lists) {
        const size_t at = b.size();
        b.resize(at + 104, 0);
        memcpy(b.data() + at, keys.data(), std::min<size_t>(keys.size(), 99));
    }
    return b;
}

class RelayMode : public ::testing::Test {
protected:
    void SetUp() override
    {
        cleanVxDir();
        svc = std::make_unique<FakeService>();
        tx = Create_UDP_SOCK(nullptr, 0);
        ASSERT_GE(tx, 0);
    }
    void TearDown() override
    {
        if (tx >= 0)
            close(tx);
        svc.reset();
        cleanVxDir();
    }
    void send(const Bytes& b) { Send_UDP_SendTo(tx, b.data(), b.size(), 0, "127.0.0.1", 55555); }
    size_t plays()
    {
        size_t n = 0;
        for (const auto& d : svc->received())
            n += d.reqNo() == 3;
        return n;
    }
    // The listener binds after registration: repeat a tone until it plays.
    bool playUntilHeard(const Bytes& tone)
    {
        return waitUntil([&] {
            send(tone);
            const size_t before = plays();
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            return before > 0 || plays() > 0;
        }, 5000);
    }
    std::unique_ptr<FakeService> svc;
    int tx = -1;
};

} // namespace

TEST_F(RelayMode, TonesKeysUnknownTypesAndTheStopRequest)
{
    Child c({binPath("vxShell"), "-R"}, {stubPathEnv(), "VX_STUB_LOG=" + stubLogPath()});
    ASSERT_TRUE(playUntilHeard(keyTone({{'0', '3'}})));
    // Unknown and reserved types, a repeated tone list, then keys.
    send({0, 11, 1, 2, 3});
    send({0, 200});
    send(keyTone({{'9', '9'}}, 1));
    send(keyEvent({"1,4", "d;reboot", "s"}));
    ASSERT_TRUE(waitUntil([] { return stubCalls().size() >= 6; }, 3000));
    send({0, VX_REQ_SEND, 0xff, 0xff});
    const ProcResult res = c.wait(5000);
    ASSERT_TRUE(res.exited) << res.out;
    EXPECT_EQ(res.status, 0);
    const std::string out = stripTimestamps(res.out);
    EXPECT_NE(out.find(">>> vxReqReqHandler, Received PLAY_KEYTONE, repeat:1.\n"), std::string::npos) << out;
    EXPECT_NE(out.find(">>> ERR, vxReqReqHandler, PLAY_KEYEVENT group[1] <d;reboot> holds no valid key list, skipped.\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("Warnning !, Received VX_REQ_SEND, so Killed.\nvxRelayReqThread is killed.\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 0", "key 4", "usleep 0", "key spk", "usleep 0"}));
    // Every play is the first tone; the repeated list played nothing.
    for (const auto& d : svc->received()) {
        if (d.reqNo() == 3) {
            EXPECT_EQ(d.text(120, 128), "/sound/tone_0_3.wav");
        }
    }
    EXPECT_EQ(svc->received().back().reqNo(), 304) << "ends with the unregistration";
}

TEST_F(RelayMode, EmptyDatagramEndsTheListener)
{
    Child c({binPath("vxShell"), "-R"});
    ASSERT_TRUE(playUntilHeard(keyTone({{'1', '1'}})));
    // Short and lying datagrams first: none of them may end or stall it.
    send({0});
    send({0, PLAY_KEYEVENT, 0, 0});
    Bytes lying = head(PLAY_KEYTONE, 0, 0x7fffffff);
    send(lying);
    Bytes big(1500, 'x');
    big[1] = PLAY_KEYTONE;
    big[2] = big[3] = big[4] = big[5] = 0;
    send(big); // cut to 1023 bytes: 20 entries of "xx"
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& d : svc->received())
            if (d.text(120, 128) == "/sound/tone_x_x.wav")
                return true;
        return false;
    }, 3000));
    send({});
    const ProcResult res = c.wait(5000);
    ASSERT_TRUE(res.exited) << res.out;
    EXPECT_EQ(res.status, 0);
    const std::string out = stripTimestamps(res.out);
    EXPECT_NE(out.find("ERR, vxRelayReqThread, recvfrom failed, ["), std::string::npos) << out;
    EXPECT_NE(out.find("vxRelayReqThread is killed.\n"), std::string::npos) << out;
    size_t xx = 0;
    for (const auto& d : svc->received())
        xx += d.text(120, 128) == "/sound/tone_x_x.wav";
    EXPECT_EQ(xx, 20u);
}
