#pragma once

#include <cstdint>
#include <optional>

#include "platform/macos/DisplayServices.h"
#include "platform/macos/Registry.h"

namespace pw::platform {

// One I2C transfer on a framebuffer's bus, with the fields of the operating system's
// request record that the program uses (all others are zero). The caller owns both
// buffers; `result` is filled in by `sendRequest`.
struct I2CRequest {
    std::uint32_t sendTransactionType = 0;  // 1 = simple
    std::uint32_t replyTransactionType = 0; // 0 = none, 1 = simple, 2 = DDC/CI reply
    std::uint32_t sendAddress = 0;
    std::uint32_t replyAddress = 0;
    std::uint8_t sendSubAddress = 0;
    std::uint8_t replySubAddress = 0;
    std::uint32_t minReplyDelay = 0;
    const std::uint8_t* sendBuffer = nullptr;
    std::uint32_t sendBytes = 0;
    std::uint8_t* replyBuffer = nullptr;
    std::uint32_t replyBytes = 0;
    KernReturn result = 0;
};

inline constexpr std::uint32_t kI2CNoTransactionType = 0;
inline constexpr std::uint32_t kI2CSimpleTransactionType = 1;
inline constexpr std::uint32_t kI2CDDCciReplyTransactionType = 2;

// An open connection to one I2C interface (IOI2CConnectRef); 0 = none.
using I2CConnection = std::uint64_t;

// The option the program passes to the display information call: only the preferred name.
inline constexpr std::uint32_t kIODisplayOnlyPreferredName = 0x200;

// Framebuffer I2C on Intel Macs, and the window server's display-to-framebuffer lookup.
// Framebuffers and I2C interfaces are registry objects: handles this seam returns as
// "retained for the caller" are released through `Registry::release`.
class FramebufferI2C {
public:
    virtual ~FramebufferI2C() = default;

    // IOFBGetI2CInterfaceCount.
    virtual KernReturn i2cInterfaceCount(IOObject framebuffer, std::uint32_t& count) = 0;
    // IOFBCopyI2CInterfaceForBus: the bus's "IOFramebufferI2CInterface", retained for the caller.
    virtual KernReturn copyI2CInterfaceForBus(IOObject framebuffer, std::uint32_t bus,
                                              IOObject& interface) = 0;
    // IOI2CInterfaceOpen / IOI2CInterfaceClose.
    virtual KernReturn interfaceOpen(IOObject interface, std::uint32_t options,
                                     I2CConnection& connection) = 0;
    virtual KernReturn interfaceClose(I2CConnection connection, std::uint32_t options) = 0;
    // IOI2CSendRequest: performs the transfer synchronously and fills `request.result`.
    virtual KernReturn sendRequest(I2CConnection connection, std::uint32_t options,
                                   I2CRequest& request) = 0;

    // CGSServiceForDisplayNumber: the framebuffer service driving a display, or 0 when the
    // window server knows none. The handle is borrowed: whoever keeps it retains it.
    virtual IOObject serviceForDisplayNumber(DisplayID id) = 0;

    // IODisplayCreateInfoDictionary(framebuffer, options): nothing when there is none.
    virtual std::optional<PropertyDictionary> displayInfoDictionary(IOObject framebuffer,
                                                                    std::uint32_t options) = 0;
};

} // namespace pw::platform
