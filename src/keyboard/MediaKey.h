#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace pw {

enum class MediaKey {
    playPause,
    previous,
    next,
    rewind,
    fastForward,
    brightnessUp,
    brightnessDown,
    volumeUp,
    volumeDown,
    mute,
};

enum class KeyPressMode { keyDown, keyUp, keyDownAndUp };

// One key transition, decoded from the `data1` word of a system-defined event.
struct KeyEvent {
    std::int32_t keycode = 0;  // (data1 >> 16) & 0xFFFF
    std::int32_t keyFlags = 0; // data1 & 0xFFFF
    bool keyPressed = false;   // (data1 & 0xFF00) == 0x0A00
    bool keyRepeat = false;    // bit 0 of data1

    static KeyEvent fromData1(std::int32_t data1);
    friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

enum class EventTapError { eventTapCreationFailure, runLoopSourceCreationFailure };
std::string_view description(EventTapError error);

std::string_view name(MediaKey key); // "brightnessUp", ...

} // namespace pw
