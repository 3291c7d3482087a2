#pragma once

#include "platform/macos/IntelTransport.h"
#include "platform/macos/MacPairing.h"
#include "platform/macos/MacParts.h"

#include <memory>
#include <optional>
#include <vector>

namespace pw::macos {

// Direct lookup: the framebuffer the window server says drives the display, as a
// transport, or nothing when it knows none.
std::shared_ptr<IntelTransport> intelTransportForDisplay(const MacParts& platform,
                                                         platform::DisplayID id);

// Every framebuffer of the machine with I2C buses, display information and a known
// vendor, as candidates in registry order (serviceLocation = position from 1 among all
// framebuffers, ioDisplayLocation = registry path). Each registry handle is released once.
std::vector<DisplayTransportMatch> findIntelTransports(const MacParts& platform);

} // namespace pw::macos
