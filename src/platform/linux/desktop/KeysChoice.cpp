#include "platform/linux/desktop/KeysChoice.h"

#include "platform/linux/desktop/KGlobalAccelKeys.h"
#include "platform/linux/desktop/MediaKeyEvents.h"
#include "platform/linux/desktop/PortalKeys.h"
#include "platform/linux/desktop/X11MediaKeys.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Keyboard";

// X key grabs, with KDE's global shortcuts for the keys the X server gave to another
// program (a desktop daemon that grabbed them first).
class XWithFallbackKeys final : public KeyHoldingSource {
public:
    XWithFallbackKeys(const SessionFacts& session, std::optional<std::string> busAddress,
                      DesktopLog log)
        : x_(session.xDisplay, log), busAddress_(std::move(busAddress)), log_(std::move(log)) {
        x_.leaveRefusedKeysUnnamed();
    }

    void want(const platform::KeyWish& wish) override {
        x_.want(wish);
        if (kde_) kde_->want(wish);
        wish_ = wish;
    }

    std::optional<platform::KeysError> start(OnKey onKey) override {
        stop();
        if (auto error = x_.start(onKey)) return error;
        const auto held = x_.heldKeys();
        std::vector<std::string> refused;
        for (auto& name : allMediaKeyNames())
            if (wish_.keys.contains(mediaKeyNamed(name)->key) &&
                std::find(held.begin(), held.end(), name) == held.end())
                refused.push_back(name);
        if (refused.empty()) return std::nullopt;

        std::string whyNot;
        if (KGlobalAccelKeys::available(busAddress_, whyNot)) {
            auto kde = std::make_unique<KGlobalAccelKeys>(busAddress_, log_, refused);
            kde->want(wish_);
            if (!kde->start(std::move(onKey))) kde_ = std::move(kde);
        }
        if (!kde_) {
            // Nobody else gives them: the keys stay with the program that grabbed them.
            for (const auto& name : refused)
                log_.error(kCategory, keyTakenLine(*mediaKeyNamed(name)));
            return std::nullopt;
        }
        std::string names;
        for (const auto& name : kde_->heldKeys())
            names += (names.empty() ? "" : ", ") + std::string(mediaKeyNamed(name)->label);
        if (!names.empty())
            log_.info(kCategory, "Keys another program grabbed on the X server come through "
                                 "KDE's global shortcuts: " +
                                     names);
        return std::nullopt;
    }

    void stop() override {
        x_.stop();
        kde_.reset();
    }

    std::vector<std::string> heldKeys() const override {
        auto keys = x_.heldKeys();
        if (kde_)
            for (auto& key : kde_->heldKeys())
                keys.push_back(std::move(key));
        return keys;
    }

private:
    X11MediaKeys x_;
    std::unique_ptr<KGlobalAccelKeys> kde_;
    platform::KeyWish wish_;
    std::optional<std::string> busAddress_;
    DesktopLog log_;
};

} // namespace

std::shared_ptr<platform::MediaKeys> chooseKeys(const SessionFacts& session,
                                                const std::optional<std::string>& busAddress,
                                                DesktopLog log) {
    std::string whyNot;
    if (session.wayland()) {
        if (KGlobalAccelKeys::available(busAddress, whyNot)) {
            log.info(kCategory, "Media keys through KDE's global shortcuts");
            return std::make_shared<KGlobalAccelKeys>(busAddress, log);
        }
        if (PortalKeys::available(busAddress, whyNot)) {
            log.info(kCategory, "Media keys through the desktop portal's global shortcuts");
            return std::make_shared<PortalKeys>(busAddress, log);
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
    return std::make_shared<XWithFallbackKeys>(session, busAddress, log);
}

} // namespace pw::linuxdesktop
