#pragma once

#include "platform/macos/FramebufferI2C.h"
#include "platform/sim/BusWire.h"
#include "platform/sim/Scenario.h"

#include <chrono>
#include <memory>
#include <vector>

namespace pw::sim {

class SimRegistry;
class BusLog;
class VirtualMonitor;

// Framebuffer I2C of a simulated Intel Mac: each framebuffer entry has I2C buses (its
// "IOFramebufferI2CInterface" children), some of which reach the monitor. Requests on a
// bus that reaches it are decoded from the wire form the monitor actually receives.
//
// A request is one combined transaction: the send phase writes the wire bytes to
// `sendAddress`, the driver pauses (its own `replyWait`, or `minReplyDelay` in
// milliseconds when that is longer), and the reply phase reads `replyBytes` from
// `replyAddress`. Both phases go to the bus log like any other transfer: under
// "display <id>" on a bus that reaches the monitor, "display <id> bus <n>" on one that
// leads nowhere. `sendRequest` itself fails only for a connection that is not open or
// buffers that are missing; everything that goes wrong on the bus is in `result`.
class SimFramebufferI2C final : public platform::FramebufferI2C {
public:
    // IOKit's codes for what the simulated driver refuses.
    static constexpr platform::KernReturn kNoDevice = kBusNoDevice;
    static constexpr platform::KernReturn kBadArgument =
        static_cast<platform::KernReturn>(0xE00002C2u);
    static constexpr platform::KernReturn kExclusiveAccess =
        static_cast<platform::KernReturn>(0xE00002C5u);
    static constexpr platform::KernReturn kUnsupported =
        static_cast<platform::KernReturn>(0xE00002C7u);
    static constexpr platform::KernReturn kNotOpen = static_cast<platform::KernReturn>(0xE00002CDu);
    static constexpr platform::KernReturn kNotFound =
        static_cast<platform::KernReturn>(0xE00002F0u);
    // One byte on a 100 kHz I2C bus, as on the AV-service connections.
    static constexpr std::chrono::microseconds kByteTime = kBusByteTime;

    SimFramebufferI2C(std::shared_ptr<SimRegistry> registry, std::shared_ptr<BusLog> bus);
    ~SimFramebufferI2C() override;

    // The machine's side: a display's framebuffer entry with its bus interface entries (one
    // per bus, in bus order) and the monitor behind it (null: nothing answers on any bus).
    void attach(platform::IOObject framebuffer, const DisplaySpec& display,
                std::vector<platform::IOObject> interfaces,
                std::shared_ptr<VirtualMonitor> monitor);
    // The display was unplugged: its framebuffer knows no buses any more, the window server
    // no longer finds it, and connections still open reach nothing.
    void detach(platform::IOObject framebuffer);
    // Connections opened and not yet closed (the program closes each one after its request).
    std::size_t openConnections() const;

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
