#include "app/Tuning.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "ddc/DDCManager.h"
#include "keyboard/KeyboardManager.h"
#include "platform/UserDefaults.h"

#include <string>

namespace pw {

namespace {

float percentStep(std::int64_t percent) {
    return static_cast<float>(static_cast<double>(percent) / 100);
}

} // namespace

void applyTuningPreferences(const platform::UserDefaults& defaults, DDCManager& ddc,
                            KeyboardManager* keyboard) {
    // Reading leaves the store as it is; its readers are non-const only because a store
    // may refresh what it holds from disk as it reads.
    auto& store = const_cast<platform::UserDefaults&>(defaults);

    const std::int64_t passes = Preferences::integer(store, Preferences::kDDCRetryCount);
    if (passes > kMaxDDCPasses) {
        DiagnosticLog::log("App", "ddcRetryCount " + std::to_string(passes) + " is above " +
                                      std::to_string(kMaxDDCPasses) + "; using " +
                                      std::to_string(kMaxDDCPasses) + " passes");
        ddc.setMaxRetries(kMaxDDCPasses);
    } else if (passes >= 1) {
        ddc.setMaxRetries(passes);
    }

    const double ttl = Preferences::doubleValue(store, Preferences::kDDCCacheTTL);
    if (ttl > 0) ddc.setCacheTTL(ttl);

    if (!keyboard) return;
    const std::int64_t brightness = Preferences::integer(store, Preferences::kBrightnessStepPercent);
    if (brightness >= 1) keyboard->setBrightnessStep(percentStep(brightness));
    const std::int64_t volume = Preferences::integer(store, Preferences::kVolumeStepPercent);
    if (volume >= 1) keyboard->setVolumeStep(percentStep(volume));
}

} // namespace pw
