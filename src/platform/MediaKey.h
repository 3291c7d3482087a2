#pragma once

#include <string_view>

namespace pw::platform {

// The keys a keyboard has for media and displays, in the program's words. A machine's key
// source tells these apart however its system names them.
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

std::string_view name(MediaKey key); // "brightnessUp", ...

} // namespace pw::platform

namespace pw {
using platform::MediaKey;
}
