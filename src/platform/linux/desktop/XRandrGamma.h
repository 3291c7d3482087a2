#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Gamma.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/GammaRamp.h"

namespace pw::linuxdesktop {

class XConnection;

// Software dimming on an X server: the gamma ramp of the CRTC that drives the display's
// output, the output paired with the display by connector id or EDID (DisplayPairing.h).
//
// The server's ramps have their own length (256 under Xvfb, 1024 or 4096 on real cards).
// A read gives the ramp resampled to the caller's capacity when it is longer, so the
// caller always holds the whole curve; an install of any sample count is stretched over
// the CRTC's length. Samples are clamped to 0...1.
//
// Before the first install on a CRTC its ramp is kept; restoring gives every kept ramp
// back (the calibrated tables are whatever the desktop had installed when we first
// changed them) and forgets it. Destruction restores too.
class XRandrGammaTables final : public platform::GammaTables {
public:
    // The codes a read or an install can answer, in the window system's numbering.
    static constexpr std::int32_t kFailure = 1000;         // the server refused
    static constexpr std::int32_t kIllegalArgument = 1001; // no such display on this server
    static constexpr std::int32_t kCannotComplete = 1004;  // the server went away

    // Null, after one logged line, when no X server answers or it has no RandR 1.2.
    static std::shared_ptr<XRandrGammaTables> create(const std::optional<std::string>& displayName,
                                                     DisplaySource source, DesktopLog log);
    ~XRandrGammaTables() override;

    std::int32_t getTransferByTable(platform::DisplayID display, std::uint32_t capacity,
                                    float* red, float* green, float* blue,
                                    std::uint32_t& sampleCount) override;
    std::int32_t setTransferByTable(platform::DisplayID display, std::uint32_t sampleCount,
                                    const float* red, const float* green,
                                    const float* blue) override;
    void restoreColorSyncSettings() override;

    // The ramp a CRTC had before our first change, while we hold one for it.
    bool holdsOriginal(platform::DisplayID display);

private:
    XRandrGammaTables(std::unique_ptr<XConnection> connection, DisplaySource source,
                      DesktopLog log);
    std::optional<unsigned long> crtcFor(platform::DisplayID display);
    std::optional<GammaRamp> readCrtc(unsigned long crtc);
    bool writeRamp(unsigned long crtc, const GammaRamp& ramp);
    void restoreLocked();

    std::mutex mutex_;
    std::unique_ptr<XConnection> connection_;
    DisplaySource source_;
    DesktopLog log_;
    std::map<unsigned long, GammaRamp> originals_; // by CRTC
};

} // namespace pw::linuxdesktop
