#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/JsonUserDefaults.h"
#include "platform/posix/SystemClock.h"

namespace pw::platform {

Platform makeLinuxPlatform() {
    Platform p;
    p.flavor = Flavor::appleSilicon;
    p.clock = std::make_shared<SystemClock>();
    p.defaults = std::make_shared<JsonUserDefaults>();
    return p;
}

} // namespace pw::platform
