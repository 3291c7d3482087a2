#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/macos/AVService.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/BusWire.h"
#include "platform/sim/VirtualMonitor.h"

namespace pw::sim {

// The AV service of one simulated display connection: its I2C calls reach the
// connection's virtual monitor (or nothing, for a connection without DDC/CI, where
// every call fails) and are recorded in the bus log.
//
// On virtual time each transfer takes as long as its bytes need on a 100 kHz bus, so
// bus time shows up in the clock; on a real clock nothing extra happens.
class SimAVService final : public platform::AVService {
public:
    // What the calls return on a connection with no DDC/CI endpoint (IOKit's "no device").
    static constexpr std::int32_t kNoDevice = kBusNoDevice;
    // One byte on a 100 kHz I2C bus: eight data bits and the acknowledge bit.
    static constexpr std::chrono::microseconds kByteTime = kBusByteTime;

    SimAVService(std::shared_ptr<VirtualMonitor> monitor, std::shared_ptr<BusLog> bus,
                 std::string endpoint, std::int64_t hash);

    std::int32_t writeI2C(std::uint32_t chipAddress, std::uint32_t dataAddress,
                          const std::uint8_t* bytes, std::uint32_t count) override;
    std::int32_t readI2C(std::uint32_t chipAddress, std::uint32_t offset, std::uint8_t* buffer,
                         std::uint32_t size) override;
    std::int64_t hash() const override { return hash_; }

    const std::string& endpoint() const { return endpoint_; }

private:
    std::shared_ptr<VirtualMonitor> monitor_;
    std::shared_ptr<BusLog> bus_;
    std::string endpoint_;
    std::int64_t hash_;
};

} // namespace pw::sim
