#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace pw::macos {

// A running application as the workspace reports it. Two records are the same
// application when their process ids are equal.
struct RunningApplication {
    std::int64_t processId = 0;
    std::optional<std::string> bundleIdentifier;
    friend bool operator==(const RunningApplication& a, const RunningApplication& b) {
        return a.processId == b.processId;
    }
};

enum class WorkspaceEvent { launched, activated, terminated };

using ObserverToken = std::uint64_t; // 0 = none

// The workspace notification centre: applications launched, activated, terminated.
// Observers are called on the main queue. The application is absent when the
// notification carried none.
class Workspace {
public:
    using Observer =
        std::function<void(WorkspaceEvent, const std::optional<RunningApplication>&)>;
    virtual ~Workspace() = default;
    virtual ObserverToken addObserver(Observer observer) = 0;
    virtual void removeObserver(ObserverToken token) = 0;
    // This process, as the workspace knows it.
    virtual RunningApplication currentApplication() = 0;
};

// The distributed notification centre: notifications by name between applications of
// the same user, with an optional string object. Handlers run on the main queue. An
// object that is absent or not a string reaches the handler as nothing.
class DistributedNotifications {
public:
    using Handler = std::function<void(const std::optional<std::string>& object)>;
    virtual ~DistributedNotifications() = default;
    // Posted immediately, to every observer of the name, this application's included.
    virtual void post(std::string_view name, const std::optional<std::string>& object) = 0;
    virtual ObserverToken addObserver(std::string_view name, Handler handler) = 0;
    virtual void removeObserver(ObserverToken token) = 0;
};

} // namespace pw::macos
