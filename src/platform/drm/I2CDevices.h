#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace pw::platform {

// One message of a combined I2C transfer (struct i2c_msg): to or from a 7-bit address.
struct I2CMessage {
    std::uint16_t address = 0;
    bool read = false;
    std::span<std::uint8_t> bytes; // what to send, or where the bytes read go
};

// An open /dev/i2c-N. Every call is one system call; each returns 0 or the errno it
// failed with (a short read or write counts as EIO). Closed when destroyed.
class I2CDevice {
public:
    virtual ~I2CDevice() = default;

    // flock(LOCK_EX | LOCK_NB) on the device file: 0, or EWOULDBLOCK while another
    // program holds it.
    virtual int tryLock() = 0;
    virtual void unlock() = 0;
    // ioctl(I2C_RDWR): the messages as one transaction, repeated starts between them.
    virtual int transfer(std::span<const I2CMessage> messages) = 0;
    // ioctl(I2C_SLAVE), or I2C_SLAVE_FORCE with `force`: the address of plain read/write.
    virtual int setSlaveAddress(std::uint16_t address, bool force) = 0;
    virtual int write(std::span<const std::uint8_t> bytes) = 0;
    virtual int read(std::span<std::uint8_t> bytes) = 0;
};

// The machine's /dev/i2c-* device files.
class I2CDevices {
public:
    virtual ~I2CDevices() = default;

    // Numbers of the /dev/i2c-N files that exist (none while i2c-dev is not loaded).
    virtual std::vector<int> list() = 0;
    // The device's path as the user knows it: "/dev/i2c-5".
    virtual std::string path(int bus) const { return "/dev/i2c-" + std::to_string(bus); }
    // open(O_RDWR): the device, or null with `error` set to errno.
    virtual std::unique_ptr<I2CDevice> open(int bus, int& error) = 0;
    // The user allowed I2C_SLAVE_FORCE: talk to 0x37 even while a kernel driver claims it.
    virtual bool forceSlaveAddress() const { return false; }

    // The other programs that have the device open, as "name (pid N)", when the system
    // lets us see them; empty when it does not.
    virtual std::vector<std::string> holders(int /*bus*/) const { return {}; }

    // The monitor's quiet time after a message, shared with the other processes of this
    // program: the end of the quiet time another process (another device set) left on the
    // bus, and the end of ours. Read and written only while the device's lock is held.
    using QuietClock = std::chrono::steady_clock; // system-wide on Linux (CLOCK_MONOTONIC)
    virtual std::optional<QuietClock::time_point> quietUntil(int /*bus*/) const { return {}; }
    virtual void setQuietUntil(int /*bus*/, QuietClock::time_point /*until*/) {}
};

} // namespace pw::platform
