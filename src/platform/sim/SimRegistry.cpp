#include "platform/sim/SimRegistry.h"

#include <cstdio>
#include <cstring>

namespace pw::sim {

namespace {

// What the system answers for a handle it does not know or an object of the wrong kind.
constexpr platform::KernReturn kBadArgument = static_cast<platform::KernReturn>(0xE00002C2u);
constexpr platform::KernReturn kNoDevice = static_cast<platform::KernReturn>(0xE00002C0u);

bool servicePlane(std::string_view plane) {
    return plane == platform::kIOServicePlane;
}

} // namespace

SimRegistry::SimRegistry(std::shared_ptr<platform::MainQueue> mainQueue)
    : mainQueue_(std::move(mainQueue)) {
    root_ = next_++;
    entries_[root_] = Entry{0, "IORegistryEntry", "Root", {}, {}, true};
}

SimRegistry::IOObject SimRegistry::addEntry(IOObject parent, std::string className,
                                            std::string name, std::string unitAddress) {
    std::lock_guard lock(mutex_);
    const IOObject handle = next_++;
    entries_[handle] =
        Entry{parent, std::move(className), std::move(name), std::move(unitAddress), {}, true};
    return handle;
}

void SimRegistry::setProperty(IOObject entry, const std::string& key,
                              std::optional<PropertyValue> value) {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(entry);
    if (found == entries_.end()) return;
    if (value) {
        found->second.properties[key] = std::move(*value);
    } else {
        found->second.properties.erase(key);
    }
}

void SimRegistry::announceMatched(const std::vector<IOObject>& entries) {
    announce(entries, false);
}

void SimRegistry::terminate(const std::vector<IOObject>& entries) {
    {
        std::lock_guard lock(mutex_);
        for (const auto entry : entries) {
            if (auto found = entries_.find(entry); found != entries_.end()) {
                found->second.live = false;
            }
        }
    }
    announce(entries, true);
}

void SimRegistry::announce(const std::vector<IOObject>& entries, bool terminated) {
    std::vector<std::uint64_t> due;
    {
        std::lock_guard lock(mutex_);
        for (auto& [id, registration] : registrations_) {
            if (!registration.alive || registration.terminate != terminated) continue;
            auto& iterator = iterators_.at(registration.iterator);
            const auto before = iterator.items.size();
            for (const auto entry : entries) {
                const auto found = entries_.find(entry);
                if (found != entries_.end() && found->second.className == registration.className) {
                    iterator.items.push_back(entry);
                }
            }
            // Like the system, a registration is called again only once its handler has
            // drained the iterator; until then new objects just wait in it.
            if (iterator.items.size() > before && registration.armed && ports_[registration.port]) {
                registration.armed = false;
                due.push_back(id);
            }
        }
    }
    if (!mainQueue_) return;
    for (const auto id : due) {
        mainQueue_->post([weak = weak_from_this(), id] {
            if (auto self = weak.lock()) self->deliver(id);
        });
    }
}

void SimRegistry::deliver(std::uint64_t registration) {
    NotificationHandler handler;
    IOObject iterator = 0;
    {
        std::lock_guard lock(mutex_);
        const auto found = registrations_.find(registration);
        if (found == registrations_.end() || !found->second.alive) return;
        handler = found->second.handler;
        iterator = found->second.iterator;
    }
    // Outside the lock: the handler walks the registry.
    if (handler) handler(iterator);
}

RegistryLedger SimRegistry::ledger() const {
    std::lock_guard lock(mutex_);
    RegistryLedger ledger;
    ledger.retained = retained_;
    ledger.released = released_;
    for (const auto& [object, refs] : references_) {
        if (refs.overReleases > 0) {
            ledger.overReleased.push_back(describe(object) + " released " +
                                          std::to_string(refs.overReleases) + " time(s) too often");
        }
        if (refs.held > 0) {
            ledger.leaked.push_back(describe(object) + " still held " + std::to_string(refs.held) +
                                    " time(s)");
        }
    }
    for (const auto& [object, count] : unknownReleases_) {
        ledger.overReleased.push_back("unknown object #" + std::to_string(object) + " released " +
                                      std::to_string(count) + " time(s)");
    }
    return ledger;
}

std::size_t SimRegistry::heldReferences(IOObject object) const {
    std::lock_guard lock(mutex_);
    const auto found = references_.find(object);
    return found == references_.end() ? 0 : found->second.held;
}

std::string SimRegistry::describe(IOObject object) const {
    const std::string handle = " #" + std::to_string(object);
    if (const auto entry = entries_.find(object); entry != entries_.end()) {
        return entry->second.name + handle;
    }
    if (const auto iterator = iterators_.find(object); iterator != iterators_.end()) {
        return "iterator" + handle + " over " + iterator->second.over;
    }
    return "object" + handle;
}

SimRegistry::IOObject SimRegistry::hand(IOObject object) {
    ++references_[object].held;
    ++retained_;
    return object;
}

const SimRegistry::Entry* SimRegistry::liveEntry(IOObject entry) const {
    const auto found = entries_.find(entry);
    return found != entries_.end() && found->second.live ? &found->second : nullptr;
}

platform::KernReturn SimRegistry::getMatchingServices(std::string_view className,
                                                      IOObject& iterator) {
    std::lock_guard lock(mutex_);
    Iterator matching;
    matching.over = std::string(className);
    // Handles grow with creation, so this is the order entries joined the registry.
    for (const auto& [handle, entry] : entries_) {
        if (entry.live && entry.className == className) matching.items.push_back(handle);
    }
    iterator = next_++;
    iterators_[iterator] = std::move(matching);
    hand(iterator);
    return platform::kSuccess;
}

SimRegistry::IOObject SimRegistry::iteratorNext(IOObject iterator) {
    std::lock_guard lock(mutex_);
    const auto found = iterators_.find(iterator);
    if (found == iterators_.end()) return 0;
    auto& it = found->second;
    if (it.position < it.items.size()) return hand(it.items[it.position++]);
    if (it.registration != 0) {
        if (auto registration = registrations_.find(it.registration);
            registration != registrations_.end()) {
            registration->second.armed = true;
        }
    }
    return 0;
}

platform::KernReturn SimRegistry::retain(IOObject object) {
    std::lock_guard lock(mutex_);
    if (!entries_.count(object) && !iterators_.count(object)) return kBadArgument;
    hand(object);
    return platform::kSuccess;
}

platform::KernReturn SimRegistry::release(IOObject object) {
    std::lock_guard lock(mutex_);
    if (object == 0) return kBadArgument;
    if (!entries_.count(object) && !iterators_.count(object)) {
        ++unknownReleases_[object];
        return kBadArgument;
    }
    auto& refs = references_[object];
    if (refs.held > 0) {
        --refs.held;
        ++released_;
    } else if (refs.registrationOwned) {
        // Releasing a notification's iterator ends the registration, as on the system.
        refs.registrationOwned = false;
        const auto registration = iterators_.at(object).registration;
        registrations_.at(registration).alive = false;
    } else {
        ++refs.overReleases;
    }
    return platform::kSuccess;
}

std::optional<platform::PropertyValue> SimRegistry::property(IOObject entry, std::string_view key) {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(entry);
    if (found == entries_.end()) return std::nullopt;
    const auto value = found->second.properties.find(key);
    if (value == found->second.properties.end()) return std::nullopt;
    return value->second;
}

platform::KernReturn SimRegistry::properties(IOObject entry, platform::PropertyDictionary& out) {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(entry);
    if (found == entries_.end()) return kBadArgument;
    out.clear();
    for (const auto& [key, value] : found->second.properties) out.emplace(key, value);
    return platform::kSuccess;
}

platform::KernReturn SimRegistry::parentEntry(IOObject entry, std::string_view plane,
                                              IOObject& parent) {
    std::lock_guard lock(mutex_);
    if (!servicePlane(plane)) return kBadArgument;
    const auto* found = liveEntry(entry);
    if (!found) return kBadArgument;
    if (found->parent == 0) return kNoDevice; // the root has no parent
    parent = hand(found->parent);
    return platform::kSuccess;
}

platform::KernReturn SimRegistry::nameInPlane(IOObject entry, std::string_view plane,
                                              char (&name)[128]) {
    std::lock_guard lock(mutex_);
    if (!servicePlane(plane)) return kBadArgument;
    const auto found = entries_.find(entry);
    if (found == entries_.end()) return kBadArgument;
    std::snprintf(name, sizeof name, "%s", found->second.name.c_str());
    return platform::kSuccess;
}

platform::KernReturn SimRegistry::path(IOObject entry, std::string_view plane, char (&out)[512]) {
    std::lock_guard lock(mutex_);
    if (!servicePlane(plane) || !liveEntry(entry)) return kBadArgument;
    std::string text;
    for (IOObject at = entry; at != root_;) {
        const auto& e = entries_.at(at);
        text.insert(0, "/" + e.name + (e.unitAddress.empty() ? "" : "@" + e.unitAddress));
        at = e.parent;
    }
    text.insert(0, std::string(plane) + ":" + (text.empty() ? "/" : ""));
    // A path that does not fit the caller's buffer is an error, not a truncated path.
    if (text.size() >= sizeof out) return kBadArgument;
    std::memcpy(out, text.c_str(), text.size() + 1);
    return platform::kSuccess;
}

platform::NotificationPort SimRegistry::createNotificationPort() {
    std::lock_guard lock(mutex_);
    const auto port = static_cast<platform::NotificationPort>(next_++);
    ports_[port] = false;
    return port;
}

bool SimRegistry::attachToMainRunLoop(platform::NotificationPort port) {
    std::lock_guard lock(mutex_);
    const auto found = ports_.find(port);
    if (found == ports_.end() || !mainQueue_) return false;
    found->second = true;
    return true;
}

platform::KernReturn SimRegistry::addMatchingNotification(platform::NotificationPort port,
                                                          std::string_view type,
                                                          std::string_view className,
                                                          NotificationHandler handler,
                                                          IOObject& iterator) {
    std::lock_guard lock(mutex_);
    const bool firstMatch = type == platform::kFirstMatchNotification;
    if (!ports_.count(port) || (!firstMatch && type != platform::kTerminateNotification)) {
        return kBadArgument;
    }
    const auto id = nextRegistration_++;
    Iterator notified;
    notified.over = std::string(className);
    notified.registration = id;
    // A first-match registration starts with what already matches; draining it arms it.
    if (firstMatch) {
        for (const auto& [handle, entry] : entries_) {
            if (entry.live && entry.className == className) notified.items.push_back(handle);
        }
    }
    iterator = next_++;
    iterators_[iterator] = std::move(notified);
    references_[iterator].registrationOwned = true;
    registrations_[id] = Registration{
        port, !firstMatch, std::string(className), std::move(handler), iterator, false, true};
    return platform::kSuccess;
}

} // namespace pw::sim
