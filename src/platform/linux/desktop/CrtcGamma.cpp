#include "platform/linux/desktop/CrtcGamma.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {
constexpr std::string_view kCategory = "Display";
}

std::int32_t CrtcGammaTables::getTransferByTable(platform::DisplayID display,
                                                 std::uint32_t capacity, float* red, float* green,
                                                 float* blue, std::uint32_t& sampleCount) {
    std::lock_guard lock(mutex_);
    if (serverGone()) return kCannotComplete;
    const auto crtc = crtcFor(display);
    if (!crtc) return kIllegalArgument;
    const auto ramp = readCrtc(*crtc);
    if (!ramp) return kFailure;
    const std::size_t count = std::min<std::size_t>(ramp->size(), capacity);
    readRamp(*ramp, count, red, green, blue);
    sampleCount = static_cast<std::uint32_t>(count);
    return 0;
}

std::int32_t CrtcGammaTables::setTransferByTable(platform::DisplayID display,
                                                 std::uint32_t sampleCount, const float* red,
                                                 const float* green, const float* blue) {
    std::lock_guard lock(mutex_);
    // An empty table would leave the CRTC half-set or black.
    if (sampleCount == 0) return kIllegalArgument;
    if (serverGone()) return kCannotComplete;
    const auto crtc = crtcFor(display);
    if (!crtc) return kIllegalArgument;

    auto original = originals_.find(*crtc);
    if (original == originals_.end()) {
        auto ramp = readCrtc(*crtc);
        if (!ramp) {
            log_.error(kCategory, "Cannot read the gamma ramp of display " +
                                      std::to_string(display) + ", not dimming it");
            return kFailure;
        }
        original = originals_.emplace(*crtc, std::move(*ramp)).first;
    }
    if (!writeCrtc(*crtc, stretchTable(sampleCount, red, green, blue, original->second.size()))) {
        log_.error(kCategory,
                   serverName_ + " refused the gamma ramp of display " + std::to_string(display));
        return kFailure;
    }
    return 0;
}

void CrtcGammaTables::restoreColorSyncSettings() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

void CrtcGammaTables::restoreNow() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

void CrtcGammaTables::restoreLocked() {
    // A server that went away took its ramps with it.
    if (originals_.empty() || serverGone()) return originals_.clear();
    beforeRestore();
    for (const auto& [crtc, ramp] : originals_)
        if (!writeCrtc(crtc, ramp))
            log_.info(kCategory, "A CRTC went away before its gamma ramp was given back");
    originals_.clear();
}

bool CrtcGammaTables::holdsOriginal(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    const auto crtc = crtcFor(display);
    return crtc && originals_.contains(*crtc);
}

} // namespace pw::linuxdesktop
