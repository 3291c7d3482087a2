#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "platform/Clock.h"
#include "platform/sim/MonitorSpec.h"

namespace pw::sim {

// A DDC/CI monitor as seen from the host's side of the I2C bus. It parses the real
// request bytes (a request with a bad checksum is ignored, as a monitor does), keeps
// an MCCS feature table, clamps writes to 0..max, prepares the real 11-byte Get VCP
// reply, which is ready only `replyDelay` after the request, and plays the scripted
// faults of its spec. After a Set VCP Feature it wants to be left alone for its spec's
// `quietTime`: a request that arrives sooner is acknowledged on the bus and lost, as on
// many real monitors. Thread-safe; it never sleeps (time is the clock's).
class VirtualMonitor {
public:
    // What the bus reports when nothing acknowledges (IOKit's "not responding").
    static constexpr std::int32_t kNotAcknowledged = static_cast<std::int32_t>(0xE00002EDu);

    VirtualMonitor(MonitorSpec spec, platform::Clock& clock);

    // An I2C write to `chipAddress` whose first byte on the wire is `dataAddress`
    // (0x51, the host) followed by `bytes` (the frame). 0 = acknowledged; a NAK or a
    // wrong chip address gives a non-zero code. A malformed request (wrong source byte,
    // length byte or checksum, unknown opcode) is still acknowledged, as on a real
    // bus, but the monitor does nothing with it.
    std::int32_t receive(std::uint32_t chipAddress, std::uint32_t dataAddress,
                         std::span<const std::uint8_t> bytes);
    // An I2C read of `out.size()` bytes. 0 = the bus transfer happened (the bytes may
    // still be garbage, e.g. a reply not ready yet reads as the null message). The
    // reply is consumed by the read that gets it; bytes beyond it read as zero. The
    // offset (the host's source byte) does not change what the monitor sends.
    std::int32_t respond(std::uint32_t chipAddress, std::uint32_t offset,
                         std::span<std::uint8_t> out);

    std::optional<MonitorSpec::Feature> feature(std::uint8_t code) const;
    void setFeature(std::uint8_t code, std::uint16_t current, std::uint16_t max);
    // Every value as it stands now (to keep a simulated monitor's state between CLI runs).
    // The fault scripts come back as configured, not as far as they have been played.
    MonitorSpec snapshot() const;

    // A monitor whose cable was pulled: nothing acknowledges on the bus any more.
    void setAttached(bool attached);
    bool attached() const;

    std::size_t requestsAccepted() const; // well-formed requests that reached the monitor
    std::size_t requestsIgnored() const;  // requests dropped: bad checksum or layout, too soon

private:
    mutable std::mutex mutex_;
    platform::Clock& clock_;
    MonitorSpec spec_;
    std::optional<std::vector<std::uint8_t>> pendingReply_;
    platform::Clock::TimePoint replyReadyAt_{};
    platform::Clock::TimePoint quietUntil_{};
    std::size_t accepted_ = 0;
    std::size_t ignored_ = 0;
    bool attached_ = true;
    MonitorSpec::Faults faultsLeft_; // what the scripts still have to spoil

    std::int32_t busFault(); // silent or nak spoiling this transfer, else 0
    void handleRequest(std::uint32_t dataAddress, std::span<const std::uint8_t> frame);
    void fillReply(std::span<std::uint8_t> out);
};

} // namespace pw::sim
