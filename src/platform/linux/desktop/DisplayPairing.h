#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Screens.h"

namespace pw::linuxdesktop {

// What the program knows about its displays, given from outside so the desktop pieces do
// not need to know how display ids are made: the ids in order, each one's EDID (128 bytes
// or more) and, where known, its DRM connector id and connector name.
struct DisplaySource {
    std::function<std::vector<platform::DisplayID>()> displays;
    std::function<std::optional<std::vector<std::uint8_t>>(platform::DisplayID)> edid;
    std::function<std::optional<std::uint32_t>(platform::DisplayID)> connectorId; // may be empty
    // The kernel's connector name, "card0-DP-1" or "DP-1"; may be empty.
    std::function<std::optional<std::string>(platform::DisplayID)> connectorName;
    // A built-in panel, which the system dims itself; may be empty.
    std::function<bool(platform::DisplayID)> builtIn;
};

// What the window system says about one of its outputs.
struct OutputIdentity {
    std::string name;                        // "HDMI-1", "screen" under Xvfb
    std::vector<std::uint8_t> edid;          // the output's "EDID" property, may be empty
    std::optional<std::uint32_t> connectorId; // the output's "CONNECTOR_ID" property
    // The DRM connector's name without its card ("DP-1", "HDMI-A-1"), where the window
    // system is known to use it (a Wayland output's name). Never an X output's name: X
    // drivers name outputs their own way ("HDMI-1", "DisplayPort-0").
    std::optional<std::string> connectorName;
};

// Pairs the window system's outputs with the program's displays, for every output at once
// so that no display is given twice:
//  1. same connector id, where both sides know one;
//  2. else the same connector name, where both sides know one (the display's "cardN-"
//     prefix aside);
//  3. else the same base EDID block (the first 128 bytes); identical monitors that do not
//     tell themselves apart are paired in the order both sides list them;
//  4. else, when there is exactly one output and exactly one display and the output shows
//     no EDID at all (a virtual server, some docks, a Wayland output), they are taken to
//     be the same, unless both know connector names and these differ.
// The result has one entry per output: its display, or nothing.
std::vector<std::optional<platform::DisplayID>> pairOutputs(const std::vector<OutputIdentity>& outputs,
                                                          const DisplaySource& source);

} // namespace pw::linuxdesktop
