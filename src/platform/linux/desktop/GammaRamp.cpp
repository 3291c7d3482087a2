#include "platform/linux/desktop/GammaRamp.h"

#include <cmath>

namespace pw::linuxdesktop {

namespace {

// The value at position i of `to` evenly spaced points over a curve of `from` samples,
// linearly interpolated.
template <typename Sample>
double sampleAt(const Sample* curve, std::size_t from, std::size_t i, std::size_t to) {
    if (from == 1 || to == 1) return static_cast<double>(curve[0]);
    const double position =
        static_cast<double>(i) * static_cast<double>(from - 1) / static_cast<double>(to - 1);
    const auto below = static_cast<std::size_t>(position);
    if (below + 1 >= from) return static_cast<double>(curve[from - 1]);
    const double t = position - static_cast<double>(below);
    return static_cast<double>(curve[below]) * (1 - t) + static_cast<double>(curve[below + 1]) * t;
}

std::uint16_t toSample(double value) {
    if (!(value > 0)) return 0;
    if (value >= 1) return 65535;
    return static_cast<std::uint16_t>(std::lround(value * 65535.0));
}

} // namespace

void readRamp(const GammaRamp& ramp, std::size_t count, float* red, float* green, float* blue) {
    const std::size_t size = ramp.size();
    auto fill = [&](const std::vector<std::uint16_t>& channel, float* out) {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = static_cast<float>(sampleAt(channel.data(), size, i, count) / 65535.0);
    };
    fill(ramp.red, red);
    fill(ramp.green, green);
    fill(ramp.blue, blue);
}

GammaRamp stretchTable(std::size_t count, const float* red, const float* green, const float* blue,
                       std::size_t size) {
    GammaRamp ramp;
    auto stretch = [&](const float* samples, std::vector<std::uint16_t>& out) {
        out.resize(size);
        for (std::size_t i = 0; i < size; ++i)
            out[i] = toSample(sampleAt(samples, count, i, size));
    };
    stretch(red, ramp.red);
    stretch(green, ramp.green);
    stretch(blue, ramp.blue);
    return ramp;
}

} // namespace pw::linuxdesktop
