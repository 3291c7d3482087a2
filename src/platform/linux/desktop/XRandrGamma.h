#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/linux/desktop/CrtcGamma.h"
#include "platform/linux/desktop/DisplayPairing.h"

namespace pw::linuxdesktop {

class XConnection;

// Software dimming on an X server: the gamma ramp of the CRTC that drives the display's
// output, the output paired with the display by connector id or EDID (DisplayPairing.h).
// The rules for lengths, restoring and refusals are CrtcGammaTables'.
class XRandrGammaTables final : public CrtcGammaTables {
public:
    // Null, after one logged line, when no X server answers or it has no RandR 1.2.
    static std::shared_ptr<XRandrGammaTables> create(const std::optional<std::string>& displayName,
                                                     DisplaySource source, DesktopLog log);
    ~XRandrGammaTables() override;

private:
    XRandrGammaTables(std::unique_ptr<XConnection> connection, DisplaySource source,
                      DesktopLog log);
    std::optional<std::uint32_t> crtcFor(platform::DisplayID display) override;
    std::optional<CrtcRamp> readCrtc(std::uint32_t crtc) override;
    bool writeCrtc(std::uint32_t crtc, const CrtcRamp& ramp) override;
    bool serverGone() override;

    std::unique_ptr<XConnection> connection_;
    DisplaySource source_;
};

} // namespace pw::linuxdesktop
