#include "platform/linux/desktop/SleepWatcher.h"

#include "platform/linux/CallbackGuard.h"
#include "platform/linux/desktop/SessionBus.h"

#include <systemd/sd-bus.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace pw::linuxdesktop {

namespace {
constexpr std::string_view kCategory = "App";
constexpr const char* kLogind = "org.freedesktop.login1";
} // namespace

struct LogindSleepWatcher::State {
    BusConnection bus;
    Handlers handlers;
    DesktopLog log;
    int stopFd = -1;
    std::atomic<bool> stopping{false};
    std::thread thread;

    ~State() {
        if (stopFd >= 0) close(stopFd);
    }

    static int onSignal(sd_bus_message* message, void* self, sd_bus_error*) {
        auto* state = static_cast<State*>(self);
        return platform::guardCallback(
            "The sleep and wake-up handler", 0, [&] { return state->tell(message); },
            state->log.errorsIn(kCategory));
    }

    int tell(sd_bus_message* message) {
        int sleeping = 0;
        if (sd_bus_message_read(message, "b", &sleeping) < 0) return 0;
        log.info(kCategory, sleeping ? "The system is going to sleep" : "The system has woken up");
        const auto& handler = sleeping ? handlers.willSleep : handlers.didWake;
        if (handler) handler();
        return 0;
    }

    void run() {
        while (!stopping) {
            int result = 0;
            while ((result = sd_bus_process(bus.get(), nullptr)) > 0 && !stopping) {
            }
            if (result < 0) {
                log.error(kCategory, std::string("Lost the bus that tells of sleep and wake-up: ") +
                                         std::strerror(-result));
                return;
            }
            waitForBus(bus.get(), stopFd);
        }
    }
};

std::unique_ptr<LogindSleepWatcher> LogindSleepWatcher::start(const std::optional<std::string>& busAddress,
                                                              Handlers handlers, DesktopLog log) {
    std::string whyNot;
    auto bus = openBus(busAddress, BusKind::system, whyNot);
    auto state = std::make_shared<State>();
    int result = bus ? 0 : -1;
    if (bus) {
        result = sd_bus_match_signal(bus.get(), nullptr, kLogind, "/org/freedesktop/login1",
                                     "org.freedesktop.login1.Manager", "PrepareForSleep",
                                     &State::onSignal, state.get());
        if (result < 0) whyNot = std::string("the bus refused the match: ") + std::strerror(-result);
    }
    if (result >= 0) {
        state->stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (state->stopFd < 0) {
            result = -1;
            whyNot = "no event descriptor for the watcher";
        }
    }
    if (result < 0) {
        log.error(kCategory, "Values are not restored after sleep: " + whyNot);
        return nullptr;
    }
    if (const auto present = nameHasOwner(bus.get(), kLogind, whyNot); present && !*present)
        log.info(kCategory, "No logind on the system bus yet: waiting for it to tell of sleep");

    state->bus = std::move(bus);
    state->handlers = std::move(handlers);
    state->log = std::move(log);
    state->thread = std::thread([raw = state.get()] { raw->run(); });
    return std::unique_ptr<LogindSleepWatcher>(new LogindSleepWatcher(std::move(state)));
}

LogindSleepWatcher::~LogindSleepWatcher() {
    state_->stopping = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(state_->stopFd, &one, sizeof one);
    if (state_->thread.joinable()) state_->thread.join();
}

void LogindPowerEvents::setHandlers(std::function<void()> willSleep, std::function<void()> didWake) {
    std::lock_guard lock(mutex_);
    watcher_.reset();
    if (!willSleep && !didWake) return;
    watcher_ = LogindSleepWatcher::start(busAddress_, {std::move(willSleep), std::move(didWake)}, log_);
}

} // namespace pw::linuxdesktop
