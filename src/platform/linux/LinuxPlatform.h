#pragma once

#include "platform/Platform.h"

namespace pw::platform {

// The real Linux machine's facilities that exist so far. Members a real machine
// cannot offer yet stay null.
Platform makeLinuxPlatform();

} // namespace pw::platform
