#include "platform/macos/MacMonitors.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"
#include "platform/Edid.h"
#include "platform/macos/AppleSiliconDiscovery.h"
#include "platform/macos/IntelDiscovery.h"

#include <algorithm>

namespace pw::macos {

namespace {

std::string num(std::uint64_t value) {
    return std::to_string(value);
}

void logDisplay(std::string_view message) {
    DiagnosticLog::log("Display", message);
}

void logIntel(std::string_view message) {
    DiagnosticLog::log("Intel", message);
}

DisplayIdentity identityOf(platform::DisplayServices& displays, platform::DisplayID id) {
    return {id, displays.vendorNumber(id), displays.modelNumber(id), displays.serialNumber(id)};
}

void drain(platform::Registry& registry, platform::IOObject iterator) {
    while (const auto object = registry.iteratorNext(iterator))
        registry.release(object);
}

} // namespace

// The channels of one enumeration. Whatever it discovered (and the references those
// channels hold) is dropped with it; channels handed out live on in the monitors listed.
class MacMonitors::Channels {
public:
    Channels(const MacParts& parts, const std::vector<platform::DisplayID>& ids) : parts_(parts) {
        if (parts.kind != MacParts::Kind::appleSilicon) return;
        if (parts.registry && parts.avServices)
            transports_ =
                findAppleSiliconTransports(*parts.registry, *parts.avServices, parts.clock);
        logDisplay("Found " + num(transports_.size()) + " Apple Silicon transport(s)");
        // With several channels each external display claims its own, decided for all of
        // them at once so that a better fit further down the list is not taken by an
        // earlier display.
        if (transports_.size() >= 2) {
            for (const auto id : ids)
                if (!parts.displays->isBuiltin(id))
                    claimants_.push_back(identityOf(*parts.displays, id));
            pairing_ = pairTransports(claimants_, transports_);
        }
    }

    // The channel for an external display, or nothing. Called once per display, in order.
    std::optional<DisplayTransportMatch> transportFor(platform::DisplayID id) {
        if (parts_.kind == MacParts::Kind::intel) return intelTransportFor(id);
        if (transports_.size() < 2)
            return matchTransport(identityOf(*parts_.displays, id), transports_);
        for (std::size_t k = 0; k < claimants_.size(); ++k) {
            if (claimants_[k].id != id || !pairing_[k]) continue;
            const auto& match = transports_[*pairing_[k]];
            logDisplay("Display " + num(id) + ": paired by EDID identity with service " +
                       std::to_string(match.serviceLocation));
            return match;
        }
        logDisplay("Display " + num(id) + ": none of the " + num(transports_.size()) +
                   " transports carries its EDID identity");
        return std::nullopt;
    }

private:
    // The window server's framebuffer for the display, else every framebuffer's best fit.
    std::optional<DisplayTransportMatch> intelTransportFor(platform::DisplayID id) {
        const auto& systemLog = SystemLog::display();
        logIntel("Trying CGSServiceForDisplayNumber for display " + num(id) + "...");
        if (auto transport = intelTransportForDisplay(parts_, id)) {
            logIntel("CGS transport OK for display " + num(id) +
                     ", service=" + num(transport->framebufferService()));
            systemLog.info("Intel: direct CGS transport for display " + num(id));
            // Nothing is known about the monitor here beyond the display itself.
            DisplayTransportMatch match;
            match.transport = std::move(transport);
            return match;
        }
        logIntel("CGS lookup FAILED for display " + num(id) + ", trying framebuffer iteration");
        systemLog.debug("Intel: CGS lookup failed for display " + num(id) +
                        ", trying framebuffer iteration");
        // Listing the framebuffers creates a transport for each, so it happens at most once
        // per enumeration, for the first display that needs it.
        if (!fallback_) {
            logIntel("Building fallback transport list via IOFramebuffer iteration...");
            fallback_ = findIntelTransports(parts_);
            logIntel("Fallback found " + num(fallback_->size()) + " transport(s)");
        }
        auto match = matchTransport(identityOf(*parts_.displays, id), *fallback_);
        if (match)
            logIntel("Fallback match found: vendor=" + num(match->vendorID) +
                     " product=" + num(match->productID));
        return match;
    }

    const MacParts& parts_;
    std::vector<DisplayTransportMatch> transports_;
    std::vector<DisplayIdentity> claimants_;
    std::vector<std::optional<std::size_t>> pairing_;
    std::optional<std::vector<DisplayTransportMatch>> fallback_;
};

MacMonitors::MacMonitors(MacParts parts) : parts_(std::move(parts)) {}

MacMonitors::~MacMonitors() = default;

std::string MacMonitors::architectureLine() {
    return parts_.kind == MacParts::Kind::intel
               ? "Architecture: x86_64, will use Intel transport discovery"
               : "Architecture: arm64, finding Apple Silicon transports";
}

platform::Clock::Duration MacMonitors::probeSpacing() {
    if (parts_.kind == MacParts::Kind::intel) return kIntelProbeGap;
    return platform::Clock::Duration::zero();
}

std::vector<platform::MonitorInfo> MacMonitors::connected(std::optional<platform::DisplayID> only) {
    std::vector<platform::MonitorInfo> result;
    if (!parts_.displays) return result; // no window server: nothing to list
    auto& displays = *parts_.displays;
    auto ids = displays.activeDisplayList(kMaxDisplays);
    if (ids.size() > kMaxDisplays) ids.resize(kMaxDisplays);
    logDisplay("The machine lists " + num(ids.size()) + " active display(s)");

    // The channel search sees every display, even with `only`: twins pair in order.
    Channels channels(parts_, ids);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const auto id = ids[i];
        platform::MonitorInfo info;
        info.id = id;
        info.builtIn = displays.isBuiltin(id);
        info.vendor = displays.vendorNumber(id);
        info.model = displays.modelNumber(id);
        if (info.builtIn) {
            if (!only || id == *only) result.push_back(std::move(info));
            continue;
        }
        if (isAppleDisplay(id, info.vendor)) {
            logDisplay("Display " + num(id) + ": Apple display, skipping DDC");
            SystemLog::display().info("Skipping Apple display " + num(id) +
                                      " — DDC not supported");
            continue;
        }
        auto match = channels.transportFor(id);
        if (only && id != *only) continue;
        if (match) {
            info.transport = std::move(match->transport);
            info.edid = std::move(match->edid);
            info.location = match->ioDisplayLocation;
        }
        info.systemName = systemName(id);
        result.push_back(std::move(info));
    }
    return result;
}

std::optional<std::string> MacMonitors::systemName(platform::DisplayID id) {
    auto& displays = *parts_.displays;
    if (auto map = displays.productNames(id); map && !map->wrongType) {
        const auto& names = map->names;
        const auto english = std::find_if(names.begin(), names.end(),
                                          [](const auto& entry) { return entry.first == "en_US"; });
        // Names become settings keys and menu titles, so control characters never pass.
        if (english != names.end()) {
            if (auto name = platform::displayNameFrom(english->second)) return name;
        } else if (!names.empty()) {
            if (auto name = platform::displayNameFrom(names.front().second)) return name;
        }
    }
    if (parts_.screens) {
        for (const auto& screen : parts_.screens->screens()) {
            if (screen.number != id) continue;
            if (screen.localizedName == "Unknown") continue;
            if (auto name = platform::displayNameFrom(screen.localizedName)) return name;
        }
    }
    const auto vendor = displays.vendorNumber(id);
    if (vendor == 0) return std::nullopt;
    return "Display " + num(vendor) + "-" + num(displays.modelNumber(id));
}

bool MacMonitors::isAppleDisplay(platform::DisplayID id, std::uint32_t vendor) {
    auto& displays = *parts_.displays;
    if (displays.isBuiltin(id)) return true;
    float brightness = 0;
    if (displays.displayServicesGetBrightness(id, brightness) == 0) {
        logDisplay("Display " + num(id) + " reports a built-in brightness — Apple display");
        return true;
    }
    return vendor == kAppleVendor;
}

bool MacMonitors::watch(std::function<void()> onChange) {
    if (!parts_.registry || !parts_.mainQueue) return false;
    // One registration for the machine's life; a later listener takes the reports over.
    *onChange_ = std::move(onChange);
    if (watching_) return true;
    auto& registry = *parts_.registry;
    notificationPort_ = registry.createNotificationPort();
    if (notificationPort_ == 0) return false; // the list changes only on refresh and restart
    if (!registry.attachToMainRunLoop(notificationPort_)) return false;

    const auto watched = parts_.kind == MacParts::Kind::intel ? kIntelWatchedClass
                                                               : kAppleSiliconWatchedClass;
    // The registry keeps the handler, so the handler must not keep the registry. Its
    // objects are released even when the listener is gone, so none of them leaks.
    const auto handler = [weakRegistry = std::weak_ptr(parts_.registry),
                          weakChange = std::weak_ptr(onChange_)](platform::IOObject iterator) {
        if (auto alive = weakRegistry.lock()) drain(*alive, iterator);
        if (auto change = weakChange.lock(); change && *change) (*change)();
    };

    if (registry.addMatchingNotification(notificationPort_, platform::kFirstMatchNotification,
                                         watched, handler, addedIterator_) != platform::kSuccess) {
        SystemLog::display().error("Display monitoring could not be registered");
        return false;
    }
    drain(registry, addedIterator_); // arms the notification; what is already there is not news
    if (registry.addMatchingNotification(notificationPort_, platform::kTerminateNotification,
                                         watched, handler,
                                         removedIterator_) != platform::kSuccess) {
        SystemLog::display().error("Display monitoring could not be registered");
        return false;
    }
    drain(registry, removedIterator_);
    watching_ = true;
    return true;
}

} // namespace pw::macos
