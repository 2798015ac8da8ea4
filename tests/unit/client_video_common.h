// client_video_common.h - table runners shared by the video request tests:
// one row per operation (what leaves, what is printed, how it fails) and one
// row per refusal (what is logged; nothing leaves).
#ifndef VX_TEST_CLIENT_VIDEO_COMMON_H
#define VX_TEST_CLIENT_VIDEO_COMMON_H

#include "clientfixture.h"
#include "request.h"

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <regex>
#include <string>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

// One operation and overload: the record it sends and how it fails.
struct SendRow {
    const char* name;
    std::function<int()> call;
    int reqNo;
    size_t len;
    std::vector<std::pair<size_t, int32_t>> words; // payload words at offsets
    std::string trace;                             // exact stdout, "" for none
    const char* failText;                          // strict form's send text; null: silent
    const char* fn;                                // name in the failure line
    int channel = 3;
};

// One refused call: its result is -16, it logs these {condition, function}
// lines in order, prints `trace` and sends nothing.
struct RefusalRow {
    const char* name;
    std::function<int()> call;
    std::vector<std::pair<std::string, std::string>> lines;
    std::string trace;
};

class VideoTest : public ClientTest {
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        // A pid file that is not ours: the transport's check of who owns the
        // log then prints nothing, so stdout holds the traces alone.
        const int fd = open(VX_PID_FILE, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, "0\n", 2), 2);
        close(fd);
    }

    // Runs call with stdout captured; returns its result, stores the output.
    int captured(const std::function<int()>& call, std::string* out)
    {
        fflush(stdout);
        testing::internal::CaptureStdout();
        const int r = call();
        fflush(stdout);
        *out = testing::internal::GetCapturedStdout();
        return r;
    }

    // Proves that nothing left before this point: a marker request (15,
    // which waits for nothing and logs nothing) must be the only datagram,
    // and datagrams from one socket arrive in order.
    void expectNothingSent()
    {
        tReqHead marker{};
        marker.hdr.reqNo = 15;
        ASSERT_EQ(Send2VoxalisByApp(sock, &marker, sizeof marker, nullptr), 1);
        EXPECT_EQ(only().reqNo(), 15) << "a refused call sent a record";
    }

    static bool isRowlessLine(const LogLine& l, int reqNo)
    {
        static const std::regex re(R"(error in needResponse:\d+\((-?\d+)\)\n)");
        std::smatch m;
        return l.level() == LOG_CRIT && l.ident == "MLIB" && std::regex_match(l.text, m, re) &&
               m[1] == std::to_string(reqNo);
    }

    // Service up: result 1, the trace, one record with its words, and the
    // transport's LOG_CRIT line about the number without a row.
    void expectSent(const SendRow& r)
    {
        SCOPED_TRACE(r.name);
        clear();
        std::string out;
        EXPECT_EQ(captured(r.call, &out), VERY_OK);
        EXPECT_EQ(out, r.trace);
        const Datagram d = only();
        EXPECT_EQ(d.reqNo(), r.reqNo);
        EXPECT_EQ(d.size(), r.len);
        EXPECT_EQ(d.channel(), r.channel);
        for (const auto& w : r.words)
            EXPECT_EQ(d.word(w.first), w.second) << "word at " << w.first;
        if (log->ok()) {
            const auto lines = log->lines();
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_TRUE(isRowlessLine(lines[0], r.reqNo)) << lines[0].text;
        }
    }

    // Service down: the strict form gives -7 and logs its send text after
    // the transport's line; the silent form gives -1 and adds nothing.
    void expectFailure(const SendRow& r)
    {
        SCOPED_TRACE(r.name);
        log->clear();
        std::string out;
        EXPECT_EQ(captured(r.call, &out), r.failText ? VX_ERR_RESOURCE : -1);
        EXPECT_EQ(out, r.trace) << "the trace does not depend on the send";
        if (!log->ok())
            return;
        const auto t = infoLines();
        ASSERT_EQ(t.size(), r.failText ? 2u : 1u);
        EXPECT_NE(t[0].find(" No such file or directory\n(Send2VoxalisByApp:"), std::string::npos) << t[0];
        if (r.failText) {
            EXPECT_TRUE(isCheckLine(t[1], std::string(r.failText) + "==VERY_OK", r.fn)) << t[1];
        }
    }

    void expectRefused(const RefusalRow& r)
    {
        SCOPED_TRACE(r.name);
        clear();
        std::string out;
        EXPECT_EQ(captured(r.call, &out), VX_ERR_ARGUMENT);
        EXPECT_EQ(out, r.trace);
        const auto lines = log->lines();
        ASSERT_EQ(lines.size(), r.lines.size()) << "and no LOG_CRIT line: nothing was sent";
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].level(), LOG_INFO);
            EXPECT_TRUE(isCheckLine(lines[i].text, r.lines[i].first, r.lines[i].second)) << lines[i].text;
        }
        expectNothingSent();
    }

    // Runs every row with the service up, then takes the service's socket
    // away and runs them again.
    void runSendTable(const std::vector<SendRow>& rows)
    {
        for (const auto& r : rows)
            expectSent(r);
        unlink(VX_SERVICE_SOCK);
        for (const auto& r : rows)
            expectFailure(r);
    }
};

// A text of n characters that no check accepts as an address.
inline std::string longText(size_t n, char c = 'a') { return std::string(n, c); }

#endif // VX_TEST_CLIENT_VIDEO_COMMON_H
