#pragma once

#include <cstdint>
#include <vector>

#include "platform/Gamma.h"

namespace pw::linuxdesktop {

// A CRTC's gamma ramp as window systems keep it: 16-bit samples per channel, all three
// channels of the CRTC's own length.
struct CrtcRamp {
    std::vector<std::uint16_t> red, green, blue;
    std::size_t size() const { return red.size(); }
};

// The CRTC's ramp in the program's words, sample for sample.
platform::GammaRamp toGammaRamp(const CrtcRamp& ramp);

// `ramp` stretched over `size` 16-bit samples, clamped to 0...1. `ramp` must not be empty.
CrtcRamp stretchRamp(const platform::GammaRamp& ramp, std::size_t size);

} // namespace pw::linuxdesktop
