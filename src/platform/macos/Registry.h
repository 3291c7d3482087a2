#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pw::platform {

// The I/O registry: a tree of objects (services) with properties, reached by
// integer handles as the operating system hands them out. Shaped after the calls
// it stands for; every handle a call returns is owned by the caller and must be
// released exactly once.
using IOObject = std::uint32_t; // 0 = no object
using KernReturn = std::int32_t; // 0 = success
inline constexpr KernReturn kSuccess = 0;
inline constexpr KernReturn kError = static_cast<KernReturn>(0xE00002BCu); // generic failure

struct PropertyValue;
using PropertyDictionary = std::map<std::string, PropertyValue>;
using PropertyBytes = std::vector<std::uint8_t>;

// A registry property: string, byte block, number, Boolean or dictionary.
struct PropertyValue {
    std::variant<std::string, PropertyBytes, std::int64_t, bool, PropertyDictionary> value;

    const std::string* string() const { return std::get_if<std::string>(&value); }
    const PropertyBytes* bytes() const { return std::get_if<PropertyBytes>(&value); }
    const std::int64_t* number() const { return std::get_if<std::int64_t>(&value); }
    const bool* boolean() const { return std::get_if<bool>(&value); }
    const PropertyDictionary* dictionary() const { return std::get_if<PropertyDictionary>(&value); }
};

inline constexpr std::string_view kIOServicePlane = "IOService";
inline constexpr std::string_view kFirstMatchNotification = "IOServiceFirstMatch";
inline constexpr std::string_view kTerminateNotification = "IOServiceTerminate";

// Handle of a notification port; delivery happens on the main queue once the
// port's source is attached to the main run loop.
using NotificationPort = std::uint32_t; // 0 = none

class Registry {
public:
    // Called with the notification's iterator (owned by the registration: drain it,
    // releasing each object, but do not release the iterator itself).
    using NotificationHandler = std::function<void(IOObject iterator)>;

    virtual ~Registry() = default;

    // IOServiceGetMatchingServices(IOServiceMatching(className)): an iterator the caller releases.
    virtual KernReturn getMatchingServices(std::string_view className, IOObject& iterator) = 0;
    // IOIteratorNext: the next object (retained for the caller) or 0 when exhausted.
    virtual IOObject iteratorNext(IOObject iterator) = 0;

    virtual KernReturn retain(IOObject object) = 0;
    virtual KernReturn release(IOObject object) = 0;

    // IORegistryEntryCreateCFProperty: the property's value, or nothing when absent.
    virtual std::optional<PropertyValue> property(IOObject entry, std::string_view key) = 0;
    // IORegistryEntryCreateCFProperties: all of an entry's properties; kSuccess or an error.
    virtual KernReturn properties(IOObject entry, PropertyDictionary& out) = 0;
    // IORegistryEntryGetParentEntry: the parent in `plane`, retained for the caller.
    virtual KernReturn parentEntry(IOObject entry, std::string_view plane, IOObject& parent) = 0;
    // IORegistryEntryGetNameInPlane into a 128-byte buffer (zero-terminated).
    virtual KernReturn nameInPlane(IOObject entry, std::string_view plane, char (&name)[128]) = 0;
    // IORegistryEntryGetPath into a 512-byte buffer (zero-terminated).
    virtual KernReturn path(IOObject entry, std::string_view plane, char (&path)[512]) = 0;

    // IONotificationPortCreate / IONotificationPortGetRunLoopSource + CFRunLoopAddSource(main).
    virtual NotificationPort createNotificationPort() = 0;
    virtual bool attachToMainRunLoop(NotificationPort port) = 0;
    // IOServiceAddMatchingNotification(port, type, IOServiceMatching(className), handler):
    // `iterator` receives the registration's iterator, which must be drained once to arm it.
    virtual KernReturn addMatchingNotification(NotificationPort port, std::string_view type,
                                               std::string_view className,
                                               NotificationHandler handler,
                                               IOObject& iterator) = 0;
};

} // namespace pw::platform
