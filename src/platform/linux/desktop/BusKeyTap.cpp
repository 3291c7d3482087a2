#include "platform/linux/desktop/BusKeyTap.h"

#include <cstring>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace pw::linuxdesktop {

namespace {
constexpr std::string_view kCategory = "Keyboard";
}

BusKeyTap::BusKeyTap(BusConnection bus, std::shared_ptr<KeyDelivery> delivery, DesktopLog log)
    : bus_(std::move(bus)), delivery_(std::move(delivery)), log_(std::move(log)) {}

BusKeyTap::~BusKeyTap() {
    invalidate();
    // The thread reads this object to its last line, so it is joined, never let go; a tap
    // must therefore not be destroyed on its own bus thread (nothing there owns it).
    if (thread_.joinable()) thread_.join();
    if (wakeFd_ >= 0) close(wakeFd_);
}

bool BusKeyTap::start(std::unique_ptr<KeyService> service, std::string& whyNot) {
    service_ = std::move(service);
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        whyNot = "no event descriptor for the key thread";
        return false;
    }
    thread_ = std::thread([this] { run(); });
    return true;
}

void BusKeyTap::post(std::function<void()> command) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        commands_.push_back(std::move(command));
    }
    wake();
}

void BusKeyTap::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);
}

void BusKeyTap::run() {
    while (true) {
        std::deque<std::function<void()>> pending;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) break;
            pending.swap(commands_);
        }
        for (auto& command : pending)
            command();
        int result = 0;
        while ((result = sd_bus_process(bus_.get(), nullptr)) > 0) {
        }
        if (result < 0) {
            log_.error(kCategory, std::string("Lost the bus that brings the media keys: ") +
                                      std::strerror(-result));
            return;
        }
        waitForBus(bus_.get(), wakeFd_);
    }
    service_->stop(*this);
    sd_bus_flush(bus_.get());
}

void BusKeyTap::enable(bool enabled) {
    {
        std::lock_guard lock(mutex_);
        if (enabled_ == enabled) return;
        enabled_ = enabled;
    }
    post([this, enabled] {
        transitions_.clear();
        service_->setActive(*this, enabled);
    });
}

void BusKeyTap::invalidate() {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        stopping_ = true;
    }
    if (!thread_.joinable()) {
        if (service_) service_->stop(*this);
        return;
    }
    wake();
    // Asked on the bus thread itself (a service giving up): its loop ends as the current
    // command returns, and whoever destroys the tap joins it.
    if (thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

std::vector<std::string> BusKeyTap::heldKeys() const {
    std::lock_guard lock(mutex_);
    return held_;
}

void BusKeyTap::setHeldKeys(std::vector<std::string> keys) {
    std::lock_guard lock(mutex_);
    held_ = std::move(keys);
}

void BusKeyTap::pressed(const MediaKeySpec& key) {
    const auto transition = transitions_.pressed(key.key);
    if (!transition) return;
    deliver(key, *transition);
    if (!releasesSeen_) deliver(key, *transitions_.released(key.key));
}

void BusKeyTap::released(const MediaKeySpec& key) {
    expectReleases();
    if (const auto transition = transitions_.released(key.key)) deliver(key, *transition);
}

void BusKeyTap::deliver(const MediaKeySpec& key, platform::KeyState state) {
    {
        std::lock_guard lock(mutex_);
        if (!enabled_) return;
    }
    delivery_->deliver(key.key, state, std::nullopt);
}

} // namespace pw::linuxdesktop
