#pragma once

#include "display/ExternalDisplay.h"
#include "platform/Clock.h"
#include "platform/Monitors.h"
#include "platform/UserDefaults.h"

#include <memory>
#include <optional>
#include <vector>

namespace pw {

class DDCManager;

// What one enumeration pass works with.
struct EnumerationParts {
    platform::Monitors* monitors = nullptr; // none: nothing is listed
    DDCManager& ddc;
    platform::UserDefaults* defaults = nullptr;
    std::shared_ptr<platform::Clock> clock;
};

// One enumeration pass, on the calling thread: asks the machine for its connected monitors,
// skips built-in panels and monitors without a channel, names each (the system's name, else
// the EDID's, else "External Display"), reads its options and probes its brightness once,
// waiting the machine's probe spacing between probes. With `only`, that display alone is
// listed and probed. Blocks while it probes.
std::vector<ExternalDisplay> buildDisplayList(const EnumerationParts& parts,
                                              std::optional<platform::DisplayID> only);

} // namespace pw
