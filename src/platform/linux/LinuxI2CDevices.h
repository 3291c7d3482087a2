#pragma once

#include "platform/drm/I2CDevices.h"

#include <atomic>
#include <filesystem>

namespace pw::platform {

// /dev/i2c-* below `root` ("/" on a real machine), through open, flock, ioctl, read and
// write. Messages name the device as /dev/i2c-N whatever the root. The holders of a device
// come from <root>/proc/*/fd; the quiet-time records live in $XDG_RUNTIME_DIR/panelwright
// (<root>/run/panelwright below another root), one small file per bus.
class LinuxI2CDevices final : public I2CDevices {
public:
    explicit LinuxI2CDevices(std::filesystem::path root = "/", bool forceSlaveAddress = false);

    std::vector<int> list() override;
    std::unique_ptr<I2CDevice> open(int bus, int& error) override;
    bool forceSlaveAddress() const override { return force_; }
    std::vector<std::string> holders(int bus) const override;
    std::optional<QuietClock::time_point> quietUntil(int bus) const override;
    void setQuietUntil(int bus, QuietClock::time_point until) override;

private:
    std::filesystem::path recordFile(int bus) const;

    std::filesystem::path root_;
    bool force_;
    // Tells this device set's own records from other processes' ones.
    std::uint64_t token_;
    // The records' folder is made (and narrowed to its owner) once, not at every message.
    std::atomic<bool> recordFolderReady_{false};
};

} // namespace pw::platform
