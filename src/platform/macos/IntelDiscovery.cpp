#include "platform/macos/IntelDiscovery.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"
#include "platform/macos/RegistryText.h"

#include <cstring>
#include <string>

namespace pw::macos {

namespace {

constexpr std::string_view kFramebufferClass = "IOFramebuffer";

void logIntel(std::string_view message) {
    DiagnosticLog::log("Intel", message);
}

std::string num(std::uint64_t value) {
    return std::to_string(value);
}

// A number entry of the display information, as the unsigned 32-bit value the system
// reports; 0 when it is absent or not a number.
std::uint32_t infoNumber(const platform::PropertyDictionary& info, const std::string& key) {
    const auto found = info.find(key);
    if (found == info.end() || !found->second.number()) return 0;
    return static_cast<std::uint32_t>(*found->second.number());
}

// The framebuffer's own EDID, or nothing when it has none that is a byte block.
std::vector<std::uint8_t> edidOf(platform::Registry& registry, platform::IOObject framebuffer) {
    const auto edid = registry.property(framebuffer, "IODisplayEDID");
    if (!edid || !edid->bytes()) return {};
    return *edid->bytes();
}

} // namespace

std::shared_ptr<IntelTransport> intelTransportForDisplay(const MacParts& platform,
                                                         platform::DisplayID id) {
    logIntel("CGSServiceForDisplayNumber(" + num(id) + ")...");
    // A machine without the window-server lookup goes straight to the fallback.
    const platform::IOObject service =
        platform.framebufferI2C ? platform.framebufferI2C->serviceForDisplayNumber(id) : 0;
    if (service == 0) {
        logIntel("CGSServiceForDisplayNumber failed for display " + num(id));
        return nullptr;
    }

    // Only reported: a framebuffer without buses still becomes the display's transport,
    // and its transfers then fail with their own line.
    std::uint32_t count = 0;
    if (platform.framebufferI2C->i2cInterfaceCount(service, count) != platform::kSuccess) count = 0;
    logIntel("Framebuffer service " + num(service) + ": I2C bus count=" + num(count));

    return std::make_shared<IntelTransport>(service, platform.registry, platform.framebufferI2C,
                                            platform.clock);
}

std::vector<DisplayTransportMatch> findIntelTransports(const MacParts& platform) {
    const auto& systemLog = SystemLog::display();
    std::vector<DisplayTransportMatch> matches;
    logIntel("findIntelTransports: iterating IOFramebuffer services...");

    platform::IOObject iterator = 0;
    if (!platform.registry || !platform.framebufferI2C ||
        platform.registry->getMatchingServices(kFramebufferClass, iterator) != platform::kSuccess) {
        logIntel("IOServiceGetMatchingServices(IOFramebuffer) FAILED");
        systemLog.error("Failed to find IOFramebuffer services");
        return matches;
    }
    auto& registry = *platform.registry;
    auto& i2c = *platform.framebufferI2C;

    std::uint64_t n = 0;
    while (const platform::IOObject framebuffer = registry.iteratorNext(iterator)) {
        ++n; // skipped framebuffers count too: the number names the service
        const std::string prefix = "Framebuffer[" + num(n) + "]: ";

        std::uint32_t buses = 0;
        if (i2c.i2cInterfaceCount(framebuffer, buses) != platform::kSuccess || buses == 0) {
            logIntel(prefix + "no I2C buses, skipping");
            registry.release(framebuffer);
            continue;
        }
        const auto info =
            i2c.displayInfoDictionary(framebuffer, platform::kIODisplayOnlyPreferredName);
        if (!info) {
            logIntel(prefix + "no display info dict, skipping");
            registry.release(framebuffer);
            continue;
        }
        const auto vendor = infoNumber(*info, "DisplayVendorID");
        const auto product = infoNumber(*info, "DisplayProductID");
        const auto serial = infoNumber(*info, "DisplaySerialNumber");
        logIntel(prefix + "vendor=" + num(vendor) + " product=" + num(product) +
                 " serial=" + num(serial) + " buses=" + num(buses));
        if (vendor == 0) {
            // Nothing to pair a display with: such a framebuffer drives no known monitor.
            logIntel(prefix + "vendorID=0, skipping");
            registry.release(framebuffer);
            continue;
        }

        DisplayTransportMatch match;
        match.edid = edidOf(registry, framebuffer);
        match.ioDisplayLocation = registryPath(registry, framebuffer);
        logIntel(prefix + "path=" + match.ioDisplayLocation);
        match.transport = std::make_shared<IntelTransport>(framebuffer, platform.registry,
                                                           platform.framebufferI2C, platform.clock);
        match.vendorID = vendor;
        match.productID = product;
        match.serialNumber = serial;
        match.serviceLocation = static_cast<std::int64_t>(n);
        matches.push_back(std::move(match));

        systemLog.info("Created Intel transport: vendor=" + num(vendor) + " product=" +
                       num(product) + " serial=" + num(serial) + " buses=" + num(buses));
        registry.release(framebuffer); // the transport holds its own reference
    }

    logIntel("findIntelTransports complete: " + num(matches.size()) + " transport(s)");
    systemLog.debug("Found " + num(matches.size()) + " Intel transport(s)");
    registry.release(iterator);
    return matches;
}

} // namespace pw::macos
