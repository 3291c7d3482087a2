#pragma once

#include "platform/drm/DrmSysfs.h"
#include "platform/drm/HotPlugMonitor.h"
#include "platform/drm/I2CDevices.h"
#include "platform/MainQueue.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/VirtualMonitor.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace pw::sim {

// The kernel side of a simulated Linux machine: DRM connectors and i2c adapters as
// sysfs would list them. Changed by the machine as monitors come and go.
class SimDrmSysfs final : public platform::DrmSysfs {
public:
    bool present() override;
    std::vector<platform::DrmConnector> connectors() override;
    std::vector<platform::I2CAdapterInfo> adapters() override;

    void setPresent(bool present);
    void setConnector(platform::DrmConnector connector); // added or replaced, by name
    void removeConnector(platform::DisplayID id);
    void setAdapter(platform::I2CAdapterInfo adapter);
    void removeAdapter(int number);

private:
    mutable std::mutex mutex_;
    bool present_ = true;
    std::map<std::string, platform::DrmConnector> connectors_;
    std::map<int, platform::I2CAdapterInfo> adapters_;
};

// What sits on one simulated i2c adapter and how its device file behaves.
struct SimI2CBus {
    std::shared_ptr<VirtualMonitor> monitor;  // answers at 0x37; null = nothing there
    std::vector<std::uint8_t> edid;           // answers at 0x50; empty = no EEPROM
    int openError = 0;
    int slaveError = 0;       // for I2C_SLAVE; I2C_SLAVE_FORCE passes an EBUSY
    bool lockHeld = false;    // another program holds the file's lock
    bool refusesRdwr = false; // I2C_RDWR gives EINVAL
};

// The /dev/i2c-* files of a simulated Linux machine. Transfers reach the virtual monitor
// and are recorded in the bus log under the device's path.
class SimI2CDevices final : public platform::I2CDevices {
public:
    explicit SimI2CDevices(std::shared_ptr<BusLog> bus);

    std::vector<int> list() override;
    std::unique_ptr<platform::I2CDevice> open(int bus, int& error) override;
    bool forceSlaveAddress() const override;

    void setPresent(bool present); // false: the i2c-dev module is not loaded
    void attach(int number, SimI2CBus bus);
    void detach(int number);
    void setLockHeld(int number, bool held);
    void setForceSlaveAddress(bool force);
    std::size_t opens() const;                 // every open() that succeeded
    std::vector<int> opened() const;           // buses opened at least once, in order

    struct State;

private:
    std::shared_ptr<State> state_;
};

// udev's hot-plug events on a simulated Linux machine: `report` posts the listener to
// the main queue, as the real monitor's thread does.
class SimHotPlugMonitor final : public platform::HotPlugMonitor {
public:
    explicit SimHotPlugMonitor(std::shared_ptr<platform::MainQueue> mainQueue);

    bool start(std::function<void()> onChange) override;
    void stop() override;
    void report();
    bool watching() const;

private:
    std::shared_ptr<platform::MainQueue> mainQueue_;
    mutable std::mutex mutex_;
    std::function<void()> onChange_;
};

} // namespace pw::sim
