#include "platform/linux/UdevHotPlugMonitor.h"

#include "platform/linux/CallbackGuard.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#ifdef PW_HAVE_UDEV
#include <libudev.h>
#endif

namespace pw::platform {

UdevHotPlugMonitor::UdevHotPlugMonitor(std::shared_ptr<MainQueue> mainQueue)
    : mainQueue_(std::move(mainQueue)) {}

UdevHotPlugMonitor::~UdevHotPlugMonitor() {
    stop();
}

bool UdevHotPlugMonitor::isHotPlug(const char* action, const char* hotplug) {
    return action && hotplug && std::strcmp(action, "change") == 0 &&
           std::strcmp(hotplug, "1") == 0;
}

#ifdef PW_HAVE_UDEV

bool UdevHotPlugMonitor::start(std::function<void()> onChange) {
    std::lock_guard lock(mutex_);
    if (thread_.joinable() || !mainQueue_) return false;
    udev* context = udev_new();
    if (!context) return false;
    udev_monitor* monitor = udev_monitor_new_from_netlink(context, "udev");
    if (!monitor || udev_monitor_filter_add_match_subsystem_devtype(monitor, "drm", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor) < 0 || ::pipe2(stopPipe_, O_CLOEXEC) != 0) {
        if (monitor) udev_monitor_unref(monitor);
        udev_unref(context);
        return false;
    }
    thread_ = std::thread([context, monitor, stopFd = stopPipe_[0], queue = mainQueue_,
                           onChange = std::move(onChange)] {
        pollfd fds[2] = {{udev_monitor_get_fd(monitor), POLLIN, 0}, {stopFd, POLLIN, 0}};
        for (;;) {
            if (::poll(fds, 2, -1) < 0) continue; // EINTR
            if (fds[1].revents != 0) break;
            if ((fds[0].revents & POLLIN) == 0) continue;
            udev_device* device = udev_monitor_receive_device(monitor);
            if (!device) continue;
            // A report that cannot be posted (the queue threw) is lost, not the watcher.
            guardCallback(
                "The hot-plug report",
                [&] {
                    if (isHotPlug(udev_device_get_action(device),
                                  udev_device_get_property_value(device, "HOTPLUG")))
                        queue->post(onChange);
                },
                [](const std::string& line) { std::fprintf(stderr, "panelwright: %s\n", line.c_str()); });
            udev_device_unref(device);
        }
        udev_monitor_unref(monitor);
        udev_unref(context);
    });
    return true;
}

#else

bool UdevHotPlugMonitor::start(std::function<void()>) {
    return false; // built without libudev: no hot-plug reports
}

#endif

void UdevHotPlugMonitor::stop() {
    std::lock_guard lock(mutex_);
    if (!thread_.joinable()) return;
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(stopPipe_[1], &byte, 1);
    thread_.join();
    ::close(stopPipe_[0]);
    ::close(stopPipe_[1]);
    stopPipe_[0] = stopPipe_[1] = -1;
}

} // namespace pw::platform
