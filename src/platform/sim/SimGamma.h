#pragma once

#include "platform/Gamma.h"
#include "platform/sim/SimDisplayServices.h"

#include <memory>
#include <mutex>

namespace pw::sim {

// Gamma transfer tables of the simulated displays. Each active display has a calibrated
// table (an identity ramp of 256 samples unless a test sets another, of any sample
// count); installing a table replaces what the display shows until the calibrated
// tables are restored. Captures can be made to fail. Records every call.
class SimGammaTables final : public platform::GammaTables {
public:
    explicit SimGammaTables(std::shared_ptr<SimDisplayServices> displays);
    ~SimGammaTables() override;

    std::int32_t getTransferByTable(platform::DisplayID display, std::uint32_t capacity,
                                    float* red, float* green, float* blue,
                                    std::uint32_t& sampleCount) override;
    std::int32_t setTransferByTable(platform::DisplayID display, std::uint32_t sampleCount,
                                    const float* red, const float* green,
                                    const float* blue) override;
    void restoreColorSyncSettings() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
