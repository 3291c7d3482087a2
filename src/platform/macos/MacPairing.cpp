#include "platform/macos/MacPairing.h"

#include <algorithm>
#include <tuple>

namespace pw::macos {

namespace {

// The EDID's first bytes, read as the big-endian 16-bit word at `at`; none when short.
std::optional<std::uint32_t> word(const std::vector<std::uint8_t>& edid, std::size_t at) {
    if (edid.size() < at + 2) return std::nullopt;
    return std::uint32_t{edid[at]} << 8 | edid[at + 1];
}

} // namespace

int scoreTransport(const DisplayTransportMatch& candidate, const DisplayIdentity& display) {
    int score = 0;
    if (candidate.vendorID != 0) {
        const bool sameVendor = candidate.vendorID == display.vendor;
        const bool sameModel = candidate.productID == display.model;
        if (sameVendor && sameModel) {
            score += 6;
        } else if (sameVendor || sameModel) {
            score += 3;
        }
        if (candidate.serialNumber != 0 && candidate.serialNumber == display.serial) score += 5;
    }
    if (word(candidate.edid, 0) == display.vendor) score += 2;
    if (word(candidate.edid, 2) == display.model) score += 2;
    return score;
}

bool identityMatches(const DisplayTransportMatch& candidate, const DisplayIdentity& display) {
    if (candidate.vendorID == 0) return false;
    if (candidate.vendorID != display.vendor || candidate.productID != display.model) return false;
    // Both serials known and different: the same model, but another monitor.
    return candidate.serialNumber == 0 || display.serial == 0 ||
           candidate.serialNumber == display.serial;
}

std::vector<std::optional<std::size_t>>
pairTransports(const std::vector<DisplayIdentity>& displays,
               const std::vector<DisplayTransportMatch>& candidates) {
    // Every plausible (display, candidate) pair, best first; among equals the earlier
    // display and then the earlier candidate first, so identical twins pair up in order.
    struct Pair {
        int score;
        std::size_t display;
        std::size_t candidate;
    };
    std::vector<Pair> pairs;
    for (std::size_t d = 0; d < displays.size(); ++d) {
        for (std::size_t c = 0; c < candidates.size(); ++c) {
            if (!identityMatches(candidates[c], displays[d])) continue;
            pairs.push_back({scoreTransport(candidates[c], displays[d]), d, c});
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        return std::tie(b.score, a.display, a.candidate) <
               std::tie(a.score, b.display, b.candidate);
    });

    std::vector<std::optional<std::size_t>> chosen(displays.size());
    std::vector<bool> taken(candidates.size(), false);
    for (const auto& pair : pairs) {
        if (chosen[pair.display] || taken[pair.candidate]) continue;
        chosen[pair.display] = pair.candidate;
        taken[pair.candidate] = true;
    }
    return chosen;
}

std::optional<DisplayTransportMatch>
matchTransport(const DisplayIdentity& display,
               const std::vector<DisplayTransportMatch>& candidates) {
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front();
    int bestScore = -1;
    const DisplayTransportMatch* best = nullptr;
    for (const auto& candidate : candidates) {
        const int score = scoreTransport(candidate, display);
        if (score > bestScore) {
            bestScore = score;
            best = &candidate;
        }
    }
    return *best;
}

} // namespace pw::macos
