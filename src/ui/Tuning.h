#pragma once

namespace pw {
class DDCManager;
class KeyboardManager;
namespace platform {
class UserDefaults;
}
} // namespace pw

namespace pw::ui {

// The four numeric tuning settings, read once at launch: "ddcRetryCount" (passes, when
// at least 1), "ddcCacheTTL" (seconds, when above 0), "brightnessStepPercent" and
// "volumeStepPercent" (when at least 1). Anything else leaves the built-in value.
// No upper limit is applied.
void applyTuning(platform::UserDefaults& defaults, DDCManager& ddc,
                 KeyboardManager* keyboard);

} // namespace pw::ui
