#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/Screens.h"
#include "platform/LevelIndicator.h"
#include "platform/MainQueue.h"

namespace pw::platform {

// The level indicator in our own window, for machines whose system has none (or none that
// loads). Placement and timing are the same everywhere: the window sits centred 100 points
// above the bottom of the usable area of the display's screen (else the main screen) and
// goes away 1.5 s after the last show. Every show is applied on the main queue, in the
// order shows were asked for, so it may be called from any thread.
class WindowIndicator final : public LevelIndicator,
                              public std::enable_shared_from_this<WindowIndicator> {
public:
    static constexpr std::chrono::milliseconds kHideDelay{1500};
    static constexpr std::string_view kBrightnessSymbol = "sun.max.fill";
    static constexpr std::string_view kVolumeSymbol = "speaker.wave.2.fill";
    static constexpr std::string_view kMuteSymbol = "speaker.slash.fill";

    // `screens` may be null (the window then stays where it was).
    static std::shared_ptr<WindowIndicator> create(std::shared_ptr<MainQueue> mainQueue,
                                                   std::shared_ptr<Screens> screens,
                                                   std::shared_ptr<IndicatorWindow> window);

    void show(IndicatorKind kind, float level, DisplayID display) override;

    // Where the window goes for `display`: (midX - 100, minY + 100) of the visible frame.
    std::optional<Point> origin(DisplayID display) const;

private:
    WindowIndicator(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Screens> screens,
                    std::shared_ptr<IndicatorWindow> window);
    void present(IndicatorKind kind, float level, DisplayID display);

    std::shared_ptr<MainQueue> mainQueue_;
    std::shared_ptr<Screens> screens_;
    std::shared_ptr<IndicatorWindow> window_;
    std::uint64_t pendingHide_ = 0; // generation of the pending hide; 0 = none (main queue only)
    std::uint64_t generations_ = 0; // main queue only
};

} // namespace pw::platform
