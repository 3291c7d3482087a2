#pragma once

#include "platform/EventTap.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pw::linuxdesktop {

// One of the keyboard keys the program takes: its X key name, the words the log uses for
// it, the media key code the key hook decodes from data1, and its code in the key
// numbering the desktop's global-shortcut service speaks.
struct MediaKeySpec {
    const char* keysym;
    const char* label;
    std::int32_t mediaCode;
    std::int32_t shortcutCode;
};

// Brightness up/down, volume up/down and mute, in the order they are taken.
std::span<const MediaKeySpec> mediaKeySpecs();
const MediaKeySpec* mediaKeyNamed(std::string_view keysym);
std::vector<std::string> allMediaKeyNames();

// Modifier flags as the key hook reads them.
inline constexpr platform::ModifierFlags kShiftFlag = 0x20000, kControlFlag = 0x40000,
                                         kOptionFlag = 0x80000, kCommandFlag = 0x100000;

// The system-defined event the key hook reads for one transition of `key`: type 14,
// subtype 8, data1 = media key code << 16 | 0x0A00 (down) or 0x0B00 (up) | 1 (repeat).
platform::InputEvent mediaKeyEvent(const MediaKeySpec& key, bool down, bool repeat,
                                   platform::ModifierFlags modifiers);

// The line for a key another program holds, the same whichever way we asked for it.
std::string keyTakenLine(const MediaKeySpec& key);

// A key tap that can say which keys it holds.
class KeyHoldingTap : public platform::EventTap {
public:
    // The key names ("XF86MonBrightnessUp", ...) granted to the tap.
    virtual std::vector<std::string> heldKeys() const = 0;
};

// The presses and releases of keys, as a source that only says "pressed" and "released"
// reports them: a press of a key already down is a repeat; a release of a key not down is
// a leftover and dropped.
class KeyTransitions {
public:
    struct Transition {
        bool down;
        bool repeat;
    };
    std::optional<Transition> pressed(std::int32_t mediaCode);
    std::optional<Transition> released(std::int32_t mediaCode);
    void clear() { down_.clear(); }

private:
    std::vector<std::int32_t> down_;
};

} // namespace pw::linuxdesktop
