#include "platform/sim/SimFramebufferI2C.h"

#include "platform/sim/BusLog.h"
#include "platform/sim/SimRegistry.h"

namespace pw::sim {

struct SimFramebufferI2C::State {
    std::shared_ptr<SimRegistry> registry;
    std::shared_ptr<BusLog> bus;
};

SimFramebufferI2C::SimFramebufferI2C(std::shared_ptr<SimRegistry> registry,
                                     std::shared_ptr<BusLog> bus)
    : state_(std::make_unique<State>()) {
    state_->registry = std::move(registry);
    state_->bus = std::move(bus);
}
SimFramebufferI2C::~SimFramebufferI2C() = default;

platform::KernReturn SimFramebufferI2C::i2cInterfaceCount(platform::IOObject, std::uint32_t& count) {
    count = 0;
    return platform::kError;
}
platform::KernReturn SimFramebufferI2C::copyI2CInterfaceForBus(platform::IOObject, std::uint32_t,
                                                               platform::IOObject& interface) {
    interface = 0;
    return platform::kError;
}
platform::KernReturn SimFramebufferI2C::interfaceOpen(platform::IOObject, std::uint32_t,
                                                      platform::I2CConnection& connection) {
    connection = 0;
    return platform::kError;
}
platform::KernReturn SimFramebufferI2C::interfaceClose(platform::I2CConnection, std::uint32_t) {
    return platform::kError;
}
platform::KernReturn SimFramebufferI2C::sendRequest(platform::I2CConnection, std::uint32_t,
                                                    platform::I2CRequest&) {
    return platform::kError;
}
platform::IOObject SimFramebufferI2C::serviceForDisplayNumber(platform::DisplayID) { return 0; }
std::optional<platform::PropertyDictionary>
SimFramebufferI2C::displayInfoDictionary(platform::IOObject, std::uint32_t) {
    return std::nullopt;
}

} // namespace pw::sim
