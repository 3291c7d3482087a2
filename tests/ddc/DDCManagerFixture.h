#pragma once

#include <thread>

#include "support/SerialQueue.h"

#include "common/TestSupport.h"
#include "ddc/DDCManager.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/VirtualClock.h"
#include "platform/I2CTransport.h"

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace pw::test {

// A transport whose outcomes a test scripts call by call, recording what it was asked.
class ScriptedTransport final : public I2CTransport {
public:
    explicit ScriptedTransport(std::int64_t key = 1) : key_(key) {}

    std::int64_t endpointKey() const override { return key_; }

    bool write(std::span<const std::uint8_t> frame) override {
        std::lock_guard lock(mutex_);
        writes.emplace_back(frame.begin(), frame.end());
        if (writeOutcomes.empty()) return writeDefault;
        bool ok = writeOutcomes.front();
        writeOutcomes.pop_front();
        return ok;
    }

    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                  std::uint32_t replyLength) override {
        std::lock_guard lock(mutex_);
        reads.emplace_back(request.begin(), request.end());
        replyLengths.push_back(replyLength);
        if (replies.empty()) return defaultReply;
        auto reply = replies.front();
        replies.pop_front();
        return reply;
    }

    std::mutex mutex_;
    std::int64_t key_;
    std::vector<std::vector<std::uint8_t>> writes;
    std::vector<std::vector<std::uint8_t>> reads;
    std::vector<std::uint32_t> replyLengths;
    std::deque<bool> writeOutcomes;
    bool writeDefault = true;
    std::deque<std::optional<std::vector<std::uint8_t>>> replies;
    std::optional<std::vector<std::uint8_t>> defaultReply;
};

// A Get VCP reply as a monitor sends it.
inline std::vector<std::uint8_t> replyBytes(std::uint8_t code, std::uint16_t current,
                                            std::uint16_t max) {
    const auto hi = [](std::uint16_t v) { return static_cast<std::uint8_t>(v >> 8); };
    const auto lo = [](std::uint16_t v) { return static_cast<std::uint8_t>(v & 0xFF); };
    std::vector<std::uint8_t> r = {0x6E, 0x88,    0x02,    0x00,        code,
                                   0x00, hi(max), lo(max), hi(current), lo(current)};
    std::uint8_t sum = 0x50;
    for (auto b : r)
        sum = static_cast<std::uint8_t>(sum ^ b);
    r.push_back(sum);
    return r;
}

struct DDCManagerFixture {
    std::shared_ptr<sim::VirtualClock> clock = std::make_shared<sim::VirtualClock>();
    std::shared_ptr<sim::ManualMainQueue> main = std::make_shared<sim::ManualMainQueue>(*clock);
    std::shared_ptr<sim::MemorySystemLog> systemLog = std::make_shared<sim::MemorySystemLog>();
    ScopedPlatform platform{[this] {
        platform::Platform p;
        p.clock = clock;
        p.mainQueue = main;
        p.systemLog = systemLog;
        return p;
    }()};
    std::shared_ptr<DDCManager> manager = std::make_shared<DDCManager>(clock, main);

    // A queued task may hold the manager last: it then ends on its own worker, which is
    // handed on to be joined. Joined here, so no test leaves a thread running into the
    // process's exit (the thread sanitizer calls that a leak).
    ~DDCManagerFixture() {
        const std::weak_ptr<DDCManager> gone = manager;
        manager.reset();
        // Bounded: a reference the main queue still holds lets it go later, on this thread.
        for (int spins = 0; spins < 10'000'000 && !gone.expired(); ++spins)
            std::this_thread::yield();
        SerialQueue::joinOrphans();
    }
    DDCManagerFixture() = default;
    DDCManagerFixture(const DDCManagerFixture&) = delete;
    DDCManagerFixture& operator=(const DDCManagerFixture&) = delete;

    // Sleeps taken so far, in microseconds, and the queues they ran on.
    std::vector<long long> sleepsUs() const {
        std::vector<long long> out;
        for (const auto& s : clock->sleeps())
            out.push_back(s.duration.count());
        return out;
    }
};

} // namespace pw::test
