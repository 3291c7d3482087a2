#include "platform/sim/SimAVService.h"

#include "platform/sim/VirtualClock.h"

#include <vector>

namespace pw::sim {

SimAVService::SimAVService(std::shared_ptr<VirtualMonitor> monitor, std::shared_ptr<BusLog> bus,
                           std::string endpoint, std::int64_t hash)
    : monitor_(std::move(monitor)), bus_(std::move(bus)), endpoint_(std::move(endpoint)),
      hash_(hash) {}

void SimAVService::spendBusTime(std::size_t bytesOnWire) {
    // Only virtual time needs pushing: a real clock moves by itself, and sleeping here
    // would slow benchmarks with delays the monitor model does not ask for.
    if (auto* virtualClock = dynamic_cast<VirtualClock*>(&bus_->clock()))
        virtualClock->advance(kByteTime * static_cast<std::int64_t>(bytesOnWire));
}

std::int32_t SimAVService::writeI2C(std::uint32_t chipAddress, std::uint32_t dataAddress,
                                    const std::uint8_t* bytes, std::uint32_t count) {
    const std::span<const std::uint8_t> frame(bytes, bytes ? count : 0);
    const auto ticket = bus_->begin(BusTransfer::Kind::write, endpoint_, chipAddress, dataAddress);
    // Chip address, data address and the frame; the monitor acts once the last byte is in.
    spendBusTime(frame.size() + 2);
    const std::int32_t result =
        monitor_ ? monitor_->receive(chipAddress, dataAddress, frame) : kNoDevice;
    bus_->finish(ticket, std::vector<std::uint8_t>(frame.begin(), frame.end()), result);
    return result;
}

std::int32_t SimAVService::readI2C(std::uint32_t chipAddress, std::uint32_t offset,
                                   std::uint8_t* buffer, std::uint32_t size) {
    const std::span<std::uint8_t> out(buffer, buffer ? size : 0);
    const auto ticket = bus_->begin(BusTransfer::Kind::read, endpoint_, chipAddress, offset);
    // Whether the reply is ready is decided when the read starts, as on the wire.
    const std::int32_t result = monitor_ ? monitor_->respond(chipAddress, offset, out) : kNoDevice;
    // Address and offset written, repeated start with the address, then the data.
    spendBusTime(out.size() + 3);
    std::vector<std::uint8_t> seen;
    if (result == 0) seen.assign(out.begin(), out.end());
    bus_->finish(ticket, std::move(seen), result);
    return result;
}

} // namespace pw::sim
