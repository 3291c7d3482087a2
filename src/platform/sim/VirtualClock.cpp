#include "platform/sim/VirtualClock.h"

#include "support/SerialQueue.h"

namespace pw::sim {

namespace {
// 2025-03-01 14:05:09 UTC
constexpr std::chrono::seconds kDefaultStart{1740837909};
} // namespace

VirtualClock::VirtualClock() : now_(TimePoint(kDefaultStart)) {}
VirtualClock::VirtualClock(TimePoint start) : now_(start) {}

platform::Clock::TimePoint VirtualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void VirtualClock::sleepFor(std::chrono::microseconds duration) {
    std::lock_guard lock(mutex_);
    sleeps_.push_back({duration, SerialQueue::currentLabel(), now_});
    if (duration.count() > 0) now_ += duration;
}

void VirtualClock::advance(Duration duration) {
    std::lock_guard lock(mutex_);
    if (duration.count() > 0) now_ += duration;
}

void VirtualClock::setNow(TimePoint t) {
    std::lock_guard lock(mutex_);
    now_ = t;
}

void VirtualClock::advanceTo(TimePoint t) {
    std::lock_guard lock(mutex_);
    if (t > now_) now_ = t;
}

std::vector<VirtualClock::Sleep> VirtualClock::sleeps() const {
    std::lock_guard lock(mutex_);
    return sleeps_;
}

void VirtualClock::clearSleeps() {
    std::lock_guard lock(mutex_);
    sleeps_.clear();
}

} // namespace pw::sim
