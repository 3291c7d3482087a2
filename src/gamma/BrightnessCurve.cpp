#include "gamma/BrightnessCurve.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pw {

double BrightnessCurve::sliderPosition(std::uint16_t current, std::uint16_t max) {
    if (max < 1) return current;
    const double m = max;
    return m * std::pow(current / m, 1.0 / curveMultiplier);
}

double BrightnessCurve::fraction(double position, double max) {
    if (!(max > 0)) return 0;
    const double ratio = position / max;
    if (!(ratio > 0)) return 0; // also catches NaN
    return std::pow(ratio, curveMultiplier);
}

std::uint16_t BrightnessCurve::ddcValue(double fraction, double max) {
    const double value = std::round(max * fraction); // halves away from zero
    if (!(value > 0)) return 0;
    if (value >= std::numeric_limits<std::uint16_t>::max())
        return std::numeric_limits<std::uint16_t>::max();
    return static_cast<std::uint16_t>(value);
}

double BrightnessCurve::softwareLevel(double position, double max) {
    if (!(max > 0) || !(position > 0)) return kSoftwareFloor;
    return std::min(1.0, kSoftwareFloor + (1.0 - kSoftwareFloor) * (position / max));
}

double BrightnessCurve::dimmingLevel(double fraction) {
    if (!(fraction > 0)) return 0;
    if (fraction <= gammaDimThreshold) return fraction / gammaDimThreshold;
    return 1.0;
}

} // namespace pw
