#include "platform/macos/AppleSiliconTransport.h"

namespace pw {

AppleSiliconTransport::AppleSiliconTransport(std::shared_ptr<platform::AVService> service,
                                             std::shared_ptr<platform::Clock> clock)
    : service_(std::move(service)), clock_(std::move(clock)) {}

std::int64_t AppleSiliconTransport::endpointKey() const {
    return service_->hash();
}

bool AppleSiliconTransport::write(std::span<const std::uint8_t> frame) {
    return service_->writeI2C(kChipAddress, kDataAddress, frame.data(),
                              static_cast<std::uint32_t>(frame.size())) == 0;
}

std::optional<std::vector<std::uint8_t>>
AppleSiliconTransport::read(std::span<const std::uint8_t> request, std::uint32_t replyLength) {
    if (service_->writeI2C(kChipAddress, kDataAddress, request.data(),
                           static_cast<std::uint32_t>(request.size())) != 0)
        return std::nullopt;
    if (clock_) clock_->sleepFor(kReplyWait);
    std::vector<std::uint8_t> reply(replyLength, 0);
    if (service_->readI2C(kChipAddress, kDataAddress, reply.data(), replyLength) != 0)
        return std::nullopt;
    return reply;
}

} // namespace pw
