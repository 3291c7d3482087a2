#include "platform/macos/AppleSiliconDiscovery.h"

#include "base/SystemLog.h"
#include "platform/Edid.h"
#include "platform/macos/RegistryText.h"
#include "platform/macos/AppleSiliconTransport.h"

#include <cstring>
#include <optional>

namespace pw::macos {

namespace {

constexpr std::string_view kProxyClass = "DCPAVServiceProxy";
constexpr std::string_view kEmbeddedLocation = "Embedded";
constexpr int kMaxParentSteps = 10;

// Text of a zero-terminated buffer that may be full without a terminator.
template <std::size_t N> std::string bufferText(const char (&buffer)[N]) {
    return std::string(buffer, strnlen(buffer, N));
}

// The framebuffer names are plain ASCII, so comparing the raw bytes gives the same answer
// as comparing the name after repairing malformed UTF-8: a repaired sequence becomes
// U+FFFD, which no framebuffer name contains.
bool isFramebufferName(const std::string& name) {
    return name == "IOMobileFramebufferShim" || name == "AppleCLCD2";
}

} // namespace

std::optional<platform::PropertyBytes> findEDID(platform::Registry& registry,
                                                platform::IOObject service) {
    // The walk below releases every entry it leaves behind, the first one included, so
    // it starts with a reference of its own and the caller's stays untouched.
    registry.retain(service);
    platform::IOObject current = service;
    bool found = false;
    for (int step = 0; step < kMaxParentSteps; ++step) {
        platform::IOObject parent = 0;
        const auto result = registry.parentEntry(current, platform::kIOServicePlane, parent);
        registry.release(current);
        if (result != platform::kSuccess || parent == 0) return std::nullopt;
        current = parent;

        char name[128] = {};
        if (registry.nameInPlane(current, platform::kIOServicePlane, name) == platform::kSuccess &&
            isFramebufferName(bufferText(name))) {
            found = true;
            break;
        }
    }
    if (!found) {
        registry.release(current);
        return std::nullopt;
    }
    auto edid = registry.property(current, "IODisplayEDID");
    registry.release(current);
    if (!edid || !edid->bytes()) return std::nullopt;
    return *edid->bytes();
}

std::vector<DisplayTransportMatch>
findAppleSiliconTransports(platform::Registry& registry, platform::AVServiceFactory& avServices,
                           const std::shared_ptr<platform::Clock>& clock) {
    const auto& log = SystemLog::display();
    std::vector<DisplayTransportMatch> matches;

    platform::IOObject iterator = 0;
    if (registry.getMatchingServices(kProxyClass, iterator) != platform::kSuccess) {
        log.error("Failed to find DCPAVServiceProxy services");
        return matches;
    }

    std::int64_t position = 0;
    while (const platform::IOObject service = registry.iteratorNext(iterator)) {
        ++position; // skipped services count too: the position names the service
        std::string location;
        if (auto value = registry.property(service, "Location"); value && value->string()) {
            location = *value->string();
        }
        log.debug("Found DCPAVServiceProxy: Location=" + location);

        if (location == kEmbeddedLocation) {
            registry.release(service);
            continue;
        }
        auto avService = avServices.createWithService(service);
        if (!avService) {
            log.error("IOAVServiceCreateWithService failed for proxy at location: " + location);
            registry.release(service);
            continue;
        }

        DisplayTransportMatch match;
        if (auto edid = findEDID(registry, service)) {
            // The monitor's own identity lets enumeration tell several monitors apart;
            // an EDID that fails its checks says nothing reliable, so it stays unknown.
            const auto parsed = platform::Edid::parse(*edid);
            if (parsed.valid) {
                match.vendorID = parsed.vendor;
                match.productID = parsed.product;
                match.serialNumber = parsed.serial;
            }
            match.edid = *edid;
        }
        match.ioDisplayLocation = registryPath(registry, service);
        match.transport = std::make_shared<AppleSiliconTransport>(std::move(avService), clock);
        match.serviceLocation = position;
        matches.push_back(std::move(match));

        log.info("Created Apple Silicon transport for external display (location: " + location +
                 ")");
        registry.release(service);
    }

    log.debug("Found " + std::to_string(matches.size()) + " external transport(s)");
    registry.release(iterator);
    return matches;
}

} // namespace pw::macos
