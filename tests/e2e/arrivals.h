// arrivals.h - end-to-end helpers: the time at which each datagram reached
// the fake service, and the datagrams of one client process.
#ifndef VX_E2E_ARRIVALS_H
#define VX_E2E_ARRIVALS_H

#include "fakeservice.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Polls the fake service every 2 ms and stamps each new datagram with the
// time it was first seen.
class ArrivalClock {
public:
    using Clock = std::chrono::steady_clock;

    struct Arrival {
        Datagram d;
        Clock::time_point at;
    };

    explicit ArrivalClock(FakeService& svc) : svc_(svc), thread_([this] { run(); }) {}
    ~ArrivalClock()
    {
        stop_ = true;
        thread_.join();
    }

    std::vector<Arrival> all()
    {
        poll();
        std::lock_guard<std::mutex> l(mu_);
        return seen_;
    }

    // The arrivals from one client socket path, in order.
    std::vector<Arrival> from(const std::string& path)
    {
        std::vector<Arrival> r;
        for (auto& a : all())
            if (a.d.from == path)
                r.push_back(a);
        return r;
    }

    // Every client socket path seen, each with its arrivals.
    std::map<std::string, std::vector<Arrival>> byClient()
    {
        std::map<std::string, std::vector<Arrival>> r;
        for (auto& a : all())
            r[a.d.from].push_back(a);
        return r;
    }

private:
    void poll()
    {
        const auto got = svc_.received();
        std::lock_guard<std::mutex> l(mu_);
        const auto now = Clock::now();
        for (size_t i = seen_.size(); i < got.size(); ++i)
            seen_.push_back({got[i], now});
    }
    void run()
    {
        while (!stop_) {
            poll();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    FakeService& svc_;
    std::mutex mu_;
    std::vector<Arrival> seen_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

inline long msBetween(ArrivalClock::Clock::time_point a, ArrivalClock::Clock::time_point b)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(b - a).count();
}

#endif // VX_E2E_ARRIVALS_H
