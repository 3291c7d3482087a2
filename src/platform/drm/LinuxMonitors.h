#pragma once

#include "platform/Clock.h"
#include "platform/drm/DrmSysfs.h"
#include "platform/drm/HotPlugMonitor.h"
#include "platform/drm/I2CDevices.h"
#include "platform/Monitors.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pw {

// Whether an i2c adapter may ever be opened to look for a monitor's EDID: it must
// belong to a PCI display (class 0x03xxxx) or docking (0x0a) device, and its name must
// not mark a bus known to hang or misbehave when probed (see docs/linux.md).
bool adapterMayBeProbed(const platform::I2CAdapterInfo& adapter);
// The name matches an entry of the never-probe table (a prefix, letter case as given).
bool adapterNameDenied(std::string_view name);

// A Linux machine's monitors: its connected DRM connectors (built-in panels marked), each
// external one's DDC channel being the adapter the driver links as its `ddc`, else its
// DisplayPort AUX adapter, else a display adapter whose EDID at 0x50 equals the
// connector's. Display ids are the connectors' ids. Hot-plug reports come from udev.
// Written against the kernel interfaces only, so the simulated Linux machine runs it too.
class LinuxMonitors final : public platform::Monitors {
public:
    struct Parts {
        std::shared_ptr<platform::DrmSysfs> drm;
        std::shared_ptr<platform::I2CDevices> i2cDevices;
        std::shared_ptr<platform::HotPlugMonitor> hotPlug; // null: no reports
        std::shared_ptr<platform::Clock> clock;
    };

    explicit LinuxMonitors(Parts parts);
    ~LinuxMonitors() override;

    std::vector<platform::MonitorInfo> connected(std::optional<platform::DisplayID> only) override;
    std::string architectureLine() override;
    bool watch(std::function<void()> onChange) override;
    // What the last `connected` found no channel for (a search of its own before the first).
    std::vector<platform::UnreachableMonitor> unreachable() override;
    // No DRM, nothing connected, built-in panels only, no /dev/i2c-*.
    std::string whyNoneFound() override;

private:
    Parts parts_;
    bool watching_ = false;
    // Who hears the reports: the latest caller of `watch`.
    std::shared_ptr<std::function<void()>> listener_ = std::make_shared<std::function<void()>>();
    std::mutex mutex_;
    // What the last `connected` found no channel for; nothing before the first.
    std::optional<std::vector<platform::UnreachableMonitor>> lastUnreachable_;
};

// The connected external monitors no channel can be found for, and why each.
std::vector<platform::UnreachableMonitor> unreachableMonitors(const LinuxMonitors::Parts& parts);
// When enumeration found no external display, the one line that says why and what to do;
// empty when none of the usual causes explains it.
std::string whyNoExternalDisplay(const LinuxMonitors::Parts& parts);

} // namespace pw
