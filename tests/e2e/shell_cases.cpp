// The shell end to end: every case of shell.cases runs the built vxShell
// against the fake service and checks what it sent, printed, ran and wrote.
// The format is described at the top of shell.cases.
#include "vxtest.h"

#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

struct Case {
    std::string name;
    std::vector<std::pair<std::string, std::string>> lines; // directive, rest
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

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
            cases.push_back({title, {}});
        if (!line.empty() && line.rfind("//", 0) != 0 && !cases.empty())
            cases.back().lines.emplace_back(line.substr(0, blank), line.substr(std::min(blank + 1, line.size())));
    }
    return cases;
}

// Words separated by blanks; a '...' quote keeps its blanks (and its quotes).
std::vector<std::string> words(const std::string& s)
{
    std::vector<std::string> w;
    bool quoted = false, fresh = true;
    for (char c : s) {
        quoted = quoted != (c == '\'');
        if (c == ' ' && !quoted)
            fresh = true;
        else if (std::exchange(fresh, false))
            w.emplace_back(1, c);
        else
            w.back() += c;
    }
    return w;
}

std::string unquote(std::string s)
{
    s.erase(std::remove(s.begin(), s.end(), '\''), s.end());
    return s;
}

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
    return d.reqNo() == std::stoi(token) &&
           putFields(same, token.substr(std::min(token.find('@'), token.size())), '@') && same == d.bytes;
}

std::string reqNos(const std::vector<Datagram>& got)
{
    std::string s;
    for (const Datagram& d : got)
        s += std::to_string(d.reqNo()) + " ";
    return s;
}

// Sends a relay datagram to the listener once it is bound.
void sendRelay(const std::string& spec)
{
    EXPECT_TRUE(
        waitUntil([] { return readFile("/proc/net/udp").find(":D903 00000000:0000 07") != std::string::npos; }, 10000))
        << "no listener on UDP 55555";
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in to = {AF_INET, htons(55555), {htonl(INADDR_LOOPBACK)}, {}};
    const std::string d = relayDatagram(spec);
    sendto(sock, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(sock);
}

class ShellCase : public ::testing::TestWithParam<Case> {};

} // namespace

TEST_P(ShellCase, Runs)
{
    TempDir t;
    auto subst = [&t](std::string s) {
        for (size_t p; (p = s.find("$T")) != std::string::npos;)
            s.replace(p, 2, t.path);
        return s;
    };
    std::vector<std::string> argv = {"vxShell"}, env = {stubPath()};
    std::string svcSpec;
    for (const auto& [what, rest] : GetParam().lines) {
        if (what == "run")
            for (const std::string& w : words(subst(rest)))
                argv.push_back(unescape(unquote(w)));
        else if (what == "env")
            env.push_back(subst(rest));
        else if (what == "put")
            writeFile(subst(words(rest)[0]), unescape(rest.substr(rest.find(' ') + 1)));
        else if (what == "svc")
            svcSpec = rest;
    }
    std::unique_ptr<FakeService> svc;
    if (svcSpec == "none" || svcSpec == "nodir") {
        cleanVxDir();
        // Without /tmp/vx/ no registration can make its socket.
        EXPECT_TRUE(svcSpec == "none" || (rmdir("/tmp/vx/tx") == 0 && rmdir("/tmp/vx") == 0));
    } else {
        svc = std::make_unique<FakeService>(svcSpec == "silent" ? FakeService::Silent : FakeService::Answer);
        if (svcSpec.find('=') != std::string::npos)
            svc->setResult(std::stoi(svcSpec), std::stoi(svcSpec.substr(svcSpec.find('=') + 1)));
    }
    const bool noStdin =
        std::count(GetParam().lines.begin(), GetParam().lines.end(), std::pair<std::string, std::string>("closed", ""));
    Child shell(argv, env, noStdin);
    size_t mark = 0; // stdout up to here has been waited for
    bool signalled = false;
    for (const auto& [what, rest] : GetParam().lines) {
        for (const std::string& k : what == "keys" ? words(subst(rest)) : std::vector<std::string>()) {
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
            } else if (k[0] == '@') {
                sendRelay(k);
            } else {
                shell.write((k == "_" ? "" : unquote(k)) + "\n");
            }
        }
    }
    const Child::Result r = shell.wait(20000, !signalled);
    const std::string out = unstamped(r.out);
    size_t at = 0;
    for (const auto& [what, rest] : GetParam().lines) {
        const std::string text = unescape(subst(rest));
        if (what == "exit")
            EXPECT_EQ(r.status, std::stoi(rest)) << out << r.err;
        else if (what == "out")
            EXPECT_NE(at = out.find(text, at), std::string::npos) << "no '" << text << "' in order in\n" << out;
        else if (what == "no")
            EXPECT_EQ(out.find(text), std::string::npos) << out;
        else if (what == "err")
            EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
        else if (what == "calls")
            EXPECT_EQ(stubCalls(), text);
        else if (what == "gone") { // no process runs with TEXT in its command line
            for (const auto& p : std::filesystem::directory_iterator("/proc")) {
                std::string cmdline = readFile(p.path().string() + "/cmdline");
                std::replace(cmdline.begin(), cmdline.end(), '\0', ' ');
                EXPECT_EQ(cmdline.find(text), std::string::npos) << p.path() << " still runs";
            }
        } else if (what == "file")
            EXPECT_EQ(readFile(subst(words(rest)[0])), unescape(rest.substr(rest.find(' ') + 1)));
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
    std::string name;
    for (char c : info.param.name)
        name += isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return std::to_string(info.index) + "_" + name.substr(0, 60);
});
