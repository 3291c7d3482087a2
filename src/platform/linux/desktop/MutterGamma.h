#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/desktop/CrtcGamma.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/SessionBus.h"

#include <set>

namespace pw::linuxdesktop {

// Software dimming through GNOME's compositor, on X11 and on Wayland alike:
// org.gnome.Mutter.DisplayConfig (/org/gnome/Mutter/DisplayConfig) GetResources,
// GetCrtcGamma and SetCrtcGamma on the session bus. Outputs are paired with displays by
// the "edid" property GetResources gives for each output (DisplayPairing.h). The rules
// for lengths, restoring and refusals are CrtcGammaTables'; every call is bounded by the
// bus timeout.
class MutterGammaTables final : public CrtcGammaTables {
public:
    // Null, after one logged line, when there is no bus or no Mutter on it.
    static std::shared_ptr<MutterGammaTables> create(const std::optional<std::string>& busAddress,
                                                     DisplaySource source, DesktopLog log);
    ~MutterGammaTables() override;

private:
    MutterGammaTables(BusConnection bus, DisplaySource source, DesktopLog log);
    std::optional<std::uint32_t> crtcFor(platform::DisplayID display) override;
    std::optional<CrtcRamp> readCrtc(std::uint32_t crtc) override;
    bool writeCrtc(std::uint32_t crtc, const CrtcRamp& ramp) override;
    bool lastCallUnanswered() override { return unanswered_; }
    // The serial names the configuration in force; CRTC ids outlive it.
    bool beforeRestore() override;

    BusConnection bus_;
    DisplaySource source_;
    std::uint32_t serial_ = 0; // from the last GetResources
    bool unanswered_ = false;  // the last call timed out or found no service
    std::set<platform::DisplayID> unpairedNoted_; // displays GNOME shows on no CRTC, logged
};

} // namespace pw::linuxdesktop
