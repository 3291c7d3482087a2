#pragma once

#include "platform/drm/DrmSysfs.h"

#include <filesystem>

namespace pw::platform {

// DRM connectors and i2c adapters read from sysfs below `root` ("/" on a real machine;
// tests point it at a tree of their own).
class LinuxDrmSysfs final : public DrmSysfs {
public:
    explicit LinuxDrmSysfs(std::filesystem::path root = "/");

    bool present() override;
    std::vector<DrmConnector> connectors() override;
    std::vector<I2CAdapterInfo> adapters() override;
    std::string ddcDriver(int adapter) override;

    // Connectors without a `connector_id` (kernels before 5.x) get ids from here up, by
    // position among all connectors: stable as long as the set of connectors is.
    static constexpr DisplayID kPositionalIds = 1000;

private:
    std::filesystem::path root_;
};

} // namespace pw::platform
