#pragma once

#include "platform/Clock.h"
#include "platform/I2CTransport.h"

#include <chrono>
#include <memory>

namespace pw {

// The channel of a monitor whose "Use longer DDC delay" option is on: every transfer is
// preceded by an extra quiet time on the bus, on top of the DDC manager's own pacing and
// of its quiet time after a write (so 100 ms after a write, 50 ms before anything else).
// Some monitors' DDC/CI controllers drop requests that follow each other at the usual
// pace; giving them this wrapper, rather than slowing the DDC manager, keeps every other
// monitor at full speed. The endpoint stays the same, so the cache is shared with it.
class PacedTransport final : public I2CTransport {
public:
    static constexpr std::chrono::milliseconds kExtraDelay{50};

    PacedTransport(std::shared_ptr<I2CTransport> inner, std::shared_ptr<platform::Clock> clock)
        : inner_(std::move(inner)), clock_(std::move(clock)) {}

    std::int64_t endpointKey() const override { return inner_->endpointKey(); }
    bool write(std::span<const std::uint8_t> frame) override {
        pause();
        return inner_->write(frame);
    }
    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                  std::uint32_t replyLength) override {
        pause();
        return inner_->read(request, replyLength);
    }

    bool busHeld() const override { return inner_->busHeld(); }

    const std::shared_ptr<I2CTransport>& inner() const { return inner_; }

private:
    void pause() {
        if (clock_) clock_->sleepFor(kExtraDelay);
    }

    std::shared_ptr<I2CTransport> inner_;
    std::shared_ptr<platform::Clock> clock_;
};

} // namespace pw
