#pragma once

#include <cstdint>

namespace pw {

// The brightness slider is perceptual: a slider position p of maximum m stands for the
// DDC value m * (p / m)^2.5, and a DDC reading maps back with the exponent 0.4. Below 5 %
// of full DDC brightness the picture is also dimmed through the gamma tables, linearly to
// black at the bottom of the slider.
struct BrightnessCurve {
    static constexpr double curveMultiplier = 2.5;
    static constexpr double gammaDimThreshold = 0.05;

    // Slider position for a reading; a maximum of 0 shows the reading unchanged.
    static double sliderPosition(std::uint16_t current, std::uint16_t max);
    // Fraction 0 ... 1 of full DDC brightness for a slider position.
    static double fraction(double position, double max);
    // The DDC value for a fraction: max * f, rounded half away from zero, clamped to 16 bits.
    static std::uint16_t ddcValue(double fraction, double max);
    // The software dimming level for a fraction: 0 at 0, rising linearly to 1 at the
    // threshold, 1 (no dimming) above it.
    static double dimmingLevel(double fraction);

    // A display whose brightness is forced to software has the whole slider on the
    // gamma tables, linearly from a floor at the bottom (the picture stays readable, so
    // the user can always find the slider again) to the calibrated tables at the top.
    static constexpr double kSoftwareFloor = 0.1;
    static double softwareLevel(double position, double max);
};

} // namespace pw
