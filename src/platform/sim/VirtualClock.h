#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace pw::sim {

// Virtual time: `sleepFor` returns at once and moves the clock forward, so tests
// never wait. Every sleep is recorded with the label of the serial queue (or "")
// that slept, so tests can read the exact sleep sequence of a component.
// `advance` moves time without recording a sleep (time passing in the world:
// a test's own step, a monitor taking time to answer).
class VirtualClock final : public platform::Clock {
public:
    struct Sleep {
        std::chrono::microseconds duration;
        std::string queueLabel;
        TimePoint at; // when the sleep began
    };

    // Starts at 2025-03-01 14:05:09 UTC unless told otherwise.
    VirtualClock();
    explicit VirtualClock(TimePoint start);

    TimePoint now() const override;
    void sleepFor(std::chrono::microseconds duration) override;

    void advance(Duration duration);
    void setNow(TimePoint t);
    // Moves the clock to `t` unless it is already past it, in one step: a worker's sleep
    // that lands in between is never undone.
    void advanceTo(TimePoint t);

    std::vector<Sleep> sleeps() const;
    void clearSleeps();

private:
    mutable std::mutex mutex_;
    TimePoint now_;
    std::vector<Sleep> sleeps_;
};

} // namespace pw::sim
