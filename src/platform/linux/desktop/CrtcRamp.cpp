#include "platform/linux/desktop/CrtcRamp.h"

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

platform::GammaRamp toGammaRamp(const CrtcRamp& ramp) {
    platform::GammaRamp out;
    auto fill = [](const std::vector<std::uint16_t>& channel, std::vector<float>& samples) {
        samples.reserve(channel.size());
        for (const std::uint16_t sample : channel)
            samples.push_back(static_cast<float>(sample / 65535.0));
    };
    fill(ramp.red, out.red);
    fill(ramp.green, out.green);
    fill(ramp.blue, out.blue);
    return out;
}

CrtcRamp stretchRamp(const platform::GammaRamp& ramp, std::size_t size) {
    CrtcRamp out;
    const std::size_t count = ramp.size();
    auto stretch = [&](const std::vector<float>& samples, std::vector<std::uint16_t>& channel) {
        channel.resize(size);
        for (std::size_t i = 0; i < size; ++i)
            channel[i] = toSample(sampleAt(samples.data(), count, i, size));
    };
    stretch(ramp.red, out.red);
    stretch(ramp.green, out.green);
    stretch(ramp.blue, out.blue);
    return out;
}

} // namespace pw::linuxdesktop
