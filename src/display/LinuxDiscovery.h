#pragma once

#include "display/TransportDiscovery.h"
#include "platform/Platform.h"

#include <memory>
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

// The Linux strategy: each connected DRM connector's DDC channel is the adapter the
// driver links as its `ddc`, else its DisplayPort AUX adapter, else a display adapter
// whose EDID at 0x50 equals the connector's. Hot-plug reports come from the platform's
// HotPlugMonitor.
std::unique_ptr<TransportDiscovery> makeLinuxDiscovery(const platform::Platform& platform);

// A connected external monitor the enumeration left out, with the one line that says why
// (no channel to find it by, a channel that is never opened, the device's permissions...).
struct UnreachableMonitor {
    platform::DisplayID id = 0;
    std::string connector; // "card0-DP-1"
    std::string name;      // from its EDID; empty when the EDID has none
    std::uint32_t vendor = 0, product = 0;
    std::string reason;
};
// The connected external monitors that are not among `listed` (the display ids the
// enumeration gave) and why each could not be reached.
std::vector<UnreachableMonitor> unreachableMonitors(const platform::Platform& platform,
                                                    const std::vector<platform::DisplayID>& listed);

// When enumeration found no external display, the one line that says why and what to do
// (no DRM, nothing connected, built-in panels only, no /dev/i2c-*); empty when none of
// these explains it.
std::string whyNoExternalDisplay(const platform::Platform& platform);

} // namespace pw
