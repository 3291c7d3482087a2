#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/macos/AVService.h"
#include "platform/macos/MacParts.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "platform/sim/Scenario.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/VirtualClock.h"
#include "platform/sim/VirtualMonitor.h"

namespace pw::macos {
class MacMonitors;
}

namespace pw::sim {

// RegistryLedger (what the program holds of the registry) is in SimRegistry.h.

// A whole simulated computer built from a scenario: displays and their identities,
// screens, the I/O registry of an Apple Silicon Mac (DCPAVServiceProxy services and
// their framebuffer parents with EDIDs), virtual monitors behind AV services, a bus
// log, a system log in memory and an in-memory user-defaults store. Monitors can be
// plugged in and pulled out while the program runs.
class SimDisplayServices;
class SimFramebufferI2C;
class SimGammaTables;
class SimEventTaps;
class SimWorkspace;
class SimKeyboard;
class DistributedBus;
class SimDistributedNotifications;
class SimOSDFramework;
class SimIndicatorWindow;
class SimLevelIndicator;
class SimDrmSysfs;
class SimI2CDevices;
class SimHotPlugMonitor;
class SimLoginItems;

class SimMachine {
public:
    // Virtual time and a manual main queue (tests).
    explicit SimMachine(Scenario scenario);
    // Explicit clock and main queue (the demo and benchmarks use real time).
    SimMachine(Scenario scenario, std::shared_ptr<platform::Clock> clock,
               std::shared_ptr<platform::MainQueue> mainQueue);
    ~SimMachine();

    // Everything the program needs from the machine.
    platform::Platform platform() const;

    // Null unless the machine runs on virtual time.
    VirtualClock* virtualClock() const;
    ManualMainQueue* manualMainQueue() const;

    MemorySystemLog& systemLog() const;
    MemoryUserDefaults& defaults() const;
    SimHostFacts& host() const;
    BusLog& bus() const;
    RegistryLedger ledger() const;

    // The virtual monitor behind a display (null when it has none or is unplugged).
    std::shared_ptr<VirtualMonitor> monitor(platform::DisplayID id) const;

    // Hot-plug: the display joins (or leaves) the active list, the screens and the
    // registry, and first-match (or terminate) notifications are delivered on the
    // main queue to every armed registration watching its framebuffer class.
    // plug is refused (false) for an id that is active already; id 0 takes the next
    // free one. unplug of a display that is not active does nothing (false).
    bool plug(DisplaySpec display);
    bool unplug(platform::DisplayID id);

    // The machine's parts, for tests that look at the machine itself.
    SimRegistry& registry() const;
    SimDisplayServices& displayServices() const; // identities, screens, the pointer
    SimFramebufferI2C* framebufferI2C() const;   // null unless the machine is an Intel Mac
    SimGammaTables& gamma() const;
    SimEventTaps& eventTaps() const;             // the keyboard, on a Mac
    SimKeyboard& keyboard() const;               // the keyboard, on a Linux machine
    SimWorkspace& workspace() const;             // applications
    // The user session's distributed-notification bus, and this program's centre on it.
    const std::shared_ptr<DistributedBus>& distributedBus() const;
    SimDistributedNotifications& distributedNotifications() const;
    // The Mac's indicator framework, our own indicator window (which a Mac shows when the
    // framework does not load), and the level indicator a Linux machine serves directly.
    // Each `platform()` record carries its own Mac indicator, which loads the framework at
    // its first show.
    SimOSDFramework& osdFramework() const;
    SimIndicatorWindow& indicatorWindow() const;
    SimLevelIndicator& levelIndicator() const;
    // A Linux machine's sysfs, /dev/i2c-* files and udev (null on a Mac), and the i2c
    // adapter of a display's DDC/CI (-1 when it has none).
    SimDrmSysfs* drm() const;
    SimI2CDevices* i2cDevices() const;
    SimHotPlugMonitor* hotPlug() const;
    int adapterOf(platform::DisplayID id) const;
    SimLoginItems& loginItems() const;
    // The display's entries in the registry (0 when it has none or is unplugged): the
    // connection's AV service ("DCPAVServiceProxy") and its framebuffer ("AppleCLCD2").
    platform::IOObject proxyEntry(platform::DisplayID id) const;
    platform::IOObject framebufferEntry(platform::DisplayID id) const;
    // The active displays as the machine presents them (frames placed, ids given).
    std::vector<DisplaySpec> activeDisplays() const;
    // AV services made so far (each createWithService that returned one).
    std::size_t avServicesCreated() const;
    // The Mac's AV-service factory, and the Mac's monitors (null on a Linux machine).
    platform::AVServiceFactory& avServices() const;
    macos::MacMonitors* macMonitors() const;
    // What a Mac machine's monitors are built from (tests build variants of it).
    macos::MacParts macParts() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
