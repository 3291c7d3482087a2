#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/JournalSystemLog.h"
#include "platform/linux/JsonUserDefaults.h"
#include "platform/linux/LinuxHostInfo.h"
#include "platform/posix/SystemClock.h"

namespace pw::platform {

Platform makeLinuxPlatform() {
    Platform p;
    p.flavor = Flavor::appleSilicon;
    p.clock = std::make_shared<SystemClock>();
    p.defaults = std::make_shared<JsonUserDefaults>();
    p.host = std::make_shared<LinuxHostInfo>();
    p.systemLog = makeSystemLog();
    return p;
}

} // namespace pw::platform
