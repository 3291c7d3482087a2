#include "platform/linux/desktop/XRandrGamma.h"

#include "platform/linux/desktop/RandrOutputs.h"
#include "platform/linux/desktop/XConnection.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Display";

} // namespace

std::shared_ptr<XRandrGammaTables> XRandrGammaTables::create(const std::optional<std::string>& displayName,
                                                             DisplaySource source, DesktopLog log) {
    std::string whyNot;
    auto connection = XConnection::open(displayName, whyNot);
    if (connection && !hasRandr(*connection, whyNot)) connection.reset();
    if (!connection) {
        log.error(kCategory, "Dimming through X gamma ramps unavailable: " + whyNot);
        return nullptr;
    }
    return std::shared_ptr<XRandrGammaTables>(
        new XRandrGammaTables(std::move(connection), std::move(source), std::move(log)));
}

XRandrGammaTables::XRandrGammaTables(std::unique_ptr<XConnection> connection, DisplaySource source,
                                     DesktopLog log)
    : connection_(std::move(connection)), source_(std::move(source)), log_(std::move(log)) {}

XRandrGammaTables::~XRandrGammaTables() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

std::optional<unsigned long> XRandrGammaTables::crtcFor(platform::DisplayID display) {
    const auto outputs = activeOutputs(*connection_);
    std::vector<OutputIdentity> identities;
    for (const auto& output : outputs)
        identities.push_back(output.identity);
    const auto paired = pairOutputs(identities, source_);
    for (std::size_t i = 0; i < outputs.size(); ++i)
        if (paired[i] == display) return outputs[i].crtc;
    return std::nullopt;
}

std::optional<GammaRamp> XRandrGammaTables::readCrtc(unsigned long crtc) {
    Display* x = connection_->display();
    int size = 0;
    XRRCrtcGamma* gamma = nullptr;
    const int error = connection_->checked([&] {
        size = XRRGetCrtcGammaSize(x, crtc);
        if (size > 0) gamma = XRRGetCrtcGamma(x, crtc);
    });
    std::optional<GammaRamp> ramp;
    if (!error && gamma && size > 0) {
        const auto n = static_cast<std::size_t>(size);
        ramp = GammaRamp{{gamma->red, gamma->red + n},
                    {gamma->green, gamma->green + n},
                    {gamma->blue, gamma->blue + n}};
    }
    if (gamma) XRRFreeGamma(gamma);
    return ramp;
}

bool XRandrGammaTables::writeRamp(unsigned long crtc, const GammaRamp& ramp) {
    XRRCrtcGamma* gamma = XRRAllocGamma(static_cast<int>(ramp.red.size()));
    if (!gamma) return false;
    std::copy(ramp.red.begin(), ramp.red.end(), gamma->red);
    std::copy(ramp.green.begin(), ramp.green.end(), gamma->green);
    std::copy(ramp.blue.begin(), ramp.blue.end(), gamma->blue);
    const int error =
        connection_->checked([&] { XRRSetCrtcGamma(connection_->display(), crtc, gamma); });
    XRRFreeGamma(gamma);
    return error == 0;
}

std::int32_t XRandrGammaTables::getTransferByTable(platform::DisplayID display,
                                                   std::uint32_t capacity, float* red,
                                                   float* green, float* blue,
                                                   std::uint32_t& sampleCount) {
    std::lock_guard lock(mutex_);
    if (connection_->lost()) return kCannotComplete;
    const auto crtc = crtcFor(display);
    if (!crtc) return kIllegalArgument;
    const auto ramp = readCrtc(*crtc);
    if (!ramp) return kFailure;

    // A longer ramp is resampled to the capacity, so the caller keeps the whole curve
    // rather than its first part.
    const std::size_t count = std::min<std::size_t>(ramp->size(), capacity);
    readRamp(*ramp, count, red, green, blue);
    sampleCount = static_cast<std::uint32_t>(count);
    return 0;
}

std::int32_t XRandrGammaTables::setTransferByTable(platform::DisplayID display,
                                                   std::uint32_t sampleCount, const float* red,
                                                   const float* green, const float* blue) {
    std::lock_guard lock(mutex_);
    // An empty table would leave the CRTC half-set or black: refused.
    if (sampleCount == 0) return kIllegalArgument;
    if (connection_->lost()) return kCannotComplete;
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

    const auto ramp = stretchTable(sampleCount, red, green, blue, original->second.size());
    if (!writeRamp(*crtc, ramp)) {
        log_.error(kCategory, "The X server refused the gamma ramp of display " +
                                  std::to_string(display));
        return kFailure;
    }
    return 0;
}

void XRandrGammaTables::restoreColorSyncSettings() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

void XRandrGammaTables::restoreLocked() {
    // A server that went away took its ramps with it.
    if (connection_->lost()) originals_.clear();
    for (const auto& [crtc, ramp] : originals_)
        if (!writeRamp(crtc, ramp))
            log_.info(kCategory, "A CRTC went away before its gamma ramp was given back");
    originals_.clear();
}

bool XRandrGammaTables::holdsOriginal(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    const auto crtc = crtcFor(display);
    return crtc && originals_.contains(*crtc);
}

} // namespace pw::linuxdesktop
