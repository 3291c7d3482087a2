#include "platform/sim/SimGamma.h"

namespace pw::sim {

struct SimGammaTables::State {
    std::shared_ptr<SimDisplayServices> displays;
};

SimGammaTables::SimGammaTables(std::shared_ptr<SimDisplayServices> displays)
    : state_(std::make_unique<State>()) {
    state_->displays = std::move(displays);
}
SimGammaTables::~SimGammaTables() = default;

std::int32_t SimGammaTables::getTransferByTable(platform::DisplayID, std::uint32_t, float*, float*,
                                                float*, std::uint32_t& sampleCount) {
    sampleCount = 0;
    return 1001;
}
std::int32_t SimGammaTables::setTransferByTable(platform::DisplayID, std::uint32_t, const float*,
                                                const float*, const float*) {
    return 1001;
}
void SimGammaTables::restoreColorSyncSettings() {}

} // namespace pw::sim
