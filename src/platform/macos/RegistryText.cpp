#include "platform/macos/RegistryText.h"

#include <cstring>

namespace pw {

std::string registryPath(platform::Registry& registry, platform::IOObject entry) {
    char path[512] = {};
    if (registry.path(entry, platform::kIOServicePlane, path) != platform::kSuccess) return {};
    return std::string(path, strnlen(path, sizeof path));
}

} // namespace pw
