#include "platform/linux/LinuxI2CDevices.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

namespace pw::platform {

namespace {

// A system call that an arriving signal interrupted is simply made again.
template <typename Call> auto again(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

class LinuxI2CDevice final : public I2CDevice {
public:
    explicit LinuxI2CDevice(int fd) : fd_(fd) {}
    ~LinuxI2CDevice() override { ::close(fd_); }
    LinuxI2CDevice(const LinuxI2CDevice&) = delete;
    LinuxI2CDevice& operator=(const LinuxI2CDevice&) = delete;

    int tryLock() override {
        return again([&] { return ::flock(fd_, LOCK_EX | LOCK_NB); }) == 0 ? 0 : errno;
    }
    void unlock() override { ::flock(fd_, LOCK_UN); }

    int transfer(std::span<const I2CMessage> messages) override {
        std::vector<i2c_msg> raw;
        raw.reserve(messages.size());
        for (const auto& m : messages) {
            raw.push_back(i2c_msg{m.address, static_cast<__u16>(m.read ? I2C_M_RD : 0),
                                  static_cast<__u16>(m.bytes.size()), m.bytes.data()});
        }
        i2c_rdwr_ioctl_data data{raw.data(), static_cast<__u32>(raw.size())};
        return again([&] { return ::ioctl(fd_, I2C_RDWR, &data); }) < 0 ? errno : 0;
    }

    int setSlaveAddress(std::uint16_t address, bool force) override {
        const unsigned long request = force ? I2C_SLAVE_FORCE : I2C_SLAVE;
        return again([&] { return ::ioctl(fd_, request, static_cast<unsigned long>(address)); }) < 0
                   ? errno
                   : 0;
    }

    int write(std::span<const std::uint8_t> bytes) override {
        const auto n = again([&] { return ::write(fd_, bytes.data(), bytes.size()); });
        if (n < 0) return errno;
        return static_cast<std::size_t>(n) == bytes.size() ? 0 : EIO;
    }

    int read(std::span<std::uint8_t> bytes) override {
        const auto n = again([&] { return ::read(fd_, bytes.data(), bytes.size()); });
        if (n < 0) return errno;
        return static_cast<std::size_t>(n) == bytes.size() ? 0 : EIO;
    }

private:
    int fd_;
};

} // namespace

LinuxI2CDevices::LinuxI2CDevices(std::filesystem::path root, bool forceSlaveAddress)
    : root_(std::move(root)), force_(forceSlaveAddress) {}

std::vector<int> LinuxI2CDevices::list() {
    std::vector<int> buses;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(root_ / "dev", ec), end; !ec && it != end;
         it.increment(ec)) {
        const auto name = it->path().filename().string();
        if (!name.starts_with("i2c-")) continue;
        int number = 0;
        const auto* first = name.data() + 4;
        const auto* last = name.data() + name.size();
        const auto [stop, error] = std::from_chars(first, last, number);
        if (error == std::errc() && stop == last && first != last) buses.push_back(number);
    }
    std::sort(buses.begin(), buses.end());
    return buses;
}

std::unique_ptr<I2CDevice> LinuxI2CDevices::open(int bus, int& error) {
    const auto file = root_ / "dev" / ("i2c-" + std::to_string(bus));
    const int fd = again([&] { return ::open(file.c_str(), O_RDWR | O_CLOEXEC); });
    if (fd < 0) {
        error = errno;
        return nullptr;
    }
    error = 0;
    return std::make_unique<LinuxI2CDevice>(fd);
}

} // namespace pw::platform
