#include "display/RegistryText.h"

#include <cstring>

namespace pw {

std::string lowercaseHex(const platform::PropertyBytes& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0x0F]);
    }
    return text;
}

std::string registryPath(platform::Registry& registry, platform::IOObject entry) {
    char path[512] = {};
    if (registry.path(entry, platform::kIOServicePlane, path) != platform::kSuccess) return {};
    return std::string(path, strnlen(path, sizeof path));
}

} // namespace pw
