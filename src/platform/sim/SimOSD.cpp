#include "platform/sim/SimOSD.h"

namespace pw::sim {

struct SimOSDFramework::State {};
SimOSDFramework::SimOSDFramework() : state_(std::make_shared<State>()) {}
SimOSDFramework::~SimOSDFramework() = default;
std::shared_ptr<platform::OSDBundle> SimOSDFramework::createBundle(std::string_view) {
    return nullptr;
}

struct SimLevelIndicators::State {
    std::shared_ptr<platform::Clock> clock;
};
SimLevelIndicators::SimLevelIndicators(std::shared_ptr<platform::Clock> clock)
    : state_(std::make_shared<State>()) {
    state_->clock = std::move(clock);
}
SimLevelIndicators::~SimLevelIndicators() = default;
std::shared_ptr<platform::LevelIndicatorWindow> SimLevelIndicators::createWindow() {
    return nullptr;
}

} // namespace pw::sim
