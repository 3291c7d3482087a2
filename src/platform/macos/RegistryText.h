#pragma once

#include "platform/macos/Registry.h"

#include <string>

namespace pw {

// An entry's path in the IOService plane, up to the first zero byte; "" when unreadable.
std::string registryPath(platform::Registry& registry, platform::IOObject entry);

} // namespace pw
