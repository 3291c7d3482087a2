#include "platform/linux/desktop/TapDelivery.h"

namespace pw::linuxdesktop {

void TapDelivery::deliver(RunLoop::Block block) {
    std::shared_ptr<RunLoop> loop;
    {
        std::lock_guard lock(mutex_);
        if (valid_) {
            loop = runLoop_.lock();
            if (!loop && !attachedOnce_) return waiting_.push_back(std::move(block));
        }
    }
    // With nowhere to go, the block is dropped on return, outside the lock.
    if (!loop) return;
    loop->perform(std::move(block));
    loop->wakeUp();
}

void TapDelivery::attach(const std::shared_ptr<RunLoop>& runLoop) {
    std::vector<RunLoop::Block> waiting;
    {
        std::lock_guard lock(mutex_);
        if (!valid_) return;
        runLoop_ = runLoop;
        attachedOnce_ = true;
        waiting.swap(waiting_);
    }
    for (auto& block : waiting)
        runLoop->perform(std::move(block));
    runLoop->wakeUp();
}

void TapDelivery::invalidate() {
    std::vector<RunLoop::Block> dropped; // destroyed outside the lock
    std::lock_guard lock(mutex_);
    valid_ = false;
    runLoop_.reset();
    dropped.swap(waiting_);
}

namespace {
class DeliverySource final : public platform::TapRunLoopSource {
public:
    explicit DeliverySource(std::weak_ptr<TapDelivery> delivery) : delivery_(std::move(delivery)) {}
    void addToRunLoop(const std::shared_ptr<RunLoop>& runLoop) override {
        if (auto delivery = delivery_.lock()) delivery->attach(runLoop);
    }
    void invalidate() override {
        if (auto delivery = delivery_.lock()) delivery->invalidate();
    }

private:
    std::weak_ptr<TapDelivery> delivery_;
};
} // namespace

std::shared_ptr<platform::TapRunLoopSource>
TapDelivery::source(std::weak_ptr<TapDelivery> delivery) {
    return std::make_shared<DeliverySource>(std::move(delivery));
}

} // namespace pw::linuxdesktop
