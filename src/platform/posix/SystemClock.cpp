#include "platform/posix/SystemClock.h"

#include <thread>

namespace pw::platform {

Clock::TimePoint SystemClock::now() const {
    return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
}

void SystemClock::sleepFor(std::chrono::microseconds duration) {
    if (duration.count() > 0) std::this_thread::sleep_for(duration);
}

} // namespace pw::platform
