// fakeservice.h - an in-process stand-in for the media service: a thread
// bound at /tmp/vx/vxRxSock that records every datagram and answers the
// requests the service answers, by a policy.
#ifndef VX_TEST_FAKESERVICE_H
#define VX_TEST_FAKESERVICE_H

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Datagram {
    std::vector<uint8_t> bytes;
    std::string from; // sender's socket path

    int32_t word(size_t offset) const
    {
        int32_t v = 0;
        if (offset + 4 <= bytes.size())
            memcpy(&v, bytes.data() + offset, 4);
        return v;
    }
    uint16_t half(size_t offset) const
    {
        uint16_t v = 0;
        if (offset + 2 <= bytes.size())
            memcpy(&v, bytes.data() + offset, 2);
        return v;
    }
    int32_t reqNo() const { return word(0); }
    int32_t channel() const { return word(116); }
    size_t size() const { return bytes.size(); }
    // The NUL-terminated text in the field [offset, offset+width).
    std::string text(size_t offset, size_t width) const;
    // The raw bytes of [offset, offset+width).
    std::vector<uint8_t> raw(size_t offset, size_t width) const;
    std::string sockPath() const { return text(8, 108); }
};

class FakeService {
public:
    enum class Policy { Answer, Silent, WrongReqNo };

    // Binds /tmp/vx/vxRxSock (creating /tmp/vx/ and removing a stale socket).
    explicit FakeService(Policy policy = Policy::Answer, int delayMs = 0);
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    // The result word sent for reqNo (only numbers the service answers:
    // 22, 28, 29, 305, 307, 308). createChannel counts up from 1 unless set.
    void setResult(int reqNo, int result);
    void setPolicy(Policy policy, int delayMs = 0);

    // Waits until at least n datagrams have arrived (bounded); true if so.
    bool waitFor(size_t n, int timeoutMs = 2000);
    std::vector<Datagram> received();
    std::vector<int32_t> reqNos();
    void clear();

private:
    void run();

    int sock_ = -1;
    int stopPipe_[2] = {-1, -1};
    std::mutex mu_;
    Policy policy_;
    int delayMs_;
    std::map<int, int> results_;
    int nextChannel_ = 1;
    std::vector<Datagram> got_;
    std::thread thread_;
};

// Removes every file the tests may leave under /tmp/vx/ (client sockets,
// side files, saved records); makes /tmp/vx/ and /tmp/vx/tx/ if missing.
void cleanVxDir();

#endif // VX_TEST_FAKESERVICE_H
