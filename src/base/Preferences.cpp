#include "base/Preferences.h"


#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <type_traits>

namespace pw::Preferences {

namespace {

using platform::DefaultsValue;

constinit NeverDestroyed<InstalledSlot<platform::UserDefaults>> gStore;

// The installed store, looked up on every call rather than cached: a stale cached store
// would outlive its scope.
std::shared_ptr<platform::UserDefaults> installedStore() { return gStore.value.get(); }

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\n\r\f\v";
    auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    auto last = text.find_last_not_of(kSpace);
    return text.substr(first, last - first + 1);
}

// from_chars takes no leading '+', which people write by hand in a settings file.
std::string_view withoutPlus(std::string_view text) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-' && text[1] != '+')
        text.remove_prefix(1);
    return text;
}

// A whole decimal number, or nothing. Non-finite spellings ("inf", "nan") are not numbers
// here: nobody means them in a setting, and they would turn into surprising extremes.
std::optional<double> parseDouble(std::string_view text) {
    text = withoutPlus(trimmed(text));
    if (text.empty()) return std::nullopt;
    double value = 0.0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::int64_t truncateToInteger(double value) {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (std::isnan(value)) return 0;
    if (value >= kTwoTo63) return std::numeric_limits<std::int64_t>::max();
    if (value < -kTwoTo63) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

std::int64_t parseInteger(std::string_view text) {
    std::string_view digits = withoutPlus(trimmed(text));
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    // Exact for every int64, which the double route below would round beyond 2^53.
    if (!digits.empty() && ec == std::errc{} && end == digits.data() + digits.size()) return value;
    if (auto number = parseDouble(text)) return truncateToInteger(*number);
    return 0;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

} // namespace

Scope::Scope(std::shared_ptr<platform::UserDefaults> store)
    : install_(gStore.value, std::move(store)) {}

Scope::~Scope() = default;

std::optional<StartupAction> startupActionFromRaw(std::int64_t raw) {
    switch (raw) {
    case 0:
        return StartupAction::doNothing;
    case 1:
        return StartupAction::restoreLast;
    case 2:
        return StartupAction::readFromDisplay;
    default:
        return std::nullopt;
    }
}

std::string_view label(StartupAction action) {
    switch (action) {
    case StartupAction::doNothing:
        return "Do nothing";
    case StartupAction::restoreLast:
        return "Restore last values";
    case StartupAction::readFromDisplay:
        return "Read from displays";
    }
    return "Do nothing";
}

std::string displayKey(std::string_view preferenceKey, std::string_view option) {
    std::string key;
    key.reserve(8 + preferenceKey.size() + 1 + option.size());
    key.append("display.").append(preferenceKey).append(".").append(option);
    return key;
}

// --- Typed readers -----------------------------------------------------------------------

std::int64_t integer(platform::UserDefaults& store, std::string_view key) {
    auto value = store.object(key);
    if (!value) return 0;
    return std::visit(
        [](const auto& v) -> std::int64_t {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>)
                return v ? 1 : 0;
            else if constexpr (std::is_same_v<T, std::int64_t>)
                return v;
            else if constexpr (std::is_same_v<T, double>)
                return truncateToInteger(v);
            else
                return parseInteger(v);
        },
        *value);
}

double doubleValue(platform::UserDefaults& store, std::string_view key) {
    auto value = store.object(key);
    if (!value) return 0.0;
    return std::visit(
        [](const auto& v) -> double {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>)
                return v ? 1.0 : 0.0;
            else if constexpr (std::is_same_v<T, std::int64_t>)
                return static_cast<double>(v);
            else if constexpr (std::is_same_v<T, double>)
                return v;
            else
                return parseDouble(v).value_or(0.0);
        },
        *value);
}

bool boolean(platform::UserDefaults& store, std::string_view key) {
    auto value = store.object(key);
    if (!value) return false;
    return std::visit(
        [](const auto& v) -> bool {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>)
                return v;
            else if constexpr (std::is_same_v<T, std::int64_t>)
                return v != 0;
            else if constexpr (std::is_same_v<T, double>)
                return !std::isnan(v) && v != 0.0;
            else {
                std::string_view text = trimmed(v);
                if (equalsIgnoringCase(text, "yes") || equalsIgnoringCase(text, "true"))
                    return true;
                auto number = parseDouble(text);
                return number && *number != 0.0;
            }
        },
        *value);
}

std::int64_t integer(std::string_view key) {
    auto store = installedStore();
    return store ? integer(*store, key) : 0;
}

double doubleValue(std::string_view key) {
    auto store = installedStore();
    return store ? doubleValue(*store, key) : 0.0;
}

bool boolean(std::string_view key) {
    auto store = installedStore();
    return store ? boolean(*store, key) : false;
}

// --- Accessors ---------------------------------------------------------------------------

StartupAction startupAction(platform::UserDefaults& store) {
    // Out-of-range values are read as the most conservative useful choice rather than
    // refused: the settings window must always be able to show one of its cases.
    return startupActionFromRaw(integer(store, kStartupAction))
        .value_or(StartupAction::readFromDisplay);
}

StartupAction startupAction() {
    auto store = installedStore();
    return store ? startupAction(*store) : StartupAction::doNothing;
}

bool showOSD(platform::UserDefaults& store) {
    // Read as an object so that absence can be told from a stored false.
    auto value = store.object(kShowOSD);
    if (value) {
        if (const bool* flag = std::get_if<bool>(&*value)) return *flag;
    }
    return true;
}

bool showOSD() {
    auto store = installedStore();
    return store ? showOSD(*store) : true;
}

bool forceSoftwareBrightness(platform::UserDefaults& store, std::string_view preferenceKey) {
    return boolean(store, displayKey(preferenceKey, kForceSoftwareBrightness));
}

bool forceSoftwareBrightness(std::string_view preferenceKey) {
    auto store = installedStore();
    return store ? forceSoftwareBrightness(*store, preferenceKey) : false;
}

void setForceSoftwareBrightness(platform::UserDefaults& store, bool value,
                                std::string_view preferenceKey) {
    store.set(displayKey(preferenceKey, kForceSoftwareBrightness), value);
}

void setForceSoftwareBrightness(bool value, std::string_view preferenceKey) {
    if (auto store = installedStore()) setForceSoftwareBrightness(*store, value, preferenceKey);
}

std::optional<std::string> friendlyName(platform::UserDefaults& store,
                                        std::string_view preferenceKey) {
    auto value = store.object(displayKey(preferenceKey, kFriendlyName));
    if (!value) return std::nullopt;
    const std::string* name = std::get_if<std::string>(&*value);
    // An empty name can only come from outside (the setter removes the key instead); it
    // means the same as none, so the display keeps its own name.
    if (!name || name->empty()) return std::nullopt;
    return *name;
}

std::optional<std::string> friendlyName(std::string_view preferenceKey) {
    auto store = installedStore();
    return store ? friendlyName(*store, preferenceKey) : std::nullopt;
}

void setFriendlyName(platform::UserDefaults& store, const std::optional<std::string>& name,
                     std::string_view preferenceKey) {
    std::string key = displayKey(preferenceKey, kFriendlyName);
    if (!name || name->empty())
        store.remove(key);
    else
        store.set(key, *name);
}

void setFriendlyName(const std::optional<std::string>& name, std::string_view preferenceKey) {
    if (auto store = installedStore()) setFriendlyName(*store, name, preferenceKey);
}

void storeSetting(platform::UserDefaults& store, std::string_view key,
                  const platform::DefaultsValue& value) {
    const std::string suffix = "." + std::string(kFriendlyName);
    const auto* text = std::get_if<std::string>(&value);
    const bool friendlyNameKey = key.rfind("display.", 0) == 0 && key.size() > suffix.size() &&
                                 key.substr(key.size() - suffix.size()) == suffix;
    if (friendlyNameKey && text && text->empty())
        store.remove(key);
    else
        store.set(key, value);
}

bool longerDelay(platform::UserDefaults& store, std::string_view preferenceKey) {
    return boolean(store, displayKey(preferenceKey, kLongerDelay));
}

bool longerDelay(std::string_view preferenceKey) {
    auto store = installedStore();
    return store ? longerDelay(*store, preferenceKey) : false;
}

void setLongerDelay(platform::UserDefaults& store, bool value, std::string_view preferenceKey) {
    store.set(displayKey(preferenceKey, kLongerDelay), value);
}

void setLongerDelay(bool value, std::string_view preferenceKey) {
    if (auto store = installedStore()) setLongerDelay(*store, value, preferenceKey);
}

} // namespace pw::Preferences

namespace pw::Preferences {

// --- Last values -------------------------------------------------------------------------

std::optional<std::uint16_t> lastValue(platform::UserDefaults& store,
                                       std::string_view preferenceKey, std::string_view option) {
    auto value = store.object(displayKey(preferenceKey, option));
    if (!value) return std::nullopt;
    // Only what this program wrote counts: a value of another kind was put there by hand
    // and writing a guess of it to a monitor is worse than writing nothing.
    const std::int64_t* number = std::get_if<std::int64_t>(&*value);
    if (!number || *number < 0 || *number > std::numeric_limits<std::uint16_t>::max())
        return std::nullopt;
    return static_cast<std::uint16_t>(*number);
}

void setLastValue(platform::UserDefaults& store, std::string_view preferenceKey,
                  std::string_view option, std::uint16_t value) {
    store.set(displayKey(preferenceKey, option), static_cast<std::int64_t>(value));
}

void setLastValue(std::string_view preferenceKey, std::string_view option, std::uint16_t value) {
    if (auto store = installedStore()) setLastValue(*store, preferenceKey, option, value);
}

// --- The stable per-display key ----------------------------------------------------------

namespace {

constexpr std::string_view kDisplayPrefix = "display.";

constexpr std::string_view kDisplayOptions[] = {kForceSoftwareBrightness, kFriendlyName,
                                                kLongerDelay,             kLastBrightness,
                                                kLastVolume,              kLastInput};

bool isDisplayOption(std::string_view option) {
    for (auto known : kDisplayOptions)
        if (known == option) return true;
    return false;
}

// A stored key "display.<stem>@<number>.<option>" split into number and option, when it
// belongs to `stem` and names an option this program keeps per display.
struct StoredOption {
    std::uint32_t number = 0;
    std::string preferenceKey;
};

std::optional<StoredOption> parseStoredOption(std::string_view key, std::string_view stem) {
    if (!key.starts_with(kDisplayPrefix)) return std::nullopt;
    key.remove_prefix(kDisplayPrefix.size());
    if (!key.starts_with(stem)) return std::nullopt;
    std::string_view rest = key.substr(stem.size());
    if (!rest.starts_with('@')) return std::nullopt;
    rest.remove_prefix(1);
    const auto dot = rest.find('.');
    if (dot == std::string_view::npos || dot == 0) return std::nullopt;
    const std::string_view digits = rest.substr(0, dot);
    if (!isDisplayOption(rest.substr(dot + 1))) return std::nullopt;
    std::uint32_t number = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (ec != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
    return StoredOption{number, std::string(stem) + "@" + std::string(digits)};
}

} // namespace

DisplayKeyLookup adoptDisplayOptions(platform::UserDefaults& store, std::string_view preferenceKey,
                                     const std::vector<std::uint32_t>& activeNumbers) {
    DisplayKeyLookup lookup;
    const auto at = preferenceKey.rfind('@');
    if (at == std::string_view::npos) return lookup;
    const std::string_view stem = preferenceKey.substr(0, at);

    const auto keys = store.keys();
    std::vector<std::string> ownKeys;
    for (const auto& key : keys) {
        const auto stored = parseStoredOption(key, stem);
        if (!stored) continue;
        if (stored->preferenceKey == preferenceKey) return {}; // the display has its own
        const bool active = std::find(activeNumbers.begin(), activeNumbers.end(),
                                      stored->number) != activeNumbers.end();
        if (active) continue; // another monitor of the same model, connected now
        if (std::find(lookup.candidates.begin(), lookup.candidates.end(),
                      stored->preferenceKey) == lookup.candidates.end())
            lookup.candidates.push_back(stored->preferenceKey);
    }
    if (lookup.candidates.empty()) return lookup;
    if (lookup.candidates.size() > 1) {
        // Two monitors of one model were seen under other numbers: which one this is
        // cannot be told, and handing it another monitor's options would be worse than none.
        lookup.outcome = DisplayKeyLookup::Outcome::ambiguous;
        return lookup;
    }

    lookup.outcome = DisplayKeyLookup::Outcome::migrated;
    lookup.movedFrom = lookup.candidates.front();
    for (auto option : kDisplayOptions) {
        const auto from = displayKey(lookup.movedFrom, option);
        if (auto value = store.object(from)) {
            store.set(displayKey(preferenceKey, option), *value);
            store.remove(from);
        }
    }
    return lookup;
}

} // namespace pw::Preferences
