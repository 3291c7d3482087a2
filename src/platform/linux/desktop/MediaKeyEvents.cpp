#include "platform/linux/desktop/MediaKeyEvents.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {
// Shortcut codes: the key numbers of the desktop toolkit the global-shortcut service is
// written in (its Key_MonBrightnessUp, Key_VolumeUp, ...).
constexpr MediaKeySpec kKeys[] = {
    {"XF86MonBrightnessUp", "Brightness Up", platform::kAuxKeyBrightnessUp, 0x010000B2},
    {"XF86MonBrightnessDown", "Brightness Down", platform::kAuxKeyBrightnessDown, 0x010000B3},
    {"XF86AudioRaiseVolume", "Volume Up", platform::kAuxKeySoundUp, 0x01000072},
    {"XF86AudioLowerVolume", "Volume Down", platform::kAuxKeySoundDown, 0x01000070},
    {"XF86AudioMute", "Mute", platform::kAuxKeyMute, 0x01000071},
};
} // namespace

std::span<const MediaKeySpec> mediaKeySpecs() {
    return kKeys;
}

const MediaKeySpec* mediaKeyNamed(std::string_view keysym) {
    for (const auto& key : kKeys)
        if (keysym == key.keysym) return &key;
    return nullptr;
}

std::vector<std::string> allMediaKeyNames() {
    std::vector<std::string> names;
    for (const auto& key : kKeys)
        names.emplace_back(key.keysym);
    return names;
}

platform::InputEvent mediaKeyEvent(const MediaKeySpec& key, bool down, bool repeat,
                                   platform::ModifierFlags modifiers) {
    platform::InputEvent event;
    event.type = platform::kEventTypeSystemDefined;
    event.subtype = platform::kSystemDefinedAuxControlButtons;
    const auto bits = static_cast<std::uint32_t>(key.mediaCode) << 16 | (down ? platform::kAuxKeyDown : platform::kAuxKeyUp) |
                      (repeat ? 1u : 0u);
    event.data1 = static_cast<std::int32_t>(bits);
    event.modifierFlags = modifiers;
    return event;
}

std::string keyTakenLine(const MediaKeySpec& key) {
    return std::string(key.label) + " key (" + key.keysym +
           ") is taken by another program; it stays with that program";
}

std::optional<KeyTransitions::Transition> KeyTransitions::pressed(std::int32_t mediaCode) {
    if (std::find(down_.begin(), down_.end(), mediaCode) != down_.end())
        return Transition{true, true};
    down_.push_back(mediaCode);
    return Transition{true, false};
}

std::optional<KeyTransitions::Transition> KeyTransitions::released(std::int32_t mediaCode) {
    const auto at = std::find(down_.begin(), down_.end(), mediaCode);
    if (at == down_.end()) return std::nullopt;
    down_.erase(at);
    return Transition{false, false};
}

} // namespace pw::linuxdesktop
