#pragma once

#include <memory>

#include "platform/Clock.h"
#include "platform/Gamma.h"
#include "platform/HostFacts.h"
#include "platform/LevelIndicator.h"
#include "platform/LoginItems.h"
#include "platform/MainQueue.h"
#include "platform/MediaKeys.h"
#include "platform/Monitors.h"
#include "platform/Screens.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

namespace pw::platform {

// Every operating-system facility the program uses: the machine a program's Core owns
// (app/Core.h). A member may be null where a machine lacks the facility; callers check.
// Nothing here names a machine: each machine's folder makes one of these from its parts.
struct Platform {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MainQueue> mainQueue;
    std::shared_ptr<SystemLogSink> systemLog;
    std::shared_ptr<HostFacts> host;
    // The connected monitors with their channels, and hot-plug reports; the window
    // system's screens and the pointer.
    std::shared_ptr<Monitors> monitors;
    std::shared_ptr<Screens> screens;
    std::shared_ptr<UserDefaults> defaults;
    std::shared_ptr<GammaTables> gamma;
    std::shared_ptr<MediaKeys> mediaKeys;
    // Shows a level after a key; null: levels are not shown.
    std::shared_ptr<LevelIndicator> indicator;
    // Starting at login; null where the machine offers no way to do it.
    std::shared_ptr<LoginItems> loginItems;
};

} // namespace pw::platform
