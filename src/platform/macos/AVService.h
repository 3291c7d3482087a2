#pragma once

#include <cstdint>
#include <memory>

#include "platform/macos/Registry.h"

namespace pw::platform {

// One audio-video service of a display connection (Apple Silicon): the object
// that carries DDC/CI bytes on the connection's I2C bus. Destroying the last
// reference releases it.
class AVService {
public:
    virtual ~AVService() = default;
    // IOAVServiceWriteI2C: 0 on success, another IOKit code otherwise.
    virtual std::int32_t writeI2C(std::uint32_t chipAddress, std::uint32_t dataAddress,
                                  const std::uint8_t* bytes, std::uint32_t count) = 0;
    // IOAVServiceReadI2C into `buffer` of `size` bytes: 0 on success.
    virtual std::int32_t readI2C(std::uint32_t chipAddress, std::uint32_t offset,
                                 std::uint8_t* buffer, std::uint32_t size) = 0;
    // CFHash of the service object: equal for the same object, as stable as the object.
    virtual std::int64_t hash() const = 0;
};

class AVServiceFactory {
public:
    virtual ~AVServiceFactory() = default;
    // IOAVServiceCreateWithService: a new service object for a registry entry, or null.
    virtual std::shared_ptr<AVService> createWithService(IOObject service) = 0;
};

} // namespace pw::platform
