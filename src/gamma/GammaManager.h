#pragma once

#include "platform/Platform.h"

#include <cstdint>
#include <map>
#include <set>
#include <memory>
#include <vector>

namespace pw {

// Dims displays in software by scaling the gamma ramp each display had when it was first
// dimmed. Every step starts from that captured table, so steps never
// compound. Main thread only; no lock.
class GammaManager {
public:
    GammaManager(std::shared_ptr<platform::GammaTables> tables);

    // 0 = black, 1 (or more) = the display's calibrated tables. Not a number or not above
    // 0 counts as 0. The system restores all displays at once; displays dimmed before get
    // their levels back at once.
    void setBrightness(platform::DisplayID display, double factor);
    // Reads the display's current ramp into `defaultTables`; failures are logged.
    void captureDefaultTable(platform::DisplayID display);
    // Forgets every factor and returns all displays to their calibrated tables.
    void restoreAll();
    // Whether the display can be dimmed in software: there are gamma tables, and its table
    // could be read the last time it was tried.
    bool canDim(platform::DisplayID display) const {
        return tables_ && !undimmable_.contains(display);
    }

    const std::map<platform::DisplayID, platform::GammaRamp>& defaultTables() const { return defaultTables_; }
    const std::map<platform::DisplayID, double>& currentBrightness() const {
        return currentBrightness_;
    }

private:
    // Installs the display's captured ramp scaled by `factor` (below 1).
    void install(platform::DisplayID display, double factor);

    std::shared_ptr<platform::GammaTables> tables_;
    std::map<platform::DisplayID, platform::GammaRamp> defaultTables_;
    std::map<platform::DisplayID, double> currentBrightness_;
    std::set<platform::DisplayID> undimmable_;
};

} // namespace pw
