#pragma once

#include "platform/EventTap.h"

#include <memory>

namespace pw::sim {

// The simulated user's keyboard: events are injected at the head of the tap list and
// travel through every live, enabled tap in order (newest first) on the run loop its
// source is attached to; the machine records for each event whether a tap swallowed it
// or it reached the system. Taps can be refused, sources can fail, and the system's two
// disable notices can be sent.
class SimEventTaps final : public platform::EventTaps {
public:
    SimEventTaps();
    ~SimEventTaps() override;
    std::shared_ptr<platform::EventTap> createTap(platform::TapLocation location,
                                                  platform::TapPlacement placement,
                                                  platform::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  platform::TapCallback callback) override;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace pw::sim
