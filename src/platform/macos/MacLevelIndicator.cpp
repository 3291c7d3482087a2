#include "platform/macos/MacLevelIndicator.h"

#include <algorithm>
#include <cmath>

namespace pw::platform::macos {

namespace {

// The system indicator takes counts as unsigned 32-bit; a level outside 0...1 (a monitor
// reporting more than its maximum) must not wrap into a huge count.
std::uint32_t chiclets(std::int64_t count) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(count, 0, MacLevelIndicator::kTotalChiclets));
}

std::int64_t imageOf(IndicatorKind kind) {
    switch (kind) {
    case IndicatorKind::brightness: return kOSDBrightnessImage;
    case IndicatorKind::volume: return kOSDVolumeImage;
    case IndicatorKind::mute: return kOSDMuteImage;
    }
    return kOSDBrightnessImage;
}

} // namespace

MacLevelIndicator::MacLevelIndicator(std::shared_ptr<OSDFramework> framework,
                                     std::shared_ptr<LevelIndicator> fallback, Log log)
    : framework_(std::move(framework)), fallback_(std::move(fallback)), log_(std::move(log)) {}

std::int64_t MacLevelIndicator::filledChiclets(float level) {
    const float segments = level * static_cast<float>(kTotalChiclets);
    if (!std::isfinite(segments)) return 0;
    // std::round rounds halves away from zero; the float overload keeps single precision.
    return static_cast<std::int64_t>(std::round(segments));
}

bool MacLevelIndicator::loadSystemIndicator() {
    if (tried_) return system_ != nullptr;
    tried_ = true;
    const auto say = [this](std::string_view line) {
        if (log_) log_(line);
        return false;
    };
    if (!framework_) return say("No system level indicator on this machine, using our own");
    const auto bundle = framework_->createBundle(kOSDFrameworkPath);
    if (!bundle) return say("System level indicator not found, using our own");
    if (!bundle->loadExecutable()) return say("System level indicator did not load, using our own");
    if (!bundle->hasObjectClass(kOSDManagerClass))
        return say("System level indicator has no manager, using our own");
    auto shared = bundle->sendClassSelector(kOSDManagerClass, kOSDSharedSelector);
    if (!shared) return say("System level indicator gave no manager, using our own");
    if (!shared->respondsToSelector(kOSDShowSelector))
        return say("System level indicator cannot show levels, using our own");
    system_ = std::move(shared);
    say("System level indicator loaded");
    return true;
}

void MacLevelIndicator::show(IndicatorKind kind, float level, DisplayID display) {
    if (!loadSystemIndicator()) {
        if (fallback_) fallback_->show(kind, level, display);
        return;
    }
    // The system's indicator fades by itself.
    const std::int64_t filled = kind == IndicatorKind::mute ? 0 : filledChiclets(level);
    system_->showImage(imageOf(kind), display, kPriority, kMsecUntilFade, chiclets(filled),
                       static_cast<std::uint32_t>(kTotalChiclets), false);
}

} // namespace pw::platform::macos
