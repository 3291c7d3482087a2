#pragma once

#include <cstdint>

namespace pw {
class DDCManager;
class KeyboardManager;
namespace platform {
class UserDefaults;
}

// The most passes a read or write may make, whatever the store says. A pass on a silent
// monitor costs tens of milliseconds of bus time; beyond ten, a dead monitor only holds the
// bus (and a command line waiting on it) for minutes without ever answering.
inline constexpr std::int64_t kMaxDDCPasses = 10;

// Applies the four tuning keys the user may have stored, once per launch:
//   ddcRetryCount >= 1          -> the DDC manager's passes (at most kMaxDDCPasses)
//   ddcCacheTTL > 0             -> the DDC manager's cache lifetime, in seconds
//   brightnessStepPercent >= 1  -> the keyboard's brightness step, value / 100
//   volumeStepPercent >= 1      -> the keyboard's volume step, value / 100
// Any other value (absent, zero, negative, not a number) leaves that setting as it is.
// `keyboard` may be null (the command line has none); then only the DDC keys are read.
void applyTuningPreferences(const platform::UserDefaults& defaults, DDCManager& ddc,
                            KeyboardManager* keyboard);

} // namespace pw
