#pragma once

#include "ddc/VCP.h"
#include "platform/Clock.h"
#include "platform/MainQueue.h"
#include "support/SerialQueue.h"
#include "transport/I2CTransport.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

namespace pw {

// The one door every DDC/CI read and write goes through. Writes are queued in order
// on "com.panelwright.ddc" and completed on the main queue; reads run on the caller's
// thread. Every bus transfer of the process, with its waits, runs on the one
// "com.panelwright.globalDDCQueue", so no two transactions ever share the bus. Values
// read or written recently are answered from a short-lived cache.
class DDCManager : public std::enable_shared_from_this<DDCManager> {
public:
    using Completion = std::function<void(bool)>;

    DDCManager(std::shared_ptr<platform::Clock> clock,
               std::shared_ptr<platform::MainQueue> mainQueue);
    ~DDCManager();

    DDCManager(const DDCManager&) = delete;
    DDCManager& operator=(const DDCManager&) = delete;

    // The process-wide instance, built on first use from the installed platform.
    static std::shared_ptr<DDCManager> shared();

    // Asynchronous: queues the write; `completion` (if any) gets the outcome on the main queue.
    void write(std::shared_ptr<I2CTransport> transport, VCPCode code, std::uint16_t value,
               Completion completion = {});
    // Synchronous: a fresh cached value, else the bus with retries; nothing if every pass failed.
    std::optional<DDCReadResult> read(const std::shared_ptr<I2CTransport>& transport, VCPCode code);
    // The write passes for a ready-made frame, on the global transfer queue; blocks the caller.
    bool performWrite(const std::shared_ptr<I2CTransport>& transport,
                      std::span<const std::uint8_t> frame);

    std::optional<DDCReadResult> cachedValue(const I2CTransport& transport, std::uint8_t code);
    void storeInCache(const I2CTransport& transport, std::uint8_t code, DDCReadResult value);
    // Caches a value the bus just accepted, under the maximum a fresh entry knows (else 100).
    void storeWritten(const I2CTransport& transport, std::uint8_t code, std::uint16_t value);
    void invalidateCache(const I2CTransport& transport);

    std::uint32_t writeSleep() const { return writeSleep_; }
    void setWriteSleep(std::uint32_t microseconds) { writeSleep_ = microseconds; }
    std::uint32_t retrySleep() const { return retrySleep_; }
    void setRetrySleep(std::uint32_t microseconds) { retrySleep_ = microseconds; }
    std::int64_t maxRetries() const { return maxRetries_; }
    void setMaxRetries(std::int64_t passes) { maxRetries_ = passes; }
    std::int64_t writeCycles() const { return writeCycles_; }
    void setWriteCycles(std::int64_t attempts) { writeCycles_ = attempts; }
    double cacheTTL() const { return cacheTTL_; }
    void setCacheTTL(double seconds) { cacheTTL_ = seconds; }

    SerialQueue& queue() { return *queue_; }
    static SerialQueue& globalDDCQueue();

private:
    struct CacheEntry {
        DDCReadResult value;
        platform::Clock::TimePoint storedAt;
    };

    void sleepMicroseconds(std::uint32_t microseconds);
    // cacheTTL in the clock's ticks.
    platform::Clock::Duration lifetime() const;

    std::shared_ptr<platform::Clock> clock_;
    std::shared_ptr<platform::MainQueue> mainQueue_;
    std::atomic<std::uint32_t> writeSleep_{10000};
    std::atomic<std::uint32_t> retrySleep_{20000};
    std::atomic<std::int64_t> maxRetries_{3};
    std::atomic<std::int64_t> writeCycles_{2};
    std::map<std::int64_t, std::map<std::uint8_t, CacheEntry>> cache_;
    std::mutex cacheLock_;
    std::atomic<double> cacheTTL_{5.0};
    // Last member: destroyed first, so queued write items finish before the rest goes.
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace pw
