#pragma once

#include "platform/sim/BusLog.h"
#include "platform/sim/VirtualMonitor.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

namespace pw::sim {

// How long one byte takes on a DDC bus of the simulated machine.
inline constexpr std::chrono::microseconds kBusByteTime{90};
// What a transfer answers when nothing acknowledges on the bus.
inline constexpr std::int32_t kBusNoDevice = static_cast<std::int32_t>(0xE00002C0u);

// Time on the bus: virtual time is pushed along; a real clock moves by itself and is waited
// on only when the caller needs the time to pass (a driver's reply pause).
void spendOnBus(BusLog& bus, std::chrono::microseconds duration, bool waitOnRealClock = false);

// One phase of a DDC/CI transfer as the bus sees it, logged with its bus time. `monitor` is
// null when nothing acknowledges (no monitor, or not on this bus): the phase then fails
// with kBusNoDevice. The write phase hands the bytes to the monitor once the last is in; the
// read phase decides at its start whether the reply is ready.
std::int32_t writePhase(BusLog& bus, const std::string& endpoint, VirtualMonitor* monitor,
                        std::uint32_t chipAddress, std::uint32_t dataAddress,
                        std::span<const std::uint8_t> bytes);
std::int32_t readPhase(BusLog& bus, const std::string& endpoint, VirtualMonitor* monitor,
                       std::uint32_t chipAddress, std::uint32_t dataAddress,
                       std::span<std::uint8_t> out);

} // namespace pw::sim
