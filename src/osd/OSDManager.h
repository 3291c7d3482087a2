#pragma once

#include "platform/Platform.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pw {

// The level indicator shown after a key changed a monitor: the system's own when its
// framework loads (decided once, at creation), else a small window of our own that
// hides 1.5 s after the last show.
class OSDManager : public std::enable_shared_from_this<OSDManager> {
public:
    using ShowOSDFunc = std::function<void(std::int64_t image, std::uint32_t displayID,
                                           std::int64_t filled, std::int64_t total)>;

    static constexpr std::string_view kFrameworkPath = platform::kOSDFrameworkPath;
    static constexpr std::int64_t kBrightnessImage = platform::kOSDBrightnessImage;
    static constexpr std::int64_t kVolumeImage = platform::kOSDVolumeImage;
    static constexpr std::int64_t kMuteImage = platform::kOSDMuteImage;
    static constexpr std::int64_t kTotalSegments = 16;
    static constexpr std::chrono::milliseconds kHideDelay{1500};
    static constexpr double kTrackWidth = 132;
    // Symbols of the fallback indicator.
    static constexpr std::string_view kBrightnessSymbol = "sun.max.fill";
    static constexpr std::string_view kVolumeSymbol = "speaker.wave.2.fill";
    static constexpr std::string_view kMuteSymbol = "speaker.slash.fill";

    // Loads the native indicator at once (`loadNativeOSD`). The platform's OSD framework,
    // level-indicator windows, screens and main queue are taken from `platform`.
    static std::shared_ptr<OSDManager> create(const platform::Platform& platform);

    // Main thread.
    void showBrightness(float level, platform::DisplayID display);
    void showVolume(float level, platform::DisplayID display);
    // The fallback indicator; any thread (the work happens on the main queue).
    void showCustomOSD(std::string symbol, float level, platform::DisplayID display);

    bool useNativeOSD() const { return useNativeOSD_; }
    const ShowOSDFunc& showOSDFunc() const { return showOSDFunc_; }

    // round(level x 16), halves away from zero, in single precision.
    static std::int64_t filledSegments(float level);

private:
    explicit OSDManager(const platform::Platform& platform);
    void loadNativeOSD();
    // The fallback's work on the main queue: window, content, placement, hide timer.
    void presentCustomOSD(const std::string& symbol, float level, platform::DisplayID display);
    std::optional<platform::Point> indicatorOrigin(platform::DisplayID display) const;

    platform::Platform platform_;
    ShowOSDFunc showOSDFunc_;
    bool useNativeOSD_ = false;
    std::shared_ptr<platform::LevelIndicatorWindow> customOSDWindow_; // main queue only
    std::uint64_t hideTimer_ = 0; // generation of the pending hide; 0 = none (main queue only)
    std::uint64_t hideGenerations_ = 0; // last generation handed out (main queue only)
    bool reportedNoWindow_ = false;     // main queue only
};

} // namespace pw
