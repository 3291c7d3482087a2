#pragma once

#include "platform/EventTap.h"
#include "platform/linux/desktop/DesktopLog.h"

#include <memory>
#include <optional>
#include <string>

namespace pw::linuxdesktop {

// The media keys through the desktop portal's global shortcuts
// (org.freedesktop.portal.GlobalShortcuts on the session bus, or the bus at `busAddress`),
// for Wayland desktops that offer them.
//
// A tap opens a portal session and binds one shortcut per key, with the key as its
// preferred trigger. The desktop may ask the user first, so nothing waits for the answer:
// the tap comes alive when the portal's response arrives on the tap's own thread, holding
// the keys the portal bound. A refusal (the user said no, the portal failed or did not
// answer) is one line and the keys stay unavailable. Activations and deactivations from
// the portal become presses and releases. Disabled or destroyed, the session is closed and
// the keys go back to the desktop; enabled again, a new session binds them again.
class PortalEventTaps final : public platform::EventTaps {
public:
    PortalEventTaps(std::optional<std::string> busAddress, DesktopLog log);

    // Whether the portal offers global shortcuts now (its "version" property answers;
    // one call bounded by the bus timeout).
    static bool available(const std::optional<std::string>& busAddress, std::string& whyNot);

    // Null, after one logged line, when the portal is not there. Otherwise a tap at once;
    // its keys follow when the portal has bound them.
    std::shared_ptr<platform::EventTap> createTap(platform::TapLocation location,
                                                  platform::TapPlacement placement,
                                                  platform::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  platform::TapCallback callback) override;

private:
    std::optional<std::string> busAddress_;
    DesktopLog log_;
};

} // namespace pw::linuxdesktop
