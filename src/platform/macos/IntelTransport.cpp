#include "platform/macos/IntelTransport.h"

#include "base/DiagnosticLog.h"

#include <optional>
#include <string>

namespace pw {

namespace {

constexpr std::string_view kInterfaceClass = "IOFramebufferI2CInterface";
constexpr std::string_view kTransactionTypesKey = "IOI2CTransactionTypes";
constexpr std::uint64_t kDDCciReplySupported = 1u << 2;
constexpr std::uint64_t kSimpleSupported = 1u << 1;

void logIntel(std::string_view message) {
    DiagnosticLog::log("Intel", message);
}

std::string binaryDigits(std::uint64_t value) {
    if (value == 0) return "0";
    std::string digits;
    for (; value != 0; value >>= 1)
        digits.insert(digits.begin(), (value & 1u) != 0 ? '1' : '0');
    return digits;
}

} // namespace

IntelTransport::IntelTransport(platform::IOObject framebufferService,
                               std::shared_ptr<platform::Registry> registry,
                               std::shared_ptr<platform::FramebufferI2C> i2c,
                               std::shared_ptr<platform::Clock> clock)
    : framebufferService_(framebufferService),
      replyTransactionType_(platform::kI2CSimpleTransactionType), registry_(std::move(registry)),
      i2c_(std::move(i2c)), clock_(std::move(clock)) {
    if (registry_) {
        registry_->retain(framebufferService_);
        replyTransactionType_ = chooseReplyTransactionType(*registry_);
    } else {
        logIntel("No IOFramebufferI2CInterface found, defaulting to Simple");
    }
}

IntelTransport::~IntelTransport() {
    if (registry_) registry_->release(framebufferService_);
}

std::int64_t IntelTransport::endpointKey() const {
    return static_cast<std::int64_t>(framebufferService_);
}

std::vector<std::uint8_t> IntelTransport::wireBytes(std::span<const std::uint8_t> frame) {
    constexpr std::uint8_t kHostSourceAddress = 0x51;   // the data address of the request
    constexpr std::uint8_t kDisplayWriteAddress = 0x6E; // seeds the checksum
    std::vector<std::uint8_t> wire;
    if (frame.empty()) return wire;
    wire.reserve(frame.size() + 1);
    wire.push_back(kHostSourceAddress);
    wire.insert(wire.end(), frame.begin(), frame.end() - 1);
    std::uint8_t checksum = kDisplayWriteAddress;
    for (std::uint8_t byte : wire)
        checksum ^= byte;
    wire.push_back(checksum);
    return wire;
}

std::uint32_t IntelTransport::chooseReplyTransactionType(platform::Registry& registry) {
    platform::IOObject iterator = 0;
    if (registry.getMatchingServices(kInterfaceClass, iterator) != platform::kSuccess) {
        logIntel("No IOFramebufferI2CInterface found, defaulting to Simple");
        return platform::kI2CSimpleTransactionType;
    }

    // Every interface of the machine is asked, not only this framebuffer's: the first one
    // that names a usable reply type decides for all transports.
    std::optional<std::uint32_t> chosen;
    while (!chosen) {
        const platform::IOObject service = registry.iteratorNext(iterator);
        if (service == 0) break;
        platform::PropertyDictionary properties;
        if (registry.properties(service, properties) == platform::kSuccess) {
            const auto found = properties.find(std::string(kTransactionTypesKey));
            if (found != properties.end() && found->second.number()) {
                const auto mask = static_cast<std::uint64_t>(*found->second.number());
                logIntel("I2C transaction types: " + std::to_string(mask) +
                         " (binary: " + binaryDigits(mask) + ")");
                if ((mask & kDDCciReplySupported) != 0) {
                    logIntel("Using DDCciReplyTransactionType");
                    chosen = platform::kI2CDDCciReplyTransactionType;
                } else if ((mask & kSimpleSupported) != 0) {
                    logIntel("Using SimpleTransactionType");
                    chosen = platform::kI2CSimpleTransactionType;
                }
            }
        }
        registry.release(service);
    }
    registry.release(iterator);

    if (chosen) return *chosen;
    logIntel("No transaction types found, defaulting to Simple");
    return platform::kI2CSimpleTransactionType;
}

bool IntelTransport::write(std::span<const std::uint8_t> frame) {
    const auto wire = wireBytes(frame);
    if (wire.empty()) return false; // nothing to deliver

    platform::I2CRequest request;
    request.sendTransactionType = platform::kI2CSimpleTransactionType;
    request.replyTransactionType = platform::kI2CNoTransactionType;
    request.sendAddress = kSendAddress;
    request.sendBuffer = wire.data();
    request.sendBytes = static_cast<std::uint32_t>(wire.size());
    return send(request);
}

std::optional<std::vector<std::uint8_t>> IntelTransport::read(std::span<const std::uint8_t> request,
                                                              std::uint32_t replyLength) {
    const auto wire = wireBytes(request);
    if (wire.empty()) return std::nullopt;

    std::vector<std::uint8_t> reply(replyLength, 0);
    logIntel("Read: replyType=" + std::to_string(replyTransactionType_) + " sendBytes=" +
             std::to_string(wire.size()) + " replyBytes=" + std::to_string(replyLength));

    platform::I2CRequest transfer;
    transfer.sendTransactionType = platform::kI2CSimpleTransactionType;
    transfer.replyTransactionType = replyTransactionType_;
    transfer.sendAddress = kSendAddress;
    transfer.replyAddress = kReplyAddress;
    transfer.replySubAddress = kReplySubAddress;
    transfer.minReplyDelay = kMinReplyDelay;
    transfer.sendBuffer = wire.data();
    transfer.sendBytes = static_cast<std::uint32_t>(wire.size());
    transfer.replyBuffer = reply.data();
    transfer.replyBytes = replyLength;
    if (!send(transfer)) return std::nullopt;
    return reply;
}

bool IntelTransport::send(platform::I2CRequest& request) {
    std::uint32_t count = 0;
    if (!i2c_ || i2c_->i2cInterfaceCount(framebufferService_, count) != platform::kSuccess ||
        count == 0) {
        logIntel("No I2C buses on service " + std::to_string(framebufferService_));
        return false;
    }

    // Which of a framebuffer's buses reaches the monitor is not known in advance, so each
    // transfer tries them in order; a failing bus never ends the scan.
    for (std::uint32_t bus = 0; bus < count; ++bus) {
        platform::IOObject interface = 0;
        if (i2c_->copyI2CInterfaceForBus(framebufferService_, bus, interface) !=
                platform::kSuccess ||
            interface == 0) {
            continue;
        }
        platform::I2CConnection connection = 0;
        if (i2c_->interfaceOpen(interface, 0, connection) != platform::kSuccess) {
            if (registry_) registry_->release(interface);
            continue;
        }
        // The bus needs a moment after opening before it carries a request reliably.
        if (clock_) clock_->sleepFor(kBusOpenWait);

        logIntel("IOI2CSendRequest on bus " + std::to_string(bus) + "...");
        request.result = platform::kSuccess; // this bus's outcome only
        const platform::KernReturn ret = i2c_->sendRequest(connection, 0, request);
        logIntel("IOI2CSendRequest result: ret=" + std::to_string(ret) +
                 " request.result=" + std::to_string(request.result));
        i2c_->interfaceClose(connection, 0);
        if (registry_) registry_->release(interface);
        if (ret == platform::kSuccess && request.result == platform::kSuccess) return true;
    }
    return false;
}

} // namespace pw
