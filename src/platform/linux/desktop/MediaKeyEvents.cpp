#include "platform/linux/desktop/MediaKeyEvents.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {
using platform::MediaKey;
// Shortcut codes: the key numbers of the desktop toolkit the global-shortcut service is
// written in (its Key_MonBrightnessUp, Key_VolumeUp, ...).
constexpr MediaKeySpec kKeys[] = {
    {"XF86MonBrightnessUp", "Brightness Up", MediaKey::brightnessUp, 0x010000B2},
    {"XF86MonBrightnessDown", "Brightness Down", MediaKey::brightnessDown, 0x010000B3},
    {"XF86AudioRaiseVolume", "Volume Up", MediaKey::volumeUp, 0x01000072},
    {"XF86AudioLowerVolume", "Volume Down", MediaKey::volumeDown, 0x01000070},
    {"XF86AudioMute", "Mute", MediaKey::mute, 0x01000071},
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

std::string keyTakenLine(const MediaKeySpec& key) {
    return std::string(key.label) + " key (" + key.keysym +
           ") is taken by another program; it stays with that program";
}

void KeyDelivery::want(const platform::KeyWish& wish) {
    std::lock_guard lock(mutex_);
    wish_ = wish;
}

platform::KeyWish KeyDelivery::wish() const {
    std::lock_guard lock(mutex_);
    return wish_;
}

void KeyDelivery::open(platform::MediaKeys::OnKey onKey) {
    std::lock_guard lock(mutex_);
    onKey_ = std::move(onKey);
}

void KeyDelivery::close() {
    std::lock_guard lock(mutex_);
    onKey_ = nullptr;
}

void KeyDelivery::deliver(platform::MediaKey key, platform::KeyState state,
                          std::optional<platform::KeyModifiers> modifiers) {
    std::lock_guard lock(mutex_);
    if (!onKey_ || !wish_.keys.contains(key) || !platform::delivers(wish_.mode, state)) return;
    onKey_({key, state, modifiers});
}

std::optional<platform::KeyState> KeyTransitions::pressed(platform::MediaKey key) {
    if (std::find(down_.begin(), down_.end(), key) != down_.end())
        return platform::KeyState{true, true};
    down_.push_back(key);
    return platform::KeyState{true, false};
}

std::optional<platform::KeyState> KeyTransitions::released(platform::MediaKey key) {
    const auto at = std::find(down_.begin(), down_.end(), key);
    if (at == down_.end()) return std::nullopt;
    down_.erase(at);
    return platform::KeyState{false, false};
}

} // namespace pw::linuxdesktop
