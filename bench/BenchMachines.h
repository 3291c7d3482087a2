#pragma once

#include "platform/sim/Scenario.h"

namespace pw::bench {

// The laptop's own panel, which every benchmark machine has and the program leaves alone.
inline sim::DisplaySpec builtinPanel() {
    sim::DisplaySpec builtin;
    builtin.id = 1;
    builtin.builtin = true;
    builtin.vendor = 1552;
    builtin.model = 41216;
    builtin.name = "Built-in Display";
    builtin.location = "Embedded";
    return builtin;
}

} // namespace pw::bench
