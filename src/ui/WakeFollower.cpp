#include "ui/WakeFollower.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"

namespace pw::ui {

struct WakeFollower::State {
    std::shared_ptr<platform::MainQueue> mainQueue;
    std::weak_ptr<DisplayManager> displays;
    std::function<void()> afterWake; // main queue only

    void wokeUp(const std::shared_ptr<State>& self) {
        auto manager = displays.lock();
        if (!manager) return;
        DiagnosticLog::log("App", "Woke from sleep: reading the displays again");
        SystemLog::app().info("Woke from sleep: reading the displays again");
        for (const auto& display : manager->displays())
            manager->ddcManager()->invalidateCache(*display.transport);
        std::weak_ptr<State> weak = self;
        manager->enumerateDisplaysInBackground([weak] {
            const auto listed = weak.lock();
            const auto relisted = listed ? listed->displays.lock() : nullptr;
            if (!relisted) return;
            relisted->refreshDisplays([weak] {
                if (const auto read = weak.lock(); read && read->afterWake) read->afterWake();
            });
        });
    }
};

WakeFollower::WakeFollower(std::shared_ptr<platform::PowerEvents> events,
                           std::shared_ptr<platform::MainQueue> mainQueue,
                           std::shared_ptr<DisplayManager> displays)
    : events_(std::move(events)), state_(std::make_shared<State>()) {
    state_->mainQueue = std::move(mainQueue);
    state_->displays = displays;
    if (!events_) return;
    std::weak_ptr<State> weak = state_;
    events_->setHandlers(
        [] { DiagnosticLog::log("App", "Going to sleep"); },
        // On the source's thread: only a post from here.
        [weak] {
            const auto reported = weak.lock();
            if (!reported || !reported->mainQueue) return;
            reported->mainQueue->post([weak] {
                if (const auto state = weak.lock()) state->wokeUp(state);
            });
        });
}

WakeFollower::~WakeFollower() {
    if (events_) events_->setHandlers(nullptr, nullptr);
}

void WakeFollower::setAfterWake(std::function<void()> afterWake) {
    state_->afterWake = std::move(afterWake);
}

} // namespace pw::ui
