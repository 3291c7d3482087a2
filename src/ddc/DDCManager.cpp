#include "ddc/DDCManager.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"
#include "ddc/DDCMessages.h"
#include "support/WeakOwner.h"

#include <algorithm>
#include <cmath>
#include <set>
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
      globalQueue_(std::make_unique<SerialQueue>("com.panelwright.globalDDCQueue")),
      queue_(std::make_unique<SerialQueue>("com.panelwright.ddc")) {}

DDCManager::~DDCManager() = default;

void DDCManager::sleepMicroseconds(std::uint32_t microseconds) {
    if (clock_) clock_->sleepFor(std::chrono::microseconds(microseconds));
}

void DDCManager::awaitQuiet(const I2CTransport& transport) {
    const auto until = quietUntil_.find(transport.endpointKey());
    if (until == quietUntil_.end()) return;
    const auto left = until->second - now();
    quietUntil_.erase(until);
    // Only what is left: the pauses taken since the write count towards it.
    if (left > platform::Clock::Duration::zero())
        clock_->sleepFor(std::chrono::ceil<std::chrono::microseconds>(left));
}

void DDCManager::startQuiet(const I2CTransport& transport) {
    if (clock_) quietUntil_[transport.endpointKey()] = now() + ddc::kQuietTimeAfterWrite;
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

platform::Clock::TimePoint DDCManager::now() const {
    return clock_ ? clock_->now() : platform::Clock::TimePoint{};
}

void DDCManager::noteTransport(const std::shared_ptr<I2CTransport>& transport) {
    if (!transport) return;
    std::lock_guard lock(cacheLock_);
    auto& slot = known_[transport.get()];
    if (slot.lock() == transport) return;
    slot = transport;
    // Forget transports that are gone, so the table stays as small as the live set.
    std::erase_if(known_, [](const auto& entry) { return entry.second.expired(); });
}

DDCManager::Channel* DDCManager::channelFor(const I2CTransport& transport, bool create) {
    const auto key = transport.endpointKey();
    std::weak_ptr<const I2CTransport> self;
    if (const auto seen = known_.find(&transport); seen != known_.end()) {
        // Only if it is still this very object: an expired entry may be an older
        // transport that lived at the same address.
        if (auto alive = seen->second.lock(); alive.get() == &transport) self = alive;
    }

    auto found = cache_.find(key);
    if (found != cache_.end()) {
        auto& holders = found->second.holders;
        const auto before = holders.size();
        std::erase_if(holders, [](const auto& holder) { return holder.expired(); });
        if (before > 0 && holders.empty()) {
            // Every transport that used this key is gone, so the key is free to name
            // another monitor now; nothing stored under it may answer for that one.
            found->second.values.clear();
            found->second.maxima.clear();
            found->second.unsupported.clear();
        }
    } else {
        if (!create) return nullptr;
        found = cache_.emplace(key, Channel{}).first;
    }
    auto& channel = found->second;
    if (!self.expired()) {
        const bool listed = std::any_of(
            channel.holders.begin(), channel.holders.end(), [&](const auto& holder) {
                return !holder.owner_before(self) && !self.owner_before(holder);
            });
        if (!listed) channel.holders.push_back(self);
    }
    return &channel;
}

std::optional<DDCReadResult> DDCManager::cachedValue(const I2CTransport& transport,
                                                     std::uint8_t code) {
    const auto at = now();
    std::lock_guard lock(cacheLock_);
    const auto* channel = channelFor(transport, false);
    if (!channel) return std::nullopt;
    const auto entry = channel->values.find(code);
    if (entry == channel->values.end()) return std::nullopt;
    // An entry exactly as old as the lifetime still counts as fresh, so the comparison is
    // made in whole clock ticks rather than in floating-point seconds.
    if (at - entry->second.storedAt <= lifetime()) return entry->second.value;
    return std::nullopt;
}

void DDCManager::storeLocked(const I2CTransport& transport, std::uint8_t code,
                             DDCReadResult value, platform::Clock::TimePoint at) {
    auto* channel = channelFor(transport, true);
    channel->values[code] = CacheEntry{value, at};
    channel->maxima[code] = KnownMaximum{value.max, at};
}

void DDCManager::storeInCache(const I2CTransport& transport, std::uint8_t code,
                              DDCReadResult value) {
    const auto at = now();
    std::lock_guard lock(cacheLock_);
    storeLocked(transport, code, value, at);
}

void DDCManager::invalidateCache(const I2CTransport& transport) {
    std::lock_guard lock(cacheLock_);
    if (auto* channel = channelFor(transport, false)) {
        channel->values.clear();
        channel->maxima.clear();
    }
}

bool DDCManager::saidUnsupported(const I2CTransport& transport, std::uint8_t code) {
    std::lock_guard lock(cacheLock_);
    const auto* channel = channelFor(transport, false);
    return channel && channel->unsupported.contains(code);
}

void DDCManager::storeWritten(const I2CTransport& transport, std::uint8_t code,
                              std::uint16_t value) {
    const auto at = now();
    std::lock_guard lock(cacheLock_);
    std::uint16_t max = 100;
    if (const auto* channel = channelFor(transport, false)) {
        if (const auto known = channel->maxima.find(code); known != channel->maxima.end())
            max = known->second.max;
    }
    storeLocked(transport, code, DDCReadResult{value, max}, at);
}

void DDCManager::displayListRebuilt(const std::vector<std::shared_ptr<I2CTransport>>& transports,
                                    platform::Clock::TimePoint rebuildStarted) {
    for (const auto& transport : transports)
        noteTransport(transport);
    std::lock_guard lock(cacheLock_);
    std::set<std::int64_t> listed;
    for (const auto& transport : transports) {
        if (!transport) continue;
        listed.insert(transport->endpointKey());
        channelFor(*transport, true);
    }
    for (auto channel = cache_.begin(); channel != cache_.end();) {
        if (!listed.contains(channel->first)) {
            channel = cache_.erase(channel);
            continue;
        }
        std::erase_if(channel->second.values, [&](const auto& entry) {
            return entry.second.storedAt < rebuildStarted;
        });
        std::erase_if(channel->second.maxima, [&](const auto& entry) {
            return entry.second.storedAt < rebuildStarted;
        });
        std::erase_if(channel->second.unsupported,
                      [&](const auto& entry) { return entry.second < rebuildStarted; });
        ++channel;
    }
}

std::size_t DDCManager::cachedChannelCount() {
    std::lock_guard lock(cacheLock_);
    return static_cast<std::size_t>(std::count_if(cache_.begin(), cache_.end(), [](const auto& c) {
        return !c.second.values.empty() || !c.second.maxima.empty() ||
               !c.second.unsupported.empty();
    }));
}

bool DDCManager::performWrite(const std::shared_ptr<I2CTransport>& transport,
                              std::span<const std::uint8_t> frame) {
    noteTransport(transport);
    const std::int64_t passes = maxRetries_.load();
    const std::int64_t attempts = writeCycles_.load();
    return globalDDCQueue().syncResult([&] {
        for (std::int64_t pass = 1; pass <= passes; ++pass) {
            for (std::int64_t attempt = 1; attempt <= attempts; ++attempt) {
                sleepMicroseconds(writeSleep_.load());
                awaitQuiet(*transport);
                if (transport->write(frame)) {
                    startQuiet(*transport);
                    return true;
                }
                if (transport->busHeld()) return false; // waiting again would not help
            }
            if (pass < passes) sleepMicroseconds(retrySleep_.load());
        }
        return false;
    });
}

void DDCManager::write(std::shared_ptr<I2CTransport> transport, VCPCode code, std::uint16_t value,
                       Completion completion) {
    noteTransport(transport);
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
    return readFeature(transport, code).valueOrNothing();
}

FeatureReading DDCManager::readFeature(const std::shared_ptr<I2CTransport>& transport,
                                       VCPCode code) {
    using Outcome = FeatureReading::Outcome;
    noteTransport(transport);
    if (auto hit = cachedValue(*transport, rawValue(code))) return {Outcome::value, *hit};
    if (saidUnsupported(*transport, rawValue(code))) return {Outcome::unsupported};

    const auto request = ddc::makeGetVCPRequest(rawValue(code));
    const std::int64_t passes = maxRetries_.load();
    const auto result = globalDDCQueue().syncResult([&]() -> FeatureReading {
        for (std::int64_t pass = 1; pass <= passes; ++pass) {
            awaitQuiet(*transport);
            if (auto bytes = transport->read(request, ddc::kReplyLength)) {
                const auto reply = ddc::parseVCPReply(*bytes, rawValue(code));
                // Stored while still holding the bus: a write queued behind this read
                // then always caches its value after ours, never before it.
                if (reply.kind == ddc::VCPReply::Kind::value) {
                    storeInCache(*transport, rawValue(code), reply.value);
                    return {Outcome::value, reply.value};
                }
                // An answer, not a failure: asking again would only hear it again.
                if (reply.kind == ddc::VCPReply::Kind::unsupported) {
                    const auto at = now();
                    std::lock_guard lock(cacheLock_);
                    channelFor(*transport, true)->unsupported[rawValue(code)] = at;
                    return {Outcome::unsupported};
                }
            }
            if (transport->busHeld()) break; // waiting again would not help
            if (pass < passes) sleepMicroseconds(retrySleep_.load());
        }
        return {Outcome::noAnswer};
    });

    if (result.hasValue()) {
        SystemLog::ddc().debug("DDC read OK: " + std::string(displayName(code)) + " = " +
                               std::to_string(result.value.current) + "/" +
                               std::to_string(result.value.max));
    } else if (result.unsupported()) {
        SystemLog::ddc().info("DDC read: " + std::string(displayName(code)) +
                              " not supported by the monitor");
    } else {
        SystemLog::ddc().error("DDC read FAILED: " + std::string(displayName(code)));
    }
    return result;
}

} // namespace pw
