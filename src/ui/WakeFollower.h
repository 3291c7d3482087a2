#pragma once

#include "platform/MainQueue.h"
#include "platform/PowerEvents.h"

#include <functional>
#include <memory>

namespace pw {
class DisplayManager;
}

namespace pw::ui {

// What the app does around the machine's sleep. Many monitors forget their DDC values over
// a power cycle or come back at another brightness, so whatever was read before the sleep
// cannot be trusted after it: on wake-up, on the main queue, the DDC manager's cache is
// dropped, the displays are enumerated again (a monitor may have gone or come meanwhile)
// and their values read afresh; then `afterWake` runs, the place where writing the last
// values back belongs.
class WakeFollower {
public:
    WakeFollower(std::shared_ptr<platform::PowerEvents> events,
                 std::shared_ptr<platform::MainQueue> mainQueue,
                 std::shared_ptr<DisplayManager> displays);
    ~WakeFollower(); // stops the reports; a wake-up already posted finds nothing to do

    WakeFollower(const WakeFollower&) = delete;
    WakeFollower& operator=(const WakeFollower&) = delete;

    // Runs on the main queue once the displays were read again after a wake-up.
    void setAfterWake(std::function<void()> afterWake);

    struct State;

private:
    std::shared_ptr<platform::PowerEvents> events_;
    std::shared_ptr<State> state_;
};

} // namespace pw::ui
