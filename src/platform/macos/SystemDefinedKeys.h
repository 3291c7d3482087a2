#pragma once

#include "platform/MediaKeys.h"
#include "platform/macos/EventTap.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace pw::macos {

// One key transition, decoded from the `data1` word of a system-defined event.
struct KeyEvent {
    std::int32_t keycode = 0;  // (data1 >> 16) & 0xFFFF
    std::int32_t keyFlags = 0; // data1 & 0xFFFF
    bool keyPressed = false;   // (data1 & 0xFF00) == 0x0A00
    bool keyRepeat = false;    // bit 0 of data1

    static KeyEvent fromData1(std::int32_t data1);
    friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

// The media key a system-defined event's key code stands for, among the accepted ones.
std::optional<platform::MediaKey> keycodeToMediaKey(std::int32_t code);
// The brightness keys of keyboards that send them as function keys (key-down events):
// 144 and 145 always, 107 and 113 when `alternateBrightnessKeys` is on.
std::optional<platform::MediaKey> functionKeyCodeToMediaKey(std::int32_t code,
                                                            bool alternateBrightnessKeys);

// Modifier flags in the program's words.
platform::KeyModifiers modifiersFrom(ModifierFlags flags);

// What a tap does with one event: pass it on to the system, or swallow it (and then,
// when the wish hears of this transition, the key to hand on).
struct TapDecision {
    bool swallow = false;
    std::optional<platform::MediaKeyEvent> deliver;
};

// The decision for one event, made on the tap's thread from what the source holds: the
// wish, whether it intercepts at all (system-defined keys only; the media application
// handshake turns that off while another player is in front), and where the pointer is
// (asked only when the wish leaves built-in panels to the system).
TapDecision decide(std::int32_t type, const InputEvent& event, const platform::KeyWish& wish,
                   bool intercepting, const std::function<bool()>& pointerOnBuiltInPanel,
                   bool alternateBrightnessKeys = true);

} // namespace pw::macos
