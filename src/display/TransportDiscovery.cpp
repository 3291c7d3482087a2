#include "display/TransportDiscovery.h"

#include "app/DiagnosticLog.h"
#include "app/SystemLog.h"
#include "display/AppleSiliconDiscovery.h"
#include "display/DisplayManager.h"
#include "display/IntelDiscovery.h"
#include "display/LinuxDiscovery.h"

#include <chrono>
#include <string>

namespace pw {

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

// --- Apple Silicon: every connection's AV service, found once and paired up front ------

class AppleSiliconEnumeration final : public TransportDiscovery::Enumeration {
public:
    AppleSiliconEnumeration(const platform::Platform& platform,
                            const TransportDiscovery::Matcher& matcher,
                            const std::vector<platform::DisplayID>& ids)
        : matcher_(matcher) {
        if (platform.registry && platform.avServices) {
            transports_ = findAppleSiliconTransports(*platform.registry, *platform.avServices,
                                                     platform.clock);
        }
        logDisplay("Found " + num(transports_.size()) + " Apple Silicon transport(s)");

        // With several channels each external display claims its own, decided for all of
        // them at once so that a better fit further down the list is not taken by an
        // earlier display.
        if (transports_.size() >= 2 && platform.displays) {
            auto& displays = *platform.displays;
            for (const auto id : ids) {
                if (displays.isBuiltin(id)) continue;
                claimants_.push_back({id, displays.vendorNumber(id), displays.modelNumber(id),
                                      displays.serialNumber(id)});
            }
            pairing_ = DisplayManager::pairTransports(claimants_, transports_);
        }
    }

    std::optional<DisplayTransportMatch> transportFor(platform::DisplayID id) override {
        if (transports_.size() < 2) return matcher_(id, transports_);
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
    const TransportDiscovery::Matcher& matcher_;
    std::vector<DisplayTransportMatch> transports_;
    std::vector<DisplayManager::DisplayIdentity> claimants_;
    std::vector<std::optional<std::size_t>> pairing_;
};

class AppleSiliconDiscovery final : public TransportDiscovery {
public:
    AppleSiliconDiscovery(platform::Platform platform, Matcher matcher)
        : platform_(std::move(platform)), matcher_(std::move(matcher)) {}

    std::string_view architectureLine() const override {
        return "Architecture: arm64, finding Apple Silicon transports";
    }
    std::unique_ptr<Enumeration> begin(const std::vector<platform::DisplayID>& ids) override {
        return std::make_unique<AppleSiliconEnumeration>(platform_, matcher_, ids);
    }
    void waitBeforeProbe() override {}
    std::string_view watchedClass() const override {
        return DisplayManager::kAppleSiliconWatchedClass;
    }

private:
    platform::Platform platform_;
    Matcher matcher_;
};

// --- Intel: the window server's framebuffer per display, else every framebuffer --------

class IntelEnumeration final : public TransportDiscovery::Enumeration {
public:
    IntelEnumeration(const platform::Platform& platform, const TransportDiscovery::Matcher& matcher)
        : platform_(platform), matcher_(matcher) {}

    std::optional<DisplayTransportMatch> transportFor(platform::DisplayID id) override {
        const auto& systemLog = SystemLog::display();
        logIntel("Trying CGSServiceForDisplayNumber for display " + num(id) + "...");
        if (auto transport = intelTransportForDisplay(platform_, id)) {
            logIntel("CGS transport OK for display " + num(id) +
                     ", service=" + num(transport->framebufferService()));
            systemLog.info("Intel: direct CGS transport for display " + num(id));
            // Nothing is known about the monitor here beyond the display itself; an empty
            // EDID text keeps the EDID name source out of it.
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
            fallback_ = findIntelTransports(platform_);
            logIntel("Fallback found " + num(fallback_->size()) + " transport(s)");
        }
        auto match = matcher_(id, *fallback_);
        if (match) {
            logIntel("Fallback match found: vendor=" + num(match->vendorID) +
                     " product=" + num(match->productID));
        }
        return match;
    }

private:
    const platform::Platform& platform_;
    const TransportDiscovery::Matcher& matcher_;
    std::optional<std::vector<DisplayTransportMatch>> fallback_;
};

class IntelDiscovery final : public TransportDiscovery {
public:
    // Framebuffer I2C misbehaves when probes of different displays follow too closely.
    static constexpr std::chrono::microseconds kProbeGap{200'000};

    IntelDiscovery(platform::Platform platform, Matcher matcher)
        : platform_(std::move(platform)), matcher_(std::move(matcher)) {}

    std::string_view architectureLine() const override {
        return "Architecture: x86_64, will use Intel transport discovery";
    }
    std::unique_ptr<Enumeration> begin(const std::vector<platform::DisplayID>&) override {
        return std::make_unique<IntelEnumeration>(platform_, matcher_);
    }
    void waitBeforeProbe() override {
        DiagnosticLog::log("DDC", "Waiting 200ms before probing next display...");
        if (platform_.clock) platform_.clock->sleepFor(kProbeGap);
    }
    std::string_view watchedClass() const override { return DisplayManager::kIntelWatchedClass; }

private:
    platform::Platform platform_;
    Matcher matcher_;
};

// --- A machine that did not say what it is: no channel is looked for -------------------

class NoDiscovery final : public TransportDiscovery {
    class Nothing final : public Enumeration {
    public:
        std::optional<DisplayTransportMatch> transportFor(platform::DisplayID) override {
            return std::nullopt;
        }
    };

public:
    std::string_view architectureLine() const override {
        return "Machine kind not set: no display channels are looked for";
    }
    std::unique_ptr<Enumeration> begin(const std::vector<platform::DisplayID>&) override {
        return std::make_unique<Nothing>();
    }
    void waitBeforeProbe() override {}
    std::string_view watchedClass() const override { return {}; }
    // Nothing to watch: no channel of such a machine is ever known.
    bool startWatching(std::function<void()>) override { return true; }
};

} // namespace

std::unique_ptr<TransportDiscovery> makeTransportDiscovery(const platform::Platform& platform,
                                                           TransportDiscovery::Matcher matcher) {
    switch (platform.flavor) {
    case platform::Flavor::intel:
        return std::make_unique<IntelDiscovery>(platform, std::move(matcher));
    case platform::Flavor::linux:
        return makeLinuxDiscovery(platform);
    case platform::Flavor::appleSilicon:
        return std::make_unique<AppleSiliconDiscovery>(platform, std::move(matcher));
    case platform::Flavor::unset:
        break;
    }
    return std::make_unique<NoDiscovery>();
}

} // namespace pw
