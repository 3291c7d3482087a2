#pragma once

#include "platform/Screens.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pw::platform {

// One DRM connector as the kernel lists it under /sys/class/drm ("card0-HDMI-A-1").
struct DrmConnector {
    std::string name;            // the sysfs name, card included: "card0-DP-2"
    DisplayID id = 0;            // stable while the connector exists (see docs/linux.md)
    std::string status;          // "connected", "disconnected" or "unknown"
    bool enabled = false;        // scanned out by the desktop right now
    std::vector<std::uint8_t> edid; // as the kernel read it; empty when there is none
    std::optional<int> ddcAdapter;  // i2c-N the driver linked as the connector's `ddc`
    std::optional<int> auxAdapter;  // DisplayPort: the AUX channel's i2c-N below the connector

    // "HDMI-A", "DP", "eDP": the name without its card and its index.
    std::string type() const;
    // Built-in panels (eDP, LVDS, DSI): the system drives their backlight, not DDC/CI.
    bool builtin() const;
    bool connected() const { return status == "connected"; }
};

// One i2c adapter (/sys/bus/i2c/devices/i2c-N).
struct I2CAdapterInfo {
    int number = 0;
    std::string name;                    // the adapter's `name` attribute
    std::optional<std::uint32_t> pciClass; // class of the PCI device it belongs to, if any
};

// The kernel's view of the graphics hardware: connectors and i2c adapters. Only reads.
class DrmSysfs {
public:
    virtual ~DrmSysfs() = default;

    // Whether the machine has a DRM device at all (a card under /sys/class/drm).
    virtual bool present() = 0;
    // Every connector of every card, sorted by name. A connector that vanishes while it
    // is read is left out.
    virtual std::vector<DrmConnector> connectors() = 0;
    // Every i2c adapter, by number.
    virtual std::vector<I2CAdapterInfo> adapters() = 0;
    // The kernel driver bound to adapter i2c-N's client at 0x37 (the DDC/CI address),
    // "ddcci"; empty when none is. I2C_RDWR does not refuse that address, so only this tells.
    virtual std::string ddcDriver(int /*adapter*/) { return {}; }
};

} // namespace pw::platform
