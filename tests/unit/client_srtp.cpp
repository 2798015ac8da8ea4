// SRTP requests: the 220-byte record of the eight operations, the checks of
// cipher, authentication and key length, and the key copy.
#include "clientfixture.h"
#include "recordcheck.h"

#include <climits>
#include <functional>
#include <numeric>
#include <regex>
#include <syslog.h>

namespace {

using Call = std::function<int(int sock, int channel)>;

// Key material on the heap, exactly as long as the length handed over, so
// that a read beyond it shows under the address sanitizer.
std::vector<uint8_t> keyOf(size_t n)
{
    std::vector<uint8_t> k(n);
    std::iota(k.begin(), k.end(), static_cast<uint8_t>(0x41));
    return k;
}

// The 64 key bytes of the record: the given bytes, zeros behind them.
std::vector<uint8_t> keyField(const std::vector<uint8_t>& k)
{
    std::vector<uint8_t> f(64, 0);
    std::copy(k.begin(), k.end(), f.begin());
    return f;
}

const std::vector<uint8_t> kKey30 = keyOf(30);
const std::vector<uint8_t> kKey64 = keyOf(64);
const std::vector<uint8_t> kKey16 = keyOf(16);

struct SendRow {
    const char* name;
    Call call;
    Expect expect;
};

// Words 136, 144 and 148 are sent as 0 by an enable; 152 is never written;
// a disable writes only the two flags and, for audio, audioParam.
const std::vector<SendRow>& sendRows()
{
    static const std::vector<SendRow> rows = {
        {"enableAudioRxSRTP key 30",
         [](int s, int c) { return enableAudioRxSRTP(s, c, AES_128_ICM, HMAC_SHA1, kKey30.data(), 30, -1); },
         {26, 220, {{120, 1}, {124, 1}, {128, -1}, {132, 1}, {136, 0}, {140, 3}, {144, 0}, {148, 0}}, {}, {{156, keyField(kKey30)}}}},
        {"enableAudioTxSRTP key 64",
         [](int s, int c) { return enableAudioTxSRTP(s, c, ARIA_196_ICM, NULL_AUTH, kKey64.data(), 64, 7); },
         {27, 220, {{120, 1}, {124, 1}, {128, 7}, {132, 4}, {136, 0}, {140, 0}, {144, 0}, {148, 0}}, {}, {{156, kKey64}}}},
        {"enableVideoRxSRTP",
         [](int s, int c) { return enableVideoRxSRTP(s, c, ARIA_128_ICM, HMAC_SHA1, kKey16.data(), 16); },
         {120, 220, {{120, 1}, {124, 0}, {132, 5}, {136, 0}, {140, 3}, {144, 0}, {148, 0}}, {}, {{156, keyField(kKey16)}}}},
        // NULL_CIPHER, NULL_AUTH and no key is a valid request; the key
        // pointer is not read at all.
        {"enableVideoTxSRTP no key",
         [](int s, int c) { return enableVideoTxSRTP(s, c, NULL_CIPHER, NULL_AUTH, nullptr, 0); },
         {121, 220, {{120, 1}, {124, 0}, {132, 0}, {136, 0}, {140, 0}, {144, 0}, {148, 0}}, {}, {{156, std::vector<uint8_t>(64, 0)}}}},
        {"disableAudioRxSRTP", [](int s, int c) { return disableAudioRxSRTP(s, c, -1); }, {26, 220, {{120, 0}, {124, 1}, {128, -1}}, {}, {}}},
        {"disableAudioTxSRTP", [](int s, int c) { return disableAudioTxSRTP(s, c, 5); }, {27, 220, {{120, 0}, {124, 1}, {128, 5}}, {}, {}}},
        {"disableVideoRxSRTP", [](int s, int c) { return disableVideoRxSRTP(s, c); }, {120, 220, {{120, 0}, {124, 0}}, {}, {}}},
        {"disableVideoTxSRTP", [](int s, int c) { return disableVideoTxSRTP(s, c); }, {121, 220, {{120, 0}, {124, 0}}, {}, {}}},
    };
    return rows;
}

const char kCipher[] =
    "(cipher_type==NULL_CIPHER||cipher_type==AES_128_ICM||cipher_type==ARIA_196_ICM||cipher_type==ARIA_128_ICM)";
const char kAuth[] = "(auth_type==NULL_AUTH||auth_type==HMAC_SHA1)";
const char kKeyLen[] = "keyLen<=sizeof(req.srtp.key)";

// The four enable operations behind one signature.
using Enable = std::function<int(int sock, int channel, int cipher, int auth, const void* key, int keyLen)>;
const std::vector<std::pair<const char*, Enable>>& enables()
{
    static const std::vector<std::pair<const char*, Enable>> ops = {
        {"enableAudioRxSRTP", [](int s, int c, int ci, int a, const void* k, int n) { return enableAudioRxSRTP(s, c, ci, a, k, n, -1); }},
        {"enableAudioTxSRTP", [](int s, int c, int ci, int a, const void* k, int n) { return enableAudioTxSRTP(s, c, ci, a, k, n, -1); }},
        {"enableVideoRxSRTP", [](int s, int c, int ci, int a, const void* k, int n) { return enableVideoRxSRTP(s, c, ci, a, k, n); }},
        {"enableVideoTxSRTP", [](int s, int c, int ci, int a, const void* k, int n) { return enableVideoTxSRTP(s, c, ci, a, k, n); }},
    };
    return ops;
}

} // namespace

TEST_F(ClientTest, SrtpRecordsAsSent)
{
    for (const auto& row : sendRows()) {
        SCOPED_TRACE(row.name);
        clear();
        EXPECT_EQ(row.call(sock, ch), VERY_OK);
        expectRecord(only(), ch, row.expect);
    }
}

TEST_F(ClientTest, SrtpChecksInTheirOrder)
{
    REQUIRE_SYSLOG(*log);
    const auto key = keyOf(16);
    struct Case {
        int cipher, auth, keyLen;
        bool nullKey;
        int result;
        const char* cond; // the one line logged
    };
    const Case cases[] = {
        {2, 0, 16, false, -16, kCipher},
        {3, 0, 16, false, -16, kCipher},
        {6, 3, 16, false, -16, kCipher},
        {-1, 3, 16, false, -16, kCipher},
        {1, 1, 16, false, -16, kAuth},
        {1, 2, 16, false, -16, kAuth},
        {4, 4, 16, false, -16, kAuth},
        {5, -3, 16, false, -16, kAuth},
        // A key that is too long counts 0, not -16; negative is too long.
        {1, 3, 65, false, 0, kKeyLen},
        {1, 3, -1, false, 0, kKeyLen},
        {0, 0, INT_MIN, false, 0, kKeyLen},
        // The first failure hides the later ones.
        {2, 1, 65, false, -16, kCipher},
        {1, 1, 65, false, -16, kAuth},
        // A missing key with a length to copy is refused, not read.
        {1, 3, 16, true, -16, "(key!=NULL||keyLen==0)"},
    };
    for (const auto& op : enables()) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(op.first) + " cipher " + std::to_string(c.cipher) + " auth " + std::to_string(c.auth) +
                         " keyLen " + std::to_string(c.keyLen));
            clear();
            EXPECT_EQ(op.second(sock, ch, c.cipher, c.auth, c.nullKey ? nullptr : key.data(), c.keyLen), c.result);
            EXPECT_TRUE(settle(0).empty()) << "nothing may be sent";
            expectLines(infoLines(), {{c.cond, op.first}});
        }
    }
}

TEST_F(ClientTest, SrtpAcceptsEveryValidCipherAndAuthPair)
{
    for (const auto& op : enables()) {
        for (int cipher : {NULL_CIPHER, AES_128_ICM, ARIA_196_ICM, ARIA_128_ICM}) {
            for (int auth : {NULL_AUTH, HMAC_SHA1}) {
                SCOPED_TRACE(std::string(op.first) + " " + std::to_string(cipher) + "/" + std::to_string(auth));
                clear();
                EXPECT_EQ(op.second(sock, ch, cipher, auth, kKey64.data(), 64), VERY_OK);
                const Datagram d = only();
                EXPECT_EQ(d.word(132), cipher);
                EXPECT_EQ(d.word(140), auth);
                EXPECT_EQ(d.raw(156, 64), kKey64);
            }
        }
    }
}

TEST_F(ClientTest, VideoSrtpNumbersHaveNoKindRowAndStillSucceed)
{
    REQUIRE_SYSLOG(*log);
    const std::vector<std::pair<int, Call>> ops = {
        {120, [](int s, int c) { return enableVideoRxSRTP(s, c, AES_128_ICM, HMAC_SHA1, kKey30.data(), 30); }},
        {121, [](int s, int c) { return enableVideoTxSRTP(s, c, AES_128_ICM, HMAC_SHA1, kKey30.data(), 30); }},
        {120, [](int s, int c) { return disableVideoRxSRTP(s, c); }},
        {121, [](int s, int c) { return disableVideoTxSRTP(s, c); }},
    };
    for (const auto& op : ops) {
        clear();
        EXPECT_EQ(op.second(sock, ch), VERY_OK);
        EXPECT_EQ(only().reqNo(), op.first);
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level(), LOG_CRIT);
        EXPECT_TRUE(std::regex_match(lines[0].text, std::regex("error in needResponse:[0-9]+\\(" + std::to_string(op.first) + "\\)\n")))
            << lines[0].text;
    }
}

TEST_F(ClientTest, SrtpTransportFailureLogsTheCallTextButNeverTheKey)
{
    REQUIRE_SYSLOG(*log);
    const std::string secret = "SECRETKEYSECRETKEYSECRETKEY";
    const std::vector<std::pair<const char*, Call>> ops = {
        {"enableAudioRxSRTP", [&](int s, int c) { return enableAudioRxSRTP(s, c, 1, 3, secret.data(), 27, -1); }},
        {"enableAudioTxSRTP", [&](int s, int c) { return enableAudioTxSRTP(s, c, 1, 3, secret.data(), 27, -1); }},
        {"enableVideoRxSRTP", [&](int s, int c) { return enableVideoRxSRTP(s, c, 1, 3, secret.data(), 27); }},
        {"enableVideoTxSRTP", [&](int s, int c) { return enableVideoTxSRTP(s, c, 1, 3, secret.data(), 27); }},
        {"disableAudioRxSRTP", [](int s, int c) { return disableAudioRxSRTP(s, c, -1); }},
        {"disableAudioTxSRTP", [](int s, int c) { return disableAudioTxSRTP(s, c, -1); }},
        {"disableVideoRxSRTP", [](int s, int c) { return disableVideoRxSRTP(s, c); }},
        {"disableVideoTxSRTP", [](int s, int c) { return disableVideoTxSRTP(s, c); }},
    };
    for (const auto& op : ops) {
        SCOPED_TRACE(op.first);
        clear();
        EXPECT_EQ(op.second(-1, ch), VX_ERR_RESOURCE);
        const auto t = infoLines();
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NE(t[0].find("improper socket:-1"), std::string::npos) << t[0];
        EXPECT_TRUE(isCheckLine(t[1], "Send2VoxalisByApp(sock,&req,sizeof(req),&resp)==VERY_OK", op.first)) << t[1];
        for (const auto& line : log->texts())
            EXPECT_EQ(line.find("SECRET"), std::string::npos) << line;
    }
}
