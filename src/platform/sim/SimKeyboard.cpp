#include "platform/sim/SimKeyboard.h"

namespace pw::sim {

void SimKeyboard::want(const platform::KeyWish& wish) {
    std::lock_guard lock(mutex_);
    wish_ = wish;
}

std::optional<platform::KeysError> SimKeyboard::start(OnKey onKey) {
    std::lock_guard lock(mutex_);
    if (refusals_ > 0) {
        --refusals_;
        return refusal_;
    }
    onKey_ = std::move(onKey);
    running_ = true;
    return std::nullopt;
}

void SimKeyboard::stop() {
    std::lock_guard lock(mutex_);
    running_ = false;
    onKey_ = nullptr;
}

void SimKeyboard::refuseStarts(int count, platform::KeysError error) {
    std::lock_guard lock(mutex_);
    refusals_ = count;
    refusal_ = error;
}

bool SimKeyboard::type(platform::MediaKey key, platform::KeyState state,
                       std::optional<platform::KeyModifiers> modifiers) {
    // Held while the key is handed on, so `stop` returns only once no hand-over runs.
    std::lock_guard lock(mutex_);
    if (!running_ || !wish_.keys.contains(key)) return false;
    if (onKey_ && platform::delivers(wish_.mode, state)) onKey_({key, state, modifiers});
    return true;
}

bool SimKeyboard::running() const {
    std::lock_guard lock(mutex_);
    return running_;
}

platform::KeyWish SimKeyboard::wish() const {
    std::lock_guard lock(mutex_);
    return wish_;
}

} // namespace pw::sim
