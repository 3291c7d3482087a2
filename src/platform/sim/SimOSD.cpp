#include "platform/sim/SimOSD.h"

#include <algorithm>
#include <mutex>

namespace pw::sim {

// ---- the indicator framework ------------------------------------------------------------

namespace {

// What the framework, its bundles and its shared object have in common.
struct FrameworkState {
    using Fault = SimOSDFramework::Fault;
    mutable std::mutex mutex;
    Fault fault = Fault::none;
    std::vector<SimOSDFramework::ShowImageCall> calls;
    std::vector<std::string> requests;

    void request(std::string_view operation, std::string_view argument = {}) {
        std::lock_guard lock(mutex);
        std::string line(operation);
        if (!argument.empty()) line.append(" ").append(argument);
        requests.push_back(std::move(line));
    }
    bool broken(Fault at) const {
        std::lock_guard lock(mutex);
        return fault == at;
    }
};

class SimNativeOSDObject final : public platform::NativeOSDObject {
public:
    explicit SimNativeOSDObject(std::shared_ptr<FrameworkState> state) : state_(std::move(state)) {}

    bool respondsToSelector(std::string_view selector) override;
    void showImage(std::int64_t image, std::uint32_t displayID, std::uint32_t priority,
                   std::uint32_t msecUntilFade, std::uint32_t filledChiclets,
                   std::uint32_t totalChiclets, bool locked) override;

private:
    std::shared_ptr<FrameworkState> state_;
};

class SimOSDBundle final : public platform::OSDBundle {
public:
    explicit SimOSDBundle(std::shared_ptr<FrameworkState> state) : state_(std::move(state)) {}

    bool loadExecutable() override;
    bool hasObjectClass(std::string_view className) override;
    std::shared_ptr<platform::NativeOSDObject>
    sendClassSelector(std::string_view className, std::string_view selector) override;

private:
    std::shared_ptr<FrameworkState> state_;
};

} // namespace

struct SimOSDFramework::State : FrameworkState {};

bool SimNativeOSDObject::respondsToSelector(std::string_view selector) {
    state_->request("respondsToSelector", selector);
    return selector == SimOSDFramework::kShowSelector &&
           !state_->broken(SimOSDFramework::Fault::doesNotRespond);
}

void SimNativeOSDObject::showImage(std::int64_t image, std::uint32_t displayID,
                                   std::uint32_t priority, std::uint32_t msecUntilFade,
                                   std::uint32_t filledChiclets, std::uint32_t totalChiclets,
                                   bool locked) {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(SimOSDFramework::ShowImageCall{
        image, displayID, priority, msecUntilFade, filledChiclets, totalChiclets, locked});
}

bool SimOSDBundle::loadExecutable() {
    state_->request("loadExecutable");
    return !state_->broken(SimOSDFramework::Fault::loadFails);
}

bool SimOSDBundle::hasObjectClass(std::string_view className) {
    state_->request("hasObjectClass", className);
    return className == SimOSDFramework::kClassName &&
           !state_->broken(SimOSDFramework::Fault::classMissing);
}

std::shared_ptr<platform::NativeOSDObject>
SimOSDBundle::sendClassSelector(std::string_view className, std::string_view selector) {
    state_->request("sendClassSelector", std::string(className) + " " + std::string(selector));
    if (className != SimOSDFramework::kClassName || selector != SimOSDFramework::kSharedSelector ||
        state_->broken(SimOSDFramework::Fault::classMissing) ||
        state_->broken(SimOSDFramework::Fault::noSharedObject))
        return nullptr;
    return std::make_shared<SimNativeOSDObject>(state_);
}

SimOSDFramework::SimOSDFramework() : state_(std::make_shared<State>()) {}
SimOSDFramework::~SimOSDFramework() = default;

std::shared_ptr<platform::OSDBundle> SimOSDFramework::createBundle(std::string_view path) {
    state_->request("createBundle", path);
    if (path != kPath || state_->broken(Fault::noBundle)) return nullptr;
    return std::make_shared<SimOSDBundle>(state_);
}

void SimOSDFramework::setFault(Fault fault) {
    std::lock_guard lock(state_->mutex);
    state_->fault = fault;
}

SimOSDFramework::Fault SimOSDFramework::fault() const {
    std::lock_guard lock(state_->mutex);
    return state_->fault;
}

std::vector<SimOSDFramework::ShowImageCall> SimOSDFramework::showImageCalls() const {
    std::lock_guard lock(state_->mutex);
    return state_->calls;
}

std::vector<std::string> SimOSDFramework::requests() const {
    std::lock_guard lock(state_->mutex);
    return state_->requests;
}

// ---- fallback indicator windows ---------------------------------------------------------

namespace {

struct IndicatorState {
    using Show = SimLevelIndicators::Show;
    using Hide = SimLevelIndicators::Hide;
    std::shared_ptr<platform::Clock> clock;
    mutable std::mutex mutex;
    std::vector<bool> visible; // per window made
    std::vector<Show> shows;
    std::vector<Hide> hides;

    platform::Clock::TimePoint now() const {
        return clock ? clock->now() : platform::Clock::TimePoint{};
    }
};

class SimLevelIndicatorWindow final : public platform::LevelIndicatorWindow {
public:
    SimLevelIndicatorWindow(std::shared_ptr<IndicatorState> state, std::size_t index)
        : state_(std::move(state)), index_(index) {}

    void show(const platform::IndicatorContent& content) override;
    void hide() override;

private:
    std::shared_ptr<IndicatorState> state_;
    std::size_t index_;
};

} // namespace

struct SimLevelIndicators::State : IndicatorState {};

void SimLevelIndicatorWindow::show(const platform::IndicatorContent& content) {
    const auto at = state_->now();
    std::lock_guard lock(state_->mutex);
    state_->visible[index_] = true;
    state_->shows.push_back(SimLevelIndicators::Show{content, at, index_});
}

void SimLevelIndicatorWindow::hide() {
    const auto at = state_->now();
    std::lock_guard lock(state_->mutex);
    state_->visible[index_] = false;
    state_->hides.push_back(SimLevelIndicators::Hide{at, index_});
}

SimLevelIndicators::SimLevelIndicators(std::shared_ptr<platform::Clock> clock)
    : state_(std::make_shared<State>()) {
    state_->clock = std::move(clock);
}
SimLevelIndicators::~SimLevelIndicators() = default;

std::shared_ptr<platform::LevelIndicatorWindow> SimLevelIndicators::createWindow() {
    std::lock_guard lock(state_->mutex);
    state_->visible.push_back(false); // made hidden
    return std::make_shared<SimLevelIndicatorWindow>(state_, state_->visible.size() - 1);
}

std::size_t SimLevelIndicators::windowsCreated() const {
    std::lock_guard lock(state_->mutex);
    return state_->visible.size();
}

std::vector<SimLevelIndicators::Show> SimLevelIndicators::shows() const {
    std::lock_guard lock(state_->mutex);
    return state_->shows;
}

std::vector<SimLevelIndicators::Hide> SimLevelIndicators::hides() const {
    std::lock_guard lock(state_->mutex);
    return state_->hides;
}

bool SimLevelIndicators::visible() const {
    std::lock_guard lock(state_->mutex);
    return std::find(state_->visible.begin(), state_->visible.end(), true) != state_->visible.end();
}

std::optional<platform::IndicatorContent> SimLevelIndicators::lastShown() const {
    std::lock_guard lock(state_->mutex);
    if (state_->shows.empty()) return std::nullopt;
    return state_->shows.back().content;
}

} // namespace pw::sim
