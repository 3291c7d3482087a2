#pragma once

#include "platform/Clock.h"

namespace pw::platform {

// The real clock: wall-clock time and real sleeps.
class SystemClock final : public Clock {
public:
    TimePoint now() const override;
    void sleepFor(std::chrono::microseconds duration) override;
};

} // namespace pw::platform
