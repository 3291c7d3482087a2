#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/PowerEvents.h"
#include "platform/linux/desktop/DesktopLog.h"

namespace pw::linuxdesktop {

// Follows logind's PrepareForSleep(b) signal (org.freedesktop.login1.Manager on the
// system bus): true as the machine goes to sleep, false when it has woken up. Only the
// signal of the name's owner counts, so another program cannot fake a resume.
//
// The handlers run on the watcher's own thread; a caller that needs its main thread posts
// from there. Stopping (destruction) waits for a handler that is running.
class LogindSleepWatcher {
public:
    struct Handlers {
        std::function<void()> willSleep; // may be empty
        std::function<void()> didWake;
    };

    // Watches the system bus, or the bus at `busAddress`. Null, after one logged line,
    // when the bus cannot be reached. A bus without logind is logged and still watched
    // (it may start later).
    static std::unique_ptr<LogindSleepWatcher> start(const std::optional<std::string>& busAddress,
                                                     Handlers handlers, DesktopLog log);
    ~LogindSleepWatcher();
    LogindSleepWatcher(const LogindSleepWatcher&) = delete;
    LogindSleepWatcher& operator=(const LogindSleepWatcher&) = delete;

    struct State;

private:
    explicit LogindSleepWatcher(std::shared_ptr<State> state) : state_(std::move(state)) {}
    std::shared_ptr<State> state_;
};

// logind's reports behind the program's sleep seam. The watcher takes its handlers when it
// starts, so new handlers mean a new watcher; the old one is stopped first (waiting for a
// handler that is running). `busAddress` as for the watcher: nothing means the system bus.
class LogindPowerEvents final : public platform::PowerEvents {
public:
    explicit LogindPowerEvents(DesktopLog log, std::optional<std::string> busAddress = std::nullopt)
        : log_(std::move(log)), busAddress_(std::move(busAddress)) {}
    void setHandlers(std::function<void()> willSleep, std::function<void()> didWake) override;

private:
    DesktopLog log_;
    std::optional<std::string> busAddress_;
    std::mutex mutex_;
    std::unique_ptr<LogindSleepWatcher> watcher_;
};

} // namespace pw::linuxdesktop
