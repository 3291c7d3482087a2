#include "platform/sim/SimWorkspace.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

namespace pw::sim {

// ---------------------------------------------------------------------------------------
// SimWorkspace

struct SimWorkspace::State {
    std::shared_ptr<platform::MainQueue> mainQueue;
    macos::RunningApplication self;
    mutable std::mutex mutex;
    std::map<macos::ObserverToken, std::shared_ptr<Observer>> observers;
    macos::ObserverToken nextToken = 1;
    std::vector<macos::RunningApplication> running;
    std::optional<macos::RunningApplication> frontmost;
    std::int64_t nextProcessId = 70000;
};

SimWorkspace::SimWorkspace(std::shared_ptr<platform::MainQueue> mainQueue,
                           macos::RunningApplication self)
    : state_(std::make_shared<State>()) {
    state_->mainQueue = std::move(mainQueue);
    state_->self = std::move(self);
    state_->running.push_back(state_->self);
}

SimWorkspace::~SimWorkspace() = default;

macos::ObserverToken SimWorkspace::addObserver(Observer observer) {
    std::lock_guard lock(state_->mutex);
    const auto token = state_->nextToken++;
    state_->observers[token] = std::make_shared<Observer>(std::move(observer));
    return token;
}

void SimWorkspace::removeObserver(macos::ObserverToken token) {
    std::shared_ptr<Observer> removed; // dies unlocked
    std::lock_guard lock(state_->mutex);
    if (auto it = state_->observers.find(token); it != state_->observers.end()) {
        removed = std::move(it->second);
        state_->observers.erase(it);
    }
}

macos::RunningApplication SimWorkspace::currentApplication() {
    return state_->self;
}

macos::RunningApplication SimWorkspace::launch(std::optional<std::string> bundleIdentifier) {
    macos::RunningApplication app;
    {
        std::lock_guard lock(state_->mutex);
        // Never the same id as this program's own process.
        do {
            app.processId = state_->nextProcessId++;
        } while (app.processId == state_->self.processId);
        app.bundleIdentifier = std::move(bundleIdentifier);
        state_->running.push_back(app);
    }
    notify(macos::WorkspaceEvent::launched, app);
    return app;
}

void SimWorkspace::activate(const macos::RunningApplication& app) {
    {
        std::lock_guard lock(state_->mutex);
        state_->frontmost = app;
    }
    notify(macos::WorkspaceEvent::activated, app);
}

void SimWorkspace::terminate(const macos::RunningApplication& app) {
    {
        std::lock_guard lock(state_->mutex);
        auto& running = state_->running;
        running.erase(std::remove(running.begin(), running.end(), app), running.end());
        if (state_->frontmost == app) state_->frontmost.reset();
    }
    notify(macos::WorkspaceEvent::terminated, app);
}

void SimWorkspace::notify(macos::WorkspaceEvent event,
                          const std::optional<macos::RunningApplication>& app) {
    if (!state_->mainQueue) return;
    // The task holds the workspace weakly: the queue it waits in is held by the state.
    state_->mainQueue->post([weak = std::weak_ptr<State>(state_), event, app] {
        auto state = weak.lock();
        if (!state) return;
        std::vector<std::pair<macos::ObserverToken, std::shared_ptr<Observer>>> observers;
        {
            std::lock_guard lock(state->mutex);
            observers.assign(state->observers.begin(), state->observers.end());
        }
        for (const auto& [token, observer] : observers) {
            {
                // One removed by an earlier observer of this same notification hears nothing.
                std::lock_guard lock(state->mutex);
                if (!state->observers.contains(token)) continue;
            }
            (*observer)(event, app);
        }
    });
}

std::vector<macos::RunningApplication> SimWorkspace::runningApplications() const {
    std::lock_guard lock(state_->mutex);
    return state_->running;
}

std::optional<macos::RunningApplication> SimWorkspace::frontmostApplication() const {
    std::lock_guard lock(state_->mutex);
    return state_->frontmost;
}

std::size_t SimWorkspace::observerCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->observers.size();
}

// ---------------------------------------------------------------------------------------
// DistributedBus

struct DistributedBus::Registration {
    std::string name;
    std::shared_ptr<macos::DistributedNotifications::Handler> handler;
    std::weak_ptr<platform::MainQueue> mainQueue;
};

struct DistributedBus::State {
    mutable std::mutex mutex;
    std::map<macos::ObserverToken, std::shared_ptr<Registration>> registrations;
    macos::ObserverToken nextToken = 1;
    std::uint64_t nextCentre = 1;
    std::vector<Post> posts;
};

DistributedBus::DistributedBus() : state_(std::make_shared<State>()) {}
DistributedBus::~DistributedBus() = default;

std::uint64_t DistributedBus::newCentreId() {
    std::lock_guard lock(state_->mutex);
    return state_->nextCentre++;
}

macos::ObserverToken DistributedBus::add(std::shared_ptr<Registration> registration) {
    std::lock_guard lock(state_->mutex);
    const auto token = state_->nextToken++;
    state_->registrations[token] = std::move(registration);
    return token;
}

void DistributedBus::remove(macos::ObserverToken token) {
    std::shared_ptr<Registration> removed; // dies unlocked
    std::lock_guard lock(state_->mutex);
    if (auto it = state_->registrations.find(token); it != state_->registrations.end()) {
        removed = std::move(it->second);
        state_->registrations.erase(it);
    }
}

void DistributedBus::post(std::uint64_t poster, std::string_view name,
                          const std::optional<std::string>& object) {
    std::vector<std::pair<macos::ObserverToken, std::shared_ptr<Registration>>> targets;
    {
        std::lock_guard lock(state_->mutex);
        state_->posts.push_back({std::string(name), object, poster});
        for (const auto& [token, registration] : state_->registrations)
            if (registration->name == name) targets.emplace_back(token, registration);
    }
    // The bus is held weakly by the delivery: a session that ended delivers nothing more.
    std::weak_ptr<State> weakState = state_;
    for (auto& target : targets) {
        const auto token = target.first;
        auto& registration = target.second;
        auto queue = registration->mainQueue.lock();
        if (!queue) continue;
        // Weak too: a delivery still queued when the session ends must not keep the
        // observer (and what its handler holds, the queue included) alive in a cycle.
        std::weak_ptr<Registration> weakRegistration = registration;
        queue->post([weakState, token, weakRegistration, object] {
            auto state = weakState.lock();
            auto observer = weakRegistration.lock();
            if (!state || !observer) return;
            {
                std::lock_guard lock(state->mutex);
                if (!state->registrations.contains(token)) return; // removed meanwhile
            }
            (*observer->handler)(object);
        });
    }
}

std::vector<DistributedBus::Post> DistributedBus::posts() const {
    std::lock_guard lock(state_->mutex);
    return state_->posts;
}

std::vector<DistributedBus::Post> DistributedBus::posts(std::string_view name) const {
    std::lock_guard lock(state_->mutex);
    std::vector<Post> out;
    for (const auto& post : state_->posts)
        if (post.name == name) out.push_back(post);
    return out;
}

std::size_t DistributedBus::observerCount(std::string_view name) const {
    std::lock_guard lock(state_->mutex);
    return static_cast<std::size_t>(
        std::count_if(state_->registrations.begin(), state_->registrations.end(),
                      [&](const auto& entry) { return entry.second->name == name; }));
}

std::shared_ptr<DistributedBus> makeDistributedBus() {
    return std::make_shared<DistributedBus>();
}

// ---------------------------------------------------------------------------------------
// SimDistributedNotifications

struct SimDistributedNotifications::State {
    std::shared_ptr<DistributedBus> bus;
    std::shared_ptr<platform::MainQueue> mainQueue;
    std::uint64_t id = 0;
};

SimDistributedNotifications::SimDistributedNotifications(
    std::shared_ptr<DistributedBus> bus, std::shared_ptr<platform::MainQueue> mainQueue)
    : state_(std::make_shared<State>()) {
    state_->bus = std::move(bus);
    state_->mainQueue = std::move(mainQueue);
    if (state_->bus) state_->id = state_->bus->newCentreId();
}

SimDistributedNotifications::~SimDistributedNotifications() = default;

void SimDistributedNotifications::post(std::string_view name,
                                       const std::optional<std::string>& object) {
    if (state_->bus) state_->bus->post(state_->id, name, object);
}

macos::ObserverToken SimDistributedNotifications::addObserver(std::string_view name,
                                                                 Handler handler) {
    if (!state_->bus) return 0;
    auto registration = std::make_shared<DistributedBus::Registration>();
    registration->name = std::string(name);
    registration->handler = std::make_shared<Handler>(std::move(handler));
    registration->mainQueue = state_->mainQueue;
    return state_->bus->add(std::move(registration));
}

void SimDistributedNotifications::removeObserver(macos::ObserverToken token) {
    if (state_->bus && token != 0) state_->bus->remove(token);
}

std::uint64_t SimDistributedNotifications::id() const {
    return state_->id;
}

std::vector<DistributedBus::Post> SimDistributedNotifications::posted() const {
    std::vector<DistributedBus::Post> out;
    if (!state_->bus) return out;
    for (auto& post : state_->bus->posts())
        if (post.poster == state_->id) out.push_back(std::move(post));
    return out;
}

} // namespace pw::sim
