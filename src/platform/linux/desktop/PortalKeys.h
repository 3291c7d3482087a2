#pragma once

#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <memory>
#include <optional>
#include <string>

namespace pw::linuxdesktop {

// The media keys through the desktop portal's global shortcuts
// (org.freedesktop.portal.GlobalShortcuts on the session bus, or the bus at `busAddress`),
// for Wayland desktops that offer them.
//
// Started, the source opens a portal session and binds one shortcut per wanted key, with
// the key as its preferred trigger. The desktop may ask the user first, so nothing waits
// for the answer: the keys come alive when the portal's response arrives on the source's
// own thread, holding the keys the portal bound. A refusal (the user said no, the portal
// failed or did not answer) is one line and the keys stay unavailable. Activations and
// deactivations from the portal become presses and releases. Wanting no keys, or stopped,
// the session is closed and the keys go back to the desktop; wanted again, a new session
// binds them again.
class PortalKeys final : public KeyHoldingSource {
public:
    PortalKeys(std::optional<std::string> busAddress, DesktopLog log);
    ~PortalKeys() override;

    // Whether the portal offers global shortcuts now (its "version" property answers;
    // one call bounded by the bus timeout).
    static bool available(const std::optional<std::string>& busAddress, std::string& whyNot);

    void want(const platform::KeyWish& wish) override;
    // `refused`, after one logged line, when the portal is not there. Otherwise the source
    // runs at once; its keys follow when the portal has bound them.
    std::optional<platform::KeysError> start(OnKey onKey) override;
    void stop() override;
    std::vector<std::string> heldKeys() const override;

private:
    std::optional<std::string> busAddress_;
    DesktopLog log_;
    std::shared_ptr<KeyDelivery> delivery_ = std::make_shared<KeyDelivery>();
    std::unique_ptr<class BusKeyTap> tap_;
};

} // namespace pw::linuxdesktop
