// The relay listener: the handler on crafted datagrams (short, long, lying
// counts, no terminators, unsafe key lists, every type), and the thread on
// a real UDP socket.
#include "keyevent.h"
#include "params.h"
#include "relay.h"
#include "shellthreads.h"
#include "stress.h"

#include <chrono>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const bool kStubsOnPath = installStubPath();

using Bytes = std::vector<unsigned char>;

void put32(Bytes& b, size_t off, int32_t v)
{
    if (b.size() < off + 4)
        b.resize(off + 4);
    memcpy(b.data() + off, &v, 4);
}

void put16(Bytes& b, size_t off, uint16_t v)
{
    if (b.size() < off + 2)
        b.resize(off + 2);
    memcpy(b.data() + off, &v, 2);
}

struct Group {
    std::string keys;
    uint16_t keyDelayMs;
    uint16_t stepDelayMs;
};

// A PLAY_KEYEVENT datagram; `count` may differ from the groups sent.
Bytes keyEvent(int32_t repeat, int32_t count, const std::vector<Group>& groups)
{
    Bytes b(10, 0);
    b[1] = PLAY_KEYEVENT;
    put32(b, 2, repeat);
    put32(b, 6, count);
    for (size_t i = 0; i < groups.size(); ++i) {
        const size_t at = 10 + 104 * i;
        b.resize(at + 104, 0);
        memcpy(b.data() + at, groups[i].keys.data(), std::min<size_t>(groups[i].keys.size(), 100));
        put16(b, at + 100, groups[i].keyDelayMs);
        put16(b, at + 102, groups[i].stepDelayMs);
    }
    return b;
}

// A PLAY_KEYTONE datagram of entries {type, index}.
Bytes keyTone(int32_t repeat, int32_t count, const std::vector<std::pair<char, char>>& tones)
{
    Bytes b(10, 0);
    b[1] = PLAY_KEYTONE;
    put32(b, 2, repeat);
    put32(b, 6, count);
    for (size_t i = 0; i < tones.size(); ++i) {
        b.push_back(static_cast<unsigned char>(tones[i].first));
        b.push_back(static_cast<unsigned char>(tones[i].second));
        b.push_back(0x34);
        b.push_back(0x12);
    }
    return b;
}

int handle(const Bytes& b) { return vxReqReqHandler(b.data(), static_cast<int>(b.size())); }

std::vector<std::pair<char, char>> tones(int n)
{
    std::vector<std::pair<char, char>> t;
    for (int i = 0; i < n; ++i)
        t.emplace_back('0' + i % 3, 'a' + i % 26);
    return t;
}

} // namespace

using RelayTest = ShellThreadsTest;

TEST_F(RelayTest, KeyToneEntriesArePlayedAsFiles)
{
    ASSERT_TRUE(kStubsOnPath);
    StdoutCapture out;
    EXPECT_EQ(handle(keyTone(0, 2, {{'0', '3'}, {'2', '9'}})), 1);
    const auto got = settle(2);
    ASSERT_EQ(got.size(), 2u);
    const char* paths[] = {"/sound/tone_0_3.wav", "/sound/tone_2_9.wav"};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(got[i].reqNo(), 3);
        EXPECT_EQ(got[i].channel(), ch);
        EXPECT_EQ(got[i].text(120, 128), paths[i]);
        const int row[] = {1, 1, 0, 0, 0, 0, 1};
        for (int w = 0; w < 7; ++w)
            EXPECT_EQ(got[i].word(248 + 4 * w), row[w]) << "word " << w;
    }
    EXPECT_EQ(out.end(), ">>> vxReqReqHandler, Received PLAY_KEYTONE, repeat:0.\n");
}

TEST_F(RelayTest, KeyToneCountsAreBoundedByFormatAndLength)
{
    const struct {
        const char* what;
        Bytes msg;
        size_t plays;
    } rows[] = {
        {"repeat 1: logged, nothing played", keyTone(1, 2, tones(2)), 0},
        {"count 0", keyTone(0, 0, tones(2)), 0},
        {"count -5", keyTone(0, -5, tones(2)), 0},
        {"count claims 5, two received", keyTone(0, 5, tones(2)), 2},
        {"count claims 25, twenty fit the format", keyTone(0, 25, tones(20)), 20},
        {"count 1000 with a full datagram", [] {
             Bytes b = keyTone(0, 1000, tones(20));
             b.resize(1023, 'x');
             return b;
         }(), 20},
        {"half an entry is not an entry", [] {
             Bytes b = keyTone(0, 2, tones(2));
             b.resize(b.size() - 1);
             return b;
         }(), 1},
        {"no count", [] {
             Bytes b = keyTone(0, 2, {});
             b.resize(8);
             return b;
         }(), 0},
    };
    for (const auto& r : rows) {
        clear();
        EXPECT_EQ(handle(r.msg), 1) << r.what;
        std::this_thread::sleep_for(std::chrono::milliseconds(r.plays == 0 ? 50 : 5));
        EXPECT_TRUE(svc->waitFor(r.plays, 2000)) << r.what;
        EXPECT_EQ(svc->received().size(), r.plays) << r.what;
    }
}

TEST_F(RelayTest, TypesOtherThanTheThreeDoNothing)
{
    StdoutCapture out;
    for (int type : {0, 1, 3, 11, 12, 20, 21, 22, 30, 31, 98, 100, 200, 255}) {
        Bytes b = keyTone(0, 2, tones(2)); // a body that would play if read as type 10
        b[1] = static_cast<unsigned char>(type);
        EXPECT_EQ(handle(b), 1) << type;
    }
    EXPECT_FALSE(svc->waitFor(1, 50));
    EXPECT_EQ(out.end(), "");
    EXPECT_TRUE(stubCalls().empty());
}

TEST_F(RelayTest, StopRequestAndDatagramsTooShortForAType)
{
    StdoutCapture out;
    Bytes stop = {0, VX_REQ_SEND};
    EXPECT_EQ(handle(stop), 0);
    stop.resize(1023, 0xff);
    EXPECT_EQ(handle(stop), 0);
    // One byte, or none: no type, so nothing (a 99 behind the received byte
    // is not part of the message).
    const unsigned char stale[] = {0, VX_REQ_SEND, 0};
    EXPECT_EQ(vxReqReqHandler(stale, 1), 1);
    EXPECT_EQ(vxReqReqHandler(stale, 0), 1);
    EXPECT_EQ(vxReqReqHandler(nullptr, 5), 1);
    // Type 2 without its head.
    const unsigned char shortEvent[] = {0, PLAY_KEYEVENT, 0, 0, 0, 0, 1, 0};
    EXPECT_EQ(vxReqReqHandler(shortEvent, sizeof shortEvent), 1);
    EXPECT_EQ(out.end(), "Warnning !, Received VX_REQ_SEND, so Killed.\n"
                         "Warnning !, Received VX_REQ_SEND, so Killed.\n"
                         ">>> ERR, vxReqReqHandler, PLAY_KEYEVENT of 8 bytes has no count, dropped.\n");
}

TEST_F(RelayTest, KeyEventGroupsRunInTheShell)
{
    EXPECT_EQ(handle(keyEvent(0, 2, {{"1,4", 200, 0}, {"s,d12_a-B", 0, 0}})), 1);
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 200000", "key 4", "usleep 200000", "key spk",
                                                     "usleep 0", "key dss_12_a-B", "usleep 0"}));
}

TEST_F(RelayTest, KeyEventGroupsThatAreNotPlainKeysAreSkipped)
{
    const std::string pwned = "/tmp/vx/pwned";
    const struct {
        const char* what;
        std::string keys;
    } bad[] = {
        {"command after a dss key", "1,d1;touch " + pwned},
        {"substitution in a dss key", "d$(touch " + pwned + ")"},
        {"backquotes", "d`touch " + pwned + "`"},
        {"blank in a dss key", "d1 2"},
        {"unknown token", "1,x,2"},
        {"upper case", "ME"},
        {"eleven keys fit, twelve do not", "1,2,3,4,5,6,7,8,9,0,*,#"},
    };
    for (const auto& b : bad) {
        StdoutCapture out;
        EXPECT_EQ(handle(keyEvent(0, 1, {{b.keys, 200, 0}})), 1) << b.what;
        EXPECT_NE(out.end().find(">>> ERR, vxReqReqHandler, PLAY_KEYEVENT group[0]"), std::string::npos) << b.what;
    }
    struct stat st;
    EXPECT_NE(stat(pwned.c_str(), &st), 0) << "network text reached the shell";
    EXPECT_TRUE(stubCalls().empty());
    // A bad group does not keep the good ones from running.
    EXPECT_EQ(handle(keyEvent(0, 3, {{"d;reboot", 0, 0}, {"1,2,3,4,5,6,7,8,9,0,*", 200, 0}, {"#", 0, 0}})), 1);
    const auto calls = stubCalls();
    ASSERT_EQ(calls.size(), 24u);
    EXPECT_EQ(calls.front(), "key 1");
    EXPECT_EQ(calls[20], "key *");
    EXPECT_EQ(calls[22], "key #");
}

TEST_F(RelayTest, KeyListWithoutTerminatorIsItsHundredBytes)
{
    // 'd' and 99 letters fill the field; the delays behind it are letters
    // too and must not be read as part of the list.
    Bytes b = keyEvent(0, 1, {{"d" + std::string(99, 'a'), 0, 0}});
    put16(b, 110, 0x6262); // "bb"
    put16(b, 112, 0x6363); // "cc"
    EXPECT_EQ(handle(b), 1);
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key dss_" + std::string(99, 'a'), "usleep 25186000"}));
}

TEST_F(RelayTest, KeyEventCountsAndPauses)
{
    // count claims 9, one group received: that group alone, and no pause.
    StdoutCapture out;
    const long shortMs = [&] {
        const auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(handle(keyEvent(0, 9, {{"1", 0, 5000}})), 1);
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    }();
    EXPECT_LT(shortMs, 2000) << "no pause after the last group";
    EXPECT_EQ(out.end(), ">>> ERR, vxReqReqHandler, PLAY_KEYEVENT count:9, but only 1 received, so 1 are handled.\n");
    EXPECT_EQ(stubCalls().size(), 2u);
    // Repeat, zero and negative counts: nothing.
    for (const Bytes& b : {keyEvent(1, 1, {{"1", 0, 0}}), keyEvent(0, 0, {{"1", 0, 0}}),
                           keyEvent(0, -3, {{"1", 0, 0}})})
        EXPECT_EQ(handle(b), 1);
    EXPECT_EQ(stubCalls().size(), 2u);
    // The pause between two groups is kept; an empty group runs nothing.
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(handle(keyEvent(0, 2, {{",,", 0, 300}, {"2", 0, 60000}})), 1);
    const long ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_GE(ms, 290);
    EXPECT_LT(ms, 3000);
    EXPECT_EQ(stubCalls(), (std::vector<std::string>{"key 1", "usleep 0", "key 2", "usleep 0"}));
}

TEST(RelaySafety, KeyLists)
{
    for (const char* ok : {"", ",,", "1,4", "d", "d12_ab-C", "s,sm,vd,vu,ho,mu,he,r,c,t,b,me", "1xyz;rm", "s3$(x)"})
        EXPECT_EQ(vxRelayKeysAreSafe(ok), 1) << ok;
    for (const char* bad : {"d;x", "d|x", "d x", "d.", "x", "1,,q", "vd2"})
        EXPECT_EQ(vxRelayKeysAreSafe(bad), 0) << bad;
    // Only the first characters of digit and soft keys reach the command, so
    // the rest of such a token is harmless.
    char text[256] = {};
    char keys[] = "1xyz;rm,s3$(x)";
    getKeyEventString(text, keys, 0, sizeof text);
    EXPECT_STREQ(text, "key 1; usleep 0; key soft_3; usleep 0");
    EXPECT_EQ(vxRelayKeysAreSafe(std::string(101, '1').c_str()), 0) << "longer than a key field";
}

TEST(RelaySocket, CreateBindAndSend)
{
    const int a = Create_UDP_SOCK("127.0.0.1", 55599);
    ASSERT_GE(a, 0);
    EXPECT_EQ(Create_UDP_SOCK("127.0.0.1", 55599), -2) << "a second bind of the same port fails";
    EXPECT_EQ(Create_UDP_SOCK("127.0.0.1", 55599 + 65536), -2) << "only the low 16 bits of the port count";
    const int b = Create_UDP_SOCK(nullptr, 0);
    ASSERT_GE(b, 0);
    EXPECT_EQ(Send_UDP_SendTo(b, "hello", 5, 0x7fff, "127.0.0.1", 55599), 5);
    char buf[16] = {};
    EXPECT_EQ(recv(a, buf, sizeof buf, 0), 5);
    EXPECT_STREQ(buf, "hello");
    EXPECT_EQ(Send_UDP_SendTo(b, "x", 1, 0, "not an address", 55599), -1);
    EXPECT_EQ(Send_UDP_SendTo(b, "x", 1, 0, nullptr, 55599), -1);
    close(a);
    close(b);
}

TEST_F(RelayTest, ThreadEndsWhenUnregisteredOrWithoutItsPort)
{
    const int tx = Create_UDP_SOCK(nullptr, 0);
    ASSERT_GE(tx, 0);
    {
        // A socket below 1 ends the loop after the next datagram.
        g_vx_RelayThId = 1;
        ASSERT_EQ(myThreadCreate(vxRelayReqThread, nullptr), 1);
        g_regi_sock = 0;
        const Bytes ignored = {0, 11};
        ASSERT_TRUE(waitUntil([&] {
            Send_UDP_SendTo(tx, ignored.data(), ignored.size(), 0, "127.0.0.1", 55555);
            return g_vx_RelayThId == 0;
        }, 3000));
    }
    {
        // The port taken: the thread ends at once with its error line.
        const int taken = Create_UDP_SOCK(g_sShellIp, g_ShellPort);
        ASSERT_GE(taken, 0);
        g_vx_RelayThId = 1;
        StdoutCapture out;
        ASSERT_EQ(myThreadCreate(vxRelayReqThread, nullptr), 1);
        ASSERT_TRUE(waitUntil([] { return g_vx_RelayThId == 0; }, 3000));
        EXPECT_EQ(out.end(), "ERR, vxRelayReqThread, Failed to create socket with ip:0.0.0.0, port:55555.\n");
        close(taken);
    }
    close(tx);
}
