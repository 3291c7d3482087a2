#pragma once

#include <cstdint>
#include <vector>

namespace pw::linuxdesktop {

// A CRTC's gamma ramp as window systems keep it: 16-bit samples per channel, all three
// channels of the CRTC's own length.
struct GammaRamp {
    std::vector<std::uint16_t> red, green, blue;
    std::size_t size() const { return red.size(); }
};

// The ramp as `count` float samples per channel (count <= the ramp's length): the whole
// curve resampled, both ends exact, so a reader with little room still holds all of it.
void readRamp(const GammaRamp& ramp, std::size_t count, float* red, float* green, float* blue);

// A table of `count` float samples per channel stretched over `size` 16-bit samples,
// clamped to 0...1. `count` must not be 0.
GammaRamp stretchTable(std::size_t count, const float* red, const float* green, const float* blue,
                       std::size_t size);

} // namespace pw::linuxdesktop
