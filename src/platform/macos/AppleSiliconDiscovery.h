#pragma once

#include "platform/macos/MacPairing.h"
#include "platform/macos/AVService.h"
#include "platform/Clock.h"
#include "platform/macos/Registry.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::macos {

// Every external display connection of an Apple Silicon machine: one DCPAVServiceProxy
// service each, in registry iteration order. Each becomes an AppleSiliconTransport over
// the connection's AV service, with the monitor's EDID and, when that EDID is
// valid, the vendor, product and serial it declares, so that several monitors can be
// told apart when they are paired with displays. Never fails outward: what cannot be
// listed or created is logged and left out. Every registry handle it receives is
// released exactly once.
std::vector<DisplayTransportMatch>
findAppleSiliconTransports(platform::Registry& registry, platform::AVServiceFactory& avServices,
                           const std::shared_ptr<platform::Clock>& clock);

// The EDID of the monitor behind a DCPAVServiceProxy entry, or nothing when it cannot be
// found: the EDID hangs off the connection's
// framebuffer ("AppleCLCD2" or "IOMobileFramebufferShim"), at most 10 parents up.
// The caller keeps its own reference to `service`.
std::optional<platform::PropertyBytes> findEDID(platform::Registry& registry,
                                                platform::IOObject service);

} // namespace pw::macos
