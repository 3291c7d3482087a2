#include "display/LinuxDiscovery.h"

#include "app/DiagnosticLog.h"
#include "app/SystemLog.h"
#include "display/RegistryText.h"
#include "platform/EdidFacts.h"
#include "transport/I2CDevTransport.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace pw {

namespace {

// Adapters that are never opened, whatever device they belong to. Each is a bus where a
// probe at 0x50 has hung the machine, reset the graphics card or confused the hardware
// behind it. Matched as a prefix of the adapter's name.
constexpr std::array<std::string_view, 8> kNeverProbe = {
    "SMBus",                 // the chipset's system management bus (memory SPD, sensors)
    "Synopsys DesignWare",   // SoC I2C controllers: touchpads, sensors
    "soc:i2cdsi",            // DSI panel bridges on ARM boards
    "AMDGPU SMU",            // the GPU's power controller: a probe can hang the card
    "AMDGPU DM i2c OEM bus", // board-specific bus on AMD cards, nothing of the monitor's
    "smu",                   // Apple/PowerPC system management
    "mac-io",
    "u4",
};

constexpr std::uint32_t kDisplayClass = 0x03;
constexpr std::uint32_t kDockingClass = 0x0a;

void logLinux(std::string_view message) {
    DiagnosticLog::log("Linux", message);
}

std::string hexOf(const std::vector<std::uint8_t>& bytes) {
    return lowercaseHex(bytes);
}

bool sameBaseBlock(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    constexpr std::size_t block = I2CDevTransport::kEdidLength;
    return a.size() >= block && b.size() >= block && std::equal(a.begin(), a.begin() + block, b.begin());
}

std::string adapterText(int number, const platform::I2CAdapterInfo* info) {
    return "i2c-" + std::to_string(number) + (info ? " (" + info->name + ")" : std::string());
}

class LinuxEnumeration final : public TransportDiscovery::Enumeration {
public:
    explicit LinuxEnumeration(const platform::Platform& platform) : platform_(platform) {
        if (platform.drm) {
            connectors_ = platform.drm->connectors();
            for (auto& adapter : platform.drm->adapters())
                adapters_.emplace(adapter.number, std::move(adapter));
        }
        if (platform.i2cDevices)
            for (const int bus : platform.i2cDevices->list())
                devices_.insert(bus);
        for (const auto& connector : connectors_) {
            if (connector.ddcAdapter) linked_.insert(*connector.ddcAdapter);
            if (connector.auxAdapter) linked_.insert(*connector.auxAdapter);
        }
        logLinux("Found " + std::to_string(connectors_.size()) + " DRM connector(s), " +
                 std::to_string(adapters_.size()) + " i2c adapter(s), " +
                 std::to_string(devices_.size()) + " /dev/i2c-* device(s)");
    }

    std::optional<DisplayTransportMatch> transportFor(platform::DisplayID id) override {
        const auto connector = std::find_if(connectors_.begin(), connectors_.end(),
                                            [&](const auto& c) { return c.id == id; });
        if (connector == connectors_.end()) {
            logLinux("Display " + std::to_string(id) + ": its connector is gone, skipping");
            return std::nullopt;
        }
        const std::string who = "Display " + std::to_string(id) + " (" + connector->name + ")";

        std::optional<int> bus;
        if (connector->ddcAdapter && usableLink(*connector->ddcAdapter, who)) {
            bus = connector->ddcAdapter;
            logLinux(who + ": DDC on " + adapterText(*bus, info(*bus)) + ", the driver's ddc link");
        } else if (connector->auxAdapter && usableLink(*connector->auxAdapter, who)) {
            bus = connector->auxAdapter;
            logLinux(who + ": DDC on " + adapterText(*bus, info(*bus)) + ", its DisplayPort AUX");
        } else {
            bus = pairByEdid(*connector, who);
        }
        if (!bus) return std::nullopt;
        taken_.insert(*bus);

        DisplayTransportMatch match;
        auto devices = platform_.i2cDevices;
        match.transport = std::make_shared<I2CDevTransport>(
            *bus, devices, platform_.clock,
            I2CDevTransport::Options{devices && devices->forceSlaveAddress()});
        match.edidUUID = hexOf(connector->edid);
        if (const auto facts = platform::readEdidFacts(connector->edid)) {
            match.vendorID = facts->vendor;
            match.productID = facts->model;
            match.serialNumber = facts->serial;
        }
        match.serviceLocation = *bus;
        match.ioDisplayLocation = connector->name;
        return match;
    }

private:
    const platform::I2CAdapterInfo* info(int number) const {
        const auto found = adapters_.find(number);
        return found == adapters_.end() ? nullptr : &found->second;
    }

    bool usableLink(int number, const std::string& who) const {
        const auto* adapter = info(number);
        if (adapter && adapterNameDenied(adapter->name)) {
            logLinux(who + ": linked " + adapterText(number, adapter) + " is never opened");
            return false;
        }
        return true;
    }

    // No link from the driver: the display adapter (not linked to another connector, not
    // yet given to a display) whose EDID equals the connector's. Each adapter's EDID is
    // read at most once per enumeration.
    std::optional<int> pairByEdid(const platform::DrmConnector& connector, const std::string& who) {
        if (connector.edid.size() < I2CDevTransport::kEdidLength) {
            logLinux(who + ": no link and no EDID to pair by, skipping");
            return std::nullopt;
        }
        for (const auto& [number, adapter] : adapters_) {
            if (taken_.count(number) || linked_.count(number) || !devices_.count(number)) continue;
            if (!adapterMayBeProbed(adapter)) {
                if (reportedSkip_.insert(number).second)
                    logLinux(adapterText(number, &adapter) + ": not a display adapter, never opened");
                continue;
            }
            auto cached = edids_.find(number);
            if (cached == edids_.end()) {
                std::string problem;
                auto edid = platform_.i2cDevices
                                ? I2CDevTransport::readEdid(*platform_.i2cDevices,
                                                            platform_.clock.get(), number, &problem)
                                : std::nullopt;
                if (!edid) logLinux(adapterText(number, &adapter) + ": no EDID: " + problem);
                cached = edids_.emplace(number, std::move(edid)).first;
            }
            if (cached->second && sameBaseBlock(*cached->second, connector.edid)) {
                logLinux(who + ": DDC on " + adapterText(number, &adapter) +
                         ", paired by EDID");
                return number;
            }
        }
        logLinux(who + ": no i2c adapter carries its EDID, skipping");
        return std::nullopt;
    }

    const platform::Platform& platform_;
    std::vector<platform::DrmConnector> connectors_;
    std::map<int, platform::I2CAdapterInfo> adapters_;
    std::set<int> devices_;
    std::set<int> linked_;
    std::set<int> taken_;
    std::set<int> reportedSkip_;
    std::map<int, std::optional<std::vector<std::uint8_t>>> edids_;
};

class LinuxDiscovery final : public TransportDiscovery {
public:
    explicit LinuxDiscovery(platform::Platform platform) : platform_(std::move(platform)) {}
    ~LinuxDiscovery() override {
        if (watching_) platform_.hotPlug->stop();
    }

    std::string_view architectureLine() const override {
        return "Architecture: Linux, finding DRM connectors and their i2c adapters";
    }
    std::unique_ptr<Enumeration> begin(const std::vector<platform::DisplayID>&) override {
        return std::make_unique<LinuxEnumeration>(platform_);
    }
    void waitBeforeProbe() override {}
    std::string_view watchedClass() const override { return {}; }
    bool startWatching(std::function<void()> onChange) override {
        if (!platform_.hotPlug || watching_) return watching_;
        watching_ = platform_.hotPlug->start(std::move(onChange));
        return watching_;
    }

private:
    platform::Platform platform_;
    bool watching_ = false;
};

} // namespace

bool adapterNameDenied(std::string_view name) {
    return std::any_of(kNeverProbe.begin(), kNeverProbe.end(),
                       [&](std::string_view prefix) { return name.starts_with(prefix); });
}

bool adapterMayBeProbed(const platform::I2CAdapterInfo& adapter) {
    if (!adapter.pciClass || adapterNameDenied(adapter.name)) return false;
    const auto base = *adapter.pciClass >> 16;
    return base == kDisplayClass || base == kDockingClass;
}

std::unique_ptr<TransportDiscovery> makeLinuxDiscovery(const platform::Platform& platform) {
    return std::make_unique<LinuxDiscovery>(platform);
}

std::string whyNoExternalDisplay(const platform::Platform& platform) {
    if (!platform.drm || !platform.drm->present())
        return "no DRM display device under /sys/class/drm: in a virtual machine or a remote "
               "session no monitor can be reached over DDC/CI";
    std::vector<std::string> panels;
    bool external = false;
    for (const auto& connector : platform.drm->connectors()) {
        if (!connector.connected()) continue;
        if (connector.builtin())
            panels.push_back(connector.name);
        else
            external = true;
    }
    if (!external && !panels.empty()) {
        std::string names;
        for (const auto& name : panels)
            names += (names.empty() ? "" : ", ") + name;
        return "only a built-in panel is connected (" + names +
               "); built-in panels have no DDC/CI, connect an external monitor";
    }
    if (!external)
        return "no monitor is connected: every DRM connector reports \"disconnected\"";
    if (!platform.i2cDevices || platform.i2cDevices->list().empty())
        return "no /dev/i2c-* devices: the i2c-dev kernel module is not loaded; run \"sudo "
               "modprobe i2c-dev\" (the package loads it at every boot)";
    return {};
}

} // namespace pw
