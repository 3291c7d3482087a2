#include "osd/OSDManager.h"

#include "app/SystemLog.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pw {

namespace {

constexpr std::string_view kClassName = platform::kOSDManagerClass;
constexpr std::string_view kSharedSelector = platform::kOSDSharedSelector;
constexpr std::string_view kShowSelector = platform::kOSDShowSelector;
constexpr std::uint32_t kPriority = 500;
constexpr std::uint32_t kMsecUntilFade = 1000;

// The window is 200 points wide and sits 100 points above the bottom of the usable area.
constexpr double kHalfWindowWidth = 100;
constexpr double kBottomInset = 100;

void log(std::string_view message) {
    SystemLog::osd().info(message);
}

// The system indicator takes counts as unsigned 32-bit; a level outside 0...1 (a monitor
// reporting more than its maximum) must not wrap into a huge count.
std::uint32_t chiclets(std::int64_t count, std::int64_t total) {
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(count, 0, total));
}

// The bar cannot be emptier than empty or fuller than full; a level that is not a number
// shows as empty.
float barLevel(float level) {
    if (!(level > 0)) return 0;
    return std::min(level, 1.0f);
}

} // namespace

OSDManager::OSDManager(const platform::Platform& platform) : platform_(platform) {}

std::shared_ptr<OSDManager> OSDManager::create(const platform::Platform& platform) {
    std::shared_ptr<OSDManager> manager(new OSDManager(platform));
    manager->loadNativeOSD();
    return manager;
}

void OSDManager::loadNativeOSD() {
    // Said in words every machine shares: what the system's indicator is called and how it
    // loads is the machine's own business, and its lines (if any) come from the machine.
    if (!platform_.osdFramework)
        return log("No system level indicator on this machine, using our own");
    const auto bundle = platform_.osdFramework->createBundle(kFrameworkPath);
    if (!bundle) return log("System level indicator not found, using our own");
    if (!bundle->loadExecutable()) return log("System level indicator did not load, using our own");
    if (!bundle->hasObjectClass(kClassName))
        return log("System level indicator has no manager, using our own");
    const auto sharedManager = bundle->sendClassSelector(kClassName, kSharedSelector);
    if (!sharedManager) return log("System level indicator gave no manager, using our own");
    if (!sharedManager->respondsToSelector(kShowSelector))
        return log("System level indicator cannot show levels, using our own");

    showOSDFunc_ = [sharedManager](std::int64_t image, std::uint32_t displayID, std::int64_t filled,
                                   std::int64_t total) {
        const auto totalChiclets = chiclets(total, std::numeric_limits<std::uint32_t>::max());
        sharedManager->showImage(image, displayID, kPriority, kMsecUntilFade,
                                 chiclets(filled, totalChiclets), totalChiclets, false);
    };
    useNativeOSD_ = true;
    log("System level indicator loaded");
}

std::int64_t OSDManager::filledSegments(float level) {
    const float segments = level * static_cast<float>(kTotalSegments);
    if (!std::isfinite(segments)) return 0;
    // std::round rounds halves away from zero; the float overload keeps single precision.
    return static_cast<std::int64_t>(std::round(segments));
}

void OSDManager::showBrightness(float level, platform::DisplayID display) {
    if (!useNativeOSD_) return showCustomOSD(std::string(kBrightnessSymbol), level, display);
    if (showOSDFunc_)
        showOSDFunc_(kBrightnessImage, display, filledSegments(level), kTotalSegments);
}

void OSDManager::showVolume(float level, platform::DisplayID display) {
    if (!useNativeOSD_) return showCustomOSD(std::string(kVolumeSymbol), level, display);
    if (showOSDFunc_) showOSDFunc_(kVolumeImage, display, filledSegments(level), kTotalSegments);
}

void OSDManager::showCustomOSD(std::string symbol, float level, platform::DisplayID display) {
    if (!platform_.mainQueue) return;
    // Always through the main queue, even from the main thread, so that shows from any
    // thread are applied in the order they were asked for.
    platform_.mainQueue->post(
        [weak = weak_from_this(), symbol = std::move(symbol), level, display] {
            if (auto self = weak.lock()) self->presentCustomOSD(symbol, level, display);
        });
}

void OSDManager::presentCustomOSD(const std::string& symbol, float level,
                                  platform::DisplayID display) {
    hideTimer_ = 0; // a hide still pending from an earlier show no longer applies

    if (!customOSDWindow_ && platform_.levelIndicators)
        customOSDWindow_ = platform_.levelIndicators->createWindow();
    if (!customOSDWindow_) {
        if (!reportedNoWindow_) log("No window for the level indicator, levels are not shown");
        reportedNoWindow_ = true;
        return;
    }

    platform::IndicatorContent content;
    content.symbol = symbol;
    content.level = barLevel(level);
    content.fillWidth = static_cast<double>(content.level) * kTrackWidth;
    content.origin = indicatorOrigin(display);
    customOSDWindow_->show(content);

    const std::uint64_t generation = ++hideGenerations_;
    hideTimer_ = generation;
    platform_.mainQueue->postAfter(kHideDelay, [weak = weak_from_this(), generation] {
        auto self = weak.lock();
        if (!self || self->hideTimer_ != generation) return;
        self->hideTimer_ = 0;
        if (self->customOSDWindow_) self->customOSDWindow_->hide();
    });
}

std::optional<platform::Point> OSDManager::indicatorOrigin(platform::DisplayID display) const {
    if (!platform_.displays) return std::nullopt;
    std::optional<platform::Screen> screen;
    for (auto& candidate : platform_.displays->screens()) {
        if (candidate.number == display) {
            screen = std::move(candidate);
            break;
        }
    }
    if (!screen) screen = platform_.displays->mainScreen();
    if (!screen) return std::nullopt;
    const platform::Rect visible = screen->visibleFrame();
    return platform::Point{visible.midX() - kHalfWindowWidth, visible.y + kBottomInset};
}

} // namespace pw
