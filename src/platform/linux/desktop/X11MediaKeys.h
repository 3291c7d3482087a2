#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

namespace pw::linuxdesktop {

// The keyboard's brightness, volume and mute keys on an X server.
//
// The source holds passive grabs of the wanted keys among XF86MonBrightnessUp/Down,
// XF86AudioRaiseVolume, XF86AudioLowerVolume and XF86AudioMute on the root window, with
// any modifiers, asynchronous for pointer and keyboard: the X server never freezes the
// keyboard for us, and nothing waits for the program. A connection of its own is read by
// a thread the source owns and joins; each press and release of a grabbed key goes to the
// program's `onKey` from that thread. A grabbed key is the program's wherever the pointer
// is: an asynchronous grab cannot hand a key back to the desktop.
//
// A grab the server refuses because another program holds the key is named in one line
// and the key is left to that program. Wanting no keys gives every key back; wanting them
// again takes them again where nobody else took them meanwhile.
class X11MediaKeys final : public KeyHoldingSource {
public:
    X11MediaKeys(std::optional<std::string> displayName, DesktopLog log);
    ~X11MediaKeys() override;
    X11MediaKeys(const X11MediaKeys&) = delete;
    X11MediaKeys& operator=(const X11MediaKeys&) = delete;

    void want(const platform::KeyWish& wish) override;
    // `refused`, after one logged line, when no X server answers.
    std::optional<platform::KeysError> start(OnKey onKey) override;
    void stop() override;
    std::vector<std::string> heldKeys() const override;

    // For a caller that tries refused keys another way and says itself what became of
    // them: refused keys are not named.
    void leaveRefusedKeysUnnamed() { nameRefusals_ = false; }

    struct Reader;

private:
    bool nameRefusals_ = true;
    std::optional<std::string> displayName_;
    DesktopLog log_;
    std::shared_ptr<KeyDelivery> delivery_ = std::make_shared<KeyDelivery>();
    std::unique_ptr<Reader> reader_;
};

} // namespace pw::linuxdesktop
