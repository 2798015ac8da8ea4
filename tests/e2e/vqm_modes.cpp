// The built shell in its one-request modes (-l, -d, -v) and with the VQMon
// menu key, against the in-process fake service: the requests in the order
// they leave, the shell's log lines and the exit status.
#include "fakeservice.h"
#include "proc.h"
#include "syslogcap.h"

#include <chrono>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// One request expected on the wire: its number and, for the words that
// matter, the payload at 120 and 124.
struct Req {
    int reqNo;
    int w120 = 0;
    int w124 = 0;
    bool checkWords = false;
};
Req plain(int n) { return Req{n}; }
Req with(int n, int a, int b = 0) { return Req{n, a, b, true}; }

constexpr int kRegist = 303, kUnregist = 304, kCreateChannel = 305, kAudioMode = 15, kVQMon = 311;

struct Case {
    const char* name;
    std::vector<std::string> args;
    std::string keys;
    std::vector<Req> wire;
    std::vector<std::string> shellLines; // lines of the shell starting ">>> "
    std::vector<std::string> alsoPrinted; // other stdout lines that must appear
};

// Test names and failure messages show the case by its name.
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class VqmModes : public ::testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        cleanVxDir();
        svc = std::make_unique<FakeService>();
        // Takes the child's syslog lines, so they go nowhere else.
        log = std::make_unique<SyslogCapture>();
    }
    void TearDown() override
    {
        svc.reset();
        log.reset();
        cleanVxDir();
    }
    std::unique_ptr<FakeService> svc;
    std::unique_ptr<SyslogCapture> log;
};

std::vector<std::string> linesStartingWith(const std::string& text, const std::string& prefix)
{
    std::vector<std::string> r;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(prefix, 0) == 0)
            r.push_back(line);
    return r;
}

const Case kCases[] = {
    {"LogLevel2", {"-l", "2"}, "", {plain(kRegist), plain(kCreateChannel), with(53, 2), plain(kUnregist)},
     {">>> SetLogLevel, logLevel:2."}, {}},
    {"LogLevel6SendsZero", {"-l", "6"}, "", {plain(kRegist), plain(kCreateChannel), with(53, 0), plain(kUnregist)},
     {">>> SetLogLevel, logLevel:0."}, {}},
    {"LogLevelBeforeCountry", {"-l", "2", "-d", "1"}, "",
     {plain(kRegist), plain(kCreateChannel), with(53, 2), plain(kUnregist)}, {">>> SetLogLevel, logLevel:2."}, {}},
    {"Country22", {"-d", "22"}, "", {plain(kRegist), plain(kCreateChannel), with(54, 22), plain(kUnregist)},
     {">>> SetCountry, CountryCode:22."}, {"setCountryCode["}},
    {"MosRequest", {"-v", "x"}, "", {plain(kRegist), plain(kCreateChannel), with(kVQMon, 100, 0), plain(kUnregist)},
     {}, {}},
    {"MosRequestWinsOverTone", {"-v", "x", "-t", "1"}, "",
     {plain(kRegist), plain(kCreateChannel), with(kVQMon, 100, 0), plain(kUnregist)}, {}, {}},
    {"KeysVVV", {"x"}, "v\nv\nv\nq\n",
     {plain(kRegist), plain(kCreateChannel), plain(kAudioMode), with(kVQMon, 1, 5), with(kVQMon, 0, 5),
      with(kVQMon, 1, 5), plain(kUnregist)},
     {">>> g_bVQMonEnable:1, so Start VQMon Request ...", ">>> g_bVQMonEnable:1, so Stop VQMon Request ...",
      ">>> g_bVQMonEnable:1, so Start VQMon Request ..."},
     {}},
    // u leaves the flag set, so the v after r stops the monitor.
    {"KeysVURV", {"x"}, "v\nu\nr\nv\nq\n",
     {plain(kRegist), plain(kCreateChannel), plain(kAudioMode), with(kVQMon, 1, 5), plain(kUnregist), plain(kRegist),
      plain(kCreateChannel), with(kVQMon, 0, 5), plain(kUnregist)},
     {">>> g_bVQMonEnable:1, so Start VQMon Request ...", ">>> g_bVQMonEnable:1, so Stop VQMon Request ..."}, {}},
    // A v without registration only clears the flag: the next v starts.
    {"KeysVUVRV", {"x"}, "v\nu\nv\nr\nv\nq\n",
     {plain(kRegist), plain(kCreateChannel), plain(kAudioMode), with(kVQMon, 1, 5), plain(kUnregist), plain(kRegist),
      plain(kCreateChannel), with(kVQMon, 1, 5), plain(kUnregist)},
     {">>> g_bVQMonEnable:1, so Start VQMon Request ...", ">>> g_bVQMonEnable:1, so Start VQMon Request ..."}, {}},
};

} // namespace

TEST_P(VqmModes, RequestsLogLinesAndExitStatus)
{
    const Case& c = GetParam();
    std::vector<std::string> argv = {binPath("vxShell")};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const ProcResult r = runProcess(argv, c.keys, 15000);
    ASSERT_TRUE(r.exited) << "timed out: " << r.timedOut << " signal: " << r.signal << "\n" << r.out;
    EXPECT_EQ(r.status, 0);

    svc->waitFor(c.wire.size(), 2000);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto got = svc->received();
    std::vector<int> nos, want;
    for (const auto& d : got)
        nos.push_back(d.reqNo());
    for (const auto& w : c.wire)
        want.push_back(w.reqNo);
    ASSERT_EQ(nos, want);
    for (size_t i = 0; i < c.wire.size(); ++i) {
        if (!c.wire[i].checkWords)
            continue;
        EXPECT_EQ(got[i].word(120), c.wire[i].w120) << "request " << i;
        if (c.wire[i].reqNo == kVQMon) {
            EXPECT_EQ(got[i].word(124), c.wire[i].w124) << "request " << i;
            EXPECT_EQ(got[i].size(), 1664u);
        }
    }

    const std::string out = stripTimestamps(r.out);
    EXPECT_EQ(linesStartingWith(out, ">>> "), c.shellLines) << out;
    for (const auto& text : c.alsoPrinted)
        EXPECT_FALSE(linesStartingWith(out, text).empty()) << text << "\n" << out;
}

INSTANTIATE_TEST_SUITE_P(Shell, VqmModes, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });
