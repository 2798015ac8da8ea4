// The pid file cannot hang a request: whatever stands at /tmp/vx/voxalis.pid,
// a request without a kind row (which asks whether this process is the
// service, under the socket's lock) returns at once, and a regular pid file
// still decides.
#include "../../client/request.h"
#include "vxtest.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

TEST(Transport, PidFileNeverHoldsARequest)
{
    enum Kind { Fifo, Ours, Other, Missing };
    const struct {
        Kind kind;
        int service; // isAmIvoxalis()
    } rows[] = {{Fifo, 0}, {Ours, 1}, {Other, 0}, {Missing, 0}};
    cleanVxDir();
    SyslogCapture log; // the LOG_CRIT line of each request lands here
    FakeService svc;
    const int sock = registApplication("pid", 0, -1, "127.0.0.1");
    ASSERT_TRUE(svc.waitFor(1));
    for (const auto& r : rows) {
        SCOPED_TRACE(r.kind);
        unlink(VX_PID_FILE);
        if (r.kind == Fifo) {
            ASSERT_EQ(mkfifo(VX_PID_FILE, 0644), 0);
        }
        if (r.kind == Ours || r.kind == Other)
            writeFile(VX_PID_FILE, std::to_string(r.kind == Ours ? getpid() : 1) + "\n");
        svc.clear();
        auto call = std::async(std::launch::async, [sock] {
            const int sent = reqVQMonMonitor(sock, 1, 1, 2); // reqNo 311 has no kind row
            return std::make_pair(sent, isAmIvoxalis());
        });
        const bool prompt = call.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
        // A reader stuck on the FIFO gets a writer, so that the test ends.
        while (call.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready)
            close(open(VX_PID_FILE, O_RDWR | O_NONBLOCK));
        EXPECT_TRUE(prompt) << "the request waited on the pid file";
        const auto got = call.get();
        EXPECT_EQ(got.first, 1);
        EXPECT_EQ(got.second, r.service);
        ASSERT_TRUE(svc.waitFor(1));
        EXPECT_EQ(svc.received()[0].reqNo(), 311);
    }
    close(sock);
}
