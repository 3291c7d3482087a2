#include "platform/sim/SimAVService.h"

namespace pw::sim {

SimAVService::SimAVService(std::shared_ptr<VirtualMonitor> monitor, std::shared_ptr<BusLog> bus,
                           std::string endpoint, std::int64_t hash)
    : monitor_(std::move(monitor)), bus_(std::move(bus)), endpoint_(std::move(endpoint)),
      hash_(hash) {}

std::int32_t SimAVService::writeI2C(std::uint32_t chipAddress, std::uint32_t dataAddress,
                                    const std::uint8_t* bytes, std::uint32_t count) {
    return writePhase(*bus_, endpoint_, monitor_.get(), chipAddress, dataAddress,
                      std::span<const std::uint8_t>(bytes, bytes ? count : 0));
}

std::int32_t SimAVService::readI2C(std::uint32_t chipAddress, std::uint32_t offset,
                                   std::uint8_t* buffer, std::uint32_t size) {
    return readPhase(*bus_, endpoint_, monitor_.get(), chipAddress, offset,
                     std::span<std::uint8_t>(buffer, buffer ? size : 0));
}

} // namespace pw::sim
