#include "keyboard/MediaKey.h"

#include "platform/EventTap.h"

namespace pw {

KeyEvent KeyEvent::fromData1(std::int32_t data1) {
    // Work on the bit pattern: data1 is a signed word, and a key code with its top bit set
    // must not drag sign bits into the fields.
    const auto bits = static_cast<std::uint32_t>(data1);
    KeyEvent event;
    event.keycode = static_cast<std::int32_t>((bits >> 16) & 0xFFFFu);
    event.keyFlags = static_cast<std::int32_t>(bits & 0xFFFFu);
    event.keyPressed = (bits & 0xFF00u) == platform::kAuxKeyDown;
    event.keyRepeat = (bits & 0x1u) != 0;
    return event;
}

std::string_view description(EventTapError error) {
    switch (error) {
    case EventTapError::eventTapCreationFailure:
        return "Event tap creation failed: is your application sandboxed?";
    case EventTapError::runLoopSourceCreationFailure:
        return "Runloop source creation failed";
    }
    return "Unknown event tap error";
}

std::string_view name(MediaKey key) {
    switch (key) {
    case MediaKey::playPause:
        return "playPause";
    case MediaKey::previous:
        return "previous";
    case MediaKey::next:
        return "next";
    case MediaKey::rewind:
        return "rewind";
    case MediaKey::fastForward:
        return "fastForward";
    case MediaKey::brightnessUp:
        return "brightnessUp";
    case MediaKey::brightnessDown:
        return "brightnessDown";
    case MediaKey::volumeUp:
        return "volumeUp";
    case MediaKey::volumeDown:
        return "volumeDown";
    case MediaKey::mute:
        return "mute";
    }
    return "unknown";
}

} // namespace pw
