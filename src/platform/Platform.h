#pragma once

#include <memory>

#include "platform/AVService.h"
#include "platform/Clock.h"
#include "platform/DisplayServices.h"
#include "platform/DrmSysfs.h"
#include "platform/EventTap.h"
#include "platform/FramebufferI2C.h"
#include "platform/Gamma.h"
#include "platform/OSD.h"
#include "platform/Workspace.h"
#include "platform/HostInfo.h"
#include "platform/HotPlugMonitor.h"
#include "platform/I2CDevices.h"
#include "platform/LoginItems.h"
#include "platform/MainQueue.h"
#include "platform/Registry.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

namespace pw::platform {

// Which kind of machine the program runs on: decides transport discovery, the source
// of hot-plug reports and the banner. Fixed by the CPU on a Mac, by the operating
// system on Linux (DRM connectors and i2c-dev), by the scenario on the simulated machine.
// `unset` is a machine that did not say: it takes no machine's path and finds no monitor.
enum class Flavor { unset, appleSilicon, intel, linux };

// Every operating-system facility the program uses: the machine a program's Core owns
// (app/Core.h). A member may be null where a machine lacks the facility; callers check.
struct Platform {
    Flavor flavor = Flavor::unset; // each machine sets its own
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MainQueue> mainQueue;
    std::shared_ptr<SystemLogSink> systemLog;
    std::shared_ptr<HostInfo> host;
    std::shared_ptr<Registry> registry;
    std::shared_ptr<AVServiceFactory> avServices;
    std::shared_ptr<DisplayServices> displays;
    std::shared_ptr<UserDefaults> defaults;
    // Intel only: framebuffer I2C buses and the window server's framebuffer lookup.
    std::shared_ptr<FramebufferI2C> framebufferI2C;
    std::shared_ptr<GammaTables> gamma;
    std::shared_ptr<EventTaps> eventTaps;
    std::shared_ptr<Workspace> workspace;
    std::shared_ptr<DistributedNotifications> distributedNotifications;
    std::shared_ptr<OSDFramework> osdFramework;
    std::shared_ptr<LevelIndicators> levelIndicators;
    // Linux only: DRM connectors and i2c adapters, the /dev/i2c-* files, udev hot-plug.
    std::shared_ptr<DrmSysfs> drm;
    std::shared_ptr<I2CDevices> i2cDevices;
    std::shared_ptr<HotPlugMonitor> hotPlug;
    // Starting at login; null where the machine offers no way to do it.
    std::shared_ptr<LoginItems> loginItems;
};

} // namespace pw::platform
