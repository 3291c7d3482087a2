#pragma once

#include "platform/MainQueue.h"
#include "platform/Workspace.h"

#include <memory>

namespace pw::sim {

// The simulated workspace: applications launch, activate and terminate; observers hear
// of it on the main queue.
class SimWorkspace final : public platform::Workspace {
public:
    SimWorkspace(std::shared_ptr<platform::MainQueue> mainQueue,
                 platform::RunningApplication self);
    ~SimWorkspace() override;
    platform::ObserverToken addObserver(Observer observer) override;
    void removeObserver(platform::ObserverToken token) override;
    platform::RunningApplication currentApplication() override;

private:
    struct State;
    std::shared_ptr<State> state_;
};

// One distributed-notification bus of a simulated user session; every application of
// the session (several in one test) posts and observes through its own centre on it.
class DistributedBus;

class SimDistributedNotifications final : public platform::DistributedNotifications {
public:
    SimDistributedNotifications(std::shared_ptr<DistributedBus> bus,
                                std::shared_ptr<platform::MainQueue> mainQueue);
    ~SimDistributedNotifications() override;
    void post(std::string_view name, const std::optional<std::string>& object) override;
    platform::ObserverToken addObserver(std::string_view name, Handler handler) override;
    void removeObserver(platform::ObserverToken token) override;

private:
    struct State;
    std::shared_ptr<State> state_;
};

std::shared_ptr<DistributedBus> makeDistributedBus();

} // namespace pw::sim
