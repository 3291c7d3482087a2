#pragma once

#include "platform/MainQueue.h"
#include "platform/macos/Registry.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pw::sim {

// Which registry objects were handed out and how often each was released. Every
// handle a registry call returns must be released exactly once.
struct RegistryLedger {
    std::size_t retained = 0; // references handed to the program (returns + retain calls)
    std::size_t released = 0; // release calls on live references
    std::vector<std::string> overReleased; // objects released more often than retained
    std::vector<std::string> leaked;       // objects the program still holds
    bool balanced() const { return leaked.empty() && overReleased.empty(); }
};

// The simulated I/O registry: a tree of entries with classes, names, unit addresses and
// properties, reached by handles that are never reused. It counts every reference it
// hands to the program (iterators, iterated objects, parents, retains) against the
// releases, so a test can prove each object is released exactly once. Matching
// notifications are delivered on the main queue once their port is attached to it.
// Thread-safe: the program walks the registry from worker threads while the machine
// plugs displays in on the main thread.
class SimRegistry final : public platform::Registry,
                          public std::enable_shared_from_this<SimRegistry> {
public:
    using IOObject = platform::IOObject;
    using KernReturn = platform::KernReturn;
    using PropertyValue = platform::PropertyValue;

    // The registry starts with its root entry ("IOService:/").
    explicit SimRegistry(std::shared_ptr<platform::MainQueue> mainQueue);

    // Building the tree (the machine's side; hands no reference to anyone). A unit
    // address shows in paths as "name@address".
    IOObject root() const { return root_; }
    IOObject addEntry(IOObject parent, std::string className, std::string name,
                      std::string unitAddress = {});
    // Sets or (with nothing) removes a property; the value may be of any type, which is
    // how the machine presents properties the program must read as absent.
    void setProperty(IOObject entry, const std::string& key, std::optional<PropertyValue> value);

    // Entries that joined the registry (or left it): every registration watching their
    // class gets them in its iterator, and armed ones are called on the main queue.
    // Terminated entries stay valid handles for releasing, but are no longer matched and
    // have neither parent nor path.
    void announceMatched(const std::vector<IOObject>& entries);
    void terminate(const std::vector<IOObject>& entries);

    RegistryLedger ledger() const;
    // How many references the program holds on one object now.
    std::size_t heldReferences(IOObject object) const;

    // platform::Registry
    KernReturn getMatchingServices(std::string_view className, IOObject& iterator) override;
    IOObject iteratorNext(IOObject iterator) override;
    KernReturn retain(IOObject object) override;
    KernReturn release(IOObject object) override;
    std::optional<PropertyValue> property(IOObject entry, std::string_view key) override;
    KernReturn properties(IOObject entry, platform::PropertyDictionary& out) override;
    KernReturn parentEntry(IOObject entry, std::string_view plane, IOObject& parent) override;
    KernReturn nameInPlane(IOObject entry, std::string_view plane, char (&name)[128]) override;
    KernReturn path(IOObject entry, std::string_view plane, char (&path)[512]) override;
    platform::NotificationPort createNotificationPort() override;
    bool attachToMainRunLoop(platform::NotificationPort port) override;
    KernReturn addMatchingNotification(platform::NotificationPort port, std::string_view type,
                                       std::string_view className, NotificationHandler handler,
                                       IOObject& iterator) override;

private:
    struct Entry {
        IOObject parent = 0;
        std::string className;
        std::string name;
        std::string unitAddress;
        std::map<std::string, PropertyValue, std::less<>> properties;
        bool live = true;
    };
    struct Iterator {
        std::vector<IOObject> items;
        std::size_t position = 0;
        std::string over;               // class iterated, for the ledger
        std::uint64_t registration = 0; // 0 = a plain matching iterator
    };
    struct References {
        std::size_t held = 0;           // references the program holds
        std::size_t overReleases = 0;   // releases beyond what it held
        bool registrationOwned = false; // a notification iterator the registration holds
    };
    struct Registration {
        platform::NotificationPort port = 0;
        bool terminate = false;
        std::string className;
        NotificationHandler handler;
        IOObject iterator = 0;
        bool armed = false; // drained to the end since the last delivery
        bool alive = true;
    };

    IOObject hand(IOObject object); // counts one more reference for the program
    std::string describe(IOObject object) const;
    const Entry* liveEntry(IOObject entry) const;
    void announce(const std::vector<IOObject>& entries, bool terminated);
    void deliver(std::uint64_t registration);

    std::shared_ptr<platform::MainQueue> mainQueue_;
    mutable std::mutex mutex_;
    IOObject next_ = 0x1003; // handles look like the port names the system hands out
    IOObject root_ = 0;
    std::map<IOObject, Entry> entries_;
    std::map<IOObject, Iterator> iterators_;
    std::map<IOObject, References> references_;
    std::map<platform::NotificationPort, bool> ports_; // port -> attached to the main loop
    std::map<std::uint64_t, Registration> registrations_;
    std::uint64_t nextRegistration_ = 1;
    std::size_t retained_ = 0;
    std::size_t released_ = 0;
    std::map<IOObject, std::size_t> unknownReleases_;
};

} // namespace pw::sim
