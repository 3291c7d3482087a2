#pragma once

#include "platform/Clock.h"
#include "platform/I2CTransport.h"
#include "platform/Screens.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::platform {

// One connected monitor as the machine sees it.
struct MonitorInfo {
    DisplayID id = 0;
    std::string location; // the connector ("card0-DP-1") or the bus's path
    bool builtIn = false; // a panel (or a display) the system controls itself
    std::vector<std::uint8_t> edid; // as read, empty when unknown
    // The identity the system reports for the display (0 when unknown): what settings are
    // keyed by, even when the EDID is not known.
    std::uint32_t vendor = 0;
    std::uint32_t model = 0;
    std::optional<std::string> systemName; // the system's own name for it, when it has one
    std::shared_ptr<I2CTransport> transport; // null: no DDC channel was found
};

// A connected external monitor that could not be reached, with the one line that says
// why (no channel to find it by, a channel that is never opened, the device's
// permissions...).
struct UnreachableMonitor {
    DisplayID id = 0;
    std::string connector; // "card0-DP-1"
    std::string name;      // from its EDID; empty when the EDID has none
    std::uint32_t vendor = 0, product = 0;
    std::string reason;
};

// The machine's monitors: what is connected, each with the channel to reach it.
class Monitors {
public:
    virtual ~Monitors() = default;

    // The connected monitors in the system's order, built-in panels marked. Each external
    // one gets its channel; a channel may be told apart only by the others (twins pair in
    // order), so with `only` every monitor is still looked at but only that one is listed.
    // Runs on any thread and may block on the bus.
    virtual std::vector<MonitorInfo> connected(std::optional<DisplayID> only) = 0;
    // Written to the diagnostic log before an enumeration: what this machine looks for.
    virtual std::string architectureLine() = 0;
    // The pause between probes of two monitors (some machines' buses misbehave when
    // probes of different monitors follow too closely).
    virtual Clock::Duration probeSpacing() { return Clock::Duration::zero(); }
    // Starts hot-plug reports: `onChange` runs on the main queue for every report, as long
    // as this object lives. False when the machine cannot report.
    virtual bool watch(std::function<void()> onChange) = 0;
    // The connected external monitors no channel was found for, and why; empty where the
    // machine cannot tell. Looks again (the same search as `connected`).
    virtual std::vector<UnreachableMonitor> unreachable() { return {}; }
    // When nothing was found, the one line that says why and what to do; empty when the
    // machine has no better answer.
    virtual std::string whyNoneFound() { return {}; }
};

} // namespace pw::platform
