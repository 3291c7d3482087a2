#pragma once

#include "platform/I2CDevices.h"

#include <filesystem>

namespace pw::platform {

// /dev/i2c-* below `root` ("/" on a real machine), through open, flock, ioctl, read and
// write. Messages name the device as /dev/i2c-N whatever the root.
class LinuxI2CDevices final : public I2CDevices {
public:
    explicit LinuxI2CDevices(std::filesystem::path root = "/", bool forceSlaveAddress = false);

    std::vector<int> list() override;
    std::unique_ptr<I2CDevice> open(int bus, int& error) override;
    bool forceSlaveAddress() const override { return force_; }

private:
    std::filesystem::path root_;
    bool force_;
};

} // namespace pw::platform
