#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Gamma.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/GammaRamp.h"
#include "platform/linux/desktop/SessionBus.h"

namespace pw::linuxdesktop {

// Software dimming through GNOME's compositor, on X11 and on Wayland alike:
// org.gnome.Mutter.DisplayConfig (/org/gnome/Mutter/DisplayConfig) GetResources,
// GetCrtcGamma and SetCrtcGamma on the session bus. Outputs are paired with displays by
// the "edid" property GetResources gives for each output (DisplayPairing.h).
//
// Same rules as the X gamma tables (XRandrGamma.h): reads resampled to the caller's room,
// installs stretched over the CRTC's length, the ramp kept before the first change and
// given back by restore and by destruction. Every call is bounded by the bus timeout.
class MutterGammaTables final : public platform::GammaTables {
public:
    static constexpr std::int32_t kFailure = 1000;
    static constexpr std::int32_t kIllegalArgument = 1001;

    // Null, after one logged line, when there is no bus or no Mutter on it.
    static std::shared_ptr<MutterGammaTables> create(const std::optional<std::string>& busAddress,
                                                     DisplaySource source, DesktopLog log);
    ~MutterGammaTables() override;

    std::int32_t getTransferByTable(platform::DisplayID display, std::uint32_t capacity,
                                    float* red, float* green, float* blue,
                                    std::uint32_t& sampleCount) override;
    std::int32_t setTransferByTable(platform::DisplayID display, std::uint32_t sampleCount,
                                    const float* red, const float* green,
                                    const float* blue) override;
    void restoreColorSyncSettings() override;

private:
    struct Target {
        std::uint32_t serial = 0;
        std::uint32_t crtc = 0;
    };
    MutterGammaTables(BusConnection bus, DisplaySource source, DesktopLog log);
    std::optional<Target> targetFor(platform::DisplayID display);
    std::optional<std::uint32_t> currentSerial();
    std::optional<GammaRamp> readCrtc(const Target& target);
    bool writeRamp(const Target& target, const GammaRamp& ramp);
    void restoreLocked();

    std::mutex mutex_;
    BusConnection bus_;
    DisplaySource source_;
    DesktopLog log_;
    std::map<std::uint32_t, GammaRamp> originals_; // by CRTC id
};

} // namespace pw::linuxdesktop
