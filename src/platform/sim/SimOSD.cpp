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

class SimNativeOSDObject final : public platform::macos::NativeOSDObject {
public:
    explicit SimNativeOSDObject(std::shared_ptr<FrameworkState> state) : state_(std::move(state)) {}

    bool respondsToSelector(std::string_view selector) override;
    void showImage(std::int64_t image, std::uint32_t displayID, std::uint32_t priority,
                   std::uint32_t msecUntilFade, std::uint32_t filledChiclets,
                   std::uint32_t totalChiclets, bool locked) override;

private:
    std::shared_ptr<FrameworkState> state_;
};

class SimOSDBundle final : public platform::macos::OSDBundle {
public:
    explicit SimOSDBundle(std::shared_ptr<FrameworkState> state) : state_(std::move(state)) {}

    bool loadExecutable() override;
    bool hasObjectClass(std::string_view className) override;
    std::shared_ptr<platform::macos::NativeOSDObject>
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

std::shared_ptr<platform::macos::NativeOSDObject>
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

std::shared_ptr<platform::macos::OSDBundle> SimOSDFramework::createBundle(std::string_view path) {
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

// ---- our own indicator window, and the level indicator of the simulated Linux ----------

SimIndicatorWindow::SimIndicatorWindow(std::shared_ptr<platform::Clock> clock)
    : clock_(std::move(clock)) {}

platform::Clock::TimePoint SimIndicatorWindow::now() const {
    return clock_ ? clock_->now() : platform::Clock::TimePoint{};
}

void SimIndicatorWindow::show(const platform::IndicatorContent& content) {
    const auto at = now();
    std::lock_guard lock(mutex_);
    visible_ = true;
    shows_.push_back(Show{content, at});
}

void SimIndicatorWindow::hide() {
    const auto at = now();
    std::lock_guard lock(mutex_);
    visible_ = false;
    hides_.push_back(at);
}

std::vector<SimIndicatorWindow::Show> SimIndicatorWindow::shows() const {
    std::lock_guard lock(mutex_);
    return shows_;
}

std::vector<platform::Clock::TimePoint> SimIndicatorWindow::hides() const {
    std::lock_guard lock(mutex_);
    return hides_;
}

bool SimIndicatorWindow::visible() const {
    std::lock_guard lock(mutex_);
    return visible_;
}

std::optional<platform::IndicatorContent> SimIndicatorWindow::lastShown() const {
    std::lock_guard lock(mutex_);
    if (shows_.empty()) return std::nullopt;
    return shows_.back().content;
}

SimLevelIndicator::SimLevelIndicator(std::shared_ptr<platform::Clock> clock)
    : clock_(std::move(clock)) {}

void SimLevelIndicator::show(platform::IndicatorKind kind, float level, platform::DisplayID display) {
    const auto at = clock_ ? clock_->now() : platform::Clock::TimePoint{};
    std::lock_guard lock(mutex_);
    shown_.push_back(Shown{kind, level, display, at});
}

std::vector<SimLevelIndicator::Shown> SimLevelIndicator::shown() const {
    std::lock_guard lock(mutex_);
    return shown_;
}

} // namespace pw::sim
