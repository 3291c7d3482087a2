#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/JournalSystemLog.h"
#include "platform/linux/JsonUserDefaults.h"
#include "platform/linux/LinuxHostInfo.h"
#include "platform/linux/XdgAutostart.h"
#include "platform/posix/BaseDirectories.h"
#include "platform/posix/SystemClock.h"

namespace pw::platform {

Platform makeLinuxPlatform() {
    Platform p;
    p.flavor = Flavor::appleSilicon;
    p.clock = std::make_shared<SystemClock>();
    p.host = std::make_shared<LinuxHostInfo>();
    p.systemLog = makeSystemLog();
    // A settings file that had to be moved aside is worth one line in the system log
    // (the journal), where a user looking for lost settings will search.
    auto defaults = std::make_shared<JsonUserDefaults>();
    defaults->setReport([log = p.systemLog](const std::string& message) {
        log->write("com.panelwright.app", "App", LogLevel::error, message);
    });
    p.defaults = std::move(defaults);
    p.loginItems = std::make_shared<XdgAutostart>(
        xdg::configHome(), XdgAutostart::appExecutable(),
        [log = p.systemLog](const std::string& message) {
            log->write("com.panelwright.app", "App", LogLevel::error, message);
        });
    return p;
}

} // namespace pw::platform
