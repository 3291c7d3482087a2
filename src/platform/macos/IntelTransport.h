#pragma once

#include "platform/Clock.h"
#include "platform/macos/FramebufferI2C.h"
#include "platform/macos/Registry.h"
#include "platform/I2CTransport.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace pw {

// The DDC/CI channel of one framebuffer on an Intel Mac: each transfer tries the
// framebuffer's I2C buses in order until one accepts it, opening and closing the bus
// around the request. Sends the wire form (0x51, the frame without its checksum, a
// checksum that includes the destination address 0x6E). Owns one reference to the
// framebuffer service. Logs its bus scan under "Intel".
class IntelTransport final : public I2CTransport {
public:
    static constexpr std::uint32_t kSendAddress = 0x6E;
    static constexpr std::uint32_t kReplyAddress = 0x6F;
    static constexpr std::uint8_t kReplySubAddress = 0x51;
    static constexpr std::uint32_t kMinReplyDelay = 10;
    static constexpr std::chrono::microseconds kBusOpenWait{10000};

    // Takes its own reference to `framebufferService` and chooses the reply transaction
    // type from the machine's I2C interfaces.
    IntelTransport(platform::IOObject framebufferService,
                   std::shared_ptr<platform::Registry> registry,
                   std::shared_ptr<platform::FramebufferI2C> i2c,
                   std::shared_ptr<platform::Clock> clock);
    ~IntelTransport() override; // releases the framebuffer service

    IntelTransport(const IntelTransport&) = delete;
    IntelTransport& operator=(const IntelTransport&) = delete;

    std::int64_t endpointKey() const override;
    bool write(std::span<const std::uint8_t> frame) override;
    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                  std::uint32_t replyLength) override;

    platform::IOObject framebufferService() const { return framebufferService_; }
    std::uint32_t replyTransactionType() const { return replyTransactionType_; }

    // The bytes that travel on the bus for a frame: 0x51, the frame without its last
    // byte, then 0x6E XOR every byte before it. Empty for an empty frame.
    static std::vector<std::uint8_t> wireBytes(std::span<const std::uint8_t> frame);
    // 2 (DDC/CI reply) or 1 (simple), from the first "IOFramebufferI2CInterface" whose
    // "IOI2CTransactionTypes" mask names one of them.
    static std::uint32_t chooseReplyTransactionType(platform::Registry& registry);

private:
    bool send(platform::I2CRequest& request);

    platform::IOObject framebufferService_;
    std::uint32_t replyTransactionType_;
    std::shared_ptr<platform::Registry> registry_;
    std::shared_ptr<platform::FramebufferI2C> i2c_;
    std::shared_ptr<platform::Clock> clock_;
};

} // namespace pw
