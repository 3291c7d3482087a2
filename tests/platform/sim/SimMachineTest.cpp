#include "platform/sim/SimLinux.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimDisplayServices.h"

#include "common/TestSupport.h"
#include "platform/sim/Edid.h"
#include "platform/sim/SimAVService.h"

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <numeric>
#include <set>
#include <thread>

namespace pw::sim {
namespace {

using platform::IOObject;
using platform::kIOServicePlane;
using platform::kSuccess;
using platform::PropertyValue;

Scenario load(const std::string& name) {
    auto result = loadScenarioFile(test::sourcePath("scenarios/" + name));
    if (auto* error = std::get_if<ScenarioError>(&result)) {
        ADD_FAILURE() << error->message();
        return {};
    }
    return std::get<Scenario>(result);
}

DisplaySpec monitorSpec(platform::DisplayID id, std::string name, std::uint32_t serial = 0) {
    DisplaySpec d;
    d.id = id;
    d.vendor = 4268;
    d.model = 41000;
    d.serial = serial;
    d.name = name;
    d.productNames = {{"en_US", name}};
    d.monitor = MonitorSpec::withDefaultFeatures();
    return d;
}

DisplaySpec builtinSpec() {
    DisplaySpec d;
    d.id = 1;
    d.builtin = true;
    d.vendor = 1552;
    d.model = 41216;
    d.name = "Built-in Retina Display"; // its connection says "Embedded" without being told
    return d;
}

Scenario scenarioOf(std::vector<DisplaySpec> displays) {
    Scenario s;
    s.displays = std::move(displays);
    return s;
}

// Everything an iterator yields, each object released again; the iterator too when asked.
std::vector<IOObject> drain(platform::Registry& registry, IOObject iterator,
                            bool releaseIterator = true) {
    std::vector<IOObject> objects;
    while (const auto object = registry.iteratorNext(iterator)) {
        objects.push_back(object);
        registry.release(object);
    }
    if (releaseIterator) registry.release(iterator);
    return objects;
}

std::vector<IOObject> matching(platform::Registry& registry, std::string_view className) {
    IOObject iterator = 0;
    EXPECT_EQ(registry.getMatchingServices(className, iterator), kSuccess);
    return drain(registry, iterator);
}

std::string name(platform::Registry& registry, IOObject entry) {
    char text[128] = {};
    if (registry.nameInPlane(entry, kIOServicePlane, text) != kSuccess) return "?";
    return text;
}

std::string path(platform::Registry& registry, IOObject entry) {
    char text[512] = {};
    if (registry.path(entry, kIOServicePlane, text) != kSuccess) return "";
    return text;
}

// Climbs from `entry` to the first ancestor named `target`, releasing what it leaves
// behind; returns that ancestor (held) and how many steps it took, or 0.
std::pair<IOObject, int> climbTo(platform::Registry& registry, IOObject entry,
                                 const std::string& target) {
    registry.retain(entry);
    for (int steps = 1;; ++steps) {
        IOObject parent = 0;
        const auto result = registry.parentEntry(entry, kIOServicePlane, parent);
        registry.release(entry);
        if (result != kSuccess) return {0, steps};
        if (name(registry, parent) == target) return {parent, steps};
        entry = parent;
    }
}

std::optional<std::string> locationOf(platform::Registry& registry, IOObject proxy) {
    const auto value = registry.property(proxy, "Location");
    if (!value) return std::nullopt;
    return value->string() ? *value->string() : "<not a string>";
}

void expectValidEdid(const std::vector<std::uint8_t>& e, const DisplaySpec& d) {
    ASSERT_EQ(e.size(), 128u);
    EXPECT_EQ(std::vector<std::uint8_t>(e.begin(), e.begin() + 8),
              (std::vector<std::uint8_t>{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}));
    EXPECT_EQ(std::accumulate(e.begin(), e.end(), 0u) % 256, 0u);
    EXPECT_EQ(e[8] << 8 | e[9], static_cast<int>(d.vendor));
    EXPECT_EQ(e[10] | e[11] << 8, static_cast<int>(d.model));
    EXPECT_EQ(e[12] | e[13] << 8 | e[14] << 16 | static_cast<std::uint32_t>(e[15]) << 24, d.serial);
    EXPECT_EQ((std::vector<int>{e[18], e[19], e[126]}), (std::vector<int>{1, 4, 0})); // 1.4, no extensions
    std::set<std::uint8_t> tags;
    std::optional<std::string> productName;
    for (const std::size_t at : {72u, 90u, 108u}) {
        ASSERT_EQ(e[at] | e[at + 1] | e[at + 2], 0) << "display descriptor at " << at;
        tags.insert(e[at + 3]);
        if (e[at + 3] != 0xFC) continue;
        const std::string text(e.begin() + static_cast<long>(at) + 5, e.begin() + static_cast<long>(at) + 18);
        const auto end = text.find('\n'); // shorter names end with a line feed, then spaces
        if (end != std::string::npos) EXPECT_EQ(text.find_first_not_of(' ', end + 1), std::string::npos);
        productName = text.substr(0, end);
    }
    EXPECT_TRUE(tags.count(0xFF) && tags.count(0xFD)) << "serial number and range limits";
    EXPECT_EQ(productName, d.name ? std::optional(d.name->substr(0, 13)) : std::nullopt);
}

TEST(SimEdid, ShippedMonitorsHaveValidEdidsAndTwinsAreIdentical) {
    for (const auto& entry : std::filesystem::directory_iterator(test::sourcePath("scenarios"))) {
        SCOPED_TRACE(entry.path().filename().string());
        SimMachine machine(load(entry.path().filename().string()));
        for (const auto& d : machine.activeDisplays()) {
            SCOPED_TRACE(d.id);
            if (machine.drm()) { // a Linux machine: the connector's edid file
                for (const auto& connector : machine.drm()->connectors())
                    if (connector.id == d.id) expectValidEdid(connector.edid, d);
                continue;
            }
            const auto edid =
                machine.registry().property(machine.framebufferEntry(d.id), "IODisplayEDID");
            ASSERT_TRUE(edid && edid->bytes());
            expectValidEdid(*edid->bytes(), d);
        }
    }
    // A name of 13 characters fills the descriptor without a line feed; longer ones are cut.
    auto longName = monitorSpec(2, "ABCDEFGHIJKLMNOP");
    const auto cut = buildEdid(longName);
    EXPECT_EQ(std::string(cut.begin() + 113, cut.begin() + 126), "ABCDEFGHIJKLM");

    const auto twins = load("identical-twins-same-serial.json");
    EXPECT_EQ(buildEdid(twins.displays[1]), buildEdid(twins.displays[2]));
    const auto serials = load("identical-twins.json");
    EXPECT_NE(buildEdid(serials.displays[1]), buildEdid(serials.displays[2]));
}

// How deep framebuffers sit and which properties are missing or mistyped is checked by the
// discovery tests, through the program; here what they do not see.
TEST(SimRegistryTree, ConnectionsHaveTheirOwnPathsUpToARootAndUnknownHandlesAreRefused) {
    auto noChannel = monitorSpec(4, "Projector");
    noChannel.monitor.reset();
    SimMachine machine(scenarioOf({builtinSpec(), monitorSpec(2, "Left", 1),
                                   monitorSpec(3, "Right", 2), noChannel}));
    auto& registry = machine.registry();
    const auto proxies = matching(registry, "DCPAVServiceProxy");
    ASSERT_EQ(proxies.size(), 3u) << "a display without DDC/CI has no connection";
    EXPECT_EQ(matching(registry, "AppleCLCD2").size(), 4u);
    EXPECT_EQ(locationOf(registry, proxies[0]), "Embedded");
    EXPECT_EQ(locationOf(registry, proxies[1]), "External");
    std::set<std::string> paths;
    for (const auto proxy : proxies) {
        const auto proxyPath = path(registry, proxy);
        EXPECT_EQ(proxyPath.rfind("IOService:/AppleARMPE/arm-io@10F00000/", 0), 0u) << proxyPath;
        EXPECT_TRUE(proxyPath.ends_with("/DCPAVServiceProxy"));
        paths.insert(proxyPath);
    }
    EXPECT_EQ(paths.size(), 3u) << "every connection has its own path";

    const auto [root, steps] = climbTo(registry, machine.framebufferEntry(2), "Root");
    ASSERT_NE(root, 0u);
    EXPECT_EQ(path(registry, root), "IOService:/");
    IOObject none = 0;
    EXPECT_NE(registry.parentEntry(root, kIOServicePlane, none), kSuccess);
    registry.release(root);

    EXPECT_FALSE(registry.property(999999, "Location"));
    EXPECT_EQ(name(registry, 999999), "?");
    EXPECT_EQ(path(registry, 999999), "");
    EXPECT_NE(registry.parentEntry(machine.proxyEntry(2), "IODeviceTree", none), kSuccess);
    EXPECT_EQ(registry.iteratorNext(999999), 0u);
    EXPECT_TRUE(machine.ledger().balanced());
}

TEST(SimLedger, CountsEveryReferenceAndNamesWhatIsWrong) {
    SimMachine machine(scenarioOf({builtinSpec(), monitorSpec(2, "Office", 1)}));
    auto& registry = machine.registry();
    matching(registry, "DCPAVServiceProxy"); // iterator and two proxies, all released
    EXPECT_EQ(machine.ledger().retained, 3u);
    EXPECT_TRUE(machine.ledger().balanced());

    // A parent kept, a retain without its release, a release too many and an unknown one.
    const auto proxy = machine.proxyEntry(2);
    IOObject parent = 0;
    ASSERT_EQ(registry.parentEntry(proxy, kIOServicePlane, parent), kSuccess);
    for (int i = 0; i < 2; ++i) registry.retain(proxy);
    for (int i = 0; i < 3; ++i) registry.release(proxy);
    registry.release(424242);
    const auto ledger = machine.ledger();
    EXPECT_EQ(ledger.retained, 6u);
    EXPECT_EQ(ledger.released, 5u);
    EXPECT_FALSE(ledger.balanced());
    ASSERT_EQ(ledger.leaked.size(), 1u);
    EXPECT_NE(ledger.leaked[0].find("DCPAVDeviceProxy"), std::string::npos) << ledger.leaked[0];
    ASSERT_EQ(ledger.overReleased.size(), 2u);
    EXPECT_NE(ledger.overReleased[0].find("DCPAVServiceProxy"), std::string::npos);
    EXPECT_NE(ledger.overReleased[1].find("424242"), std::string::npos);
    registry.release(parent);
    EXPECT_TRUE(machine.ledger().leaked.empty());

    // A notification's iterator belongs to its registration, not to the program.
    IOObject iterator = 0;
    ASSERT_EQ(registry.addMatchingNotification(registry.createNotificationPort(),
                                               platform::kFirstMatchNotification, "AppleCLCD2",
                                               [](IOObject) {}, iterator),
              kSuccess);
    EXPECT_EQ(drain(registry, iterator, false).size(), 2u);
    EXPECT_TRUE(machine.ledger().leaked.empty());
}

// Sends a real Set VCP brightness request through a service, to see which monitor it reaches.
std::int32_t setBrightness(platform::AVService& service, std::uint8_t value) {
    std::uint8_t frame[] = {0x84, 0x03, 0x10, 0x00, value, 0x6E ^ 0x51 ^ 0x84 ^ 0x03 ^ 0x10};
    frame[5] ^= value;
    return service.writeI2C(0x37, 0x51, frame, sizeof frame);
}

TEST(SimAVServices, EachCreationIsANewServiceOnItsOwnConnection) {
    SimMachine machine(
        scenarioOf({builtinSpec(), monitorSpec(2, "Left", 1), monitorSpec(3, "Right", 2)}));
    auto& factory = machine.avServices();
    const auto first = factory.createWithService(machine.proxyEntry(2));
    const auto again = factory.createWithService(machine.proxyEntry(2));
    const auto right = factory.createWithService(machine.proxyEntry(3));
    const auto panel = factory.createWithService(machine.proxyEntry(1));
    ASSERT_TRUE(first && again && right && panel);
    EXPECT_NE(first->hash(), again->hash());
    EXPECT_NE(first->hash(), right->hash());
    EXPECT_EQ(setBrightness(*right, 33), 0);
    EXPECT_EQ(machine.monitor(3)->feature(0x10)->current, 33);
    EXPECT_EQ(machine.monitor(2)->feature(0x10)->current, 50);
    EXPECT_NE(setBrightness(*panel, 10), 0) << "a built-in panel has no DDC/CI";
    EXPECT_EQ(factory.createWithService(machine.framebufferEntry(2)), nullptr);
    EXPECT_EQ(factory.createWithService(0), nullptr);
}

// Screens without a frame of their own stand in a row; a given frame is kept; built-in
// panels are marked (the keys over them stay with the system).
TEST(SimDisplays, ScreensStandInARowAndKeepTheirOwnFrames) {
    auto anonymous = monitorSpec(4, "unused", 77);
    anonymous.name.reset();
    anonymous.frame = {-800, 100, 800, 600};
    SimMachine machine(scenarioOf({builtinSpec(), monitorSpec(2, "Office", 12), anonymous,
                                   monitorSpec(5, "Odd")}));
    const auto screens = machine.displayServices().screens();
    ASSERT_EQ(screens.size(), 4u);
    EXPECT_TRUE(screens[0].builtIn);
    EXPECT_FALSE(screens[1].builtIn);
    EXPECT_EQ(screens[0].frame.x, 0.0);
    EXPECT_EQ(screens[1].frame.x, screens[0].frame.width);
    EXPECT_EQ(screens[2].frame.x, -800.0);
    EXPECT_EQ(screens[3].frame.x, screens[1].frame.x + screens[1].frame.width);
}

class SimHotPlug : public ::testing::Test {
protected:
    SimHotPlug() : machine(scenarioOf({builtinSpec(), monitorSpec(2, "Office", 1)})) {}

    // Registers for one notification type on the framebuffer class; every call records the
    // names the iterator yields, releasing each.
    IOObject watch(std::string_view type, std::string_view className = "AppleCLCD2") {
        IOObject iterator = 0;
        EXPECT_EQ(registry().addMatchingNotification(
                      port, type, className,
                      [this, type](IOObject it) {
                          EXPECT_TRUE(machine.manualMainQueue()->isMainThread());
                          for (const auto object : drain(registry(), it, false))
                              calls.push_back(std::string(type) + " " + std::to_string(object));
                      },
                      iterator),
                  kSuccess);
        return iterator;
    }
    platform::Registry& registry() { return machine.registry(); }

    SimMachine machine;
    platform::NotificationPort port = machine.registry().createNotificationPort();
    std::vector<std::string> calls;
};

TEST_F(SimHotPlug, PlugAndUnplugAreReportedOnTheMainQueue) {
    ASSERT_TRUE(registry().attachToMainRunLoop(port));
    const auto added = watch(platform::kFirstMatchNotification);
    const auto removed = watch(platform::kTerminateNotification);
    // What is there already comes with the first match; nothing has terminated yet.
    EXPECT_EQ(drain(registry(), added, false),
              (std::vector<IOObject>{machine.framebufferEntry(1), machine.framebufferEntry(2)}));
    EXPECT_TRUE(drain(registry(), removed, false).empty());

    auto studio = monitorSpec(3, "Studio", 2);
    ASSERT_TRUE(machine.plug(studio));
    EXPECT_FALSE(machine.plug(studio)) << "already plugged in";
    const auto framebuffer = machine.framebufferEntry(3);
    EXPECT_TRUE(calls.empty()) << "delivered only when the main queue runs";
    EXPECT_EQ(machine.displayServices().screens().size(), 3u);
    EXPECT_EQ(matching(registry(), "DCPAVServiceProxy").size(), 3u);
    machine.manualMainQueue()->runPending();
    EXPECT_EQ(calls,
              (std::vector<std::string>{"IOServiceFirstMatch " + std::to_string(framebuffer)}));

    calls.clear();
    const auto monitor = machine.monitor(2);
    const auto service = machine.avServices().createWithService(machine.proxyEntry(2));
    ASSERT_TRUE(machine.unplug(2));
    EXPECT_FALSE(machine.unplug(2));
    EXPECT_FALSE(monitor->attached());
    EXPECT_NE(setBrightness(*service, 10), 0) << "the cable is out";
    EXPECT_EQ(machine.displayServices().activeDisplayList(8),
              (std::vector<platform::DisplayID>{1, 3}));
    EXPECT_EQ(matching(registry(), "DCPAVServiceProxy").size(), 2u);
    machine.manualMainQueue()->runPending();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].rfind("IOServiceTerminate ", 0), 0u);

    // Plugging the same display in again gives it new entries, never reused handles.
    ASSERT_TRUE(machine.plug(monitorSpec(2, "Office", 1)));
    EXPECT_GT(machine.framebufferEntry(2), framebuffer);
    machine.manualMainQueue()->runPending();
    EXPECT_EQ(calls.size(), 2u);
    EXPECT_TRUE(machine.ledger().balanced());
}

TEST_F(SimHotPlug, OnlyArmedRegistrationsOnAttachedPortsAreCalled) {
    const auto added = watch(platform::kFirstMatchNotification);
    const auto display = watch(platform::kFirstMatchNotification, "IODisplay");
    drain(registry(), added, false);
    drain(registry(), display, false);

    // The port is not on the main loop yet: the new framebuffer waits in the iterator.
    machine.plug(monitorSpec(3, "Studio", 2));
    machine.manualMainQueue()->runUntilIdle();
    EXPECT_TRUE(calls.empty());
    ASSERT_TRUE(registry().attachToMainRunLoop(port));
    EXPECT_EQ(drain(registry(), added, false).size(), 1u);

    // Armed again by that drain; a registration not drained after a call is not called twice.
    const auto other = watch(platform::kFirstMatchNotification);
    machine.plug(monitorSpec(4, "Four", 3));
    machine.plug(monitorSpec(5, "Five", 4));
    machine.manualMainQueue()->runUntilIdle();
    EXPECT_EQ(calls.size(), 2u) << "one call, two objects, for the armed registration only";
    EXPECT_EQ(drain(registry(), other, false).size(), 5u);

    // A released registration is never called again, and its iterator is no leak.
    registry().release(added);
    machine.unplug(4);
    machine.plug(monitorSpec(6, "Six", 5));
    calls.clear();
    machine.manualMainQueue()->runUntilIdle();
    EXPECT_EQ(calls.size(), 1u) << "only the registration armed by its drain above";
    EXPECT_TRUE(machine.ledger().balanced());
}

// The program walks the registry from worker threads while displays come and go on the
// main thread (run under tsan for the data race); every walk must stay balanced.
TEST_F(SimHotPlug, WalksFromAnotherThreadWhileDisplaysComeAndGo) {
    ASSERT_TRUE(registry().attachToMainRunLoop(port));
    drain(registry(), watch(platform::kTerminateNotification), false);
    std::atomic<bool> done = false;
    std::thread walker([&] {
        while (!done) {
            for (auto proxy : matching(registry(), "DCPAVServiceProxy")) {
                registry().retain(proxy);
                IOObject parent = 0;
                while (registry().parentEntry(proxy, kIOServicePlane, parent) == kSuccess) {
                    registry().release(proxy);
                    proxy = parent;
                }
                registry().release(proxy);
            }
        }
    });
    for (platform::DisplayID id = 3; id < 40; ++id) {
        machine.plug(monitorSpec(id, "Guest", id));
        machine.unplug(id - 1);
        machine.manualMainQueue()->runPending();
    }
    done = true;
    walker.join();
    EXPECT_EQ(calls.size(), 37u);
    EXPECT_TRUE(machine.ledger().balanced()) << ::testing::PrintToString(machine.ledger().leaked);
}

TEST(SimMachineTime, ReportsAfterTheMachineIsGoneAreDropped) {
    auto clock = std::make_shared<VirtualClock>();
    auto queue = std::make_shared<ManualMainQueue>(*clock);
    int calls = 0;
    {
        SimMachine machine(scenarioOf({monitorSpec(1, "Only", 1)}), clock, queue);
        EXPECT_EQ(machine.virtualClock(), clock.get());
        auto& registry = machine.registry();
        const auto port = registry.createNotificationPort();
        registry.attachToMainRunLoop(port);
        IOObject iterator = 0;
        registry.addMatchingNotification(
            port, platform::kTerminateNotification, "AppleCLCD2", [&](IOObject) { ++calls; },
            iterator);
        drain(registry, iterator, false);
        machine.unplug(1);
        EXPECT_EQ(queue->pendingCount(), 1u);
    }
    queue->runUntilIdle();
    EXPECT_EQ(calls, 0);
}

} // namespace
} // namespace pw::sim
