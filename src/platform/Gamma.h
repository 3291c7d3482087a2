#pragma once

#include <cstdint>

#include "platform/Screens.h"

namespace pw::platform {

// A display's colour transfer tables (gamma ramps), one float sample array per channel.
class GammaTables {
public:
    virtual ~GammaTables() = default;

    // CGGetDisplayTransferByTable: fills at most `capacity` samples of each channel and
    // reports how many through `sampleCount`. 0 on success, an error code otherwise.
    virtual std::int32_t getTransferByTable(DisplayID display, std::uint32_t capacity,
                                            float* red, float* green, float* blue,
                                            std::uint32_t& sampleCount) = 0;
    // CGSetDisplayTransferByTable: installs a table of `sampleCount` samples per channel.
    virtual std::int32_t setTransferByTable(DisplayID display, std::uint32_t sampleCount,
                                            const float* red, const float* green,
                                            const float* blue) = 0;
    // CGDisplayRestoreColorSyncSettings: every display (not one) back to its calibrated tables.
    virtual void restoreColorSyncSettings() = 0;
};

} // namespace pw::platform
