#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/EventTap.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

namespace pw::linuxdesktop {

// The keyboard's brightness, volume and mute keys on an X server, as event taps.
//
// A tap holds passive grabs of XF86MonBrightnessUp/Down, XF86AudioRaiseVolume,
// XF86AudioLowerVolume and XF86AudioMute on the root window, with any modifiers, on a
// connection of its own read by a thread of its own. Each press and release is turned
// into the system-defined event the key hook reads (type 14, subtype 8, data1 = media
// key code << 16 | 0x0A00 down / 0x0B00 up | 1 when repeated) and handed to the tap's
// callback on the run loop its source is attached to.
//
// A key the callback passes on goes to the desktop as if it had never been grabbed: the
// grab freezes the keyboard at the press, and the answer either lets it go on to us or
// replays it to the window with the focus. Limits: a press the callback has not
// answered within `answerLimit` is replayed; while a swallowed key is held, other keys go
// to the grab and are lost until it is released (as with any key grab on X).
//
// A grab the server refuses because another program holds the key is named in one line
// and the key is left to that program.
class X11EventTaps final : public platform::EventTaps {
public:
    explicit X11EventTaps(std::optional<std::string> displayName, DesktopLog log,
                          std::chrono::milliseconds answerLimit = std::chrono::milliseconds(1000));
    ~X11EventTaps() override;

    // Null, after one logged line, when no X server answers. A tap whose mask does not
    // ask for system-defined events grabs nothing.
    std::shared_ptr<platform::EventTap> createTap(platform::TapLocation location,
                                                  platform::TapPlacement placement,
                                                  platform::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  platform::TapCallback callback) override;

    // For a caller that tries refused keys another way and says itself what became of
    // them: taps made afterwards do not name their refused keys.
    void leaveRefusedKeysUnnamed() { nameRefusals_ = false; }

private:
    bool nameRefusals_ = true;
    std::optional<std::string> displayName_;
    DesktopLog log_;
    std::chrono::milliseconds answerLimit_;
};

// The tap itself, for callers that want to know which keys it holds.
class X11KeyTap : public KeyHoldingTap {};

} // namespace pw::linuxdesktop
