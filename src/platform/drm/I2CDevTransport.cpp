#include "platform/drm/I2CDevTransport.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace pw {

namespace {

using platform::I2CDevice;
using platform::I2CDevices;
using platform::I2CMessage;

std::unique_ptr<I2CDevice> openDevice(I2CDevices& devices, platform::Clock* clock, int bus,
                                      int& error) {
    for (int attempt = 1;; ++attempt) {
        error = 0;
        auto device = devices.open(bus, error);
        if (device) return device;
        if ((error != EACCES && error != EPERM) || attempt >= I2CDevTransport::kOpenAttempts ||
            !clock)
            return nullptr;
        clock->sleepFor(I2CDevTransport::kOpenStep);
    }
}

// 0 with the lock held, EWOULDBLOCK when another program kept it for the whole wait
// (with `once`, at the single try). The lock is advisory: a file system that cannot lock
// at all does not stop the transfer.
int lockDevice(I2CDevice& device, platform::Clock* clock, bool once = false) {
    for (int step = 0;; ++step) {
        const int error = device.tryLock();
        if (error != EWOULDBLOCK && error != EAGAIN) return 0;
        if (once || step >= I2CDevTransport::kLockSteps || !clock) return error;
        clock->sleepFor(I2CDevTransport::kLockStep);
    }
}

std::string heldLine(const std::string& path, const std::vector<std::string>& holders) {
    std::string who = "another DDC/CI program";
    for (std::size_t i = 0; i < holders.size(); ++i)
        who += (i == 0 ? ", " : " or ") + holders[i];
    return path + " is in use by " + who + ", which held its lock for over " +
           std::to_string(I2CDevTransport::kLockSteps * I2CDevTransport::kLockStep.count() / 1000) +
           " ms; close that program and try again" +
           (holders.empty() ? " (\"fuser -v " + path + "\" names it)" : std::string());
}

std::string claimedLine(const std::string& path, const std::string& driver) {
    const std::string unload =
        driver == "ddcci" ? "\"sudo rmmod ddcci_backlight ddcci\"" : "\"sudo rmmod " + driver + "\"";
    return path + ": address 0x37 is claimed by a kernel driver (" + driver + "); unload it (" +
           unload + ") or allow sharing the address with --force-i2c-address "
                    "(PANELWRIGHT_FORCE_I2C_ADDRESS=1)";
}

// The errors drivers give when nothing acknowledged the address or the transfer timed out.
bool noAnswer(int error) {
#ifdef EREMOTEIO
    if (error == EREMOTEIO) return true; // Linux only; the core also builds elsewhere
#endif
    return error == ENXIO || error == EIO || error == ETIMEDOUT || error == EAGAIN;
}

void report(const std::string& line) {
    DiagnosticLog::log("I2C", line);
    SystemLog::ddc().error(line);
}

} // namespace

I2CDevTransport::I2CDevTransport(int bus, std::shared_ptr<platform::I2CDevices> devices,
                                 std::shared_ptr<platform::Clock> clock, Options options)
    : bus_(bus), devices_(std::move(devices)), clock_(std::move(clock)), options_(options) {}

std::string I2CDevTransport::path() const {
    return devices_ ? devices_->path(bus_) : "/dev/i2c-" + std::to_string(bus_);
}

std::string I2CDevTransport::problem() const {
    std::lock_guard lock(mutex_);
    return problem_;
}

bool I2CDevTransport::unreachable() const {
    std::lock_guard lock(mutex_);
    return unreachable_;
}

bool I2CDevTransport::plainReadWrite() const {
    std::lock_guard lock(mutex_);
    return plain_;
}

bool I2CDevTransport::busHeld() const {
    std::lock_guard lock(mutex_);
    return held_;
}

std::string I2CDevTransport::describe(const Failure& failure, const std::string& path) {
    if (!failure.text.empty()) return failure.text;
    const int e = failure.error;
    switch (failure.step) {
    case Failure::Step::open:
        if (e == ENOENT || e == ENODEV || e == ENXIO)
            return path + " does not exist: the i2c-dev kernel module is not loaded; run "
                          "\"sudo modprobe i2c-dev\" (the package loads it at every boot)";
        if (e == EACCES || e == EPERM)
            return path + ": permission denied: the udev rule 60-panelwright-i2c.rules is not "
                          "installed, or you have not logged in again since it was";
        break;
    case Failure::Step::lock:
        return heldLine(path, {});
    case Failure::Step::address:
        if (e == EBUSY) return claimedLine(path, "ddcci");
        break;
    case Failure::Step::transfer:
        if (noAnswer(e))
            return path + ": no answer at address 0x37; check that DDC/CI is switched on in "
                          "the monitor's own menu";
        if (e == ENODEV)
            return path + ": the adapter went away (monitor unplugged or the driver reloaded)";
        break;
    }
    static constexpr const char* kSteps[] = {"opening", "locking", "addressing 0x37 on",
                                             "a transfer on"};
    return std::string("error ") + std::strerror(e) + " while " +
           kSteps[static_cast<int>(failure.step)] + " " + path;
}

std::optional<I2CDevTransport::Failure> I2CDevTransport::reopen() {
    // The number may have come back as another adapter (a dock unplugged, another one
    // plugged in): never send a monitor's frames to whatever bus now has it.
    if (everOpened_ && options_.stillTheDisplays) {
        if (auto why = options_.stillTheDisplays(bus_); !why.empty()) {
            notOurs_ = std::move(why);
            return Failure{Failure::Step::open, ENODEV, notOurs_};
        }
    }
    int error = 0;
    device_ = openDevice(*devices_, clock_.get(), bus_, error);
    addressSet_ = false;
    if (!device_) return Failure{Failure::Step::open, error};
    everOpened_ = true;
    return std::nullopt;
}

bool I2CDevTransport::run(const std::function<std::optional<Failure>(I2CDevice&)>& body) {
    std::lock_guard lock(mutex_);
    std::optional<Failure> failure;
    if (!notOurs_.empty())
        failure = Failure{Failure::Step::open, ENODEV, notOurs_};
    else if (!options_.claimedBy.empty() && !options_.forceAddress)
        failure = Failure{Failure::Step::address, EBUSY, claimedLine(path(), options_.claimedBy)};
    else if (!device_ && devices_)
        failure = reopen();
    if (!device_ && !failure) failure = Failure{Failure::Step::open, ENODEV};
    if (!failure) {
        if (const int error = lockDevice(*device_, clock_.get(), lockTimedOut_); error != 0) {
            failure = Failure{Failure::Step::lock, error, heldLine(path(), devices_->holders(bus_))};
            lockTimedOut_ = true;
        } else {
            lockTimedOut_ = false;
            // Another process's last message may be moments old: the monitor gets its
            // quiet time whoever spoke last. Our own quiet time is the DDC manager's.
            using Quiet = platform::I2CDevices::QuietClock;
            if (const auto until = devices_->quietUntil(bus_); until && clock_) {
                const auto left = std::min<Quiet::duration>(*until - Quiet::now(), kQuietTime);
                if (left > Quiet::duration::zero())
                    clock_->sleepFor(std::chrono::ceil<std::chrono::microseconds>(left));
            }
            failure = body(*device_);
            devices_->setQuietUntil(bus_, Quiet::now() + kQuietTime);
            device_->unlock();
        }
    }
    // An adapter that is gone stays gone for this file; open it again next time.
    if (failure && failure->error == ENODEV) device_.reset();

    const auto line = failure ? describe(*failure, path()) : std::string();
    if (!line.empty() && line != problem_) report(line);
    problem_ = line;
    unreachable_ = failure && failure->step != Failure::Step::transfer;
    held_ = failure && failure->step == Failure::Step::lock;
    return !failure;
}

std::optional<I2CDevTransport::Failure> I2CDevTransport::send(I2CDevice& device,
                                                              std::span<const std::uint8_t> bytes) {
    if (!plain_) {
        std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        const I2CMessage message{kDDCAddress, false, copy};
        const int error = device.transfer({&message, 1});
        if (error == 0) return std::nullopt;
        if (error != EINVAL) return Failure{Failure::Step::transfer, error};
        plain_ = true;
        DiagnosticLog::log("I2C", path() + " refuses I2C_RDWR; using plain read and write");
    }
    if (!addressSet_) {
        if (const int error = device.setSlaveAddress(kDDCAddress, options_.forceAddress))
            return Failure{Failure::Step::address, error};
        addressSet_ = true;
    }
    if (const int error = device.write(bytes)) return Failure{Failure::Step::transfer, error};
    return std::nullopt;
}

std::optional<I2CDevTransport::Failure> I2CDevTransport::receive(I2CDevice& device,
                                                                 std::span<std::uint8_t> bytes) {
    // The mode was settled by the request that came just before.
    const int error = plain_ ? device.read(bytes) : [&] {
        const I2CMessage message{kDDCAddress, true, bytes};
        return device.transfer({&message, 1});
    }();
    if (error != 0) return Failure{Failure::Step::transfer, error};
    return std::nullopt;
}

bool I2CDevTransport::write(std::span<const std::uint8_t> frame) {
    std::vector<std::uint8_t> bytes{kHostAddress};
    bytes.insert(bytes.end(), frame.begin(), frame.end());
    return run([&](I2CDevice& device) { return send(device, bytes); });
}

std::optional<std::vector<std::uint8_t>>
I2CDevTransport::read(std::span<const std::uint8_t> request, std::uint32_t replyLength) {
    std::vector<std::uint8_t> bytes{kHostAddress};
    bytes.insert(bytes.end(), request.begin(), request.end());
    std::vector<std::uint8_t> reply(replyLength, 0);
    const bool ok = run([&](I2CDevice& device) -> std::optional<Failure> {
        if (auto failure = send(device, bytes)) return failure;
        if (clock_) clock_->sleepFor(kReplyWait);
        return receive(device, reply);
    });
    if (!ok) return std::nullopt;
    return reply;
}

std::optional<std::vector<std::uint8_t>> I2CDevTransport::readEdid(I2CDevices& devices,
                                                                   platform::Clock* clock, int bus,
                                                                   std::string* problem) {
    const auto path = devices.path(bus);
    auto fail = [&](Failure failure) -> std::optional<std::vector<std::uint8_t>> {
        if (problem) *problem = describe(failure, path);
        return std::nullopt;
    };
    int error = 0;
    auto device = openDevice(devices, clock, bus, error);
    if (!device) return fail({Failure::Step::open, error});
    if (const int locked = lockDevice(*device, clock); locked != 0)
        return fail({Failure::Step::lock, locked, heldLine(path, devices.holders(bus))});

    std::uint8_t offset[1] = {0};
    std::vector<std::uint8_t> edid(kEdidLength, 0);
    const I2CMessage messages[] = {{kEdidAddress, false, offset}, {kEdidAddress, true, edid}};
    error = device->transfer(messages);
    if (error == EINVAL) {
        // Same driver refusal as for DDC/CI: address the EEPROM and use plain calls.
        error = device->setSlaveAddress(kEdidAddress, false);
        if (error == 0) error = device->write(offset);
        if (error == 0) error = device->read(edid);
    }
    device->unlock();
    if (error != 0) return fail({Failure::Step::transfer, error});
    if (problem) problem->clear();
    return edid;
}

} // namespace pw
