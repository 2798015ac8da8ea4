// session_run.h - the built shell against the in-process fake service, fed
// key lines one at a time, with the requests it sent in the order they came.
#ifndef VX_E2E_SESSION_RUN_H
#define VX_E2E_SESSION_RUN_H

#include "fakeservice.h"
#include "proc.h"
#include "recordcheck.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

// Clears /tmp/vx/ before the service binds and after everything is gone.
struct VxDirGuard {
    VxDirGuard() { cleanVxDir(); }
    ~VxDirGuard() { cleanVxDir(); }
};

// A request the shell must have sent: its number and the words and texts
// that the sequence fixes. Other bytes belong to the request tests.
struct Req {
    int32_t reqNo;
    std::vector<Word> words = {};
    std::vector<Text> texts = {};
};

// Requests the shell sends before the menu waits for the first key:
// registration, channel, audio mode.
constexpr size_t kStartup = 3;

class ShellRun {
public:
    explicit ShellRun(const std::vector<std::string>& args, FakeService::Policy policy = FakeService::Policy::Answer,
                      int delayMs = 0)
        : svc(policy, delayMs)
    {
        std::vector<std::string> argv = {binPath("vxShell")};
        argv.insert(argv.end(), args.begin(), args.end());
        child = std::make_unique<Child>(argv);
    }

    // Waits until `total` requests have arrived in all.
    // Generous: under an emulator on a loaded machine the shell starts slowly.
    ::testing::AssertionResult waitFor(size_t total, int timeoutMs = 15000)
    {
        if (svc.waitFor(total, timeoutMs))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "waited for " << total << " requests, got " << dump(svc.received());
    }

    // Sends one key line and waits until `total` requests have arrived.
    ::testing::AssertionResult key(const std::string& k, size_t total)
    {
        child->write(k + "\n");
        return waitFor(total);
    }

    std::vector<Datagram> sent() { return svc.received(); }

    static std::string dump(const std::vector<Datagram>& d)
    {
        std::ostringstream o;
        o << "[";
        for (size_t i = 0; i < d.size(); ++i)
            o << (i ? " " : "") << d[i].reqNo();
        o << "]";
        return o.str();
    }

    // Asserts that the requests from index `from` on are exactly `want`, in
    // order, each on `channel`, with the words and texts each names.
    static void expectSequence(const std::vector<Datagram>& got, size_t from, const std::vector<Req>& want,
                               int32_t channel = 1)
    {
        ASSERT_GE(got.size(), from);
        ASSERT_EQ(got.size() - from, want.size()) << dump(got);
        for (size_t i = 0; i < want.size(); ++i) {
            const Datagram& d = got[from + i];
            const Req& r = want[i];
            SCOPED_TRACE("request " + std::to_string(from + i) + " of " + dump(got));
            ASSERT_EQ(d.reqNo(), r.reqNo);
            if (r.reqNo != 303 && r.reqNo != 304 && r.reqNo != 305) {
                EXPECT_EQ(d.channel(), channel);
            }
            for (const Word& w : r.words)
                EXPECT_EQ(d.word(w.offset), w.value) << "reqNo " << r.reqNo << " word at " << w.offset;
            for (const Text& t : r.texts)
                EXPECT_EQ(d.text(t.offset, t.width), t.text) << "reqNo " << r.reqNo << " text at " << t.offset;
        }
    }

    VxDirGuard guard;
    FakeService svc;
    std::unique_ptr<Child> child;
};

#endif // VX_E2E_SESSION_RUN_H
