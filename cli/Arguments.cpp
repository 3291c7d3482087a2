#include "cli/Arguments.h"

#include "base/Preferences.h"
#include "ddc/VCP.h"
#include "support/Hex.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace pw::cli {
namespace {

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

// Whole text as an unsigned number, decimal or with a 0x prefix.
std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// The names a user types for each input source: the lower-case form of the program's own
// names, so "hdmi1" and "displayport1" work and so does the camel case "displayPort1".
constexpr std::array<std::pair<std::string_view, InputSource>, 15> kSourceNames = {{
    {"vga1", InputSource::vga1},
    {"vga2", InputSource::vga2},
    {"dvi1", InputSource::dvi1},
    {"dvi2", InputSource::dvi2},
    {"composite1", InputSource::composite1},
    {"composite2", InputSource::composite2},
    {"svideo1", InputSource::svideo1},
    {"svideo2", InputSource::svideo2},
    {"component1", InputSource::component1},
    {"component2", InputSource::component2},
    {"displayport1", InputSource::displayPort1},
    {"displayport2", InputSource::displayPort2},
    {"hdmi1", InputSource::hdmi1},
    {"hdmi2", InputSource::hdmi2},
    {"usbc", InputSource::usbC},
}};

enum class Kind { integer, real, boolean, text };

bool allDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A display's preference key: name "+" vendor "+" product "@" display number, the three
// numbers in decimal. The name may itself hold '+', '@' and '.', so the numbers are
// found from the end.
bool isPreferenceKey(std::string_view key) {
    const auto at = key.rfind('@');
    if (at == std::string_view::npos || !allDigits(key.substr(at + 1))) return false;
    const auto product = key.rfind('+', at);
    if (product == std::string_view::npos || !allDigits(key.substr(product + 1, at - product - 1)))
        return false;
    if (product == 0) return false;
    const auto vendor = key.rfind('+', product - 1);
    return vendor != std::string_view::npos &&
           allDigits(key.substr(vendor + 1, product - vendor - 1));
}

// The global keys the program reads, with their kinds.
constexpr std::array<std::pair<std::string_view, Kind>, 7> kGlobalKeys = {{
    {Preferences::kStartupAction, Kind::integer},
    {Preferences::kLaunchAtLogin, Kind::boolean},
    {Preferences::kShowOSD, Kind::boolean},
    {Preferences::kDDCRetryCount, Kind::integer},
    {Preferences::kDDCCacheTTL, Kind::real},
    {Preferences::kBrightnessStepPercent, Kind::integer},
    {Preferences::kVolumeStepPercent, Kind::integer},
}};

std::string knownKeysText() {
    std::string text;
    for (const auto& [known, kind] : kGlobalKeys)
        text.append(known).append(", ");
    namespace P = Preferences;
    return text + "and display.NAME+VENDOR+PRODUCT@ID." + std::string(P::kLongerDelay) + "|" +
           std::string(P::kForceSoftwareBrightness) + "|" + std::string(P::kFriendlyName) +
           " (NAME+VENDOR+PRODUCT@ID as detect prints it)";
}

std::optional<Kind> knownKind(std::string_view key) {
    namespace P = Preferences;
    for (const auto& [known, kind] : kGlobalKeys)
        if (key == known) return kind;
    // Per-display options: "display.<preference key>.<option>"; the preference key may
    // itself contain dots, so only the last part is the option.
    constexpr std::string_view kPrefix = "display.";
    if (key.starts_with(kPrefix)) {
        const auto dot = key.rfind('.');
        const auto option = key.substr(dot + 1);
        if (dot < kPrefix.size() || !isPreferenceKey(key.substr(kPrefix.size(), dot - kPrefix.size())))
            return std::nullopt;
        if (option == P::kFriendlyName) return Kind::text;
        if (option == P::kForceSoftwareBrightness || option == P::kLongerDelay)
            return Kind::boolean;
    }
    return std::nullopt;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::int64_t value = 0;
    if (!text.empty() && text[0] == '+') text.remove_prefix(1);
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<double> parseReal(std::string_view text) {
    double value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<bool> parseBoolean(std::string_view text) {
    const std::string t = lower(text);
    if (t == "true" || t == "yes" || t == "1") return true;
    if (t == "false" || t == "no" || t == "0") return false;
    return std::nullopt;
}

} // namespace

std::optional<std::uint8_t> parseCode(std::string_view text) {
    const std::string name = lower(text);
    for (VCPCode code : kAllVCPCodes)
        if (lower(featureName(code)) == name) return rawValue(code);
    const auto number = parseUnsigned(text);
    if (!number || *number > 0xFF) return std::nullopt;
    return static_cast<std::uint8_t>(*number);
}

std::string codeTitle(std::uint8_t code) {
    if (const auto known = vcpCodeFromRaw(code)) return std::string(displayName(*known));
    return "VCP 0x" + hex(code, 2);
}

std::optional<std::uint16_t> parseValue(std::uint8_t code, std::string_view text) {
    if (code == rawValue(VCPCode::inputSource)) {
        const std::string name = lower(text);
        for (const auto& [sourceName, source] : kSourceNames)
            if (name == sourceName) return rawValue(source);
    }
    const auto number = parseUnsigned(text);
    if (!number || *number > 0xFFFF) return std::nullopt;
    return static_cast<std::uint16_t>(*number);
}

std::optional<std::string> valueLabel(std::uint8_t code, std::uint16_t value) {
    if (code != rawValue(VCPCode::inputSource)) return std::nullopt;
    const auto source = inputSourceFromRaw(value);
    if (!source) return std::nullopt;
    return std::string(label(*source));
}

std::optional<platform::DefaultsValue> parseSetting(std::string_view key, std::string_view text,
                                                    std::string& error) {
    const auto kind = knownKind(key);
    if (!kind) {
        error = "unknown setting \"" + std::string(key) + "\"; the settings are " +
                knownKeysText();
        return std::nullopt;
    }
    switch (*kind) {
    case Kind::integer:
        if (auto i = parseInteger(text)) return *i;
        error = std::string(key) + " takes an integer, not \"" + std::string(text) + "\"";
        return std::nullopt;
    case Kind::real:
        if (auto d = parseReal(text)) return *d;
        error = std::string(key) + " takes a number of seconds, not \"" + std::string(text) + "\"";
        return std::nullopt;
    case Kind::boolean:
        if (auto b = parseBoolean(text)) return *b;
        error = std::string(key) + " takes true or false, not \"" + std::string(text) + "\"";
        return std::nullopt;
    case Kind::text:
        return std::string(text);
    }
    return std::nullopt;
}

std::string settingText(const platform::DefaultsValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    // JSON's number grammar keeps a double's fraction (5.0), so the kind stays visible.
    return std::visit([](const auto& v) { return nlohmann::json(v).dump(); }, value);
}

} // namespace pw::cli
