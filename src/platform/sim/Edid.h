#pragma once

#include "platform/sim/Scenario.h"

#include <cstdint>
#include <vector>

namespace pw::sim {

// The 128-byte EDID base block a monitor of this identity reports: manufacturer id from
// the vendor number, product code from the model, serial number, a preferred timing, a
// serial-number, a range-limits and (when the display has a name) a product-name
// descriptor, no extension blocks, and a valid checksum. Built only from the identity
// (builtin, vendor, model, serial, name), so two monitors of the same identity present
// byte-identical EDIDs, exactly as two real units of one model with blank serials do.
std::vector<std::uint8_t> buildEdid(const DisplaySpec& display);

} // namespace pw::sim
