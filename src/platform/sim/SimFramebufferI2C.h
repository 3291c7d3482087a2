#pragma once

#include "platform/FramebufferI2C.h"

#include <memory>

namespace pw::sim {

class SimRegistry;
class BusLog;

// Framebuffer I2C of a simulated Intel Mac: each framebuffer entry has I2C buses (its
// "IOFramebufferI2CInterface" children), some of which reach the monitor. Requests on a
// bus that reaches it are decoded from the wire form the monitor actually receives.
class SimFramebufferI2C final : public platform::FramebufferI2C {
public:
    SimFramebufferI2C(std::shared_ptr<SimRegistry> registry, std::shared_ptr<BusLog> bus);
    ~SimFramebufferI2C() override;

    platform::KernReturn i2cInterfaceCount(platform::IOObject framebuffer,
                                           std::uint32_t& count) override;
    platform::KernReturn copyI2CInterfaceForBus(platform::IOObject framebuffer, std::uint32_t bus,
                                                platform::IOObject& interface) override;
    platform::KernReturn interfaceOpen(platform::IOObject interface, std::uint32_t options,
                                       platform::I2CConnection& connection) override;
    platform::KernReturn interfaceClose(platform::I2CConnection connection,
                                        std::uint32_t options) override;
    platform::KernReturn sendRequest(platform::I2CConnection connection, std::uint32_t options,
                                     platform::I2CRequest& request) override;
    platform::IOObject serviceForDisplayNumber(platform::DisplayID id) override;
    std::optional<platform::PropertyDictionary>
    displayInfoDictionary(platform::IOObject framebuffer, std::uint32_t options) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
