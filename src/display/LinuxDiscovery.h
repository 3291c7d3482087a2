#pragma once

#include "display/TransportDiscovery.h"
#include "platform/Platform.h"

#include <memory>
#include <string>
#include <string_view>

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

// When enumeration found no external display, the one line that says why and what to do
// (no DRM, nothing connected, built-in panels only, no /dev/i2c-*); empty when none of
// these explains it.
std::string whyNoExternalDisplay(const platform::Platform& platform);

} // namespace pw
