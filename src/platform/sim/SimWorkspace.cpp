#include "platform/sim/SimWorkspace.h"

namespace pw::sim {

class DistributedBus {};
std::shared_ptr<DistributedBus> makeDistributedBus() { return std::make_shared<DistributedBus>(); }

struct SimWorkspace::State {
    std::shared_ptr<platform::MainQueue> mainQueue;
    platform::RunningApplication self;
};
SimWorkspace::SimWorkspace(std::shared_ptr<platform::MainQueue> mainQueue,
                           platform::RunningApplication self)
    : state_(std::make_shared<State>()) {
    state_->mainQueue = std::move(mainQueue);
    state_->self = std::move(self);
}
SimWorkspace::~SimWorkspace() = default;
platform::ObserverToken SimWorkspace::addObserver(Observer) { return 0; }
void SimWorkspace::removeObserver(platform::ObserverToken) {}
platform::RunningApplication SimWorkspace::currentApplication() { return state_->self; }

struct SimDistributedNotifications::State {};
SimDistributedNotifications::SimDistributedNotifications(std::shared_ptr<DistributedBus>,
                                                         std::shared_ptr<platform::MainQueue>)
    : state_(std::make_shared<State>()) {}
SimDistributedNotifications::~SimDistributedNotifications() = default;
void SimDistributedNotifications::post(std::string_view, const std::optional<std::string>&) {}
platform::ObserverToken SimDistributedNotifications::addObserver(std::string_view, Handler) {
    return 0;
}
void SimDistributedNotifications::removeObserver(platform::ObserverToken) {}

} // namespace pw::sim
