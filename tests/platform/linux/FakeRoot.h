#pragma once

#include "common/TestSupport.h"
#include "platform/sim/Edid.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace pw::test {

// The EDID a monitor of this identity reports.
inline std::vector<std::uint8_t> edidOf(std::uint32_t vendor, std::uint32_t model,
                                        std::uint32_t serial, const std::string& name) {
    sim::DisplaySpec d;
    d.vendor = vendor, d.model = model, d.serial = serial, d.name = name;
    return sim::buildEdid(d);
}

inline std::string hex(const std::vector<std::uint8_t>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const auto b : bytes)
        text += std::string{kDigits[b >> 4], kDigits[b & 15]};
    return text;
}

// A sysfs tree and a /dev folder in a temporary directory, laid out as the kernel lays
// them out: PCI devices with their class, DRM cards and connectors below them, i2c
// adapters below their device (or below a connector, for DisplayPort AUX), and the
// /sys/class and /sys/bus links to all of them. Device files hold the fake driver's
// settings (see FakeI2CDevice.cpp).
class FakeRoot {
public:
    const std::filesystem::path& root() const { return dir_.path(); }

    // A PCI device "0000:00:NN.0" of the given class; returns its folder.
    std::filesystem::path pciDevice(const std::string& slot, const std::string& pciClass) {
        const auto folder = root() / "sys/devices/pci0000:00" / slot;
        write(folder / "vendor", "0x8086\n");
        write(folder / "class", pciClass + "\n");
        return folder;
    }

    // An i2c adapter below `parent`, linked from /sys/bus/i2c/devices; returns its folder.
    std::filesystem::path adapter(const std::filesystem::path& parent, int number,
                                  const std::string& name) {
        const auto folder = parent / ("i2c-" + std::to_string(number));
        write(folder / "name", name + "\n");
        link(folder, root() / "sys/bus/i2c/devices" / ("i2c-" + std::to_string(number)));
        return folder;
    }

    // Adapter i2c-N gone from sysfs and /dev, as when its dock is unplugged.
    void removeAdapter(const std::filesystem::path& parent, int number) {
        const auto name = "i2c-" + std::to_string(number);
        std::filesystem::remove_all(parent / name);
        std::filesystem::remove(root() / "sys/bus/i2c/devices" / name);
        std::filesystem::remove(root() / "dev" / name);
    }

    // A kernel driver bound to the client at 0x37 of adapter `folder` (i2c-N).
    void bindAt0x37(const std::filesystem::path& folder, int number, const std::string& driver) {
        const auto drivers = root() / "sys/bus/i2c/drivers" / driver;
        std::filesystem::create_directories(drivers);
        const auto client = folder / (std::to_string(number) + "-0037");
        std::filesystem::create_directories(client);
        std::filesystem::create_directory_symlink(drivers, client / "driver");
    }

    // Process `pid`, named `name`, with /dev/i2c-N open, as /proc shows it.
    void process(int pid, const std::string& name, int bus) {
        const auto folder = root() / "proc" / std::to_string(pid);
        write(folder / "comm", name + "\n");
        std::filesystem::create_directories(folder / "fd");
        std::filesystem::create_symlink(root() / "dev" / ("i2c-" + std::to_string(bus)),
                                        folder / "fd" / "3");
    }

    // A DRM card below a PCI device.
    std::filesystem::path card(const std::filesystem::path& device, int number) {
        const auto folder = device / "drm" / ("card" + std::to_string(number));
        std::filesystem::create_directories(folder);
        link(folder, root() / "sys/class/drm" / ("card" + std::to_string(number)));
        return folder;
    }

    // A connector of a card; `ddc` links an adapter of the device when >= 0.
    std::filesystem::path connector(const std::filesystem::path& card, const std::string& name,
                                    const std::string& status,
                                    const std::vector<std::uint8_t>& edid, int connectorId,
                                    int ddc = -1) {
        const auto folder = card / name;
        write(folder / "status", status + "\n");
        write(folder / "enabled", status == "connected" ? "enabled\n" : "disabled\n");
        write(folder / "edid", std::string(edid.begin(), edid.end()));
        if (connectorId > 0) write(folder / "connector_id", std::to_string(connectorId) + "\n");
        if (ddc >= 0) {
            const auto device = card.parent_path().parent_path();
            std::filesystem::create_directory_symlink(device / ("i2c-" + std::to_string(ddc)),
                                                      folder / "ddc");
        }
        link(folder, root() / "sys/class/drm" / name);
        return folder;
    }

    // /dev/i2c-N with the fake driver's settings.
    void device(int number, const std::string& settings) {
        write(root() / "dev" / ("i2c-" + std::to_string(number)), settings);
    }

    static void write(const std::filesystem::path& file, const std::string& text) {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }

private:
    static void link(const std::filesystem::path& target, const std::filesystem::path& at) {
        std::filesystem::create_directories(at.parent_path());
        std::filesystem::create_directory_symlink(target, at);
    }

    TempDir dir_;
};

} // namespace pw::test
