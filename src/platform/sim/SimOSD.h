#pragma once

#include "platform/Clock.h"
#include "platform/OSD.h"

#include <memory>

namespace pw::sim {

// The system indicator framework of the simulated machine: present and working by
// default, or absent or broken at any loading step. Records every indicator call.
class SimOSDFramework final : public platform::OSDFramework {
public:
    SimOSDFramework();
    ~SimOSDFramework() override;
    std::shared_ptr<platform::OSDBundle> createBundle(std::string_view path) override;

private:
    struct State;
    std::shared_ptr<State> state_;
};

// Fallback indicator windows: records each window made, each show (content and virtual
// time) and each hide.
class SimLevelIndicators final : public platform::LevelIndicators {
public:
    explicit SimLevelIndicators(std::shared_ptr<platform::Clock> clock);
    ~SimLevelIndicators() override;
    std::shared_ptr<platform::LevelIndicatorWindow> createWindow() override;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace pw::sim
