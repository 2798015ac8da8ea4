// The shell end to end: every case of shell.cases runs the built vxShell
// against the fake service and checks what it sent, printed, ran and wrote.
// The format is described at the top of shell.cases.
#include "vxtest.h"

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <regex>

namespace {

// A case's lines as directive and rest; the first, "//", holds its name.
struct Case : std::vector<std::pair<std::string, std::string>> {};
void PrintTo(const Case& c, std::ostream* os) { *os << c[0].second; }

// A case starts at its "run" line and is named by the comment above it.
std::vector<Case> loadCases()
{
    std::vector<Case> cases;
    std::ifstream in(VX_SOURCE_DIR "/tests/e2e/shell.cases");
    std::string title;
    for (std::string line; std::getline(in, line);) {
        const size_t blank = std::min(line.find(' '), line.size());
        if (line.rfind("// ", 0) == 0)
            title = line.substr(3);
        else if (line.rfind("run", 0) == 0)
            cases.emplace_back().emplace_back("//", title);
        if (!line.empty() && line.rfind("//", 0) != 0 && !cases.empty())
            cases.back().emplace_back(line.substr(0, blank), line.substr(std::min(blank + 1, line.size())));
    }
    return cases;
}

// Words separated by blanks; a '...' quote keeps its blanks (and its quotes).
std::vector<std::string> words(const std::string& s)
{
    static const std::regex word("([^ ']|'[^']*')+");
    return std::vector<std::string>(std::sregex_token_iterator(s.begin(), s.end(), word), {});
}

std::string unquote(const std::string& s) { return std::regex_replace(s, std::regex("'"), ""); }

std::string unescape(const std::string& s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        const char c = s[i] == '\\' && i + 1 < s.size() ? s[++i] : 0;
        out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c != 0 ? c : s[i];
    }
    return out;
}

// "reqNo[@FIELD]...": the request and the fields it names (as putFields
// reads them).
bool matches(const Datagram& d, const std::string& token)
{
    std::vector<uint8_t> same = d.bytes;
    return putFields(same, "0=" + token, '@') && same == d.bytes;
}

std::string reqNos(const std::vector<Datagram>& got)
{
    std::string s;
    for (const Datagram& d : got)
        s += std::to_string(d.reqNo()) + " ";
    return s;
}

class ShellCase : public ::testing::TestWithParam<Case> {};

} // namespace

TEST_P(ShellCase, Runs)
{
    TempDir t;
    Case lines = GetParam();
    for (auto& line : lines)
        line.second = std::regex_replace(line.second, std::regex("\\$T"), t.path);
    // The `key` and `usleep` stubs log their calls to /tmp/vx/stubcalls.log.
    std::vector<std::string> argv = {"vxShell"},
                             env = {"PATH=" VX_SOURCE_DIR "/tests/support/stubs:" + std::string(getenv("PATH"))};
    std::string svcMode;
    bool noStdin = false;
    for (const auto& [what, rest] : lines) {
        if (what == "run")
            for (const std::string& w : words(rest))
                argv.push_back(unescape(unquote(w)));
        else if (what == "env")
            env.push_back(rest);
        else if (what == "put")
            writeFile(words(rest)[0], unescape(rest.substr(rest.find(' ') + 1)));
        else if (what == "svc")
            svcMode = rest;
        noStdin = noStdin || what == "closed";
    }
    std::unique_ptr<FakeService> svc;
    if (svcMode == "none" || svcMode == "nodir") {
        cleanVxDir();
        // Without /tmp/vx/ no registration can make its socket.
        EXPECT_TRUE(svcMode == "none" || (rmdir("/tmp/vx/tx") == 0 && rmdir("/tmp/vx") == 0));
    } else {
        svc = std::make_unique<FakeService>(svcMode == "silent" ? FakeService::Silent : FakeService::Answer);
        if (svcMode.find('=') != std::string::npos)
            svc->setResult(std::stoi(svcMode), std::stoi(svcMode.substr(svcMode.find('=') + 1)));
    }
    Child shell(argv, env, noStdin);
    size_t mark = 0; // stdout up to here has been waited for
    bool signalled = false;
    for (const auto& [what, rest] : lines) {
        for (const std::string& k : what == "keys" ? words(rest) : std::vector<std::string>()) {
            if (k[0] == '+') {
                std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(k.substr(1))));
            } else if (k[0] == '~') {
                const size_t at = shell.waitOut(unquote(k.substr(1)), mark);
                EXPECT_NE(at, std::string::npos) << "no " << k << " in\n" << shell.out();
                mark = at == std::string::npos ? mark : at + 1;
            } else if (k[0] == '=') {
                EXPECT_TRUE(svc->waitFor(std::stoul(k.substr(1)), 10000)) << reqNos(svc->received());
            } else if (k[0] == '!') {
                signalled = true;
                shell.kill(k == "!INT" ? SIGINT : k == "!HUP" ? SIGHUP : k == "!QUIT" ? SIGQUIT : SIGTERM);
            } else if (k[0] == '@') { // to the relay listener, once it is bound
                EXPECT_TRUE(waitUntil(
                    [] { return readFile("/proc/net/udp").find(":D903 00000000:0000 07") != std::string::npos; },
                    10000))
                    << "no listener on UDP 55555";
                const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                const sockaddr_in to = {AF_INET, htons(55555), {htonl(INADDR_LOOPBACK)}, {}};
                const std::string d = relayDatagram(k);
                sendto(sock, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
                close(sock);
            } else {
                shell.write((k == "_" ? "" : unquote(k)) + "\n");
            }
        }
    }
    const Child::Result r = shell.wait(20000, !signalled);
    const std::string out = unstamped(r.out);
    size_t at = 0;
    for (const auto& [what, rest] : lines) {
        const std::string text = unescape(rest);
        if (what == "exit")
            EXPECT_EQ(r.status, std::stoi(rest)) << out << r.err;
        else if (what == "out")
            EXPECT_NE(at = out.find(text, at), std::string::npos) << "no '" << text << "' in order in\n" << out;
        else if (what == "no")
            EXPECT_EQ(out.find(text), std::string::npos) << out;
        else if (what == "err")
            EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
        else if (what == "calls") // the log holds a call a line
            EXPECT_EQ(readFile("/tmp/vx/stubcalls.log"),
                      std::regex_replace(text, std::regex("; "), "\n") + (text.empty() ? "" : "\n"));
        else if (what == "gone") { // no process runs with TEXT in its command line
            for (const auto& p : std::filesystem::directory_iterator("/proc")) {
                std::string cmdline = readFile(p.path().string() + "/cmdline");
                std::replace(cmdline.begin(), cmdline.end(), '\0', ' ');
                EXPECT_EQ(cmdline.find(text), std::string::npos) << p.path() << " still runs";
            }
        } else if (what == "file")
            EXPECT_EQ(readFile(words(rest)[0]), text.substr(text.find(' ') + 1));
        else if (what == "sent" || what == "has") {
            const std::vector<std::string> want = words(rest);
            svc->waitFor(want.size() + (what == "sent"), what == "sent" ? 100 : 2000);
            const auto got = svc->received();
            size_t i = 0;
            for (const Datagram& d : got)
                i += i < want.size() && matches(d, want[i]);
            EXPECT_EQ(i, want.size()) << "sent: " << reqNos(got) << "\nmissing: " << (i < want.size() ? want[i] : "");
            EXPECT_TRUE(what == "has" || got.size() == want.size()) << "sent: " << reqNos(got);
        }
    }
    if (!svc)
        cleanVxDir(); // makes /tmp/vx/ again
}

INSTANTIATE_TEST_SUITE_P(Shell, ShellCase, ::testing::ValuesIn(loadCases()), [](const auto& info) {
    return std::to_string(info.index) + "_" +
           std::regex_replace(info.param[0].second.substr(0, 60), std::regex("[^A-Za-z0-9]"), "_");
});
