#pragma once

#include "platform/Clock.h"
#include "platform/MainQueue.h"
#include "platform/Screens.h"
#include "platform/macos/AVService.h"
#include "platform/macos/DisplayServices.h"
#include "platform/macos/FramebufferI2C.h"
#include "platform/macos/Registry.h"

#include <memory>

namespace pw::macos {

// What a Mac offers for finding its monitors: the window server's display list, the I/O
// registry, and the bus access of its kind (AV services on Apple Silicon, framebuffer I2C
// on Intel). A member may be null where the machine lacks it; callers check.
struct MacParts {
    enum class Kind { appleSilicon, intel };
    Kind kind = Kind::appleSilicon;
    std::shared_ptr<platform::Clock> clock;
    std::shared_ptr<platform::MainQueue> mainQueue;
    std::shared_ptr<platform::DisplayServices> displays;
    std::shared_ptr<platform::Screens> screens;
    std::shared_ptr<platform::Registry> registry;
    std::shared_ptr<platform::AVServiceFactory> avServices;   // Apple Silicon
    std::shared_ptr<platform::FramebufferI2C> framebufferI2C; // Intel
};

} // namespace pw::macos
