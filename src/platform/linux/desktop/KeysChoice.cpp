#include "platform/linux/desktop/KeysChoice.h"

#include "platform/linux/desktop/KGlobalAccelKeys.h"
#include "platform/linux/desktop/MediaKeyEvents.h"
#include "platform/linux/desktop/PortalKeys.h"
#include "platform/linux/desktop/X11MediaKeys.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Keyboard";

// Two taps that act as one: each holds some of the keys.
class PairedTap final : public KeyHoldingTap {
public:
    PairedTap(std::shared_ptr<KeyHoldingTap> first, std::shared_ptr<KeyHoldingTap> second)
        : taps_{std::move(first), std::move(second)} {}
    void enable(bool enabled) override {
        for (const auto& tap : taps_)
            tap->enable(enabled);
    }
    void invalidate() override {
        for (const auto& tap : taps_)
            tap->invalidate();
    }
    std::shared_ptr<platform::TapRunLoopSource> createRunLoopSource() override {
        auto source = std::make_shared<PairedSource>();
        for (const auto& tap : taps_) {
            auto one = tap->createRunLoopSource();
            if (!one) return nullptr;
            source->sources.push_back(std::move(one));
        }
        return source;
    }
    std::vector<std::string> heldKeys() const override {
        std::vector<std::string> keys;
        for (const auto& tap : taps_)
            for (auto& key : tap->heldKeys())
                keys.push_back(std::move(key));
        return keys;
    }

private:
    struct PairedSource final : platform::TapRunLoopSource {
        std::vector<std::shared_ptr<platform::TapRunLoopSource>> sources;
        void addToRunLoop(const std::shared_ptr<RunLoop>& runLoop) override {
            for (const auto& source : sources)
                source->addToRunLoop(runLoop);
        }
        void invalidate() override {
            for (const auto& source : sources)
                source->invalidate();
        }
    };
    std::shared_ptr<KeyHoldingTap> taps_[2];
};

// X key grabs, with KDE's global shortcuts for the keys the X server gave to another
// program (a desktop daemon that grabbed them first).
class XWithFallbackTaps final : public platform::EventTaps {
public:
    XWithFallbackTaps(const SessionFacts& session, std::optional<std::string> busAddress,
                      DesktopLog log)
        : x_(session.xDisplay, log), busAddress_(std::move(busAddress)), log_(std::move(log)) {
        x_.leaveRefusedKeysUnnamed();
    }

    std::shared_ptr<platform::EventTap> createTap(platform::TapLocation location,
                                                  platform::TapPlacement placement,
                                                  platform::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  platform::TapCallback callback) override {
        auto made = x_.createTap(location, placement, options, eventMask, callback);
        auto xTap = std::dynamic_pointer_cast<KeyHoldingTap>(made);
        const std::uint64_t systemDefinedBit = std::uint64_t{1}
                                               << platform::kEventTypeSystemDefined;
        if (!xTap || !(eventMask & systemDefinedBit)) return made;

        const auto held = xTap->heldKeys();
        std::vector<std::string> refused;
        for (auto& name : allMediaKeyNames())
            if (std::find(held.begin(), held.end(), name) == held.end()) refused.push_back(name);
        if (refused.empty()) return made;

        std::string whyNot;
        std::shared_ptr<KeyHoldingTap> kdeTap;
        if (KGlobalAccelEventTaps::available(busAddress_, whyNot))
            kdeTap = std::dynamic_pointer_cast<KeyHoldingTap>(
                KGlobalAccelEventTaps(busAddress_, log_, refused)
                    .createTap(location, placement, options, eventMask, std::move(callback)));
        if (!kdeTap) {
            // Nobody else gives them: the keys stay with the program that grabbed them.
            for (const auto& name : refused)
                log_.error(kCategory, keyTakenLine(*mediaKeyNamed(name)));
            return made;
        }
        std::string names;
        for (const auto& name : kdeTap->heldKeys())
            names += (names.empty() ? "" : ", ") + std::string(mediaKeyNamed(name)->label);
        if (!names.empty())
            log_.info(kCategory, "Keys another program grabbed on the X server come through "
                                 "KDE's global shortcuts: " +
                                     names);
        return std::make_shared<PairedTap>(std::move(xTap), std::move(kdeTap));
    }

private:
    X11EventTaps x_;
    std::optional<std::string> busAddress_;
    DesktopLog log_;
};

} // namespace

std::shared_ptr<platform::EventTaps> chooseKeys(const SessionFacts& session,
                                                const std::optional<std::string>& busAddress,
                                                DesktopLog log) {
    std::string whyNot;
    if (session.wayland()) {
        if (KGlobalAccelEventTaps::available(busAddress, whyNot)) {
            log.info(kCategory, "Media keys through KDE's global shortcuts");
            return std::make_shared<KGlobalAccelEventTaps>(busAddress, log);
        }
        if (PortalEventTaps::available(busAddress, whyNot)) {
            log.info(kCategory, "Media keys through the desktop portal's global shortcuts");
            return std::make_shared<PortalEventTaps>(busAddress, log);
        }
        log.info(kCategory, "Media keys unavailable: a Wayland session lets no program grab "
                            "keys, and this desktop offers no global shortcuts to programs; "
                            "the popover and the command line still work");
        return nullptr;
    }
    if (!session.xDisplay) {
        log.info(kCategory, "Media keys unavailable: no X display");
        return nullptr;
    }
    log.info(kCategory, "Media keys through X key grabs");
    return std::make_shared<XWithFallbackTaps>(session, busAddress, log);
}

} // namespace pw::linuxdesktop
