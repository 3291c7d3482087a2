#pragma once

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
// settings file. Members a Linux machine cannot offer (the registry, AV services) stay null.
Platform makeLinuxPlatform(const LinuxMachineOptions& options);
Platform makeLinuxPlatform();

} // namespace pw::platform
