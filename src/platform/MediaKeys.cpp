#include "platform/MediaKeys.h"

namespace pw::platform {

KeySet KeySet::all() {
    KeySet set;
    for (int k = 0; k <= static_cast<int>(MediaKey::mute); ++k)
        set.add(static_cast<MediaKey>(k));
    return set;
}

bool delivers(KeyPressMode mode, const KeyState& state) {
    switch (mode) {
    case KeyPressMode::keyDown:
        return state.pressed;
    case KeyPressMode::keyUp:
        return !state.pressed;
    case KeyPressMode::keyDownAndUp:
        return true;
    }
    return false;
}

std::string_view description(KeysError error) {
    switch (error) {
    case KeysError::refused:
        return "Event tap creation failed: is your application sandboxed?";
    case KeysError::noDelivery:
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

} // namespace pw::platform
