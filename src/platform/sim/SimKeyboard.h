#pragma once

#include "platform/MediaKeys.h"

#include <mutex>
#include <optional>

namespace pw::sim {

// The simulated keyboard of a machine that hands keys over in the program's own words (a
// Linux-flavour machine): a key typed is taken when the program wants it, and then handed
// to the program on the typing thread if its press mode hears of the transition. Keys are
// taken wherever the pointer is, as a Linux key grab takes them. Thread-safe.
class SimKeyboard final : public platform::MediaKeys {
public:
    void want(const platform::KeyWish& wish) override;
    std::optional<platform::KeysError> start(OnKey onKey) override;
    void stop() override;

    // The next `count` starts fail with `error`.
    void refuseStarts(int count, platform::KeysError error = platform::KeysError::refused);

    // The user types a key: true when the program took it (it never reached the desktop).
    bool type(platform::MediaKey key, platform::KeyState state = {},
              std::optional<platform::KeyModifiers> modifiers = std::nullopt);

    bool running() const;
    platform::KeyWish wish() const;

private:
    mutable std::mutex mutex_;
    platform::KeyWish wish_;
    OnKey onKey_;
    bool running_ = false;
    int refusals_ = 0;
    platform::KeysError refusal_ = platform::KeysError::refused;
};

} // namespace pw::sim
