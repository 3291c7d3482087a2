#pragma once

#include <chrono>

namespace pw::platform {

// All waiting and all reading of the time goes through a Clock, so tests run on
// virtual time (the simulator's clock advances instantly on sleep) and nothing
// calls sleep directly.
class Clock {
public:
    using Duration = std::chrono::nanoseconds;
    // Wall-clock time: log timestamps and cache ages are taken from it.
    using TimePoint = std::chrono::time_point<std::chrono::system_clock, Duration>;

    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
    virtual void sleepFor(std::chrono::microseconds duration) = 0;
};

} // namespace pw::platform
