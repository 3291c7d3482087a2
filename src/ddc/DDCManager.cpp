#include "ddc/DDCManager.h"

#include "app/SystemLog.h"
#include "ddc/DDCMessages.h"
#include "platform/Platform.h"
#include "support/WeakOwner.h"

#include <cmath>
#include <string>

namespace pw {

namespace {

std::string formatWriteLine(const char* outcome, VCPCode code, std::uint16_t value) {
    std::string line = "DDC write ";
    line += outcome;
    line += ": ";
    line += displayName(code);
    line += " = ";
    line += std::to_string(value);
    return line;
}

} // namespace

DDCManager::DDCManager(std::shared_ptr<platform::Clock> clock,
                       std::shared_ptr<platform::MainQueue> mainQueue)
    : clock_(std::move(clock)), mainQueue_(std::move(mainQueue)),
      queue_(std::make_unique<SerialQueue>("com.panelwright.ddc")) {}

DDCManager::~DDCManager() = default;

std::shared_ptr<DDCManager> DDCManager::shared() {
    static const std::shared_ptr<DDCManager> instance = [] {
        const auto p = platform::snapshot();
        return std::make_shared<DDCManager>(p->clock, p->mainQueue);
    }();
    return instance;
}

SerialQueue& DDCManager::globalDDCQueue() {
    // Never destroyed: transfers may still be queued while static destructors run.
    static SerialQueue* const queue = new SerialQueue("com.panelwright.globalDDCQueue");
    return *queue;
}

void DDCManager::sleepMicroseconds(std::uint32_t microseconds) {
    if (clock_) clock_->sleepFor(std::chrono::microseconds(microseconds));
}

platform::Clock::Duration DDCManager::lifetime() const {
    using Seconds = std::chrono::duration<double>;
    const double seconds = cacheTTL_.load();
    if (std::isnan(seconds) || seconds < 0) return platform::Clock::Duration::min();
    // Beyond what the tick count can hold: nothing ever gets that old.
    if (seconds >= Seconds(platform::Clock::Duration::max()).count())
        return platform::Clock::Duration::max();
    return std::chrono::round<platform::Clock::Duration>(Seconds(seconds));
}

std::optional<DDCReadResult> DDCManager::cachedValue(const I2CTransport& transport,
                                                     std::uint8_t code) {
    const auto key = transport.endpointKey();
    const auto now = clock_ ? clock_->now() : platform::Clock::TimePoint{};
    std::lock_guard lock(cacheLock_);
    auto endpoint = cache_.find(key);
    if (endpoint == cache_.end()) return std::nullopt;
    auto entry = endpoint->second.find(code);
    if (entry == endpoint->second.end()) return std::nullopt;
    // An entry exactly as old as the lifetime still counts as fresh, so the comparison is
    // made in whole clock ticks rather than in floating-point seconds.
    if (now - entry->second.storedAt <= lifetime()) return entry->second.value;
    return std::nullopt;
}

void DDCManager::storeInCache(const I2CTransport& transport, std::uint8_t code,
                              DDCReadResult value) {
    const auto key = transport.endpointKey();
    const auto now = clock_ ? clock_->now() : platform::Clock::TimePoint{};
    std::lock_guard lock(cacheLock_);
    cache_[key][code] = CacheEntry{value, now};
}

void DDCManager::invalidateCache(const I2CTransport& transport) {
    const auto key = transport.endpointKey();
    std::lock_guard lock(cacheLock_);
    cache_.erase(key);
}

void DDCManager::storeWritten(const I2CTransport& transport, std::uint8_t code,
                              std::uint16_t value) {
    const auto previous = cachedValue(transport, code);
    storeInCache(transport, code,
                 DDCReadResult{value, previous ? previous->max : static_cast<std::uint16_t>(100)});
}

bool DDCManager::performWrite(const std::shared_ptr<I2CTransport>& transport,
                              std::span<const std::uint8_t> frame) {
    const std::int64_t passes = maxRetries_.load();
    const std::int64_t attempts = writeCycles_.load();
    return globalDDCQueue().syncResult([&] {
        for (std::int64_t pass = 1; pass <= passes; ++pass) {
            for (std::int64_t attempt = 1; attempt <= attempts; ++attempt) {
                sleepMicroseconds(writeSleep_.load());
                if (transport->write(frame)) return true;
            }
            if (pass < passes) sleepMicroseconds(retrySleep_.load());
        }
        return false;
    });
}

void DDCManager::write(std::shared_ptr<I2CTransport> transport, VCPCode code, std::uint16_t value,
                       Completion completion) {
    auto self = shared_from_this();
    queue_->async(weakly(self, [transport = std::move(transport), code, value,
                                completion = std::move(completion)](DDCManager& manager) {
        const auto frame = ddc::makeSetVCPRequest(rawValue(code), value);
        const bool ok = manager.performWrite(transport, frame);
        if (ok) {
            manager.storeWritten(*transport, rawValue(code), value);
            SystemLog::ddc().debug(formatWriteLine("OK", code, value));
        } else {
            SystemLog::ddc().error(formatWriteLine("FAILED", code, value));
        }
        if (manager.mainQueue_) {
            manager.mainQueue_->post([completion, ok] {
                if (completion) completion(ok);
            });
        }
    }));
}

std::optional<DDCReadResult> DDCManager::read(const std::shared_ptr<I2CTransport>& transport,
                                              VCPCode code) {
    if (auto hit = cachedValue(*transport, rawValue(code))) return hit;

    const auto request = ddc::makeGetVCPRequest(rawValue(code));
    const std::int64_t passes = maxRetries_.load();
    const auto result = globalDDCQueue().syncResult([&]() -> std::optional<DDCReadResult> {
        for (std::int64_t pass = 1; pass <= passes; ++pass) {
            if (auto reply = transport->read(request, ddc::kReplyLength)) {
                if (auto value = ddc::parseVCPReply(*reply)) {
                    // Stored while still holding the bus: a write queued behind this read
                    // then always caches its value after ours, never before it.
                    storeInCache(*transport, rawValue(code), *value);
                    return value;
                }
            }
            if (pass < passes) sleepMicroseconds(retrySleep_.load());
        }
        return std::nullopt;
    });

    if (result) {
        SystemLog::ddc().debug("DDC read OK: " + std::string(displayName(code)) + " = " +
                               std::to_string(result->current) + "/" + std::to_string(result->max));
    } else {
        SystemLog::ddc().error("DDC read FAILED: " + std::string(displayName(code)));
    }
    return result;
}

} // namespace pw
