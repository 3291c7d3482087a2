#pragma once

#include "platform/macos/AVService.h"
#include "platform/Clock.h"
#include "platform/I2CTransport.h"

#include <memory>

namespace pw {

// The DDC/CI channel of one display connection on Apple Silicon: its AV service's
// I2C calls at chip address 0x37 with the host's source address 0x51 as data address.
// Owns one reference to the service for as long as it lives. Stateless between
// calls and silent: judging replies and retrying are the DDC manager's job.
class AppleSiliconTransport final : public I2CTransport {
public:
    static constexpr std::uint32_t kChipAddress = 0x37;
    static constexpr std::uint32_t kDataAddress = 0x51;
    // The monitor needs this long to prepare a reply before it can be fetched.
    static constexpr std::chrono::microseconds kReplyWait{50000};

    AppleSiliconTransport(std::shared_ptr<platform::AVService> service,
                          std::shared_ptr<platform::Clock> clock);

    std::int64_t endpointKey() const override;
    bool write(std::span<const std::uint8_t> frame) override;
    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                  std::uint32_t replyLength) override;

    const std::shared_ptr<platform::AVService>& service() const { return service_; }

private:
    std::shared_ptr<platform::AVService> service_;
    std::shared_ptr<platform::Clock> clock_;
};

} // namespace pw
