#include "platform/sim/SimMachine.h"

#include "platform/WindowIndicator.h"
#include "platform/macos/MacLevelIndicator.h"
#include "platform/drm/LinuxMonitors.h"
#include "platform/macos/MacMonitors.h"

#include "platform/sim/Edid.h"
#include "platform/sim/SimAVService.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"
#include "platform/sim/SimFramebufferI2C.h"
#include "platform/sim/SimGamma.h"
#include "platform/sim/SimKeyboard.h"
#include "platform/sim/SimLinux.h"
#include "platform/sim/SimLoginItems.h"
#include "platform/sim/SimOSD.h"
#include "platform/sim/SimWorkspace.h"
#include "platform/macos/TapMediaKeys.h"
#include "support/Hex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <mutex>

namespace pw::sim {

namespace {

using platform::DisplayID;
using platform::IOObject;
using platform::PropertyValue;

// Entries between a framebuffer and its connection's AV service, top down. The last
// three are always there for the default depth; deeper machines insert more above them.
constexpr std::array<const char*, 12> kDeepLinks = {
    "AppleDCPLinkService",    "dcp-link-epic",    "AppleDCPDPTXController", "dcpdptx-port-epic",
    "AppleDCPDPTXRemotePort", "DCPDPDeviceProxy", "dcpdp-service-epic",     "AppleDCPDPService",
    "DCPDPServiceProxy",      "dcpav-port-epic",  "AppleDCPAVPort",         "DCPAVPortProxy",
};
constexpr unsigned kMaxParentDepth = 16;
constexpr std::uint32_t kMaxIntelBuses = 16; // what the loader allows; code can ask for more

std::vector<std::string> linksBelowFramebuffer(unsigned depth, bool builtin) {
    const std::array<const char*, 3> nearest = {builtin ? "DCPAVController" : "DCPEXTAVController",
                                                "dcpav-service-epic", "DCPAVDeviceProxy"};
    depth = std::clamp(depth, 1u, kMaxParentDepth);
    const std::size_t count = depth - 1;
    std::vector<std::string> links;
    for (std::size_t i = 0; count > nearest.size() && i < count - nearest.size(); ++i)
        links.emplace_back(kDeepLinks[i]);
    for (std::size_t i = nearest.size() - std::min(count, nearest.size()); i < nearest.size(); ++i)
        links.emplace_back(nearest[i]);
    return links;
}

std::string hexAddress(std::uint32_t address) {
    return hex(address, 8);
}

// A simulated object that keeps the clock it refers to alive as long as itself, so a
// transport the program still holds after the machine is gone stays safe to call.
template <typename T, typename... Args>
std::shared_ptr<T> holdingClock(const std::shared_ptr<platform::Clock>& clock, Args&&... args) {
    return std::shared_ptr<T>(new T(std::forward<Args>(args)..., *clock),
                              [clock](T* object) { delete object; });
}

// IOAVServiceCreateWithService: each call makes a new service object whose I2C calls
// reach the connection's monitor; a built-in panel's connection has no monitor.
class SimAVServices final : public platform::AVServiceFactory {
public:
    explicit SimAVServices(std::shared_ptr<BusLog> bus) : bus_(std::move(bus)) {}

    void connect(IOObject proxy, std::shared_ptr<VirtualMonitor> monitor, std::string endpoint,
                 bool createFails) {
        std::lock_guard lock(mutex_);
        connections_[proxy] = Connection{std::move(monitor), std::move(endpoint), createFails};
    }
    void disconnect(IOObject proxy) {
        std::lock_guard lock(mutex_);
        connections_.erase(proxy);
    }
    std::size_t created() const {
        std::lock_guard lock(mutex_);
        return created_;
    }

    std::shared_ptr<platform::AVService> createWithService(IOObject service) override {
        std::lock_guard lock(mutex_);
        const auto found = connections_.find(service);
        if (found == connections_.end() || found->second.createFails) return nullptr;
        ++created_;
        // Hashes of distinct objects differ, like the addresses CF hashes are made of.
        nextHash_ += 0x40;
        return std::make_shared<SimAVService>(found->second.monitor, bus_, found->second.endpoint,
                                              nextHash_);
    }

private:
    struct Connection {
        std::shared_ptr<VirtualMonitor> monitor;
        std::string endpoint;
        bool createFails = false;
    };
    std::shared_ptr<BusLog> bus_;
    mutable std::mutex mutex_;
    std::map<IOObject, Connection> connections_;
    std::size_t created_ = 0;
    std::int64_t nextHash_ = 0x600003A4C000;
};

// One display's place in the machine: its registry entries and its monitor.
struct Attachment {
    std::vector<IOObject> entries; // all of them, top down
    IOObject framebuffer = 0;
    IOObject proxy = 0;
    std::shared_ptr<VirtualMonitor> monitor;
    int adapter = -1; // Linux: the i2c adapter of the display's DDC/CI
};

// This program as the simulated workspace knows it.
macos::RunningApplication selfApplication(const SimHostFacts& host) {
    macos::RunningApplication app;
    app.processId = host.processId();
    if (auto id = host.build().identifier; !id.empty()) app.bundleIdentifier = std::move(id);
    return app;
}

// The window system's mouse-in-rectangle test for unflipped coordinates: the left and top
// edges belong to the rectangle, the right and bottom edges to its neighbours. The first
// screen under the pointer decides.
bool pointerOnBuiltInPanel(SimDisplayServices& displays) {
    const auto p = displays.pointerLocation();
    for (const auto& screen : displays.screens()) {
        const auto& r = screen.frame;
        if (!(p.x >= r.x && p.x < r.x + r.width && p.y > r.y && p.y <= r.y + r.height)) continue;
        return screen.number && displays.isBuiltin(*screen.number);
    }
    return false;
}

} // namespace

struct SimMachine::State {
    Flavor flavor = Flavor::appleSilicon;
    std::shared_ptr<platform::Clock> clock;
    std::shared_ptr<platform::MainQueue> mainQueue;
    VirtualClock* virtualClock = nullptr;
    ManualMainQueue* manualQueue = nullptr;
    std::shared_ptr<MemorySystemLog> systemLog = std::make_shared<MemorySystemLog>();
    std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
    std::shared_ptr<SimHostFacts> host;
    std::shared_ptr<BusLog> bus;
    std::shared_ptr<SimRegistry> registry;
    std::shared_ptr<SimDisplayServices> displays = std::make_shared<SimDisplayServices>();
    std::shared_ptr<SimAVServices> avServices;
    std::shared_ptr<SimFramebufferI2C> framebufferI2C;
    std::shared_ptr<SimGammaTables> gamma;
    bool offersGamma = true; // the scenario's "softwareDimming"
    std::shared_ptr<SimEventTaps> eventTaps;
    std::shared_ptr<SimWorkspace> workspace;
    std::shared_ptr<DistributedBus> distributedBus;
    std::shared_ptr<SimDistributedNotifications> distributed;
    std::shared_ptr<SimKeyboard> keyboard = std::make_shared<SimKeyboard>();
    std::shared_ptr<platform::MediaKeys> mediaKeys; // the Mac's tap source, or the keyboard
    std::shared_ptr<SimOSDFramework> osdFramework;
    std::shared_ptr<SimIndicatorWindow> indicatorWindow;
    std::shared_ptr<SimLevelIndicator> levelIndicator;
    // A Linux machine's kernel side, and the display list taken from it.
    std::shared_ptr<SimDrmSysfs> drm;
    std::shared_ptr<SimI2CDevices> i2c;
    std::shared_ptr<SimHotPlugMonitor> hotPlug;
    // The monitors as the machine of the scenario's kind finds them: the Mac's discovery
    // over the registry above, or the Linux one over the kernel side.
    std::shared_ptr<platform::Monitors> monitors;
    int nextAdapter = 10;
    std::map<std::string, unsigned> connectorsOfType;
    std::map<DisplayID, std::string> connectorNames;
    std::shared_ptr<SimLoginItems> loginItems = std::make_shared<SimLoginItems>();

    mutable std::mutex mutex; // plug and unplug, and what they change below
    std::map<DisplayID, Attachment> attached;
    IOObject bus0 = 0; // where the display controllers hang in the registry
    std::uint32_t nextBuiltin = 0;
    std::uint32_t nextExternal = 0;

    void build(const Scenario& scenario);
    macos::MacParts macParts() const;
    DisplaySpec place(DisplaySpec display) const;
    Attachment attach(const DisplaySpec& display);
    void attachAppleSilicon(const DisplaySpec& display, Attachment& attachment);
    void attachIntel(const DisplaySpec& display, Attachment& attachment);
    void attachLinux(const DisplaySpec& display, Attachment& attachment);
    void detachLinux(DisplayID id, const Attachment& attachment);
};

void SimMachine::State::build(const Scenario& scenario) {
    flavor = scenario.flavor;
    host = std::make_shared<SimHostFacts>(flavor);
    bus = holdingClock<BusLog>(clock);
    registry = std::make_shared<SimRegistry>(mainQueue);
    avServices = std::make_shared<SimAVServices>(bus);
    if (flavor == Flavor::intel)
        framebufferI2C = std::make_shared<SimFramebufferI2C>(registry, bus);
    gamma = std::make_shared<SimGammaTables>(displays);
    offersGamma = scenario.softwareDimming;
    eventTaps = std::make_shared<SimEventTaps>();
    workspace = std::make_shared<SimWorkspace>(mainQueue, selfApplication(*host));
    distributedBus = makeDistributedBus();
    distributed = std::make_shared<SimDistributedNotifications>(distributedBus, mainQueue);
    if (flavor == Flavor::linux) {
        mediaKeys = keyboard;
    } else {
        // A Mac's keys come through the code a Mac runs, on the simulated taps and workspace.
        macos::TapMediaKeys::Machine mac;
        mac.taps = eventTaps;
        mac.workspace = workspace;
        mac.distributed = distributed;
        mac.ownIdentifier = [weak = std::weak_ptr<SimHostFacts>(host)]() -> std::optional<std::string> {
            const auto facts = weak.lock();
            auto id = facts ? facts->build().identifier : std::string();
            if (!id.empty()) return id;
            return std::nullopt; // a build without one: as good as none
        };
        mac.pointerOnBuiltInPanel = [weak = std::weak_ptr<SimDisplayServices>(displays)] {
            const auto screens = weak.lock();
            return screens && pointerOnBuiltInPanel(*screens);
        };
        mediaKeys = macos::TapMediaKeys::create(std::move(mac));
    }
    osdFramework = std::make_shared<SimOSDFramework>();
    indicatorWindow = std::make_shared<SimIndicatorWindow>(clock);
    levelIndicator = std::make_shared<SimLevelIndicator>(clock);
    if (flavor == Flavor::linux) {
        drm = std::make_shared<SimDrmSysfs>();
        i2c = std::make_shared<SimI2CDevices>(bus);
        hotPlug = std::make_shared<SimHotPlugMonitor>(mainQueue);
        monitors = std::make_shared<LinuxMonitors>(LinuxMonitors::Parts{drm, i2c, hotPlug, clock});
        drm->setPresent(scenario.linuxMachine.drm);
        i2c->setPresent(scenario.linuxMachine.i2cDev);
        // Adapters of no display: nothing answers on them.
        for (const auto& adapter : scenario.linuxMachine.adapters) {
            drm->setAdapter({adapter.number, adapter.name, adapter.pciClass});
            i2c->attach(adapter.number, SimI2CBus{});
        }
    }

    if (flavor == Flavor::appleSilicon || flavor == Flavor::intel)
        monitors = std::make_shared<macos::MacMonitors>(macParts());

    if (flavor == Flavor::appleSilicon) {
        const auto expert = registry->addEntry(registry->root(), "AppleARMPE", "AppleARMPE");
        bus0 = registry->addEntry(expert, "AppleARMIO", "arm-io", "10F00000");
    } else {
        const auto expert = registry->addEntry(registry->root(), "AppleACPIPlatformExpert",
                                               "AppleACPIPlatformExpert");
        const auto pci = registry->addEntry(expert, "IOPCIBridge", "PCI0", "0");
        bus0 = registry->addEntry(pci, "IOPCIDevice", "IGPU", "2");
    }
    std::lock_guard lock(mutex);
    for (const auto& display : scenario.displays) {
        auto placed = place(display);
        attached[placed.id] = attach(placed);
        displays->add(std::move(placed));
    }
}

macos::MacParts SimMachine::State::macParts() const {
    macos::MacParts parts;
    parts.kind = flavor == Flavor::intel ? macos::MacParts::Kind::intel
                                                   : macos::MacParts::Kind::appleSilicon;
    parts.clock = clock;
    parts.mainQueue = mainQueue;
    parts.displays = displays;
    parts.screens = displays;
    parts.registry = registry;
    parts.avServices = avServices;
    parts.framebufferI2C = framebufferI2C;
    return parts;
}

// Screens without a frame of their own are placed in a row, each to the right of the
// screens already there, at the size such a display typically has.
DisplaySpec SimMachine::State::place(DisplaySpec display) const {
    if (display.frame.width > 0 && display.frame.height > 0) return display;
    double right = 0;
    for (const auto& d : displays->active())
        right = std::max(right, d.frame.x + d.frame.width);
    display.frame = display.builtin ? platform::Rect{right, 0, 1512, 982}
                                    : platform::Rect{right, 0, 2560, 1440};
    return display;
}

Attachment SimMachine::State::attach(const DisplaySpec& display) {
    Attachment attachment;
    if (display.monitor && !display.builtin) {
        attachment.monitor = holdingClock<VirtualMonitor>(clock, *display.monitor);
    }
    if (flavor == Flavor::linux) {
        attachLinux(display, attachment);
        return attachment;
    }
    if (flavor == Flavor::appleSilicon) {
        attachAppleSilicon(display, attachment);
    } else {
        attachIntel(display, attachment);
    }
    for (const auto& [key, value] : display.framebufferProperties)
        registry->setProperty(attachment.framebuffer, key, value);
    if (attachment.proxy != 0) {
        for (const auto& [key, value] : display.proxyProperties)
            registry->setProperty(attachment.proxy, key, value);
        avServices->connect(attachment.proxy, attachment.monitor,
                            "display " + std::to_string(display.id), display.avServiceCreateFails);
    }
    return attachment;
}

void SimMachine::State::attachAppleSilicon(const DisplaySpec& display, Attachment& attachment) {
    auto& entries = attachment.entries;
    const auto index = display.builtin ? nextBuiltin++ : nextExternal++;
    const auto controller = registry->addEntry(
        bus0, "AppleARMIODevice", (display.builtin ? "disp" : "dispext") + std::to_string(index),
        hexAddress((display.builtin ? 0x3A000000u : 0x38000000u) + 0x00400000u * (index % 64)));
    entries.push_back(controller);

    attachment.framebuffer = registry->addEntry(controller, "AppleCLCD2", "AppleCLCD2");
    entries.push_back(attachment.framebuffer);
    if (display.hasEDID) {
        registry->setProperty(attachment.framebuffer, "IODisplayEDID",
                              PropertyValue{display.edid.value_or(buildEdid(display))});
    }

    // A connection without DDC/CI has no AV service at all; a built-in panel has one
    // that reaches no monitor.
    if (!display.builtin && !display.monitor) return;
    IOObject parent = attachment.framebuffer;
    for (const auto& link : linksBelowFramebuffer(display.edidParentDepth, display.builtin)) {
        parent = registry->addEntry(parent, link, link);
        entries.push_back(parent);
    }
    attachment.proxy = registry->addEntry(parent, "DCPAVServiceProxy", "DCPAVServiceProxy");
    entries.push_back(attachment.proxy);
    registry->setProperty(
        attachment.proxy, "Location",
        PropertyValue{display.builtin ? std::string("Embedded") : display.location});
}

// A framebuffer per display (built-in panels too) with the monitor's EDID, one I2C
// interface per bus below it, and the display entry the system announces on hot-plug.
void SimMachine::State::attachIntel(const DisplaySpec& display, Attachment& attachment) {
    const auto index = nextExternal++;
    attachment.framebuffer =
        registry->addEntry(bus0, "IOFramebuffer", "AppleIntelFramebuffer", std::to_string(index));
    attachment.entries.push_back(attachment.framebuffer);
    if (display.hasEDID) {
        registry->setProperty(attachment.framebuffer, "IODisplayEDID",
                              PropertyValue{display.edid.value_or(buildEdid(display))});
    }
    std::vector<IOObject> interfaces;
    const auto& intel = display.intel;
    for (std::uint32_t n = 0; n < std::min(intel.buses, kMaxIntelBuses); ++n) {
        const auto interface =
            registry->addEntry(attachment.framebuffer, "IOFramebufferI2CInterface",
                               "IOFramebufferI2CInterface", std::to_string(n));
        const auto mask = n < intel.busTransactionTypes.size() ? intel.busTransactionTypes[n]
                                                               : intel.transactionTypes;
        if (mask) {
            registry->setProperty(interface, "IOI2CTransactionTypes",
                                  PropertyValue{static_cast<std::int64_t>(*mask)});
        }
        interfaces.push_back(interface);
        attachment.entries.push_back(interface);
    }
    const auto connect = registry->addEntry(attachment.framebuffer, "IODisplayConnect", "display0");
    const auto monitor = registry->addEntry(connect, "IODisplay", "AppleDisplay");
    attachment.entries.push_back(connect);
    attachment.entries.push_back(monitor);
    framebufferI2C->attach(attachment.framebuffer, display, std::move(interfaces),
                           attachment.monitor);
}

// A connector per display (named after its kind unless the scenario names it) and, for an
// external one, the adapter its DDC/CI travels on, linked as the driver would.
void SimMachine::State::attachLinux(const DisplaySpec& display, Attachment& attachment) {
    using Link = DisplaySpec::Connector::Link;
    const auto& spec = display.connector;
    platform::DrmConnector connector;
    connector.name = spec.name;
    if (connector.name.empty()) {
        // A display plugged in again comes back on the connector it had.
        auto& known = connectorNames[display.id];
        const std::string kind = display.builtin ? "eDP" : spec.link == Link::aux ? "DP" : "HDMI-A";
        if (known.empty()) known = "card0-" + kind + "-" + std::to_string(++connectorsOfType[kind]);
        connector.name = known;
    }
    connector.id = display.id;
    connector.status = spec.status;
    connector.enabled = spec.enabled && spec.status == "connected";
    const auto edid = display.edid.value_or(buildEdid(display));
    if (display.hasEDID) connector.edid = edid;
    if (!display.builtin) {
        attachment.adapter = spec.adapter >= 0 ? spec.adapter : nextAdapter++;
        const char letter = static_cast<char>('A' + attachment.adapter % 26);
        std::string name = spec.adapterName;
        if (name.empty()) name = spec.link == Link::aux ? std::string("DPDDC-") + letter
                                                        : std::string("i915 gmbus dp") + letter;
        drm->setAdapter({attachment.adapter, name, spec.pciClass});
        if (spec.link == Link::ddc) connector.ddcAdapter = attachment.adapter;
        if (spec.link == Link::aux) connector.auxAdapter = attachment.adapter;
        SimI2CBus wire;
        wire.monitor = attachment.monitor;
        if (spec.edidReadable) wire.edid = edid;
        wire.openError = spec.openError;
        wire.slaveError = spec.slaveError;
        wire.lockHeld = spec.lockHeld;
        wire.refusesRdwr = spec.refusesRdwr;
        i2c->attach(attachment.adapter, std::move(wire));
    }
    drm->setConnector(std::move(connector));
}

void SimMachine::State::detachLinux(DisplayID id, const Attachment& attachment) {
    drm->removeConnector(id);
    if (attachment.adapter >= 0) {
        i2c->detach(attachment.adapter);
        drm->removeAdapter(attachment.adapter);
    }
    hotPlug->report();
}

SimMachine::SimMachine(Scenario scenario) : state_(std::make_unique<State>()) {
    auto clock = std::make_shared<VirtualClock>();
    state_->virtualClock = clock.get();
    // The queue refers to the clock; let it keep the clock alive.
    auto queue = std::shared_ptr<ManualMainQueue>(new ManualMainQueue(*clock),
                                                  [clock](ManualMainQueue* q) { delete q; });
    state_->manualQueue = queue.get();
    state_->clock = std::move(clock);
    state_->mainQueue = std::move(queue);
    state_->build(scenario);
}

SimMachine::SimMachine(Scenario scenario, std::shared_ptr<platform::Clock> clock,
                       std::shared_ptr<platform::MainQueue> mainQueue)
    : state_(std::make_unique<State>()) {
    // Monitors and the bus cannot do without a clock; a machine without a main queue
    // simply never delivers notifications.
    if (!clock) clock = std::make_shared<VirtualClock>();
    state_->virtualClock = dynamic_cast<VirtualClock*>(clock.get());
    state_->manualQueue = dynamic_cast<ManualMainQueue*>(mainQueue.get());
    state_->clock = std::move(clock);
    state_->mainQueue = std::move(mainQueue);
    state_->build(scenario);
}

SimMachine::~SimMachine() = default;

platform::Platform SimMachine::platform() const {
    platform::Platform p;
    p.clock = state_->clock;
    p.mainQueue = state_->mainQueue;
    p.systemLog = state_->systemLog;
    p.host = state_->host;
    p.monitors = state_->monitors;
    p.screens = state_->displays;
    p.defaults = state_->defaults;
    // Without gamma the tables still exist for tests to inspect; the platform offers none.
    p.gamma = state_->offersGamma ? state_->gamma : nullptr;
    p.mediaKeys = state_->mediaKeys;
    p.indicator = std::make_shared<platform::macos::MacLevelIndicator>(
        state_->osdFramework,
        platform::WindowIndicator::create(state_->mainQueue, state_->displays,
                                          state_->indicatorWindow),
        [log = state_->systemLog, host = state_->host](std::string_view line) {
            const auto id = host->build().identifier;
            log->write(id.empty() ? std::string("com.panelwright.app") : id, "OSD",
                       platform::LogLevel::info, line);
        });
    if (state_->flavor == Flavor::linux) {
        // A Linux machine's screens come from its desktop session, which this one lacks.
        p.screens = nullptr;
        p.indicator = state_->levelIndicator;
    }
    p.loginItems = state_->loginItems;
    return p;
}

VirtualClock* SimMachine::virtualClock() const {
    return state_->virtualClock;
}
ManualMainQueue* SimMachine::manualMainQueue() const {
    return state_->manualQueue;
}
MemorySystemLog& SimMachine::systemLog() const {
    return *state_->systemLog;
}
MemoryUserDefaults& SimMachine::defaults() const {
    return *state_->defaults;
}
SimHostFacts& SimMachine::host() const {
    return *state_->host;
}
BusLog& SimMachine::bus() const {
    return *state_->bus;
}
RegistryLedger SimMachine::ledger() const {
    return state_->registry->ledger();
}
SimRegistry& SimMachine::registry() const {
    return *state_->registry;
}
platform::AVServiceFactory& SimMachine::avServices() const {
    return *state_->avServices;
}
macos::MacParts SimMachine::macParts() const {
    return state_->macParts();
}
macos::MacMonitors* SimMachine::macMonitors() const {
    return dynamic_cast<macos::MacMonitors*>(state_->monitors.get());
}
SimDisplayServices& SimMachine::displayServices() const {
    return *state_->displays;
}
SimFramebufferI2C* SimMachine::framebufferI2C() const {
    return state_->framebufferI2C.get();
}
SimGammaTables& SimMachine::gamma() const {
    return *state_->gamma;
}
SimEventTaps& SimMachine::eventTaps() const {
    return *state_->eventTaps;
}
SimKeyboard& SimMachine::keyboard() const {
    return *state_->keyboard;
}
SimWorkspace& SimMachine::workspace() const {
    return *state_->workspace;
}
const std::shared_ptr<DistributedBus>& SimMachine::distributedBus() const {
    return state_->distributedBus;
}
SimDistributedNotifications& SimMachine::distributedNotifications() const {
    return *state_->distributed;
}
SimOSDFramework& SimMachine::osdFramework() const {
    return *state_->osdFramework;
}
SimIndicatorWindow& SimMachine::indicatorWindow() const {
    return *state_->indicatorWindow;
}
SimLevelIndicator& SimMachine::levelIndicator() const {
    return *state_->levelIndicator;
}
SimDrmSysfs* SimMachine::drm() const {
    return state_->drm.get();
}
SimI2CDevices* SimMachine::i2cDevices() const {
    return state_->i2c.get();
}
SimHotPlugMonitor* SimMachine::hotPlug() const {
    return state_->hotPlug.get();
}
int SimMachine::adapterOf(DisplayID id) const {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->attached.find(id);
    return found == state_->attached.end() ? -1 : found->second.adapter;
}
SimLoginItems& SimMachine::loginItems() const {
    return *state_->loginItems;
}

std::shared_ptr<VirtualMonitor> SimMachine::monitor(DisplayID id) const {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->attached.find(id);
    return found == state_->attached.end() ? nullptr : found->second.monitor;
}

IOObject SimMachine::proxyEntry(DisplayID id) const {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->attached.find(id);
    return found == state_->attached.end() ? 0 : found->second.proxy;
}

IOObject SimMachine::framebufferEntry(DisplayID id) const {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->attached.find(id);
    return found == state_->attached.end() ? 0 : found->second.framebuffer;
}

std::vector<DisplaySpec> SimMachine::activeDisplays() const {
    return state_->displays->active();
}

std::size_t SimMachine::avServicesCreated() const {
    return state_->avServices->created();
}

bool SimMachine::plug(DisplaySpec display) {
    std::vector<IOObject> entries;
    {
        std::lock_guard lock(state_->mutex);
        auto& attached = state_->attached;
        if (display.id == 0) {
            display.id = attached.empty() ? 1 : attached.rbegin()->first + 1;
        }
        if (display.id == 0 || attached.count(display.id)) return false;
        auto placed = state_->place(std::move(display));
        auto attachment = state_->attach(placed);
        entries = attachment.entries;
        attached[placed.id] = std::move(attachment);
        state_->displays->add(std::move(placed));
    }
    state_->registry->announceMatched(entries);
    if (state_->hotPlug) state_->hotPlug->report();
    return true;
}

bool SimMachine::unplug(DisplayID id) {
    Attachment gone;
    {
        std::lock_guard lock(state_->mutex);
        const auto found = state_->attached.find(id);
        if (found == state_->attached.end()) return false;
        gone = std::move(found->second);
        state_->attached.erase(found);
        state_->displays->remove(id);
    }
    // The cable is out: services the program still holds reach nothing any more.
    if (gone.monitor) gone.monitor->setAttached(false);
    if (gone.proxy != 0) state_->avServices->disconnect(gone.proxy);
    if (state_->framebufferI2C) state_->framebufferI2C->detach(gone.framebuffer);
    if (state_->drm) state_->detachLinux(id, gone);
    state_->registry->terminate(gone.entries);
    return true;
}

} // namespace pw::sim
