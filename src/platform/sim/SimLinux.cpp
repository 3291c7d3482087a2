#include "platform/sim/SimLinux.h"

#include <algorithm>
#include <cerrno>

namespace pw::sim {

using platform::DisplayID;

// --- sysfs ----------------------------------------------------------------------------

bool SimDrmSysfs::present() {
    std::lock_guard lock(mutex_);
    return present_;
}

std::vector<platform::DrmConnector> SimDrmSysfs::connectors() {
    std::lock_guard lock(mutex_);
    std::vector<platform::DrmConnector> list;
    if (!present_) return list;
    for (const auto& entry : connectors_)
        list.push_back(entry.second);
    return list;
}

std::vector<platform::I2CAdapterInfo> SimDrmSysfs::adapters() {
    std::lock_guard lock(mutex_);
    std::vector<platform::I2CAdapterInfo> list;
    for (const auto& entry : adapters_)
        list.push_back(entry.second);
    return list;
}

void SimDrmSysfs::setPresent(bool present) {
    std::lock_guard lock(mutex_);
    present_ = present;
}

void SimDrmSysfs::setConnector(platform::DrmConnector connector) {
    std::lock_guard lock(mutex_);
    auto name = connector.name;
    connectors_[name] = std::move(connector);
}

void SimDrmSysfs::removeConnector(DisplayID id) {
    std::lock_guard lock(mutex_);
    std::erase_if(connectors_, [&](const auto& entry) { return entry.second.id == id; });
}

void SimDrmSysfs::setAdapter(platform::I2CAdapterInfo adapter) {
    std::lock_guard lock(mutex_);
    const int number = adapter.number;
    adapters_[number] = std::move(adapter);
}

void SimDrmSysfs::removeAdapter(int number) {
    std::lock_guard lock(mutex_);
    adapters_.erase(number);
}

// --- /dev/i2c-* -----------------------------------------------------------------------

struct SimI2CDevices::State {
    std::shared_ptr<BusLog> log;
    mutable std::mutex mutex;
    bool present = true;
    bool force = false;
    std::map<int, SimI2CBus> buses;
    std::map<int, const void*> lockOwner; // the open file that holds each bus's lock
    std::size_t opens = 0;
    std::vector<int> opened;

    std::optional<SimI2CBus> bus(int number) const {
        std::lock_guard lock(mutex);
        const auto found = buses.find(number);
        if (found == buses.end()) return std::nullopt;
        return found->second;
    }
};

namespace {

constexpr std::uint16_t kDDC = 0x37;
constexpr std::uint16_t kEEPROM = 0x50;
constexpr std::uint8_t kHost = 0x51;

class SimI2CDevice final : public platform::I2CDevice {
public:
    SimI2CDevice(std::shared_ptr<SimI2CDevices::State> state, int number)
        : state_(std::move(state)), number_(number),
          endpoint_("/dev/i2c-" + std::to_string(number)) {}
    ~SimI2CDevice() override { unlock(); }

    int tryLock() override {
        std::lock_guard lock(state_->mutex);
        const auto bus = state_->buses.find(number_);
        if (bus != state_->buses.end() && bus->second.lockHeld) return EWOULDBLOCK;
        auto& owner = state_->lockOwner[number_];
        if (owner && owner != this) return EWOULDBLOCK;
        owner = this;
        return 0;
    }
    void unlock() override {
        std::lock_guard lock(state_->mutex);
        const auto owner = state_->lockOwner.find(number_);
        if (owner != state_->lockOwner.end() && owner->second == this) state_->lockOwner.erase(owner);
    }

    int transfer(std::span<const platform::I2CMessage> messages) override {
        const auto bus = state_->bus(number_);
        if (!bus) return ENODEV;
        if (bus->refusesRdwr) return EINVAL;
        for (const auto& message : messages)
            if (const int error = carry(*bus, message.address, message.read, message.bytes))
                return error;
        return 0;
    }

    int setSlaveAddress(std::uint16_t address, bool force) override {
        const auto bus = state_->bus(number_);
        if (!bus) return ENODEV;
        if (bus->slaveError != 0 && !(force && bus->slaveError == EBUSY)) return bus->slaveError;
        slave_ = address;
        return 0;
    }
    int write(std::span<const std::uint8_t> bytes) override {
        std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        return plain(false, copy);
    }
    int read(std::span<std::uint8_t> bytes) override { return plain(true, bytes); }

private:
    int plain(bool reading, std::span<std::uint8_t> bytes) {
        const auto bus = state_->bus(number_);
        if (!bus) return ENODEV;
        if (!slave_) return EINVAL;
        return carry(*bus, *slave_, reading, bytes);
    }

    // One message on the wire. The EEPROM keeps its offset pointer; the monitor sees the
    // bytes after the host's source address.
    int carry(const SimI2CBus& bus, std::uint16_t address, bool reading,
              std::span<std::uint8_t> bytes) {
        auto& log = *state_->log;
        const auto kind = reading ? BusTransfer::Kind::read : BusTransfer::Kind::write;
        if (address == kEEPROM) {
            const auto ticket = log.begin(kind, endpoint_, address, 0);
            if (bus.edid.empty()) {
                log.finish(ticket, {}, ENXIO);
                return ENXIO;
            }
            if (!reading) {
                eepromOffset_ = bytes.empty() ? 0 : bytes[0];
            } else {
                for (auto& byte : bytes)
                    byte = bus.edid[eepromOffset_++ % bus.edid.size()];
            }
            log.finish(ticket, {bytes.begin(), bytes.end()}, 0);
            return 0;
        }
        if (address != kDDC || !bus.monitor) {
            const auto ticket = log.begin(kind, endpoint_, address, 0);
            log.finish(ticket, {}, ENXIO);
            return ENXIO;
        }
        const auto ticket = log.begin(kind, endpoint_, address, kHost);
        std::int32_t result = 0;
        if (reading) {
            result = bus.monitor->respond(address, kHost, bytes);
        } else if (bytes.empty() || bytes[0] != kHost) {
            result = 0; // acknowledged, but no monitor takes a frame without a source byte
        } else {
            result = bus.monitor->receive(address, kHost, bytes.subspan(1));
        }
        const std::span<const std::uint8_t> shown = reading ? bytes : bytes.subspan(bytes.empty() ? 0 : 1);
        log.finish(ticket, {shown.begin(), shown.end()}, result == 0 ? 0 : ENXIO);
        return result == 0 ? 0 : ENXIO;
    }

    std::shared_ptr<SimI2CDevices::State> state_;
    int number_;
    std::string endpoint_;
    std::optional<std::uint16_t> slave_;
    std::size_t eepromOffset_ = 0;
};

} // namespace

SimI2CDevices::SimI2CDevices(std::shared_ptr<BusLog> bus) : state_(std::make_shared<State>()) {
    state_->log = std::move(bus);
}

std::vector<int> SimI2CDevices::list() {
    std::lock_guard lock(state_->mutex);
    std::vector<int> numbers;
    if (!state_->present) return numbers;
    for (const auto& entry : state_->buses)
        numbers.push_back(entry.first);
    return numbers;
}

std::unique_ptr<platform::I2CDevice> SimI2CDevices::open(int number, int& error) {
    std::lock_guard lock(state_->mutex);
    const auto bus = state_->buses.find(number);
    if (!state_->present || bus == state_->buses.end()) {
        error = ENOENT;
        return nullptr;
    }
    if (bus->second.openError != 0) {
        error = bus->second.openError;
        return nullptr;
    }
    error = 0;
    ++state_->opens;
    if (std::find(state_->opened.begin(), state_->opened.end(), number) == state_->opened.end())
        state_->opened.push_back(number);
    return std::make_unique<SimI2CDevice>(state_, number);
}

bool SimI2CDevices::forceSlaveAddress() const {
    std::lock_guard lock(state_->mutex);
    return state_->force;
}

void SimI2CDevices::setPresent(bool present) {
    std::lock_guard lock(state_->mutex);
    state_->present = present;
}

void SimI2CDevices::attach(int number, SimI2CBus bus) {
    std::lock_guard lock(state_->mutex);
    state_->buses[number] = std::move(bus);
}

void SimI2CDevices::detach(int number) {
    std::lock_guard lock(state_->mutex);
    state_->buses.erase(number);
}

void SimI2CDevices::setLockHeld(int number, bool held) {
    std::lock_guard lock(state_->mutex);
    const auto bus = state_->buses.find(number);
    if (bus != state_->buses.end()) bus->second.lockHeld = held;
}

void SimI2CDevices::setForceSlaveAddress(bool force) {
    std::lock_guard lock(state_->mutex);
    state_->force = force;
}

std::size_t SimI2CDevices::opens() const {
    std::lock_guard lock(state_->mutex);
    return state_->opens;
}

std::vector<int> SimI2CDevices::opened() const {
    std::lock_guard lock(state_->mutex);
    return state_->opened;
}

// --- udev -----------------------------------------------------------------------------

SimHotPlugMonitor::SimHotPlugMonitor(std::shared_ptr<platform::MainQueue> mainQueue)
    : mainQueue_(std::move(mainQueue)) {}

bool SimHotPlugMonitor::start(std::function<void()> onChange) {
    std::lock_guard lock(mutex_);
    if (!mainQueue_ || onChange_) return false;
    onChange_ = std::move(onChange);
    return true;
}

void SimHotPlugMonitor::stop() {
    std::lock_guard lock(mutex_);
    onChange_ = nullptr;
}

void SimHotPlugMonitor::report() {
    std::function<void()> listener;
    {
        std::lock_guard lock(mutex_);
        listener = onChange_;
    }
    if (listener && mainQueue_) mainQueue_->post(std::move(listener));
}

bool SimHotPlugMonitor::watching() const {
    std::lock_guard lock(mutex_);
    return static_cast<bool>(onChange_);
}

} // namespace pw::sim
