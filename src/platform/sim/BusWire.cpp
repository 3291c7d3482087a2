#include "platform/sim/BusWire.h"

#include "platform/sim/VirtualClock.h"

#include <vector>

namespace pw::sim {

void spendOnBus(BusLog& bus, std::chrono::microseconds duration, bool waitOnRealClock) {
    if (auto* virtualClock = dynamic_cast<VirtualClock*>(&bus.clock())) {
        virtualClock->advance(duration);
    } else if (waitOnRealClock) {
        bus.clock().sleepFor(duration);
    }
}

std::int32_t writePhase(BusLog& bus, const std::string& endpoint, VirtualMonitor* monitor,
                        std::uint32_t chipAddress, std::uint32_t dataAddress,
                        std::span<const std::uint8_t> bytes) {
    const auto ticket = bus.begin(BusTransfer::Kind::write, endpoint, chipAddress, dataAddress);
    // Chip address, data address and the frame; the monitor acts once the last byte is in.
    spendOnBus(bus, kBusByteTime * static_cast<std::int64_t>(bytes.size() + 2));
    const std::int32_t result =
        monitor ? monitor->receive(chipAddress, dataAddress, bytes) : kBusNoDevice;
    bus.finish(ticket, std::vector<std::uint8_t>(bytes.begin(), bytes.end()), result);
    return result;
}

std::int32_t readPhase(BusLog& bus, const std::string& endpoint, VirtualMonitor* monitor,
                       std::uint32_t chipAddress, std::uint32_t dataAddress,
                       std::span<std::uint8_t> out) {
    const auto ticket = bus.begin(BusTransfer::Kind::read, endpoint, chipAddress, dataAddress);
    // Whether the reply is ready is decided when the read starts, as on the wire.
    const std::int32_t result =
        monitor ? monitor->respond(chipAddress, dataAddress, out) : kBusNoDevice;
    // Address and offset written, repeated start with the address, then the data.
    spendOnBus(bus, kBusByteTime * static_cast<std::int64_t>(out.size() + 3));
    std::vector<std::uint8_t> seen;
    if (result == 0) seen.assign(out.begin(), out.end());
    bus.finish(ticket, std::move(seen), result);
    return result;
}

} // namespace pw::sim
