#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/desktop/DisplayPairing.h"

namespace pw::linuxdesktop {

class XConnection;

// A connection to the X server at `displayName` (nothing = $DISPLAY) that has RandR 1.2
// or later; null, and `whyNot` in words, otherwise.
std::unique_ptr<XConnection> openRandr(const std::optional<std::string>& displayName,
                                       std::string& whyNot);

// One connected output that a CRTC drives, as XRandR reports it (root-window pixels,
// y growing downwards).
struct RandrOutput {
    OutputIdentity identity;
    unsigned long output = 0;
    unsigned long crtc = 0;
    int x = 0, y = 0;
    unsigned width = 0, height = 0;
    bool primary = false;
};

// Whether the server has RandR 1.2 or later (CRTC gamma and output properties); when
// not, `whyNot` says what is missing.
bool hasRandr(XConnection& connection, std::string& whyNot);

// The active outputs in the server's order. Outputs that are disconnected or without a
// CRTC are left out.
std::vector<RandrOutput> activeOutputs(XConnection& connection);

} // namespace pw::linuxdesktop
