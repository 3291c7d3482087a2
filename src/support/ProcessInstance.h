#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace pw {

// A process-wide service made on first use and let go by the program's start-up, in the
// order the start-up chooses, while what the service's parts depend on (the GUI's
// application object, a window engine) still exists. Once released it is never made
// again: a late caller gets null instead of a service rebuilt on a machine being torn down.
template <typename T> class ProcessInstance {
public:
    template <typename Make> std::shared_ptr<T> get(Make make) {
        std::lock_guard lock(mutex_);
        if (!instance_ && !released_) instance_ = make();
        return instance_;
    }

    void release() {
        std::shared_ptr<T> last;
        {
            std::lock_guard lock(mutex_);
            last = std::move(instance_);
            released_ = true;
        }
        // `last` goes outside the lock: a destructor may ask another instance for itself.
    }

private:
    std::mutex mutex_;
    std::shared_ptr<T> instance_;
    bool released_ = false;
};

} // namespace pw
