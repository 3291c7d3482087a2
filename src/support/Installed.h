#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace pw {

// A process-wide slot that a scope fills for its lifetime: what every thread writes
// through (the system log's sink, the settings store), installed by the program's Core.
// A reader takes a copy of what is installed and keeps it alive while it uses it, so a
// worker thread still logging while the scope ends finishes on the old object; after
// that, readers find nothing.
template <typename T> class InstalledSlot {
public:
    constexpr InstalledSlot() = default;

    std::shared_ptr<T> get() const {
        std::lock_guard lock(mutex_);
        return value_;
    }
    std::shared_ptr<T> exchange(std::shared_ptr<T> next) {
        std::lock_guard lock(mutex_);
        return std::exchange(value_, std::move(next));
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<T> value_;
};

// Fixed storage whose contents are never destroyed: a slot a thread may still read while
// the process's statics go. Constant-initialised, so it needs no heap and no guard.
template <typename T> union NeverDestroyed {
    constexpr NeverDestroyed() : value() {}
    ~NeverDestroyed() {}
    T value;
};

// Fills `slot` with `value` for its lifetime and puts back what was there before (scopes
// nest, as test fixtures do).
template <typename T> class ScopedInstall {
public:
    ScopedInstall(InstalledSlot<T>& slot, std::shared_ptr<T> value)
        : slot_(slot), previous_(slot.exchange(std::move(value))) {}
    ~ScopedInstall() {
        // Ours goes outside the slot's lock: its destructor may itself log.
        auto ours = slot_.exchange(std::move(previous_));
    }
    ScopedInstall(const ScopedInstall&) = delete;
    ScopedInstall& operator=(const ScopedInstall&) = delete;

private:
    InstalledSlot<T>& slot_;
    std::shared_ptr<T> previous_;
};

} // namespace pw
