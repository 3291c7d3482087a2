#include "platform/sim/SimEventTaps.h"

namespace pw::sim {

struct SimEventTaps::State {};
SimEventTaps::SimEventTaps() : state_(std::make_shared<State>()) {}
SimEventTaps::~SimEventTaps() = default;
std::shared_ptr<platform::EventTap> SimEventTaps::createTap(platform::TapLocation,
                                                            platform::TapPlacement,
                                                            platform::TapOptions, std::uint64_t,
                                                            platform::TapCallback) {
    return nullptr;
}

} // namespace pw::sim
