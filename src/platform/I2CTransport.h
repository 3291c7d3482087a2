#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace pw::platform {

// The byte channel to one monitor's DDC/CI endpoint, as a machine hands it out with the
// monitor. Shared by reference between a display record, write streams and requests in
// flight. One attempt per call: no retries, no pacing, no decoding; the DDC manager does
// all of that.
class I2CTransport {
public:
    virtual ~I2CTransport() = default;

    // Identity of the endpoint: two transports with the same key address the same monitor.
    virtual std::int64_t endpointKey() const = 0;
    // One attempt to deliver `frame` (without the 0x51 source byte). True if the bus accepted it.
    virtual bool write(std::span<const std::uint8_t> frame) = 0;
    // One attempt to send `request` and fetch `replyLength` bytes. Nothing if either step failed.
    virtual std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                          std::uint32_t replyLength) = 0;
    // True when the last call failed because another program kept the bus to itself: a
    // further attempt now would only wait again, so the caller's retries end there.
    virtual bool busHeld() const { return false; }
};

} // namespace pw::platform

namespace pw {
using platform::I2CTransport;
} // namespace pw
