#pragma once

#include "ddc/VCP.h"
#include "platform/Clock.h"
#include "platform/MainQueue.h"
#include "support/SerialQueue.h"
#include "platform/I2CTransport.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace pw {

// What a read learnt about one feature: its value, the monitor's answer that it does not
// have the feature, or nothing (no sound answer in any pass). A plain value, never thrown.
struct FeatureReading {
    enum class Outcome { value, unsupported, noAnswer };
    Outcome outcome = Outcome::noAnswer;
    DDCReadResult value{}; // meaningful only when outcome is `value`

    bool hasValue() const { return outcome == Outcome::value; }
    bool unsupported() const { return outcome == Outcome::unsupported; }
    // The value, or nothing for either kind of absence.
    std::optional<DDCReadResult> valueOrNothing() const {
        return hasValue() ? std::optional(value) : std::nullopt;
    }
    friend bool operator==(const FeatureReading&, const FeatureReading&) = default;
};

// The one door every DDC/CI read and write goes through. Writes are queued in order
// on "com.panelwright.ddc" and completed on the main queue; reads run on the caller's
// thread. Every bus transfer, with its waits, runs on the manager's one
// "com.panelwright.globalDDCQueue", so no two transactions ever share the bus. The manager
// owns both workers and joins them when it goes. Values
// read or written recently are answered from a short-lived cache.
//
// The cache never answers for another monitor than the one a value came from: its entries
// are grouped by channel (the transport's endpointKey), a key whose transports have all
// been destroyed starts empty when it turns up again (handles and hashes are recycled),
// and a rebuilt display list drops every channel it no longer names (docs/ddc.md).
class DDCManager : public std::enable_shared_from_this<DDCManager> {
public:
    using Completion = std::function<void(bool)>;

    DDCManager(std::shared_ptr<platform::Clock> clock,
               std::shared_ptr<platform::MainQueue> mainQueue);
    ~DDCManager();

    DDCManager(const DDCManager&) = delete;
    DDCManager& operator=(const DDCManager&) = delete;

    // Asynchronous: queues the write; `completion` (if any) gets the outcome on the main queue.
    void write(std::shared_ptr<I2CTransport> transport, VCPCode code, std::uint16_t value,
               Completion completion = {});
    // Synchronous: a fresh cached value, else the bus with retries; nothing if every pass
    // failed or the monitor said it does not have the feature.
    std::optional<DDCReadResult> read(const std::shared_ptr<I2CTransport>& transport, VCPCode code);
    // The same read, telling "the monitor does not have it" from "no answer". A monitor's
    // "unsupported" ends the read at once and is remembered for the channel and code, so
    // later reads of it cost no bus traffic.
    FeatureReading readFeature(const std::shared_ptr<I2CTransport>& transport, VCPCode code);
    // Whether this channel's monitor said it does not have the feature.
    bool saidUnsupported(const I2CTransport& transport, std::uint8_t code);
    // The write passes for a ready-made frame, on the global transfer queue; blocks the caller.
    bool performWrite(const std::shared_ptr<I2CTransport>& transport,
                      std::span<const std::uint8_t> frame);

    std::optional<DDCReadResult> cachedValue(const I2CTransport& transport, std::uint8_t code);
    void storeInCache(const I2CTransport& transport, std::uint8_t code, DDCReadResult value);
    // Caches a value the bus just accepted, under the last maximum this channel reported
    // for the code, even when that reading has expired (else 100).
    void storeWritten(const I2CTransport& transport, std::uint8_t code, std::uint16_t value);
    void invalidateCache(const I2CTransport& transport);
    // The display list was rebuilt from these transports. Channels not among them are
    // forgotten; of those that are, what was stored before `rebuildStarted` is forgotten
    // too, since the same channel may now lead to another monitor. In-flight work on an
    // old transport may still store under its own key afterwards; that key is cleared
    // again once every transport that used it is gone.
    void displayListRebuilt(const std::vector<std::shared_ptr<I2CTransport>>& transports,
                            platform::Clock::TimePoint rebuildStarted);
    // How many channels hold entries (values or maxima); for tests and diagnostics.
    std::size_t cachedChannelCount();

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
    // Every bus transfer of this manager, with its waits. One per manager: the program has
    // one manager (owned by its Core), so no two transfers of the process share the bus.
    SerialQueue& globalDDCQueue() { return *globalQueue_; }

private:
    struct CacheEntry {
        DDCReadResult value;
        platform::Clock::TimePoint storedAt;
    };
    struct KnownMaximum {
        std::uint16_t max;
        platform::Clock::TimePoint storedAt;
    };
    // Everything cached under one endpointKey.
    struct Channel {
        // Codes the monitor answered "unsupported" for, and when: kept across
        // invalidateCache (the monitor does not grow features), not across a rebuild.
        std::map<std::uint8_t, platform::Clock::TimePoint> unsupported;
        // The transports seen using this key. Once all of them are gone the key is free
        // to name another monitor, so what it holds is dropped at its next use.
        std::vector<std::weak_ptr<const I2CTransport>> holders;
        std::map<std::uint8_t, CacheEntry> values;
        // Kept apart from the values: a write needs the range after the reading expired.
        std::map<std::uint8_t, KnownMaximum> maxima;
    };

    void sleepMicroseconds(std::uint32_t microseconds);
    // Waits out what is left of the channel's quiet time after a write (transfer queue only).
    void awaitQuiet(const I2CTransport& transport);
    // A write just landed: the channel's monitor is to be left alone for a while.
    void startQuiet(const I2CTransport& transport);
    // cacheTTL in the clock's ticks.
    platform::Clock::Duration lifetime() const;
    platform::Clock::TimePoint now() const;

    // Remembers a transport the manager was handed as a shared object, so that later calls
    // given only a reference can tell whether it still lives.
    void noteTransport(const std::shared_ptr<I2CTransport>& transport);
    // The channel of `transport` (cacheLock_ held), first emptied when every transport that
    // used its key has gone. Created when `create`, else null when there is none.
    Channel* channelFor(const I2CTransport& transport, bool create);
    void storeLocked(const I2CTransport& transport, std::uint8_t code, DDCReadResult value,
                     platform::Clock::TimePoint at);

    std::shared_ptr<platform::Clock> clock_;
    std::shared_ptr<platform::MainQueue> mainQueue_;
    std::atomic<std::uint32_t> writeSleep_{10000};
    std::atomic<std::uint32_t> retrySleep_{20000};
    std::atomic<std::int64_t> maxRetries_{3};
    std::atomic<std::int64_t> writeCycles_{2};
    std::map<std::int64_t, Channel> cache_;
    // Transports handed over as shared objects, by address; an expired entry means the
    // address may since have been reused by another transport.
    std::map<const I2CTransport*, std::weak_ptr<const I2CTransport>> known_;
    std::mutex cacheLock_; // guards cache_ and known_
    std::atomic<double> cacheTTL_{5.0};
    // Per endpointKey: until when its monitor must not be sent anything. Only touched on
    // the global transfer queue, which is its lock.
    std::map<std::int64_t, platform::Clock::TimePoint> quietUntil_;
    // The two workers are joined by the destructor, the write queue first: its queued
    // items still go through the transfer queue, so that one is declared before it.
    std::unique_ptr<SerialQueue> globalQueue_;
    // Last member: destroyed first, so queued write items finish before the rest goes.
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace pw
