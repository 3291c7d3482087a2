#pragma once

#include <optional>
#include <string>

#include "platform/Screens.h"

namespace pw::platform {

enum class IndicatorKind { brightness, volume, mute };

// Shows a level after a key changed a monitor. The machine decides how: the system's own
// indicator where it has one that answers, else our own window (`WindowIndicator`).
// Called on the main thread.
class LevelIndicator {
public:
    virtual ~LevelIndicator() = default;
    // `level` is 0..1 (a monitor reporting more than its maximum may give more; the
    // indicator pins it). Mute is shown with level 0.
    virtual void show(IndicatorKind kind, float level, DisplayID display) = 0;
};

// What our own indicator window shows: a symbol ("sun.max.fill", "speaker.wave.2.fill",
// "speaker.slash.fill"), a bar filled to `level` (0..1), with its bottom-left corner at
// `origin` (global screen coordinates, y up) when a screen was found, else where the window
// was last.
struct IndicatorContent {
    std::string symbol;
    float level = 0;
    std::optional<Point> origin;
};

// Our own indicator window, supplied by the user interface. `show` replaces the content and
// brings the window up without taking the focus; `hide` takes it away. Main thread only.
class IndicatorWindow {
public:
    virtual ~IndicatorWindow() = default;
    virtual void show(const IndicatorContent& content) = 0;
    virtual void hide() = 0;
};

} // namespace pw::platform
