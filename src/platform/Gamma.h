#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "platform/Screens.h"

namespace pw::platform {

// A display's colour transfer curve: the same number of samples per channel, each 0..1 from
// black to full.
struct GammaRamp {
    std::vector<float> red, green, blue;
    std::size_t size() const { return red.size(); }
    // Not empty, and the three channels of one length.
    bool valid() const {
        return !red.empty() && green.size() == red.size() && blue.size() == red.size();
    }
    bool operator==(const GammaRamp&) const = default;
};

// The displays' gamma ramps, as the system keeps them. Each machine logs its own failures.
class GammaTables {
public:
    virtual ~GammaTables() = default;

    // What the display shows now; nothing when it cannot be read (no such display, the
    // system refused).
    virtual std::optional<GammaRamp> read(DisplayID display) = 0;
    // Installs `ramp` (any length; the machine fits it to the display's own). A ramp that
    // is not `valid`, or a display that cannot take it, gives false.
    virtual bool apply(DisplayID display, const GammaRamp& ramp) = 0;
    // Every display (not one) back to the ramp it had before we changed it.
    virtual void restoreAll() = 0;
};

} // namespace pw::platform
