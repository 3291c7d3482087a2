#include "cli/RealMachine.h"

#include "ddc/DDCMessages.h"
#include "platform/drm/LinuxMonitors.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/posix/StderrSystemLog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace pw::cli {

namespace {

using Steady = std::chrono::steady_clock;

// Trace times count from the program's start, like the simulated machine's.
const Steady::time_point kOrigin = Steady::now();

// Every device call of the program, timed and printed: which bus, which way, the address
// and the bytes, and the error when there was one.
class TracingDevice final : public platform::I2CDevice {
public:
    TracingDevice(std::unique_ptr<platform::I2CDevice> inner, std::string path,
                  std::function<void(const std::string&)> trace)
        : inner_(std::move(inner)), path_(std::move(path)), trace_(std::move(trace)) {}

    int tryLock() override { return inner_->tryLock(); }
    void unlock() override { inner_->unlock(); }
    int transfer(std::span<const platform::I2CMessage> messages) override {
        const auto start = Steady::now();
        const int error = inner_->transfer(messages);
        for (const auto& m : messages)
            print(start, m.read ? "read" : "write", m.address, m.bytes, error);
        return error;
    }
    int setSlaveAddress(std::uint16_t address, bool force) override {
        const int error = inner_->setSlaveAddress(address, force);
        slave_ = address;
        return error;
    }
    int write(std::span<const std::uint8_t> bytes) override {
        const auto start = Steady::now();
        const int error = inner_->write(bytes);
        print(start, "write", slave_, bytes, error);
        return error;
    }
    int read(std::span<std::uint8_t> bytes) override {
        const auto start = Steady::now();
        const int error = inner_->read(bytes);
        print(start, "read", slave_, bytes, error);
        return error;
    }

private:
    void print(Steady::time_point start, const char* kind, std::uint16_t address,
               std::span<const std::uint8_t> bytes, int error) const {
        using Ms = std::chrono::duration<double, std::milli>;
        char head[160];
        std::snprintf(head, sizeof head, "[%9.3f ms] %-5s %s addr 0x%02X (%.3f ms):",
                      Ms(start - kOrigin).count(), kind, path_.c_str(), address,
                      Ms(Steady::now() - start).count());
        std::string line = std::string(head) + " " +
                           ddc::hexDump(bytes);
        if (error != 0) line += std::string(" [") + std::strerror(error) + "]";
        trace_(line);
    }

    std::unique_ptr<platform::I2CDevice> inner_;
    std::string path_;
    std::function<void(const std::string&)> trace_;
    std::uint16_t slave_ = 0;
};

class TracingDevices final : public platform::I2CDevices {
public:
    TracingDevices(std::shared_ptr<platform::I2CDevices> inner,
                   std::function<void(const std::string&)> trace)
        : inner_(std::move(inner)), trace_(std::move(trace)) {}

    std::vector<int> list() override { return inner_->list(); }
    std::string path(int bus) const override { return inner_->path(bus); }
    bool forceSlaveAddress() const override { return inner_->forceSlaveAddress(); }
    std::vector<std::string> holders(int bus) const override { return inner_->holders(bus); }
    std::optional<QuietClock::time_point> quietUntil(int bus) const override {
        return inner_->quietUntil(bus);
    }
    void setQuietUntil(int bus, QuietClock::time_point until) override {
        inner_->setQuietUntil(bus, until);
    }
    std::unique_ptr<platform::I2CDevice> open(int bus, int& error) override {
        auto device = inner_->open(bus, error);
        if (!device) {
            trace_("open  " + path(bus) + ": " + std::strerror(error));
            return nullptr;
        }
        return std::make_unique<TracingDevice>(std::move(device), path(bus), trace_);
    }

private:
    std::shared_ptr<platform::I2CDevices> inner_;
    std::function<void(const std::string&)> trace_;
};

// Without a journal the system log would go to stderr, where the command line already
// says what went wrong in its own words.
class SilentSystemLog final : public platform::SystemLogSink {
public:
    void write(std::string_view, std::string_view, platform::LogLevel, std::string_view) override {}
};

bool envFlag(const char* name) {
    const char* value = std::getenv(name);
    return value && *value && std::strcmp(value, "0") != 0;
}

} // namespace

platform::Platform makeRealMachine(const RealMachineOptions& options) {
    platform::LinuxMachineOptions machine;
    if (const char* root = std::getenv("PANELWRIGHT_ROOT"); root && *root) machine.root = root;
    machine.forceSlaveAddress =
        options.forceSlaveAddress || envFlag("PANELWRIGHT_FORCE_I2C_ADDRESS");
    machine.mainQueue = options.mainQueue;
    auto linuxMachine = platform::makeLinuxMachine(machine);
    auto& p = linuxMachine.platform;
    if (std::dynamic_pointer_cast<platform::StderrSystemLog>(p.systemLog))
        p.systemLog = std::make_shared<SilentSystemLog>();
    if (options.trace && linuxMachine.i2cDevices) {
        linuxMachine.i2cDevices =
            std::make_shared<TracingDevices>(linuxMachine.i2cDevices, options.trace);
        p.monitors = std::make_shared<LinuxMonitors>(LinuxMonitors::Parts{
            linuxMachine.drm, linuxMachine.i2cDevices, linuxMachine.hotPlug, p.clock});
    }
    return std::move(p);
}

} // namespace pw::cli
