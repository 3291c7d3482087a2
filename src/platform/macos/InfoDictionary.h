#pragma once

#include "platform/HostFacts.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace pw::macos {

// The application bundle's information dictionary (its Info.plist), as the Mac machine
// reads it. The Mac's HostFacts answers `build()` from it; no other machine has one.
class InfoDictionary {
public:
    using Value = std::variant<std::string, std::int64_t>;
    virtual ~InfoDictionary() = default;
    virtual std::optional<Value> value(std::string_view key) const = 0;
};

// The build's facts under the dictionary's keys. A missing key, or one that is not a
// string, is a fact the build does not know (empty).
inline platform::BuildFacts buildFactsFrom(const InfoDictionary& info) {
    const auto text = [&info](std::string_view key) {
        const auto value = info.value(key);
        const auto* string = value ? std::get_if<std::string>(&*value) : nullptr;
        return string ? *string : std::string();
    };
    return {text("CFBundleShortVersionString"), text("CFBundleVersion"), text("GitCommitHash"),
            text("NSHumanReadableCopyright"), text("CFBundleIdentifier")};
}

} // namespace pw::macos
