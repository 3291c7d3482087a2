#pragma once

#include "platform/Clock.h"
#include "platform/drm/I2CDevices.h"
#include "platform/I2CTransport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pw {

// The DDC/CI channel of one monitor on Linux: /dev/i2c-N, address 0x37. A write is one
// I2C_RDWR message of 0x51 and the frame; a read is that request, the monitor's 50 ms,
// then one message reading the reply. Where the driver refuses I2C_RDWR (EINVAL) the
// transport switches, for good, to I2C_SLAVE and plain write()/read(). Each call holds
// an advisory flock on the device file for its whole length, so programs that take the
// same lock never interleave on the bus. One attempt per call: retries, pacing and the
// cache are the DDC manager's; the monitor's quiet time after a message is kept across
// processes through the device set's record (see docs/linux.md).
class I2CDevTransport final : public I2CTransport {
public:
    static constexpr std::uint16_t kDDCAddress = 0x37;
    static constexpr std::uint16_t kEdidAddress = 0x50;
    static constexpr std::uint8_t kHostAddress = 0x51;
    static constexpr std::size_t kEdidLength = 128;
    static constexpr std::chrono::microseconds kReplyWait{50000};
    // Another program's lock is waited for this long, in steps of kLockStep; once a wait
    // ran out, later calls try the lock once, until one gets it.
    static constexpr std::chrono::microseconds kLockStep{100000};
    static constexpr int kLockSteps = 10;
    // How long a monitor is left alone after a message before the next one.
    static constexpr std::chrono::milliseconds kQuietTime{50};
    // Opens refused for permission are tried again this often, kOpenStep apart: right
    // after resume the session's device permissions come back a moment late.
    static constexpr int kOpenAttempts = 3;
    static constexpr std::chrono::microseconds kOpenStep{100000};

    struct Options {
        // Use I2C_SLAVE_FORCE in the plain read/write mode: talk to 0x37 even while a
        // kernel driver claims it. Off unless the user asks.
        bool forceAddress = false;
        // The kernel driver sysfs shows bound at 0x37 ("ddcci"), if any. Without
        // `forceAddress` nothing is sent: I2C_RDWR would not stop us sharing the monitor.
        std::string claimedBy;
        // Asked before the device is opened again after its adapter went away (ENODEV):
        // empty when the adapter now behind /dev/i2c-N is still this display's, else the
        // line saying why not. Nothing more is sent then; the next enumeration finds the
        // display's new channel.
        std::function<std::string(int bus)> stillTheDisplays;
    };

    I2CDevTransport(int bus, std::shared_ptr<platform::I2CDevices> devices,
                    std::shared_ptr<platform::Clock> clock, Options options);
    I2CDevTransport(int bus, std::shared_ptr<platform::I2CDevices> devices,
                    std::shared_ptr<platform::Clock> clock)
        : I2CDevTransport(bus, std::move(devices), std::move(clock), Options{}) {}

    std::int64_t endpointKey() const override { return bus_; }
    bool write(std::span<const std::uint8_t> frame) override;
    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t> request,
                                                  std::uint32_t replyLength) override;
    bool busHeld() const override;

    int bus() const { return bus_; }
    std::string path() const;
    // Why the last call failed, as one line naming the device and the fix; empty after
    // a call that worked.
    std::string problem() const;
    // True when the last call failed before anything reached the bus (the device could
    // not be opened, locked or addressed): the monitor cannot be reached at all.
    bool unreachable() const;
    // True once the driver refused I2C_RDWR and plain read/write took over.
    bool plainReadWrite() const;

    // The monitor's EDID base block from address 0x50 (offset 0 written, 128 bytes read),
    // under the same lock; nothing, with `problem` set, when that fails.
    static std::optional<std::vector<std::uint8_t>>
    readEdid(platform::I2CDevices& devices, platform::Clock* clock, int bus,
             std::string* problem = nullptr);

private:
    struct Failure {
        enum class Step { open, lock, address, transfer };
        Failure(Step s, int e, std::string line = {}) : step(s), error(e), text(std::move(line)) {}
        Step step;
        int error = 0;
        std::string text; // the whole line, when the errno alone does not tell it
    };

    bool run(const std::function<std::optional<Failure>(platform::I2CDevice&)>& body);
    std::optional<Failure> send(platform::I2CDevice& device, std::span<const std::uint8_t> bytes);
    std::optional<Failure> receive(platform::I2CDevice& device, std::span<std::uint8_t> bytes);
    static std::string describe(const Failure& failure, const std::string& path);
    std::optional<Failure> reopen();

    const int bus_;
    const std::shared_ptr<platform::I2CDevices> devices_;
    const std::shared_ptr<platform::Clock> clock_;
    const Options options_;
    mutable std::mutex mutex_;
    std::unique_ptr<platform::I2CDevice> device_; // kept open between calls
    bool plain_ = false;
    bool addressSet_ = false;
    bool everOpened_ = false;
    std::string notOurs_;      // set for good once the number leads to another adapter
    bool lockTimedOut_ = false; // the last lock wait ran out: try once until it is had
    std::string problem_;
    bool unreachable_ = false;
    bool held_ = false;
};

} // namespace pw
