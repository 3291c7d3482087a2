#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace pw::platform::macos {

// What the Mac's indicator is loaded by, and the images it shows.
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

} // namespace pw::platform::macos
