#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pw::platform {

// A stored preference value. The four kinds stay distinct through a round trip.
using DefaultsValue = std::variant<bool, std::int64_t, double, std::string>;

// The per-user key-value store of the program's settings. Reads see changes
// made by other processes; writes reach the store at once.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;
    virtual std::optional<DefaultsValue> object(std::string_view key) = 0;
    virtual void set(std::string_view key, const DefaultsValue& value) = 0;
    virtual void remove(std::string_view key) = 0;
    virtual std::vector<std::string> keys() = 0;

    // A string literal would otherwise convert to bool and be stored as a Boolean.
    void set(std::string_view key, const char* text) { set(key, DefaultsValue(std::string(text))); }
};

} // namespace pw::platform
