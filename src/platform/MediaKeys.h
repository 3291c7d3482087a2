#pragma once

#include "platform/MediaKey.h"

#include <bitset>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace pw::platform {

// Which transitions of a wanted key the program hears of.
enum class KeyPressMode { keyDown, keyUp, keyDownAndUp };

// One transition: pressed or released, and whether a held key sent it again.
struct KeyState {
    bool pressed = true;
    bool repeat = false;
    friend bool operator==(const KeyState&, const KeyState&) = default;
};

// The modifier keys held with a media key, where the source can tell.
struct KeyModifiers {
    bool shift = false;
    bool control = false;
    bool option = false; // Alt
    bool command = false; // Super
    friend bool operator==(const KeyModifiers&, const KeyModifiers&) = default;
};

struct MediaKeyEvent {
    MediaKey key = MediaKey::brightnessUp;
    KeyState state;
    std::optional<KeyModifiers> modifiers; // absent: the source does not know
    friend bool operator==(const MediaKeyEvent&, const MediaKeyEvent&) = default;
};

// A set of media keys.
class KeySet {
public:
    KeySet() = default;
    KeySet(std::initializer_list<MediaKey> keys) {
        for (auto key : keys) add(key);
    }
    static KeySet all();
    void add(MediaKey key) { bits_.set(static_cast<std::size_t>(key)); }
    bool contains(MediaKey key) const { return bits_.test(static_cast<std::size_t>(key)); }
    bool empty() const { return bits_.none(); }
    std::size_t size() const { return bits_.count(); }
    friend bool operator==(const KeySet&, const KeySet&) = default;

private:
    std::bitset<10> bits_;
};

// What the program wants of a key source: the keys it takes from the system, which of
// their transitions it hears of, and whether it takes them while the pointer is on a
// built-in panel (whose brightness the system controls itself). A source that cannot
// tell where the pointer is takes the keys everywhere.
struct KeyWish {
    KeySet keys;
    KeyPressMode mode = KeyPressMode::keyDown;
    bool onBuiltInPanel = true;
    friend bool operator==(const KeyWish&, const KeyWish&) = default;
};

// Why a source could not start; the program runs on without media keys.
enum class KeysError { refused, noDelivery };
std::string_view description(KeysError error);

// Whether a wish hears of this transition.
bool delivers(KeyPressMode mode, const KeyState& state);

// The media keys of the machine. The source takes the wanted keys where it grabs them and
// decides there, from what it already holds (the wish, and where the pointer is when the
// source can ask), whether a key is taken or left to the system; it never waits for the
// program. Each key it takes and the wish hears of goes to `onKey`, called on the source's
// own thread (or any thread): `onKey` must not block, it posts.
class MediaKeys {
public:
    using OnKey = std::function<void(const MediaKeyEvent&)>;
    virtual ~MediaKeys() = default;
    // May be called before or after start, from the main thread.
    virtual void want(const KeyWish& wish) = 0;
    virtual std::optional<KeysError> start(OnKey onKey) = 0;
    // Gives every key back; no `onKey` call runs or starts once this returns.
    virtual void stop() = 0;
};

} // namespace pw::platform
