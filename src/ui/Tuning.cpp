#include "ui/Tuning.h"

#include "app/Preferences.h"
#include "ddc/DDCManager.h"
#include "keyboard/KeyboardManager.h"

namespace pw::ui {

void applyTuning(platform::UserDefaults& defaults, DDCManager& ddc,
                 KeyboardManager* keyboard) {
    const auto passes = Preferences::integer(defaults, Preferences::kDDCRetryCount);
    if (passes >= 1) ddc.setMaxRetries(passes);
    const double ttl = Preferences::doubleValue(defaults, Preferences::kDDCCacheTTL);
    if (ttl > 0) ddc.setCacheTTL(ttl);
    if (!keyboard) return;
    const auto brightness = Preferences::integer(defaults, Preferences::kBrightnessStepPercent);
    if (brightness >= 1)
        keyboard->setBrightnessStep(static_cast<float>(static_cast<double>(brightness) / 100));
    const auto volume = Preferences::integer(defaults, Preferences::kVolumeStepPercent);
    if (volume >= 1)
        keyboard->setVolumeStep(static_cast<float>(static_cast<double>(volume) / 100));
}

} // namespace pw::ui
