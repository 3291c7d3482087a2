#pragma once

#include <functional>

namespace pw::platform {

// The machine going to sleep and waking up. Handlers may run on any thread (the source's
// own); a caller that needs its main thread posts from there. Setting handlers again
// replaces the previous ones; empty handlers stop the reports.
class PowerEvents {
public:
    virtual ~PowerEvents() = default;
    virtual void setHandlers(std::function<void()> willSleep, std::function<void()> didWake) = 0;
};

} // namespace pw::platform
