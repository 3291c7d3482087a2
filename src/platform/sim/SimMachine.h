#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "platform/sim/Scenario.h"
#include "platform/sim/SimHostInfo.h"
#include "platform/sim/VirtualClock.h"
#include "platform/sim/VirtualMonitor.h"

namespace pw::sim {

// Which registry objects were handed out and how often each was released. Every
// handle a registry call returns must be released exactly once.
struct RegistryLedger {
    std::size_t retained = 0;   // references handed to the program (returns + retain calls)
    std::size_t released = 0;   // release calls on live references
    std::vector<std::string> overReleased; // objects released more often than retained
    std::vector<std::string> leaked;       // objects the program still holds
    bool balanced() const { return leaked.empty() && overReleased.empty(); }
};

// A whole simulated computer built from a scenario: displays and their identities,
// screens, the I/O registry of an Apple Silicon Mac (DCPAVServiceProxy services and
// their framebuffer parents with EDIDs), virtual monitors behind AV services, a bus
// log, a system log in memory and an in-memory user-defaults store. Monitors can be
// plugged in and pulled out while the program runs.
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
    SimHostInfo& host() const;
    BusLog& bus() const;
    RegistryLedger ledger() const;

    // The virtual monitor behind a display (null when it has none or is unplugged).
    std::shared_ptr<VirtualMonitor> monitor(platform::DisplayID id) const;

    // Hot-plug: the display joins (or leaves) the active list, the screens and the
    // registry, and first-match (or terminate) notifications are delivered on the
    // main queue to every armed registration watching its framebuffer class.
    void plug(DisplaySpec display);
    void unplug(platform::DisplayID id);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
