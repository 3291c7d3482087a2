#pragma once

#include "platform/I2CTransport.h"
#include "platform/Screens.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::macos {

// A discovered I2C channel of a Mac and what is known about the monitor behind it;
// pairing a channel with a display is decided from these facts alone.
struct DisplayTransportMatch {
    std::shared_ptr<platform::I2CTransport> transport;
    // The monitor's EDID as read from the registry, empty when unknown.
    std::vector<std::uint8_t> edid;
    // Identity of the monitor behind the channel, 0 when unknown.
    std::uint32_t vendorID = 0;
    std::uint32_t productID = 0;
    std::uint32_t serialNumber = 0;
    // 1-based position of the channel's service in discovery order (skipped ones count).
    std::int64_t serviceLocation = 0;
    std::string ioDisplayLocation; // registry path of the service, empty when unreadable
};

// What the window server knows about a display, for scoring a candidate channel.
struct DisplayIdentity {
    platform::DisplayID id = 0;
    std::uint32_t vendor = 0;
    std::uint32_t model = 0;
    std::uint32_t serial = 0;
};

// How well a candidate fits a display: 6 for equal vendor and model (3 for one of the
// two), 5 more for an equal non-zero serial, when the candidate's vendor is known;
// 2 each when its EDID starts with the vendor and then the model (big-endian).
int scoreTransport(const DisplayTransportMatch& candidate, const DisplayIdentity& display);

// True when the candidate's own identity (from its EDID) is known and names this
// display: same vendor and model, and no two different non-zero serials.
bool identityMatches(const DisplayTransportMatch& candidate, const DisplayIdentity& display);

// Pairs displays with two or more candidate channels so that no channel drives two
// monitors: for each display (in order) the index of its candidate, or nothing. See
// docs/displays.md for the rule and its limits.
std::vector<std::optional<std::size_t>>
pairTransports(const std::vector<DisplayIdentity>& displays,
               const std::vector<DisplayTransportMatch>& candidates);

// The single rule for one display and a candidate list: none for no candidates, the
// only one for a single candidate (whatever the display), else the best score with
// ties to the earliest. It knows nothing of other displays: Apple Silicon pairs several
// channels with `pairTransports`; the Intel fallback uses this rule, since those channels
// carry their monitors' real identity numbers.
std::optional<DisplayTransportMatch>
matchTransport(const DisplayIdentity& display, const std::vector<DisplayTransportMatch>& candidates);

} // namespace pw::macos
