#pragma once

#include "platform/EventTap.h"
#include "support/RunLoop.h"

#include <memory>
#include <mutex>
#include <vector>

namespace pw::linuxdesktop {

// How a key tap's events reach the run loop its source is attached to. Blocks of keys
// typed before the source is first attached wait for it, as on the simulated machine, so
// a key typed right at start is not lost. Blocks with nowhere to go (the source
// invalidated, or detached) are dropped; a block that must do something when dropped does
// it in its destructor, which never runs under this object's lock.
class TapDelivery {
public:
    void deliver(RunLoop::Block block);
    void attach(const std::shared_ptr<RunLoop>& runLoop);
    void invalidate();

    // The tap's run-loop source; it does nothing once `delivery` is gone.
    static std::shared_ptr<platform::TapRunLoopSource> source(std::weak_ptr<TapDelivery> delivery);

private:
    std::mutex mutex_;
    std::weak_ptr<RunLoop> runLoop_;
    bool attachedOnce_ = false;
    bool valid_ = true;
    std::vector<RunLoop::Block> waiting_;
};

} // namespace pw::linuxdesktop
