#include "platform/Platform.h"

#include <mutex>

namespace pw::platform {

namespace {
std::mutex gMutex;
Platform& installed() {
    static Platform platform;
    return platform;
}
} // namespace

void install(Platform platform) {
    std::lock_guard lock(gMutex);
    installed() = std::move(platform);
}

const Platform& current() {
    std::lock_guard lock(gMutex);
    return installed();
}

} // namespace pw::platform
