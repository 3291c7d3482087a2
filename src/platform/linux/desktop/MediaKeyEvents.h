#pragma once

#include "platform/MediaKeys.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pw::linuxdesktop {

// One of the keyboard keys the program takes: its X key name, the words the log uses for
// it, the program's key, and its code in the key numbering the desktop's global-shortcut
// service speaks.
struct MediaKeySpec {
    const char* keysym;
    const char* label;
    platform::MediaKey key;
    std::int32_t shortcutCode;
};

// Brightness up/down, volume up/down and mute, in the order they are taken.
std::span<const MediaKeySpec> mediaKeySpecs();
const MediaKeySpec* mediaKeyNamed(std::string_view keysym);
std::vector<std::string> allMediaKeyNames();

// The line for a key another program holds, the same whichever way we asked for it.
std::string keyTakenLine(const MediaKeySpec& key);

// A key source that can say which keys it holds.
class KeyHoldingSource : public platform::MediaKeys {
public:
    // The key names ("XF86MonBrightnessUp", ...) the source holds now.
    virtual std::vector<std::string> heldKeys() const = 0;
};

// What a source holds to hand its keys over: the wish and the program's `onKey`. A key
// the wish does not name, or a transition its press mode does not hear of, is dropped.
// `onKey` runs under this object's lock, so once `close` returns no hand-over runs.
class KeyDelivery {
public:
    void want(const platform::KeyWish& wish);
    platform::KeyWish wish() const;
    void open(platform::MediaKeys::OnKey onKey);
    void close();
    void deliver(platform::MediaKey key, platform::KeyState state,
                 std::optional<platform::KeyModifiers> modifiers);

private:
    mutable std::mutex mutex_;
    platform::KeyWish wish_;
    platform::MediaKeys::OnKey onKey_;
};

// The presses and releases of keys, as a source that only says "pressed" and "released"
// reports them: a press of a key already down is a repeat; a release of a key not down is
// a leftover and dropped.
class KeyTransitions {
public:
    std::optional<platform::KeyState> pressed(platform::MediaKey key);
    std::optional<platform::KeyState> released(platform::MediaKey key);
    void clear() { down_.clear(); }

private:
    std::vector<platform::MediaKey> down_;
};

} // namespace pw::linuxdesktop
