#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace pw {
class RunLoop;
}

namespace pw::macos {

// The Mac's key vocabulary: event taps and the system-defined events that carry the media
// keys. Only the Mac machine (and the simulated Mac) speaks it.

// Event types a tap sees. The two negative ones are notices, not input.
inline constexpr std::int32_t kEventTypeKeyDown = 10;
inline constexpr std::int32_t kEventTypeSystemDefined = 14;
inline constexpr std::int32_t kEventTypeTapDisabledByTimeout = -2;
inline constexpr std::int32_t kEventTypeTapDisabledByUserInput = -1;
// Subtype of system-defined events that carry the auxiliary control buttons (media keys).
inline constexpr std::int16_t kSystemDefinedAuxControlButtons = 8;
// The key codes system-defined events carry in data1's high half, and its key-state byte.
inline constexpr std::int32_t kAuxKeySoundUp = 0, kAuxKeySoundDown = 1, kAuxKeyBrightnessUp = 2,
                              kAuxKeyBrightnessDown = 3, kAuxKeyMute = 7, kAuxKeyPlay = 16,
                              kAuxKeyNext = 17, kAuxKeyPrevious = 18, kAuxKeyFast = 19,
                              kAuxKeyRewind = 20;
inline constexpr std::uint32_t kAuxKeyDown = 0x0A00, kAuxKeyUp = 0x0B00;
// The event mask the key source asks for: key down (bit 10) and system-defined (bit 14).
inline constexpr std::uint64_t kKeyDownAndSystemDefinedMask = 0x4400;

using ModifierFlags = std::uint64_t;

// One input event as a tap reads it. A platform whose native key events look
// different translates them into this shape inside its own implementation.
struct InputEvent {
    std::int32_t type = 0;
    std::int16_t subtype = 0;       // system-defined events
    std::int32_t data1 = 0;         // system-defined events: key code << 16 | flags
    std::int64_t keyboardKeyCode = 0; // key-down events (the keyboard key-code field)
    ModifierFlags modifierFlags = 0;
    // False when the platform cannot build its event object from this event (then the
    // source passes it on untouched).
    bool convertible = true;
};

enum class TapLocation { session };
enum class TapPlacement { headInsert };
enum class TapOptions { defaultFilter }; // active: the callback may swallow events

// Called on the thread of the run loop the tap's source is attached to. Return the
// event to pass it on, nothing to swallow it.
using TapCallback =
    std::function<std::optional<InputEvent>(std::int32_t type, const InputEvent& event)>;

// The run-loop source of a tap: once attached, the tap's callback runs on that run loop.
class TapRunLoopSource {
public:
    virtual ~TapRunLoopSource() = default;
    virtual void addToRunLoop(const std::shared_ptr<RunLoop>& runLoop) = 0; // CFRunLoopAddSource
    virtual void invalidate() = 0;                                        // CFRunLoopSourceInvalidate
};

// One event tap (a mach port on macOS).
class EventTap {
public:
    virtual ~EventTap() = default;
    virtual void enable(bool enabled) = 0; // CGEventTapEnable; call on the tap's own thread
    virtual void invalidate() = 0;         // CFMachPortInvalidate
    // CFMachPortCreateRunLoopSource: null when no source can be made.
    virtual std::shared_ptr<TapRunLoopSource> createRunLoopSource() = 0;
};

class EventTaps {
public:
    virtual ~EventTaps() = default;
    // CGEventTapCreate: null when the system refuses a tap (no permission, sandbox).
    virtual std::shared_ptr<EventTap> createTap(TapLocation location, TapPlacement placement,
                                                TapOptions options, std::uint64_t eventMask,
                                                TapCallback callback) = 0;
};

} // namespace pw::macos
