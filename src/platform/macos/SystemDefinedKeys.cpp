#include "platform/macos/SystemDefinedKeys.h"

#include <limits>

namespace pw::macos {

using platform::MediaKey;

KeyEvent KeyEvent::fromData1(std::int32_t data1) {
    // Work on the bit pattern: data1 is a signed word, and a key code with its top bit set
    // must not drag sign bits into the fields.
    const auto bits = static_cast<std::uint32_t>(data1);
    KeyEvent event;
    event.keycode = static_cast<std::int32_t>((bits >> 16) & 0xFFFFu);
    event.keyFlags = static_cast<std::int32_t>(bits & 0xFFFFu);
    event.keyPressed = (bits & 0xFF00u) == kAuxKeyDown;
    event.keyRepeat = (bits & 0x1u) != 0;
    return event;
}

std::optional<MediaKey> keycodeToMediaKey(std::int32_t code) {
    switch (code) {
    case kAuxKeySoundUp:
        return MediaKey::volumeUp;
    case kAuxKeySoundDown:
        return MediaKey::volumeDown;
    case kAuxKeyBrightnessUp:
        return MediaKey::brightnessUp;
    case kAuxKeyBrightnessDown:
        return MediaKey::brightnessDown;
    case kAuxKeyMute:
        return MediaKey::mute;
    case kAuxKeyPlay:
        return MediaKey::playPause;
    case kAuxKeyNext:
        return MediaKey::next;
    case kAuxKeyPrevious:
        return MediaKey::previous;
    case kAuxKeyFast:
        return MediaKey::fastForward;
    case kAuxKeyRewind:
        return MediaKey::rewind;
    default:
        return std::nullopt;
    }
}

std::optional<MediaKey> functionKeyCodeToMediaKey(std::int32_t code, bool alternate) {
    switch (code) {
    case 107:
        if (alternate) return MediaKey::brightnessDown;
        return std::nullopt;
    case 113:
        if (alternate) return MediaKey::brightnessUp;
        return std::nullopt;
    case 144:
        return MediaKey::brightnessUp;
    case 145:
        return MediaKey::brightnessDown;
    default:
        return std::nullopt;
    }
}

platform::KeyModifiers modifiersFrom(ModifierFlags flags) {
    platform::KeyModifiers m;
    m.shift = (flags & 0x20000) != 0;
    m.control = (flags & 0x40000) != 0;
    m.option = (flags & 0x80000) != 0;
    m.command = (flags & 0x100000) != 0;
    return m;
}

namespace {

bool leftToBuiltInPanel(const platform::KeyWish& wish, const std::function<bool()>& pointer) {
    return !wish.onBuiltInPanel && pointer && pointer();
}

TapDecision take(const platform::KeyWish& wish, platform::MediaKeyEvent event) {
    TapDecision decision;
    decision.swallow = true;
    if (platform::delivers(wish.mode, event.state)) decision.deliver = event;
    return decision;
}

} // namespace

TapDecision decide(std::int32_t type, const InputEvent& event, const platform::KeyWish& wish,
                   bool intercepting, const std::function<bool()>& pointerOnBuiltInPanel,
                   bool alternateBrightnessKeys) {
    if (type == kEventTypeKeyDown) {
        // A key code that does not fit the field's 32 bits is no key of ours.
        if (event.keyboardKeyCode < std::numeric_limits<std::int32_t>::min() ||
            event.keyboardKeyCode > std::numeric_limits<std::int32_t>::max())
            return {};
        const auto key = functionKeyCodeToMediaKey(static_cast<std::int32_t>(event.keyboardKeyCode),
                                                   alternateBrightnessKeys);
        if (!key || !wish.keys.contains(*key)) return {};
        if (leftToBuiltInPanel(wish, pointerOnBuiltInPanel)) return {};
        // Function keys have no key-up or repeat of their own here: every key-down is a
        // press. Not intercepting does not matter on this path.
        platform::MediaKeyEvent press{*key, {true, false}, std::nullopt};
        if (event.convertible) press.modifiers = modifiersFrom(event.modifierFlags);
        return take(wish, press);
    }
    if (type != kEventTypeSystemDefined || !event.convertible) return {};
    if (event.subtype != kSystemDefinedAuxControlButtons) return {};
    const auto keyEvent = KeyEvent::fromData1(event.data1);
    const auto key = keycodeToMediaKey(keyEvent.keycode);
    if (!key || !wish.keys.contains(*key) || !intercepting) return {};
    if (leftToBuiltInPanel(wish, pointerOnBuiltInPanel)) return {};
    return take(wish, {*key, {keyEvent.keyPressed, keyEvent.keyRepeat},
                       modifiersFrom(event.modifierFlags)});
}

} // namespace pw::macos
