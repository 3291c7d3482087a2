#pragma once

#include "platform/UserDefaults.h"
#include "support/Installed.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The program's persistent settings: the keys it reads and writes in the user-defaults
// store and the accessors for the keys more than one place needs.
//
// Every accessor comes twice: one form takes the store explicitly (tests, the command
// line), the other uses the installed store (`Scope`, held by the Core). Without an
// installed store the plain readers give each key's default and the plain setters do
// nothing, so code that runs before (or without) a Core keeps working on defaults.
//
// A value of an unexpected kind never fails a read: the typed readers convert it the way
// a user-defaults store does (see integer, doubleValue, boolean), and the accessors that
// need to tell absence from a value look at the stored kind directly.
namespace pw::Preferences {

// Makes `store` the one the plain accessors use, for the scope's lifetime; puts back the
// one installed before.
class Scope {
public:
    explicit Scope(std::shared_ptr<platform::UserDefaults> store);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    ScopedInstall<platform::UserDefaults> install_;
};

// What the settings window offers to do with a monitor's values at start-up.
enum class StartupAction : std::int64_t { doNothing = 0, restoreLast = 1, readFromDisplay = 2 };

// The case for 0, 1 and 2; nothing for any other raw value.
std::optional<StartupAction> startupActionFromRaw(std::int64_t raw);
constexpr std::int64_t rawValue(StartupAction action) {
    return static_cast<std::int64_t>(action);
}
// The text the settings window's picker shows.
std::string_view label(StartupAction action);

// Global keys.
inline constexpr std::string_view kStartupAction = "app.startupAction";
inline constexpr std::string_view kLaunchAtLogin = "app.launchAtLogin";
inline constexpr std::string_view kShowOSD = "app.showOSD";
// Tuning keys: no user interface writes them; read once at launch when present.
inline constexpr std::string_view kDDCRetryCount = "ddcRetryCount";
inline constexpr std::string_view kDDCCacheTTL = "ddcCacheTTL";
inline constexpr std::string_view kBrightnessStepPercent = "brightnessStepPercent";
inline constexpr std::string_view kVolumeStepPercent = "volumeStepPercent";

// Option names of the per-display keys.
inline constexpr std::string_view kForceSoftwareBrightness = "forceSoftwareBrightness";
inline constexpr std::string_view kFriendlyName = "friendlyName";
inline constexpr std::string_view kLongerDelay = "longerDelay";
// The raw DDC values the user last set on a display (popover or keys), written back at
// launch and when the monitor reappears when the start-up action is restoreLast.
inline constexpr std::string_view kLastBrightness = "lastBrightness";
inline constexpr std::string_view kLastVolume = "lastVolume";
inline constexpr std::string_view kLastInput = "lastInput";

// "display." + preferenceKey + "." + option. Nothing is escaped: the display's name
// appears in the key exactly as it is, spaces and punctuation included.
std::string displayKey(std::string_view preferenceKey, std::string_view option);

// --- Typed readers with the store's own conversion rules -------------------------------

// Missing: 0. Boolean: 0 or 1. Double: truncated toward zero (clamped to the int64 range,
// NaN gives 0). String: parsed as a decimal number when the whole text (surrounding
// whitespace aside) is one, a fraction truncated; any other text gives 0.
std::int64_t integer(platform::UserDefaults& store, std::string_view key);
std::int64_t integer(std::string_view key);

// Missing: 0.0. Integer: converted. Boolean: 0.0 or 1.0. String: parsed as a decimal
// number when the whole text is one, else 0.0.
double doubleValue(platform::UserDefaults& store, std::string_view key);
double doubleValue(std::string_view key);

// Missing: false. Numbers: true when non-zero (NaN is false). Strings: "yes" and "true"
// in any letter case, or a number that is not zero; anything else false.
bool boolean(platform::UserDefaults& store, std::string_view key);
bool boolean(std::string_view key);

// --- Accessors --------------------------------------------------------------------------

// The integer under app.startupAction: 0, 1, 2 give that case; any other value, negative
// ones included, gives readFromDisplay. Absent gives doNothing.
StartupAction startupAction(platform::UserDefaults& store);
StartupAction startupAction();

// The Boolean under app.showOSD; true when absent or stored as anything but a Boolean.
bool showOSD(platform::UserDefaults& store);
bool showOSD();

bool forceSoftwareBrightness(platform::UserDefaults& store, std::string_view preferenceKey);
bool forceSoftwareBrightness(std::string_view preferenceKey);
void setForceSoftwareBrightness(platform::UserDefaults& store, bool value,
                                std::string_view preferenceKey);
void setForceSoftwareBrightness(bool value, std::string_view preferenceKey);

// The string under the display's friendlyName key; nothing when absent, empty or not a
// string.
std::optional<std::string> friendlyName(platform::UserDefaults& store,
                                        std::string_view preferenceKey);
std::optional<std::string> friendlyName(std::string_view preferenceKey);
// Stores the name; nothing or an empty string removes the key.
void setFriendlyName(platform::UserDefaults& store, const std::optional<std::string>& name,
                     std::string_view preferenceKey);
void setFriendlyName(const std::optional<std::string>& name, std::string_view preferenceKey);

// Stores one setting under its full key as given (the command line's `config set`),
// except a display's empty friendly name, which removes the key: it means "no friendly
// name", and an empty string left in the store would only hide that.
void storeSetting(platform::UserDefaults& store, std::string_view key,
                  const platform::DefaultsValue& value);

// "Use longer DDC delay" of one display; read by every display enumeration.
bool longerDelay(platform::UserDefaults& store, std::string_view preferenceKey);
bool longerDelay(std::string_view preferenceKey);
void setLongerDelay(platform::UserDefaults& store, bool value, std::string_view preferenceKey);
void setLongerDelay(bool value, std::string_view preferenceKey);

// --- Last values ------------------------------------------------------------------------

// The integer under display.<key>.<option> when it is a stored integer within 16 bits;
// nothing otherwise (absent, another kind, out of range).
std::optional<std::uint16_t> lastValue(platform::UserDefaults& store,
                                       std::string_view preferenceKey, std::string_view option);
void setLastValue(platform::UserDefaults& store, std::string_view preferenceKey,
                  std::string_view option, std::uint16_t value);
void setLastValue(std::string_view preferenceKey, std::string_view option, std::uint16_t value);

// --- The stable per-display key ----------------------------------------------------------

// What looking a display's options up found.
struct DisplayKeyLookup {
    enum class Outcome {
        current,   // options exist under the display's own key (or none exist anywhere)
        migrated,  // the options of one other number were moved to the display's key
        ambiguous, // several other numbers hold options: nothing was moved
    };
    Outcome outcome = Outcome::current;
    std::string movedFrom;                // the old preference key, when migrated
    std::vector<std::string> candidates;  // the other preference keys considered
};

// A monitor's preference key carries its display number, which the system may change
// between sessions. When nothing is stored under `preferenceKey`, the options stored for
// the same name, vendor and product under another number are moved to it, provided there
// is exactly one such number and it does not belong to a display that is active now
// (`activeNumbers`): a second monitor of the same model keeps its own options.
DisplayKeyLookup adoptDisplayOptions(platform::UserDefaults& store, std::string_view preferenceKey,
                                     const std::vector<std::uint32_t>& activeNumbers);

} // namespace pw::Preferences
