#pragma once

#include "platform/UserDefaults.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Turning what a user types into feature codes, feature values and typed settings.
namespace pw::cli {

// "brightness" (any letter case), "0x10" or "16"; nothing for anything else or a code
// beyond one byte.
std::optional<std::uint8_t> parseCode(std::string_view text);
// "Brightness", or "VCP 0xD7" for a code the program has no name for.
std::string codeTitle(std::uint8_t code);
// Decimal or 0x-hex in 0..65535; for the input source (0x60) also a source name such
// as "hdmi1" or "displayPort2" (any letter case).
std::optional<std::uint16_t> parseValue(std::uint8_t code, std::string_view text);
// The input source's label ("HDMI 1") for a value of code 0x60, else nothing.
std::optional<std::string> valueLabel(std::uint8_t code, std::uint16_t value);

// A settings value from text, typed by its key (an integer key takes only integers).
// Nothing, with `error` set, for a key the program does not read (a typing mistake would
// otherwise be stored and silently ignored) or text that does not fit the key's type.
// Per-display keys must name a display as detect prints its preference key.
std::optional<platform::DefaultsValue> parseSetting(std::string_view key, std::string_view text,
                                                    std::string& error);
// Plain text of a stored value: 5, 0.5, 5.0, true, the string as it is.
std::string settingText(const platform::DefaultsValue& value);

} // namespace pw::cli
