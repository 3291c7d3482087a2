#pragma once

#include <memory>

#include "platform/Clock.h"
#include "platform/DrmSysfs.h"
#include "platform/Gamma.h"
#include "platform/HostInfo.h"
#include "platform/HotPlugMonitor.h"
#include "platform/I2CDevices.h"
#include "platform/LevelIndicator.h"
#include "platform/LoginItems.h"
#include "platform/MainQueue.h"
#include "platform/MediaKeys.h"
#include "platform/Monitors.h"
#include "platform/Screens.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

namespace pw::platform {

// Which kind of machine the program runs on, for its banner and the command line's
// advice. Fixed by the CPU on a Mac, by the operating system on Linux, by the scenario on
// the simulated machine. The display manager never asks: the machine's `monitors` differ.
enum class Flavor { unset, appleSilicon, intel, linux };

// Every operating-system facility the program uses: the machine a program's Core owns
// (app/Core.h). A member may be null where a machine lacks the facility; callers check.
struct Platform {
    Flavor flavor = Flavor::unset; // each machine sets its own
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MainQueue> mainQueue;
    std::shared_ptr<SystemLogSink> systemLog;
    std::shared_ptr<HostInfo> host;
    // The connected monitors with their channels, and hot-plug reports; the window
    // system's screens and the pointer.
    std::shared_ptr<Monitors> monitors;
    std::shared_ptr<Screens> screens;
    std::shared_ptr<UserDefaults> defaults;
    std::shared_ptr<GammaTables> gamma;
    std::shared_ptr<MediaKeys> mediaKeys;
    // Shows a level after a key; null: levels are not shown.
    std::shared_ptr<LevelIndicator> indicator;
    // Linux only: DRM connectors and i2c adapters, the /dev/i2c-* files, udev hot-plug.
    std::shared_ptr<DrmSysfs> drm;
    std::shared_ptr<I2CDevices> i2cDevices;
    std::shared_ptr<HotPlugMonitor> hotPlug;
    // Starting at login; null where the machine offers no way to do it.
    std::shared_ptr<LoginItems> loginItems;
};

} // namespace pw::platform
