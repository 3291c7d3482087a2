#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <optional>
#include <string_view>

#include "platform/Screens.h"

namespace pw::platform {

// What the program asks for when it loads the system's indicator, and the images it shows.
// Every implementation of the seam answers to exactly these.
inline constexpr std::string_view kOSDFrameworkPath = "/System/Library/PrivateFrameworks/OSD.framework";
inline constexpr std::string_view kOSDManagerClass = "OSDManager";
inline constexpr std::string_view kOSDSharedSelector = "sharedManager";
inline constexpr std::string_view kOSDShowSelector =
    "showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:";
inline constexpr std::int64_t kOSDBrightnessImage = 1;
inline constexpr std::int64_t kOSDVolumeImage = 3;
inline constexpr std::int64_t kOSDMuteImage = 4;

// The system's own level indicator, reached through a framework loaded at run time.
// Each step of loading is its own call so that the caller can tell where it failed.
class NativeOSDObject {
public:
    virtual ~NativeOSDObject() = default;
    virtual bool respondsToSelector(std::string_view selector) = 0;
    // The indicator call (the method behind the show-image selector).
    virtual void showImage(std::int64_t image, std::uint32_t displayID, std::uint32_t priority,
                           std::uint32_t msecUntilFade, std::uint32_t filledChiclets,
                           std::uint32_t totalChiclets, bool locked) = 0;
};

class OSDBundle {
public:
    virtual ~OSDBundle() = default;
    virtual bool loadExecutable() = 0; // CFBundleLoadExecutable
    // NSClassFromString: the class exists and derives from the platform's base object class.
    virtual bool hasObjectClass(std::string_view className) = 0;
    // performSelector on the class: the shared object, or null when there is none or it
    // is not an object of the base class.
    virtual std::shared_ptr<NativeOSDObject> sendClassSelector(std::string_view className,
                                                               std::string_view selector) = 0;
};

class OSDFramework {
public:
    virtual ~OSDFramework() = default;
    // CFBundleCreate for a framework path: null when there is no bundle there.
    virtual std::shared_ptr<OSDBundle> createBundle(std::string_view path) = 0;
};

// What the fallback indicator shows: a symbol, a bar filled to `level` (0..1) whose fill
// is `fillWidth` points of the 132-point track, at `origin` (bottom-left, global screen
// coordinates) when a screen was found, else where the window was last.
struct IndicatorContent {
    std::string symbol;
    float level = 0;
    double fillWidth = 0;
    std::optional<Point> origin;
};

// The fallback indicator's window (the user interface provides the real one). One window
// is made on first use and reused; `show` replaces its content and orders it front
// without activating the application.
class LevelIndicatorWindow {
public:
    virtual ~LevelIndicatorWindow() = default;
    virtual void show(const IndicatorContent& content) = 0;
    virtual void hide() = 0; // order out
};

class LevelIndicators {
public:
    virtual ~LevelIndicators() = default;
    // A new borderless 200 x 70 indicator window, hidden.
    virtual std::shared_ptr<LevelIndicatorWindow> createWindow() = 0;
};

} // namespace pw::platform
