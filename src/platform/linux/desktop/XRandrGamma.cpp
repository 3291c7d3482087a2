#include "platform/linux/desktop/XRandrGamma.h"

#include "platform/linux/desktop/RandrOutputs.h"
#include "platform/linux/desktop/XConnection.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>

namespace pw::linuxdesktop {

std::shared_ptr<XRandrGammaTables> XRandrGammaTables::create(const std::optional<std::string>& displayName,
                                                             DisplaySource source, DesktopLog log) {
    std::string whyNot;
    auto connection = openRandr(displayName, whyNot);
    if (!connection) {
        log.error("Display", "Dimming through X gamma ramps unavailable: " + whyNot);
        return nullptr;
    }
    return std::shared_ptr<XRandrGammaTables>(
        new XRandrGammaTables(std::move(connection), std::move(source), std::move(log)));
}

XRandrGammaTables::XRandrGammaTables(std::unique_ptr<XConnection> connection, DisplaySource source,
                                     DesktopLog log)
    : CrtcGammaTables(std::move(log), "The X server"), connection_(std::move(connection)),
      source_(std::move(source)) {}

XRandrGammaTables::~XRandrGammaTables() {
    restoreNow();
}

bool XRandrGammaTables::serverGone() {
    return connection_->lost();
}

std::optional<std::uint32_t> XRandrGammaTables::crtcFor(platform::DisplayID display) {
    const auto outputs = activeOutputs(*connection_);
    std::vector<OutputIdentity> identities;
    for (const auto& output : outputs)
        identities.push_back(output.identity);
    const auto paired = pairOutputs(identities, source_);
    for (std::size_t i = 0; i < outputs.size(); ++i)
        if (paired[i] == display) return static_cast<std::uint32_t>(outputs[i].crtc);
    return std::nullopt;
}

std::optional<CrtcRamp> XRandrGammaTables::readCrtc(std::uint32_t crtc) {
    Display* x = connection_->display();
    int size = 0;
    XRRCrtcGamma* gamma = nullptr;
    const int error = connection_->checked([&] {
        size = XRRGetCrtcGammaSize(x, crtc);
        if (size > 0) gamma = XRRGetCrtcGamma(x, crtc);
    });
    std::optional<CrtcRamp> ramp;
    if (!error && gamma && size > 0) {
        const auto n = static_cast<std::size_t>(size);
        ramp = CrtcRamp{{gamma->red, gamma->red + n},
                         {gamma->green, gamma->green + n},
                         {gamma->blue, gamma->blue + n}};
    }
    if (gamma) XRRFreeGamma(gamma);
    return ramp;
}

bool XRandrGammaTables::writeCrtc(std::uint32_t crtc, const CrtcRamp& ramp) {
    XRRCrtcGamma* gamma = XRRAllocGamma(static_cast<int>(ramp.size()));
    if (!gamma) return false;
    std::copy(ramp.red.begin(), ramp.red.end(), gamma->red);
    std::copy(ramp.green.begin(), ramp.green.end(), gamma->green);
    std::copy(ramp.blue.begin(), ramp.blue.end(), gamma->blue);
    const int error =
        connection_->checked([&] { XRRSetCrtcGamma(connection_->display(), crtc, gamma); });
    XRRFreeGamma(gamma);
    return error == 0;
}

} // namespace pw::linuxdesktop
