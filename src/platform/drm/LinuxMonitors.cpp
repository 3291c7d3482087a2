#include "platform/drm/LinuxMonitors.h"

#include "base/DiagnosticLog.h"
#include "platform/Edid.h"
#include "platform/drm/I2CDevTransport.h"

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

// How a display's channel was found, and what the adapter was then: checked again before
// the device is opened anew after its adapter went away.
struct ChannelOrigin {
    enum class Via { link, aux, edid } via;
    std::string connector;
    std::string adapterName;
    std::optional<std::uint32_t> pciClass;
};

std::string noLongerTheDisplays(platform::DrmSysfs& drm, int bus, const ChannelOrigin& was) {
    std::string what;
    const auto adapters = drm.adapters();
    const auto now = std::find_if(adapters.begin(), adapters.end(),
                                  [&](const auto& a) { return a.number == bus; });
    if (now == adapters.end()) {
        what = "no adapter has that number now";
    } else if (now->name != was.adapterName || now->pciClass != was.pciClass) {
        what = "it now leads to \"" + now->name + "\"";
    } else if (was.via != ChannelOrigin::Via::edid) {
        const auto connectors = drm.connectors();
        const auto connector = std::find_if(connectors.begin(), connectors.end(),
                                            [&](const auto& c) { return c.name == was.connector; });
        const auto link = connector == connectors.end() ? std::nullopt
                          : was.via == ChannelOrigin::Via::link ? connector->ddcAdapter
                                                                : connector->auxAdapter;
        if (link != bus) what = was.connector + " no longer links it";
    }
    if (what.empty()) return {};
    return "/dev/i2c-" + std::to_string(bus) + " is no longer " + was.connector +
           "'s DDC channel (" + what + "); nothing is sent to it until the displays are "
           "listed again";
}

std::string adapterText(int number, const platform::I2CAdapterInfo* info) {
    return "i2c-" + std::to_string(number) + (info ? " (" + info->name + ")" : std::string());
}

class LinuxEnumeration final {
public:
    explicit LinuxEnumeration(const LinuxMonitors::Parts& platform, bool logging = true)
        : platform_(platform), logging_(logging) {
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
        log("Found " + std::to_string(connectors_.size()) + " DRM connector(s), " +
                 std::to_string(adapters_.size()) + " i2c adapter(s), " +
                 std::to_string(devices_.size()) + " /dev/i2c-* device(s)");
    }

    std::shared_ptr<I2CDevTransport> transportFor(platform::DisplayID id) {
        const auto connector = std::find_if(connectors_.begin(), connectors_.end(),
                                            [&](const auto& c) { return c.id == id; });
        if (connector == connectors_.end()) {
            log("Display " + std::to_string(id) + ": its connector is gone, skipping");
            return nullptr;
        }
        const std::string who = "Display " + std::to_string(id) + " (" + connector->name + ")";

        std::optional<int> bus;
        std::string refused; // why the driver's link was not used
        auto via = ChannelOrigin::Via::edid;
        if (connector->ddcAdapter && usableLink(*connector->ddcAdapter, who, refused)) {
            bus = connector->ddcAdapter;
            via = ChannelOrigin::Via::link;
            log(who + ": DDC on " + adapterText(*bus, info(*bus)) + ", the driver's ddc link");
        } else if (connector->auxAdapter && usableLink(*connector->auxAdapter, who, refused)) {
            bus = connector->auxAdapter;
            via = ChannelOrigin::Via::aux;
            log(who + ": DDC on " + adapterText(*bus, info(*bus)) + ", its DisplayPort AUX");
        } else {
            bus = pairByEdid(*connector, who, refused);
        }
        if (!bus) {
            reasons_[id] = refused;
            return nullptr;
        }
        taken_.insert(*bus);

        const auto* adapter = info(*bus);
        ChannelOrigin origin{via, connector->name, adapter ? adapter->name : std::string(),
                             adapter ? adapter->pciClass : std::nullopt};
        auto devices = platform_.i2cDevices;
        I2CDevTransport::Options options;
        options.forceAddress = devices && devices->forceSlaveAddress();
        options.claimedBy = platform_.drm ? platform_.drm->ddcDriver(*bus) : std::string();
        if (!options.claimedBy.empty())
            log(who + ": a kernel driver (" + options.claimedBy + ") is bound at 0x37" +
                (options.forceAddress ? ", shared as the user allowed" : ", nothing is sent"));
        if (auto drm = platform_.drm) {
            options.stillTheDisplays = [drm, origin](int number) {
                return noLongerTheDisplays(*drm, number, origin);
            };
        }
        return std::make_shared<I2CDevTransport>(*bus, devices, platform_.clock,
                                                 std::move(options));
    }

    // Why transportFor found no channel for the display; empty when it found one.
    std::string reasonFor(platform::DisplayID id) const {
        const auto found = reasons_.find(id);
        return found == reasons_.end() ? std::string() : found->second;
    }
    const std::vector<platform::DrmConnector>& connectors() const { return connectors_; }

private:
    void log(std::string_view message) const {
        if (logging_) logLinux(message);
    }

    const platform::I2CAdapterInfo* info(int number) const {
        const auto found = adapters_.find(number);
        return found == adapters_.end() ? nullptr : &found->second;
    }

    bool usableLink(int number, const std::string& who, std::string& refused) const {
        const auto* adapter = info(number);
        if (adapter && adapterNameDenied(adapter->name)) {
            log(who + ": linked " + adapterText(number, adapter) + " is never opened");
            refused = "its DDC link, " + adapterText(number, adapter) +
                      ", is an adapter that is never opened (docs/linux.md)";
            return false;
        }
        return true;
    }

    // No link from the driver: the display adapter (not linked to another connector, not
    // yet given to a display) whose EDID equals the connector's. Each adapter's EDID is
    // read at most once per enumeration.
    std::optional<int> pairByEdid(const platform::DrmConnector& connector, const std::string& who,
                                  std::string& reason) {
        if (connector.edid.size() < I2CDevTransport::kEdidLength) {
            log(who + ": no link and no EDID to pair by, skipping");
            if (reason.empty())
                reason = "the driver links no DDC channel and the connector has no EDID to find "
                         "one by";
            return std::nullopt;
        }
        std::string trouble; // the first adapter that could not even be read
        for (const auto& [number, adapter] : adapters_) {
            if (taken_.count(number) || linked_.count(number) || !devices_.count(number)) continue;
            if (!adapterMayBeProbed(adapter)) {
                if (reportedSkip_.insert(number).second)
                    log(adapterText(number, &adapter) + ": not a display adapter, never opened");
                continue;
            }
            auto cached = edids_.find(number);
            if (cached == edids_.end()) {
                std::string problem;
                auto edid = platform_.i2cDevices
                                ? I2CDevTransport::readEdid(*platform_.i2cDevices,
                                                            platform_.clock.get(), number, &problem)
                                : std::nullopt;
                if (!edid) log(adapterText(number, &adapter) + ": no EDID: " + problem);
                cached = edids_.emplace(number, std::move(edid)).first;
                problems_.emplace(number, problem);
            }
            if (cached->second && platform::sameBaseBlock(*cached->second, connector.edid)) {
                log(who + ": DDC on " + adapterText(number, &adapter) + ", paired by EDID");
                return number;
            }
            // "no answer" is what every adapter without this monitor says; anything else
            // (permission, another program's lock) may be why the monitor is not found.
            const auto& problem = problems_[number];
            if (trouble.empty() && !problem.empty() && problem.find("no answer") == std::string::npos)
                trouble = problem;
        }
        log(who + ": no i2c adapter carries its EDID, skipping");
        if (!trouble.empty())
            reason = trouble;
        else if (reason.empty())
            reason = "the driver links no DDC channel and no display adapter answers at 0x50 "
                     "with its EDID";
        return std::nullopt;
    }

    const LinuxMonitors::Parts& platform_;
    const bool logging_;
    std::vector<platform::DrmConnector> connectors_;
    std::map<int, platform::I2CAdapterInfo> adapters_;
    std::set<int> devices_;
    std::set<int> linked_;
    std::set<int> taken_;
    std::set<int> reportedSkip_;
    std::map<int, std::optional<std::vector<std::uint8_t>>> edids_;
    std::map<int, std::string> problems_; // why an adapter's EDID could not be read
    std::map<platform::DisplayID, std::string> reasons_;
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

LinuxMonitors::LinuxMonitors(Parts parts) : parts_(std::move(parts)) {}

LinuxMonitors::~LinuxMonitors() {
    if (watching_) parts_.hotPlug->stop();
}

std::string LinuxMonitors::architectureLine() {
    return "Architecture: Linux, finding DRM connectors and their i2c adapters";
}

bool LinuxMonitors::watch(std::function<void()> onChange) {
    if (!parts_.hotPlug) return false;
    // One udev listener for the machine's life; a later listener takes the reports over.
    *listener_ = std::move(onChange);
    if (!watching_)
        watching_ = parts_.hotPlug->start([listener = listener_] {
            if (*listener) (*listener)();
        });
    return watching_;
}

std::vector<platform::MonitorInfo>
LinuxMonitors::connected(std::optional<platform::DisplayID> only) {
    std::vector<platform::MonitorInfo> result;
    std::vector<platform::UnreachableMonitor> missing;
    LinuxEnumeration search(parts_);
    std::size_t listed = 0;
    for (const auto& connector : search.connectors())
        if (connector.connected()) ++listed;
    logLinux("The machine lists " + std::to_string(listed) + " connected display(s)");
    // Every connector is searched in order, even with `only`: twins pair in order.
    for (const auto& connector : search.connectors()) {
        if (!connector.connected()) continue;
        platform::MonitorInfo info;
        info.id = connector.id;
        info.location = connector.name;
        info.builtIn = connector.builtin();
        info.edid = connector.edid;
        const auto edid = platform::Edid::parse(connector.edid);
        info.vendor = edid.vendor;
        info.model = edid.product;
        if (edid.name)
            info.systemName = edid.name;
        else if (edid.vendor != 0)
            info.systemName = "Display " + std::to_string(edid.vendor) + "-" +
                              std::to_string(edid.product);
        if (!info.builtIn) {
            info.transport = search.transportFor(connector.id);
            if (!info.transport)
                missing.push_back({connector.id, connector.name, edid.name.value_or(""),
                                   edid.vendor, edid.product, search.reasonFor(connector.id)});
        }
        if (only && connector.id != *only) continue;
        result.push_back(std::move(info));
    }
    std::lock_guard lock(mutex_);
    lastUnreachable_ = std::move(missing);
    return result;
}

std::vector<platform::UnreachableMonitor> LinuxMonitors::unreachable() {
    {
        std::lock_guard lock(mutex_);
        if (lastUnreachable_) return *lastUnreachable_;
    }
    return unreachableMonitors(parts_);
}

std::string LinuxMonitors::whyNoneFound() {
    return whyNoExternalDisplay(parts_);
}

std::vector<platform::UnreachableMonitor> unreachableMonitors(const LinuxMonitors::Parts& platform) {
    if (!platform.drm) return {};
    // The same search as the enumeration's, in the same order, so twins pair the same way;
    // the EDIDs it needs are read again, which only costs when a monitor is missing.
    LinuxEnumeration search(platform, false);
    std::vector<platform::UnreachableMonitor> result;
    for (const auto& connector : search.connectors()) {
        if (!connector.connected() || connector.builtin()) continue;
        if (search.transportFor(connector.id)) continue;
        platform::UnreachableMonitor monitor{connector.id, connector.name, {}, 0, 0,
                                             search.reasonFor(connector.id)};
        const auto edid = platform::Edid::parse(connector.edid);
        monitor.name = edid.name.value_or("");
        monitor.vendor = edid.vendor;
        monitor.product = edid.product;
        result.push_back(std::move(monitor));
    }
    return result;
}

std::string whyNoExternalDisplay(const LinuxMonitors::Parts& platform) {
    if (!platform.drm || !platform.drm->present())
        return "no DRM display device under /sys/class/drm: in a virtual machine or a remote "
               "session no monitor can be reached over DDC/CI; try --simulate SCENARIO to see "
               "the program on a simulated machine";
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
