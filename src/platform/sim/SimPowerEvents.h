#pragma once

#include "platform/PowerEvents.h"

#include <functional>
#include <mutex>
#include <utility>

namespace pw::sim {

// Sleep and wake-up on demand: `sleep` and `wake` call the handlers on the caller's
// thread, as a real source calls them on its own.
class SimPowerEvents final : public platform::PowerEvents {
public:
    void setHandlers(std::function<void()> willSleep, std::function<void()> didWake) override {
        std::lock_guard lock(mutex_);
        willSleep_ = std::move(willSleep);
        didWake_ = std::move(didWake);
    }
    void sleep() { call(&SimPowerEvents::willSleep_); }
    void wake() { call(&SimPowerEvents::didWake_); }

private:
    void call(std::function<void()> SimPowerEvents::*which) {
        std::function<void()> handler;
        {
            std::lock_guard lock(mutex_);
            handler = this->*which;
        }
        if (handler) handler();
    }

    std::mutex mutex_;
    std::function<void()> willSleep_, didWake_;
};

} // namespace pw::sim
