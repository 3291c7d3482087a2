#include "platform/Platform.h"

#include <mutex>
#include <utility>

namespace pw::platform {

namespace {

// Never destroyed: worker threads may still read the platform while statics are torn down.
struct Installed {
    std::mutex mutex;
    std::shared_ptr<const Platform> platform = std::make_shared<const Platform>();
};

Installed& installed() {
    static Installed* const instance = new Installed;
    return *instance;
}

} // namespace

void install(Platform platform) {
    auto next = std::make_shared<const Platform>(std::move(platform));
    Installed& slot = installed();
    std::shared_ptr<const Platform> previous;
    {
        std::lock_guard lock(slot.mutex);
        previous = std::exchange(slot.platform, std::move(next));
    }
    // `previous` goes (and with it, perhaps, the last reference to the old machine's
    // objects) outside the lock: their destructors may themselves log.
}

std::shared_ptr<const Platform> snapshot() {
    Installed& slot = installed();
    std::lock_guard lock(slot.mutex);
    return slot.platform;
}

Platform current() {
    return *snapshot();
}

} // namespace pw::platform
