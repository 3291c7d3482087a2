#pragma once

#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::linuxdesktop {

// The media keys through KDE's global-shortcut service (org.kde.kglobalaccel on the
// session bus, or the bus at `busAddress`), for Wayland and for keys the X server gave to
// someone else.
//
// Started, the source registers the component "panelwright" with one action per wanted
// key and asks for the key. The service grants a key no other component holds and refuses
// the rest: each refused key is named in one line and left to its holder. Presses and
// releases come as signals of the component, accepted only from the service itself.
// Wanting no keys marks the actions inactive (the keys go back to the desktop); stopped,
// they are unregistered.
class KGlobalAccelKeys final : public KeyHoldingSource {
public:
    // `keys`: the key names to ask for ("XF86MonBrightnessUp", ...); all five by default.
    KGlobalAccelKeys(std::optional<std::string> busAddress, DesktopLog log,
                     std::vector<std::string> keys = {});
    ~KGlobalAccelKeys() override;

    // Whether the service is on the bus now (one call, bounded by the bus timeout).
    static bool available(const std::optional<std::string>& busAddress, std::string& whyNot);

    void want(const platform::KeyWish& wish) override;
    // `refused`, after one logged line, when the service does not answer. Then the source
    // holds the keys the service granted (heldKeys).
    std::optional<platform::KeysError> start(OnKey onKey) override;
    void stop() override;
    std::vector<std::string> heldKeys() const override;

private:
    std::optional<std::string> busAddress_;
    DesktopLog log_;
    std::vector<std::string> keys_;
    std::shared_ptr<KeyDelivery> delivery_ = std::make_shared<KeyDelivery>();
    std::unique_ptr<class BusKeyTap> tap_;
};

} // namespace pw::linuxdesktop
