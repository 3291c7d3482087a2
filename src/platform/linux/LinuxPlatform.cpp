#include "platform/linux/LinuxPlatform.h"

#include "platform/drm/LinuxMonitors.h"
#include "platform/linux/JournalSystemLog.h"
#include "platform/linux/JsonUserDefaults.h"
#include "platform/linux/LinuxDrmSysfs.h"
#include "platform/linux/LinuxHostFacts.h"
#include "platform/linux/LinuxI2CDevices.h"
#include "platform/linux/UdevHotPlugMonitor.h"
#include "platform/linux/XdgAutostart.h"
#include "platform/posix/BaseDirectories.h"
#include "platform/posix/SystemClock.h"

namespace pw::platform {

LinuxMachine makeLinuxMachine(const LinuxMachineOptions& options) {
    LinuxMachine machine;
    Platform& p = machine.platform;
    p.clock = std::make_shared<SystemClock>();
    p.mainQueue = options.mainQueue;
    p.host = std::make_shared<LinuxHostFacts>();
    p.systemLog = makeSystemLog();
    // A settings file that had to be moved aside is worth one line in the system log
    // (the journal), where a user looking for lost settings will search.
    auto defaults = std::make_shared<JsonUserDefaults>();
    defaults->setReport([log = p.systemLog](const std::string& message) {
        log->write("com.panelwright.app", "App", LogLevel::error, message);
    });
    p.defaults = std::move(defaults);

    machine.drm = std::make_shared<LinuxDrmSysfs>(options.root);
    machine.i2cDevices =
        std::make_shared<LinuxI2CDevices>(options.root, options.forceSlaveAddress);
    if (options.mainQueue)
        machine.hotPlug = std::make_shared<UdevHotPlugMonitor>(options.mainQueue);
    // Screens and the pointer come from the desktop session once the application has one.
    p.monitors = std::make_shared<LinuxMonitors>(
        LinuxMonitors::Parts{machine.drm, machine.i2cDevices, machine.hotPlug, p.clock});
    p.loginItems = std::make_shared<XdgAutostart>(
        xdg::configHome(), XdgAutostart::appExecutable(),
        [log = p.systemLog](const std::string& message) {
            log->write("com.panelwright.app", "App", LogLevel::error, message);
        });
    return machine;
}

} // namespace pw::platform
