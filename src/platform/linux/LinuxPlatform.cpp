#include "platform/linux/LinuxPlatform.h"

#include "platform/posix/SystemClock.h"

namespace pw::platform {

Platform makeLinuxPlatform() {
    Platform p;
    p.flavor = Flavor::appleSilicon;
    p.clock = std::make_shared<SystemClock>();
    return p;
}

} // namespace pw::platform
