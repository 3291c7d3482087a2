#include "platform/linux/LinuxI2CDevices.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <random>
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
    : root_(std::move(root)), force_(forceSlaveAddress), token_(std::random_device{}()) {
    token_ = (token_ << 32) ^ static_cast<std::uint64_t>(::getpid());
}

std::vector<std::string> LinuxI2CDevices::holders(int bus) const {
    // What lsof does: every process's open files, as links under /proc/PID/fd. Processes
    // of other users are not readable and simply not seen.
    const std::string name = "/dev/i2c-" + std::to_string(bus);
    const auto underRoot = (root_ / "dev" / ("i2c-" + std::to_string(bus))).string();
    const bool realRoot = root_ == "/";
    std::vector<std::string> found;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(root_ / "proc", ec), end; !ec && it != end;
         it.increment(ec)) {
        const auto pidText = it->path().filename().string();
        long pid = 0;
        const auto [stop, error] =
            std::from_chars(pidText.data(), pidText.data() + pidText.size(), pid);
        if (error != std::errc() || stop != pidText.data() + pidText.size()) continue;
        if (realRoot && pid == ::getpid()) continue;
        std::error_code fdError;
        for (std::filesystem::directory_iterator fd(it->path() / "fd", fdError), last;
             !fdError && fd != last; fd.increment(fdError)) {
            std::error_code linkError;
            const auto target = std::filesystem::read_symlink(fd->path(), linkError).string();
            if (linkError || (target != name && target != underRoot)) continue;
            std::string comm;
            std::ifstream(it->path() / "comm") >> comm;
            found.push_back((comm.empty() ? std::string("a program") : comm) + " (pid " +
                            pidText + ")");
            break;
        }
    }
    return found;
}

std::filesystem::path LinuxI2CDevices::recordFile(int bus) const {
    std::filesystem::path folder;
    if (root_ != "/") {
        folder = root_ / "run";
    } else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR");
               runtime && *runtime == '/') {
        folder = runtime;
    } else {
        return {}; // no private runtime folder: no records
    }
    return folder / "panelwright" / ("i2c-" + std::to_string(bus) + ".quiet");
}

std::optional<I2CDevices::QuietClock::time_point> LinuxI2CDevices::quietUntil(int bus) const {
    const auto file = recordFile(bus);
    if (file.empty()) return std::nullopt;
    std::ifstream in(file);
    std::uint64_t token = 0;
    long long nanoseconds = 0;
    if (!(in >> token >> nanoseconds) || token == token_) return std::nullopt;
    return QuietClock::time_point(std::chrono::nanoseconds(nanoseconds));
}

void LinuxI2CDevices::setQuietUntil(int bus, QuietClock::time_point until) {
    const auto file = recordFile(bus);
    if (file.empty()) return;
    if (!recordFolderReady_.load(std::memory_order_relaxed)) {
        std::error_code ec;
        if (std::filesystem::create_directories(file.parent_path(), ec); !ec) {
            std::filesystem::permissions(file.parent_path(), std::filesystem::perms::owner_all,
                                         ec);
            recordFolderReady_.store(true, std::memory_order_relaxed);
        }
    }
    // Written under the device's lock, which every reader takes first: never read half.
    std::ofstream(file, std::ios::trunc)
        << token_ << " "
        << std::chrono::duration_cast<std::chrono::nanoseconds>(until.time_since_epoch()).count()
        << "\n";
}

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
