#pragma once

#include "platform/MainQueue.h"
#include "platform/macos/Workspace.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::sim {

// The simulated workspace: applications launch, activate and terminate; observers hear
// of it on the main queue (each observer that is still registered when the task runs).
// Thread-safe.
class SimWorkspace final : public macos::Workspace {
public:
    SimWorkspace(std::shared_ptr<platform::MainQueue> mainQueue, macos::RunningApplication self);
    ~SimWorkspace() override;
    macos::ObserverToken addObserver(Observer observer) override;
    void removeObserver(macos::ObserverToken token) override;
    macos::RunningApplication currentApplication() override;

    // A new application (with a process id of its own) starts: "launched".
    macos::RunningApplication launch(std::optional<std::string> bundleIdentifier);
    // It comes to the front: "activated". This program itself may be activated too.
    void activate(const macos::RunningApplication& app);
    // It quits: "terminated", and it leaves the running list.
    void terminate(const macos::RunningApplication& app);
    // A notification as it stands, application absent included (for odd senders).
    void notify(macos::WorkspaceEvent event,
                const std::optional<macos::RunningApplication>& app);

    std::vector<macos::RunningApplication> runningApplications() const;
    std::optional<macos::RunningApplication> frontmostApplication() const;
    std::size_t observerCount() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

// One distributed-notification bus of a simulated user session; every application of
// the session (several in one test) posts and observes through its own centre on it.
// A post reaches every observer of its name on the bus, the poster's own included, each
// on the main queue of the centre it registered with. Every post is recorded.
class DistributedBus {
public:
    struct Post {
        std::string name;
        std::optional<std::string> object;
        std::uint64_t poster = 0; // the posting centre's id()
    };

    DistributedBus();
    ~DistributedBus();
    DistributedBus(const DistributedBus&) = delete;
    DistributedBus& operator=(const DistributedBus&) = delete;

    std::vector<Post> posts() const;
    std::vector<Post> posts(std::string_view name) const;
    std::size_t observerCount(std::string_view name) const;

    // Centre side.
    struct Registration;
    std::uint64_t newCentreId();
    macos::ObserverToken add(std::shared_ptr<Registration> registration);
    void remove(macos::ObserverToken token);
    void post(std::uint64_t poster, std::string_view name,
              const std::optional<std::string>& object);

private:
    struct State;
    std::shared_ptr<State> state_;
};

class SimDistributedNotifications final : public macos::DistributedNotifications {
public:
    SimDistributedNotifications(std::shared_ptr<DistributedBus> bus,
                                std::shared_ptr<platform::MainQueue> mainQueue);
    ~SimDistributedNotifications() override;
    void post(std::string_view name, const std::optional<std::string>& object) override;
    macos::ObserverToken addObserver(std::string_view name, Handler handler) override;
    void removeObserver(macos::ObserverToken token) override;

    std::uint64_t id() const;
    // What this centre posted, in order.
    std::vector<DistributedBus::Post> posted() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

std::shared_ptr<DistributedBus> makeDistributedBus();

} // namespace pw::sim
