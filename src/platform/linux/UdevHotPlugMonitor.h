#pragma once

#include "platform/drm/HotPlugMonitor.h"
#include "platform/MainQueue.h"

#include <memory>
#include <mutex>
#include <thread>

namespace pw::platform {

// Hot-plug reports from udev: a "change" of a DRM card with HOTPLUG=1 (newer kernels add
// the connector; every connector is looked at again anyway). A thread of its own waits on
// the udev socket and posts each report to the main queue.
class UdevHotPlugMonitor final : public HotPlugMonitor {
public:
    explicit UdevHotPlugMonitor(std::shared_ptr<MainQueue> mainQueue);
    ~UdevHotPlugMonitor() override;

    bool start(std::function<void()> onChange) override;
    void stop() override;

    // Whether one udev event is a display hot-plug report.
    static bool isHotPlug(const char* action, const char* hotplug);

private:
    std::shared_ptr<MainQueue> mainQueue_;
    std::mutex mutex_;
    std::thread thread_;
    int stopPipe_[2] = {-1, -1};
};

} // namespace pw::platform
