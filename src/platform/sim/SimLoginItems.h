#pragma once

#include "platform/LoginItems.h"

#include <atomic>

namespace pw::sim {

// Starting at login on the simulated machine: a flag in memory. A test can make the next
// changes fail, as a read-only autostart folder would.
class SimLoginItems final : public platform::LoginItems {
public:
    bool isEnabled() const override { return enabled_; }
    bool setEnabled(bool enabled) override {
        if (failing_) return false;
        enabled_ = enabled;
        return true;
    }
    void setFailing(bool failing) { failing_ = failing; }

private:
    std::atomic<bool> enabled_{false};
    std::atomic<bool> failing_{false};
};

} // namespace pw::sim
