#include "platform/sim/SimFramebufferI2C.h"

#include "platform/sim/BusLog.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/VirtualClock.h"
#include "platform/sim/VirtualMonitor.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <span>
#include <string>

namespace pw::sim {

namespace {

using platform::I2CConnection;
using platform::IOObject;
using platform::KernReturn;
using platform::PropertyValue;

bool contains(const std::vector<std::uint32_t>& list, std::uint32_t value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// The 8-bit bus addresses carry the direction in their lowest bit.
constexpr std::uint32_t chipOf(std::uint32_t address) {
    return address >> 1;
}
constexpr bool isReadAddress(std::uint32_t address) {
    return (address & 1u) != 0;
}

struct Framebuffer {
    platform::DisplayID display = 0;
    bool live = true;
    std::vector<IOObject> interfaces; // by bus
    std::shared_ptr<VirtualMonitor> monitor;
    DisplaySpec::Intel setup;
    std::uint32_t vendor = 0;
    std::uint32_t model = 0;
    std::uint32_t serial = 0;
    std::vector<std::pair<std::string, std::string>> productNames;

    std::optional<std::uint64_t> mask(std::uint32_t bus) const {
        return bus < setup.busTransactionTypes.size() ? setup.busTransactionTypes[bus]
                                                      : setup.transactionTypes;
    }
};

// What one request needs to know of its bus, copied out so the transfer runs unlocked:
// two requests in flight at once must meet in the bus log, not queue up here.
struct Route {
    bool live = false;
    bool reachesMonitor = false;
    std::shared_ptr<VirtualMonitor> monitor;
    std::optional<std::uint64_t> mask;
    std::chrono::milliseconds replyWait{0};
    std::string endpoint;
};

} // namespace

struct SimFramebufferI2C::State {
    std::shared_ptr<SimRegistry> registry;
    std::shared_ptr<BusLog> bus;

    mutable std::mutex mutex;
    std::map<IOObject, Framebuffer> framebuffers;
    std::map<IOObject, std::pair<IOObject, std::uint32_t>> interfaces; // -> framebuffer, bus
    std::map<I2CConnection, std::pair<IOObject, std::uint32_t>> connections;
    I2CConnection nextConnection = 0x7E0001;

    KernReturn transfer(const Route& route, BusTransfer::Kind kind, std::uint32_t address,
                        std::uint32_t dataAddress, std::span<const std::uint8_t> sent,
                        std::span<std::uint8_t> received);
};

SimFramebufferI2C::SimFramebufferI2C(std::shared_ptr<SimRegistry> registry,
                                     std::shared_ptr<BusLog> bus)
    : state_(std::make_unique<State>()) {
    state_->registry = std::move(registry);
    state_->bus = std::move(bus);
}
SimFramebufferI2C::~SimFramebufferI2C() = default;

void SimFramebufferI2C::attach(IOObject framebuffer, const DisplaySpec& display,
                               std::vector<IOObject> interfaces,
                               std::shared_ptr<VirtualMonitor> monitor) {
    std::lock_guard lock(state_->mutex);
    for (std::uint32_t bus = 0; bus < interfaces.size(); ++bus)
        state_->interfaces[interfaces[bus]] = {framebuffer, bus};
    Framebuffer& fb = state_->framebuffers[framebuffer];
    fb.display = display.id;
    fb.interfaces = std::move(interfaces);
    fb.monitor = std::move(monitor);
    fb.setup = display.intel;
    fb.vendor = display.vendor;
    fb.model = display.model;
    fb.serial = display.serial;
    fb.productNames = display.productNames;
}

void SimFramebufferI2C::detach(IOObject framebuffer) {
    std::lock_guard lock(state_->mutex);
    if (const auto found = state_->framebuffers.find(framebuffer);
        found != state_->framebuffers.end()) {
        found->second.live = false;
    }
}

std::size_t SimFramebufferI2C::openConnections() const {
    std::lock_guard lock(state_->mutex);
    return state_->connections.size();
}

KernReturn SimFramebufferI2C::i2cInterfaceCount(IOObject framebuffer, std::uint32_t& count) {
    count = 0;
    std::lock_guard lock(state_->mutex);
    const auto found = state_->framebuffers.find(framebuffer);
    if (found == state_->framebuffers.end()) return kBadArgument;
    const Framebuffer& fb = found->second;
    if (!fb.live) return kNoDevice;
    if (fb.setup.countFails) return platform::kError;
    count = static_cast<std::uint32_t>(fb.interfaces.size());
    return platform::kSuccess;
}

KernReturn SimFramebufferI2C::copyI2CInterfaceForBus(IOObject framebuffer, std::uint32_t bus,
                                                     IOObject& interface) {
    interface = 0;
    IOObject entry = 0;
    {
        std::lock_guard lock(state_->mutex);
        const auto found = state_->framebuffers.find(framebuffer);
        if (found == state_->framebuffers.end()) return kBadArgument;
        const Framebuffer& fb = found->second;
        if (!fb.live) return kNoDevice;
        if (bus >= fb.interfaces.size()) return kBadArgument;
        if (contains(fb.setup.copyFails, bus)) return kNotFound;
        entry = fb.interfaces[bus];
    }
    // The copy is the caller's to release: the registry's ledger holds it to that.
    if (state_->registry->retain(entry) != platform::kSuccess) return kNoDevice;
    interface = entry;
    return platform::kSuccess;
}

KernReturn SimFramebufferI2C::interfaceOpen(IOObject interface, std::uint32_t options,
                                            I2CConnection& connection) {
    connection = 0;
    if (options != 0) return kBadArgument;
    // Opening an interface object one no longer holds is a use after release.
    const bool held = state_->registry->heldReferences(interface) > 0;
    std::lock_guard lock(state_->mutex);
    const auto found = state_->interfaces.find(interface);
    if (found == state_->interfaces.end() || !held) return kBadArgument;
    const auto [framebuffer, bus] = found->second;
    const Framebuffer& fb = state_->framebuffers.at(framebuffer);
    if (!fb.live) return kNoDevice;
    if (contains(fb.setup.openFails, bus)) return kExclusiveAccess;
    connection = state_->nextConnection++;
    state_->connections[connection] = found->second;
    return platform::kSuccess;
}

KernReturn SimFramebufferI2C::interfaceClose(I2CConnection connection, std::uint32_t options) {
    std::lock_guard lock(state_->mutex);
    if (options != 0) return kBadArgument;
    return state_->connections.erase(connection) == 1 ? platform::kSuccess : kNotOpen;
}

KernReturn SimFramebufferI2C::State::transfer(const Route& route, BusTransfer::Kind kind,
                                              std::uint32_t address, std::uint32_t dataAddress,
                                              std::span<const std::uint8_t> sent,
                                              std::span<std::uint8_t> received) {
    const bool reading = kind == BusTransfer::Kind::read;
    // Nothing acknowledges on a bus without the monitor, nor an address whose direction
    // bit says the opposite of what the phase does.
    VirtualMonitor* const monitor =
        route.reachesMonitor && isReadAddress(address) == reading ? route.monitor.get() : nullptr;
    if (!reading)
        return writePhase(*bus, route.endpoint, monitor, chipOf(address), dataAddress, sent);
    std::fill(received.begin(), received.end(), std::uint8_t{0});
    return readPhase(*bus, route.endpoint, monitor, chipOf(address), dataAddress, received);
}

KernReturn SimFramebufferI2C::sendRequest(I2CConnection connection, std::uint32_t options,
                                          platform::I2CRequest& request) {
    if (options != 0) return kBadArgument;
    Route route;
    {
        std::lock_guard lock(state_->mutex);
        const auto found = state_->connections.find(connection);
        if (found == state_->connections.end()) return kNotOpen;
        const auto [framebuffer, bus] = found->second;
        const Framebuffer& fb = state_->framebuffers.at(framebuffer);
        route.live = fb.live;
        route.reachesMonitor = contains(fb.setup.monitorBuses, bus);
        route.monitor = fb.monitor;
        route.mask = fb.mask(bus);
        route.replyWait = fb.setup.replyWait;
        route.endpoint = "display " + std::to_string(fb.display);
        if (!route.reachesMonitor) route.endpoint += " bus " + std::to_string(bus);
    }
    if ((request.sendBytes > 0 && !request.sendBuffer) ||
        (request.replyTransactionType != platform::kI2CNoTransactionType &&
         request.replyBytes > 0 && !request.replyBuffer)) {
        return kBadArgument;
    }

    request.result = platform::kSuccess;
    if (!route.live) {
        request.result = kNoDevice;
        return platform::kSuccess;
    }
    // The driver takes only the transaction types its bus says it supports (all of them
    // when it says nothing); it sends simply or not at all.
    const auto supported = [&](std::uint32_t type) {
        return type == platform::kI2CNoTransactionType || !route.mask ||
               (type < 64 && ((*route.mask >> type) & 1u) != 0);
    };
    if (request.sendTransactionType > platform::kI2CSimpleTransactionType ||
        request.replyTransactionType > platform::kI2CDDCciReplyTransactionType ||
        !supported(request.sendTransactionType) || !supported(request.replyTransactionType)) {
        request.result = kUnsupported;
        return platform::kSuccess;
    }

    const bool sends = request.sendTransactionType != platform::kI2CNoTransactionType;
    if (sends) {
        // The wire form: the host's source byte, then the frame with its own checksum.
        const std::span<const std::uint8_t> wire(request.sendBuffer, request.sendBytes);
        const std::uint32_t dataAddress = wire.empty() ? 0 : wire.front();
        const auto frame = wire.empty() ? wire : wire.subspan(1);
        request.result = state_->transfer(route, BusTransfer::Kind::write, request.sendAddress,
                                          dataAddress, frame, {});
        if (request.result != platform::kSuccess) return platform::kSuccess;
    }
    if (request.replyTransactionType != platform::kI2CNoTransactionType) {
        if (sends) {
            const auto asked = std::chrono::milliseconds(request.minReplyDelay);
            spendOnBus(*state_->bus, std::max(route.replyWait, asked), true);
        }
        const std::span<std::uint8_t> reply(request.replyBuffer,
                                            request.replyBuffer ? request.replyBytes : 0);
        request.result = state_->transfer(route, BusTransfer::Kind::read, request.replyAddress,
                                          request.replySubAddress, {}, reply);
    }
    return platform::kSuccess;
}

IOObject SimFramebufferI2C::serviceForDisplayNumber(platform::DisplayID id) {
    std::lock_guard lock(state_->mutex);
    for (const auto& [handle, fb] : state_->framebuffers) {
        if (fb.display == id && fb.live) return fb.setup.lookupFails ? 0 : handle;
    }
    return 0;
}

std::optional<platform::PropertyDictionary>
SimFramebufferI2C::displayInfoDictionary(IOObject framebuffer, std::uint32_t options) {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->framebuffers.find(framebuffer);
    if (found == state_->framebuffers.end()) return std::nullopt;
    const Framebuffer& fb = found->second;
    if (!fb.live || !fb.setup.hasInfoDictionary) return std::nullopt;

    platform::PropertyDictionary info;
    info["DisplayVendorID"] = PropertyValue{static_cast<std::int64_t>(fb.vendor)};
    info["DisplayProductID"] = PropertyValue{static_cast<std::int64_t>(fb.model)};
    info["DisplaySerialNumber"] = PropertyValue{static_cast<std::int64_t>(fb.serial)};
    if (!fb.productNames.empty()) {
        // Asked for the preferred name only, the system gives one locale: the first.
        platform::PropertyDictionary names;
        for (const auto& [locale, name] : fb.productNames) {
            names[locale] = PropertyValue{name};
            if ((options & platform::kIODisplayOnlyPreferredName) != 0) break;
        }
        info["DisplayProductName"] = PropertyValue{std::move(names)};
    }
    for (const auto& [key, value] : fb.setup.infoDictionary) {
        if (value) {
            info[key] = *value;
        } else {
            info.erase(key);
        }
    }
    return info;
}

} // namespace pw::sim
