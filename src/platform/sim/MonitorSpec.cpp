#include "platform/sim/MonitorSpec.h"

namespace pw::sim {

MonitorSpec MonitorSpec::withDefaultFeatures() {
    // What a typical monitor reports out of the box: the controls the program offers,
    // input on DisplayPort 1 of a range that ends at HDMI 2.
    MonitorSpec monitor;
    monitor.features = {
        {0x10, {50, 100}}, // brightness
        {0x12, {75, 100}}, // contrast
        {0x62, {50, 100}}, // volume
        {0x8D, {2, 2}},    // mute: 2 = off
        {0x60, {15, 18}},  // input source
    };
    return monitor;
}

} // namespace pw::sim
