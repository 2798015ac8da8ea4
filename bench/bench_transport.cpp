// Transport benchmarks: a no-wait request and a waiting round trip through
// Send2VoxalisByApp, each beside the raw system calls on the same record in
// the same run, and the cost model of four fopen probes per request.
//
// The sender runs pinned to CPU 0 and the stand-in service thread to CPU 1:
// where the scheduler puts the two changes the figures several-fold on a
// two-core machine.
//
//   cmake --preset bench && cmake --build --preset bench && ./build-bench/bin/bench_transport
#include "request.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

void pinTo(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu % static_cast<int>(std::thread::hardware_concurrency()), &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

sockaddr_un serviceAddr()
{
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    strcpy(a.sun_path, VX_SERVICE_SOCK);
    return a;
}

// The stand-in service: reads every datagram and answers reqNo 305.
class Service {
public:
    Service()
    {
        mkdir(VX_DIR, 0777);
        unlink(VX_SERVICE_SOCK);
        sock_ = socket(AF_UNIX, SOCK_DGRAM, 0);
        const sockaddr_un a = serviceAddr();
        if (bind(sock_, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0)
            perror("bind service");
        int big = 4 << 20;
        setsockopt(sock_, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
        thread_ = std::thread([this] { run(); });
    }
    ~Service()
    {
        stop_ = true;
        shutdown(sock_, SHUT_RDWR);
        thread_.join();
        close(sock_);
        unlink(VX_SERVICE_SOCK);
    }

private:
    void run()
    {
        pinTo(1);
        char buf[2048];
        while (!stop_) {
            sockaddr_un from{};
            socklen_t len = sizeof from;
            const ssize_t n = recvfrom(sock_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len);
            if (n <= 0)
                continue;
            int32_t reqNo;
            memcpy(&reqNo, buf, 4);
            if (reqNo == 305) {
                int32_t resp[21] = {305, 1};
                sendto(sock_, resp, sizeof resp, 0, reinterpret_cast<sockaddr*>(&from), len);
            }
        }
    }
    int sock_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

Service* g_service = nullptr;

// A client socket bound under /tmp/vx/ as a registration makes it.
int clientSocket()
{
    char path[] = VX_APP_TEMPLATE;
    const int tmp = mkstemp(path);
    close(tmp);
    unlink(path);
    const int s = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    strcpy(a.sun_path, path);
    bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    timeval tv{3, 0};
    setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    return s;
}

struct tModeReq {
    tMediaReq hdr;
    char targetName[12];
    int32_t mode, p1, p2;
};

void BM_RawSendto(benchmark::State& state)
{
    pinTo(0);
    const int s = clientSocket();
    const sockaddr_un to = serviceAddr();
    tModeReq req{};
    req.hdr.reqNo = 15;
    for (auto _ : state)
        benchmark::DoNotOptimize(sendto(s, &req, sizeof req, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to));
    state.SetItemsProcessed(state.iterations());
    close(s);
}

void BM_NoWaitRequest(benchmark::State& state)
{
    pinTo(0);
    const int s = clientSocket();
    tModeReq req{};
    req.hdr.reqNo = 15;
    for (auto _ : state)
        benchmark::DoNotOptimize(Send2VoxalisByApp(s, &req, sizeof req, nullptr));
    state.SetItemsProcessed(state.iterations());
    close(s);
}

// What a request costs when every side-file probe opens the file: four
// fopen probes, a getsockname and the send.
void BM_FourFopenModel(benchmark::State& state)
{
    pinTo(0);
    const int s = clientSocket();
    const sockaddr_un to = serviceAddr();
    tModeReq req{};
    req.hdr.reqNo = 15;
    const char* probes[4] = {VX_IGNORE_FILE, VX_PRINTTIME_FILE, VX_SAVEMSG_FILE, VX_PRINTTIME_FILE};
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i)
            if (FILE* f = fopen(probes[i], "r"))
                fclose(f);
        sockaddr_un self{};
        socklen_t len = sizeof self;
        getsockname(s, reinterpret_cast<sockaddr*>(&self), &len);
        sendto(s, &req, sizeof req, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        for (int i = 2; i < 4; ++i)
            if (FILE* f = fopen(probes[i], "r"))
                fclose(f);
    }
    state.SetItemsProcessed(state.iterations());
    close(s);
}

void BM_RawRoundTrip(benchmark::State& state)
{
    pinTo(0);
    const int s = clientSocket();
    const sockaddr_un to = serviceAddr();
    tReqHead req{};
    req.hdr.reqNo = 305;
    tResp2App resp{};
    for (auto _ : state) {
        sendto(s, &req, sizeof req, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        benchmark::DoNotOptimize(recv(s, &resp, sizeof resp, 0));
    }
    state.SetItemsProcessed(state.iterations());
    close(s);
}

void BM_WaitingRoundTrip(benchmark::State& state)
{
    pinTo(0);
    const int s = clientSocket();
    tReqHead req{};
    req.hdr.reqNo = 305;
    tResp2App resp{};
    for (auto _ : state)
        benchmark::DoNotOptimize(Send2VoxalisByApp(s, &req, sizeof req, &resp));
    state.SetItemsProcessed(state.iterations());
    close(s);
}

BENCHMARK(BM_RawSendto)->MinTime(1.0);
BENCHMARK(BM_NoWaitRequest)->MinTime(1.0);
BENCHMARK(BM_FourFopenModel)->MinTime(1.0);
BENCHMARK(BM_RawRoundTrip)->MinTime(1.0);
BENCHMARK(BM_WaitingRoundTrip)->MinTime(1.0);

// Keeps the time per iteration of every run, for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const auto& r : runs)
            if (r.iterations > 0)
                nsPerOp[r.benchmark_name()] = r.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> nsPerOp;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    // The tests of any work tree on this machine use the same fixed paths:
    // take their lock so neither disturbs the other.
    const int lockFd = open("/tmp/vx-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lockFd >= 0)
        flock(lockFd, LOCK_EX);
    Service service;
    g_service = &service;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& t = reporter.nsPerOp;
    auto ratio = [&](const char* raw, const char* lib) {
        if (t.count(raw) && t.count(lib) && t[lib] > 0)
            printf("%-22s / %-18s throughput ratio %.2f (time ratio %.2fx)\n", lib, raw, t[raw] / t[lib],
                   t[lib] / t[raw]);
    };
    printf("\n");
    ratio("BM_RawSendto/min_time:1.000", "BM_NoWaitRequest/min_time:1.000");
    ratio("BM_RawSendto/min_time:1.000", "BM_FourFopenModel/min_time:1.000");
    ratio("BM_RawRoundTrip/min_time:1.000", "BM_WaitingRoundTrip/min_time:1.000");
    return 0;
}
