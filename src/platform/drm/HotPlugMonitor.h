#pragma once

#include <functional>

namespace pw::platform {

// The event a machine sends when a monitor is plugged in or pulled out (on Linux, a
// udev "change" of a DRM card with HOTPLUG=1). Reports carry no detail: the listener
// looks at every connector again.
class HotPlugMonitor {
public:
    virtual ~HotPlugMonitor() = default;

    // Calls `onChange` on the main queue for every report until `stop`. False when the
    // machine has no such events (the list then changes only on refresh and restart).
    virtual bool start(std::function<void()> onChange) = 0;
    virtual void stop() = 0;
};

} // namespace pw::platform
