#include "osd/OSDManager.h"

#include "base/Preferences.h"
#include "base/SystemLog.h"

namespace pw {

OSDManager::OSDManager(const platform::Platform& platform)
    : indicator_(platform.indicator), defaults_(platform.defaults) {}

std::shared_ptr<OSDManager> OSDManager::create(const platform::Platform& platform) {
    return std::shared_ptr<OSDManager>(new OSDManager(platform));
}

bool OSDManager::wanted() const {
    return defaults_ ? Preferences::showOSD(*defaults_) : true;
}

void OSDManager::showBrightness(float level, platform::DisplayID display) {
    show(platform::IndicatorKind::brightness, level, display);
}

void OSDManager::showVolume(float level, platform::DisplayID display) {
    show(platform::IndicatorKind::volume, level, display);
}

void OSDManager::showMute(platform::DisplayID display) {
    show(platform::IndicatorKind::mute, 0, display);
}

void OSDManager::show(platform::IndicatorKind kind, float level, platform::DisplayID display) {
    if (!wanted()) return;
    if (!indicator_) {
        if (!reportedNoIndicator_)
            SystemLog::osd().info("No level indicator on this machine, levels are not shown");
        reportedNoIndicator_ = true;
        return;
    }
    indicator_->show(kind, level, display);
}

} // namespace pw
