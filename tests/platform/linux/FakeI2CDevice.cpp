// A stand-in for the kernel's i2c-dev driver, for the test suite and the benchmark: it
// takes over ioctl, read, write and close for regular files named "i2c-N" in a folder
// named "dev" (a fake root's /dev), and answers them with a virtual monitor. Every other
// file descriptor goes straight to the C library. Linked into test programs, or loaded
// into another process with LD_PRELOAD.
//
// The device file's own text describes what is on the bus, one setting per line:
//   feature <code> <current> <max>   a VCP feature of the monitor (default: the usual set)
//   reply_delay_ms <n>               the monitor's time to prepare a reply (default 0)
//   edid <hex>                       the EEPROM at 0x50 (default: none answers)
//   no_monitor                       nothing answers at 0x37
//   refuse_rdwr                      I2C_RDWR fails with EINVAL, as NVIDIA's driver does
//   slave_busy                       I2C_SLAVE fails with EBUSY (a kernel driver holds 0x37)
// A device file that has been deleted answers ENODEV, as the kernel does once the adapter
// behind an open file is gone. Every message is recorded with its times (FakeI2C.h).

#include "FakeI2C.h"

#include "platform/posix/SystemClock.h"
#include "platform/sim/VirtualMonitor.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <dlfcn.h>
#include <fstream>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using pw::sim::MonitorSpec;
using pw::sim::VirtualMonitor;

struct Bus {
    std::string path;
    std::unique_ptr<VirtualMonitor> monitor;
    std::vector<std::uint8_t> edid;
    bool refuseRdwr = false;
    bool slaveBusy = false;
    std::size_t eepromOffset = 0;
};

struct Shim {
    pw::platform::SystemClock clock;
    std::mutex mutex;
    std::map<std::pair<dev_t, ino_t>, std::unique_ptr<Bus>> buses;
    std::map<int, std::pair<Bus*, std::uint16_t>> slaves; // fd -> bus, address for read/write
    std::vector<pw::fakei2c::Transfer> transfers;
};

Shim& shim() {
    static Shim* instance = new Shim; // never destroyed: calls may come during exit
    return *instance;
}

constexpr int kTrackedFds = 4096;
std::array<std::atomic<bool>, kTrackedFds> plainFds{}; // fds in I2C_SLAVE mode

template <typename Fn> Fn next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

std::vector<std::uint8_t> fromHex(const std::string& text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::unique_ptr<Bus> loadBus(const std::string& path, pw::platform::Clock& clock) {
    auto bus = std::make_unique<Bus>();
    MonitorSpec spec = MonitorSpec::withDefaultFeatures();
    spec.replyDelay = std::chrono::milliseconds(0);
    // The fake answers in real time while the program under test waits on virtual time.
    spec.quietTime = std::chrono::milliseconds(0);
    bool monitor = true;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string key;
        words >> key;
        if (key == "feature") {
            unsigned code = 0, current = 0, max = 0;
            words >> std::hex >> code >> std::dec >> current >> max;
            spec.features[static_cast<std::uint8_t>(code)] = {static_cast<std::uint16_t>(current),
                                                              static_cast<std::uint16_t>(max)};
        } else if (key == "reply_delay_ms") {
            long ms = 0;
            words >> ms;
            spec.replyDelay = std::chrono::milliseconds(ms);
        } else if (key == "edid") {
            std::string hex;
            words >> hex;
            bus->edid = fromHex(hex);
        } else if (key == "no_monitor") {
            monitor = false;
        } else if (key == "refuse_rdwr") {
            bus->refuseRdwr = true;
        } else if (key == "slave_busy") {
            bus->slaveBusy = true;
        }
    }
    if (monitor) bus->monitor = std::make_unique<VirtualMonitor>(spec, clock);
    bus->path = path;
    return bus;
}

// The bus behind `fd` when it is a fake device file, else null; `gone` when the file has
// been deleted since it was opened. Caller holds the mutex.
Bus* fakeBus(int fd, bool& gone) {
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return nullptr;
    gone = info.st_nlink == 0;
    auto& state = shim();
    char path[PATH_MAX] = {};
    const auto link = "/proc/self/fd/" + std::to_string(fd);
    const auto n = ::readlink(link.c_str(), path, sizeof path - 1);
    if (n <= 0) return nullptr;
    std::string file(path, static_cast<std::size_t>(n));
    if (constexpr std::string_view deleted = " (deleted)"; file.ends_with(deleted))
        file.resize(file.size() - deleted.size());
    // An inode number is reused once its file is gone, by the next test's fake root too:
    // a bus is the same only when its path is the same as well.
    const auto key = std::make_pair(info.st_dev, info.st_ino);
    if (const auto found = state.buses.find(key);
        found != state.buses.end() && found->second->path == file)
        return found->second.get();
    const auto slash = file.rfind('/');
    if (slash == std::string::npos || file.compare(slash + 1, 4, "i2c-") != 0) return nullptr;
    if (slash < 4 || file.compare(slash - 4, 4, "/dev") != 0) return nullptr;
    auto bus = loadBus(file, state.clock);
    auto* raw = bus.get();
    state.buses.insert_or_assign(key, std::move(bus));
    return raw;
}

int carryMessage(Bus& bus, std::uint16_t address, bool reading, std::uint8_t* data,
                 std::size_t length);

// One message on the fake wire, recorded: 0 or an errno.
int carry(Bus& bus, std::uint16_t address, bool reading, std::uint8_t* data, std::size_t length) {
    pw::fakei2c::Transfer t;
    t.path = bus.path;
    t.address = address;
    t.read = reading;
    t.start = std::chrono::steady_clock::now();
    t.error = carryMessage(bus, address, reading, data, length);
    t.end = std::chrono::steady_clock::now();
    shim().transfers.push_back(t);
    return t.error;
}

int carryMessage(Bus& bus, std::uint16_t address, bool reading, std::uint8_t* data,
                 std::size_t length) {
    if (address == 0x50) {
        if (bus.edid.empty()) return ENXIO;
        if (!reading) {
            bus.eepromOffset = length > 0 ? data[0] : 0;
            return 0;
        }
        for (std::size_t i = 0; i < length; ++i)
            data[i] = bus.edid[bus.eepromOffset++ % bus.edid.size()];
        return 0;
    }
    if (address != 0x37 || !bus.monitor) return ENXIO;
    std::int32_t result = 0;
    if (reading) {
        result = bus.monitor->respond(address, 0x51, {data, length});
    } else if (length > 0 && data[0] == 0x51) {
        result = bus.monitor->receive(address, 0x51, {data + 1, length - 1});
    }
    return result == 0 ? 0 : ENXIO;
}

int fail(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" {

int ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);

    if (request == I2C_RDWR || request == I2C_SLAVE || request == I2C_SLAVE_FORCE) {
        auto& state = shim();
        std::lock_guard lock(state.mutex);
        bool gone = false;
        if (Bus* bus = fakeBus(fd, gone)) {
            if (gone) return fail(ENODEV);
            if (request == I2C_RDWR) {
                if (bus->refuseRdwr) return fail(EINVAL);
                const auto* data = static_cast<i2c_rdwr_ioctl_data*>(argument);
                for (__u32 i = 0; i < data->nmsgs; ++i) {
                    const auto& m = data->msgs[i];
                    if (const int error = carry(*bus, m.addr, (m.flags & I2C_M_RD) != 0, m.buf, m.len))
                        return fail(error);
                }
                return static_cast<int>(data->nmsgs);
            }
            if (request == I2C_SLAVE && bus->slaveBusy) return fail(EBUSY);
            state.slaves[fd] = {bus, static_cast<std::uint16_t>(reinterpret_cast<std::uintptr_t>(argument))};
            if (fd >= 0 && fd < kTrackedFds) plainFds[static_cast<std::size_t>(fd)] = true;
            return 0;
        }
    }
    static const auto real = next<int (*)(int, unsigned long, void*)>("ioctl");
    return real(fd, request, argument);
}

ssize_t write(int fd, const void* data, size_t length) {
    if (fd >= 0 && fd < kTrackedFds && plainFds[static_cast<std::size_t>(fd)]) {
        auto& state = shim();
        std::lock_guard lock(state.mutex);
        const auto found = state.slaves.find(fd);
        bool gone = false;
        if (found != state.slaves.end() && fakeBus(fd, gone) && gone) return fail(ENODEV);
        if (found != state.slaves.end()) {
            std::vector<std::uint8_t> copy(static_cast<const std::uint8_t*>(data),
                                           static_cast<const std::uint8_t*>(data) + length);
            const int error = carry(*found->second.first, found->second.second, false, copy.data(), length);
            return error ? fail(error) : static_cast<ssize_t>(length);
        }
    }
    static const auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
    return real(fd, data, length);
}

ssize_t read(int fd, void* data, size_t length) {
    if (fd >= 0 && fd < kTrackedFds && plainFds[static_cast<std::size_t>(fd)]) {
        auto& state = shim();
        std::lock_guard lock(state.mutex);
        const auto found = state.slaves.find(fd);
        bool gone = false;
        if (found != state.slaves.end() && fakeBus(fd, gone) && gone) return fail(ENODEV);
        if (found != state.slaves.end()) {
            const int error = carry(*found->second.first, found->second.second, true,
                                    static_cast<std::uint8_t*>(data), length);
            return error ? fail(error) : static_cast<ssize_t>(length);
        }
    }
    static const auto real = next<ssize_t (*)(int, void*, size_t)>("read");
    return real(fd, data, length);
}

int close(int fd) {
    if (fd >= 0 && fd < kTrackedFds && plainFds[static_cast<std::size_t>(fd)].exchange(false)) {
        auto& state = shim();
        std::lock_guard lock(state.mutex);
        state.slaves.erase(fd);
    }
    static const auto real = next<int (*)(int)>("close");
    return real(fd);
}

} // extern "C"

std::vector<pw::fakei2c::Transfer> pw::fakei2c::transfers() {
    auto& state = shim();
    std::lock_guard lock(state.mutex);
    return state.transfers;
}

extern "C" {

// Lets a test check that the shim is in the process before relying on it.
int pw_fake_i2c_loaded() {
    return 1;
}

} // extern "C"
