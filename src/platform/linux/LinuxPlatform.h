#pragma once

#include "platform/drm/DrmSysfs.h"
#include "platform/drm/HotPlugMonitor.h"
#include "platform/drm/I2CDevices.h"
#include "platform/Platform.h"

#include <filesystem>
#include <memory>

namespace pw::platform {

struct LinuxMachineOptions {
    // Where sysfs and /dev are found: "/" except in tests, which build a tree of their own.
    std::filesystem::path root = "/";
    // The user allowed I2C_SLAVE_FORCE (see docs/linux.md).
    bool forceSlaveAddress = false;
    // Hot-plug reports are posted here; without it the machine has none.
    std::shared_ptr<MainQueue> mainQueue;
};

// The real Linux machine: DRM connectors, /dev/i2c-*, udev hot-plug, the journal and the
// settings file. The program is handed `platform`; the kernel's side stays here, for
// those that assemble a Linux machine (the desktop session pairs its outputs with the DRM
// connectors, the command line traces the i2c devices).
struct LinuxMachine {
    Platform platform;
    std::shared_ptr<DrmSysfs> drm;
    std::shared_ptr<I2CDevices> i2cDevices;
    std::shared_ptr<HotPlugMonitor> hotPlug; // null without a main queue

    // DRM connectors and /dev/i2c-* are there: monitors can be looked for.
    bool reachesMonitors() const { return drm && drm->present() && i2cDevices; }
};

LinuxMachine makeLinuxMachine(const LinuxMachineOptions& options = {});

} // namespace pw::platform
