#pragma once

#include "platform/EventTap.h"
#include "platform/linux/desktop/DesktopLog.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::linuxdesktop {

// The media keys through KDE's global-shortcut service (org.kde.kglobalaccel on the
// session bus, or the bus at `busAddress`), for Wayland and for keys the X server gave to
// someone else.
//
// A tap registers the component "panelwright" with one action per key and asks for the
// key. The service grants a key no other component holds and refuses the rest: each
// refused key is named in one line and left to its holder. Presses and releases come as
// signals of the component, accepted only from the service itself. Disabled, the actions
// are marked inactive (the keys go back to the desktop); destroyed, they are unregistered.
class KGlobalAccelEventTaps final : public platform::EventTaps {
public:
    // `keys`: the key names to ask for ("XF86MonBrightnessUp", ...); all five by default.
    KGlobalAccelEventTaps(std::optional<std::string> busAddress, DesktopLog log,
                          std::vector<std::string> keys = {});

    // Whether the service is on the bus now (one call, bounded by the bus timeout).
    static bool available(const std::optional<std::string>& busAddress, std::string& whyNot);

    // Null, after one logged line, when the service does not answer. The tap holds the
    // keys the service granted (KeyHoldingTap::heldKeys).
    std::shared_ptr<platform::EventTap> createTap(platform::TapLocation location,
                                                  platform::TapPlacement placement,
                                                  platform::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  platform::TapCallback callback) override;

private:
    std::optional<std::string> busAddress_;
    DesktopLog log_;
    std::vector<std::string> keys_;
};

} // namespace pw::linuxdesktop
