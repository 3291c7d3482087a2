// The simulated Linux machine: its scenario fields and what plugging does to sysfs,
// /dev and udev.

#include "common/TestSupport.h"
#include "platform/sim/SimLinux.h"
#include "platform/sim/SimMachine.h"

#include <gtest/gtest.h>

namespace pw::sim {
namespace {

Scenario load(const std::string& json) {
    auto parsed = parseScenario(json, "t.json");
    if (const auto* error = std::get_if<ScenarioError>(&parsed)) {
        ADD_FAILURE() << error->message();
        return {};
    }
    return std::get<Scenario>(std::move(parsed));
}

std::string errorOf(const std::string& json) {
    auto parsed = parseScenario(json, "t.json");
    const auto* error = std::get_if<ScenarioError>(&parsed);
    return error ? error->message() : "";
}

TEST(SimLinuxScenario, ShippedLinuxMachinesLoad) {
    for (const auto* name : {"linux-one-monitor.json", "linux-docked-laptop.json"}) {
        auto loaded = loadScenarioFile(test::sourcePath(std::string("scenarios/") + name));
        ASSERT_TRUE(std::holds_alternative<Scenario>(loaded))
            << std::get<ScenarioError>(loaded).message();
        EXPECT_EQ(std::get<Scenario>(loaded).flavor, platform::Flavor::linux);
    }
}

TEST(SimLinuxScenario, MistakesNameTheirPlace) {
    EXPECT_EQ(errorOf(R"({"flavor": "linux", "displays": [{"linux": {"openError": "EWHAT"}}]})"),
              "t.json: displays[0].linux.openError: expected an error name: EACCES, EPERM, "
              "ENOENT, ENODEV, EBUSY, ENXIO or EIO");
    EXPECT_NE(errorOf(R"({"displays": [{"linux": {}}]})").find("displays[0].linux: expected no linux object on a Mac"),
              std::string::npos);
    EXPECT_NE(errorOf(R"({"linux": {}})").find("linux: expected no linux object on a Mac"),
              std::string::npos);
    EXPECT_NE(errorOf(R"({"flavor": "linux", "displays": [{"location": "x"}]})").find("displays[0].location"),
              std::string::npos);
    EXPECT_NE(errorOf(R"({"flavor": "linux", "linux": {"adapters": [{"number": 1, "pciClass": "3"}]}})")
                  .find("linux.adapters[0].pciClass: expected a PCI class"),
              std::string::npos);
    EXPECT_NE(errorOf(R"({"flavor": "linux", "displays": [{"linux": {"connector": "HDMI-1"}}]})")
                  .find("displays[0].linux.connector"),
              std::string::npos);
}

TEST(SimLinuxMachine, PluggingChangesSysfsAndDevAndIsReported) {
    SimMachine machine(load(R"({"flavor": "linux", "displays": [
        {"id": 4, "vendor": 1, "model": 2, "linux": {"adapter": 6}, "monitor": {}}]})"));
    auto& queue = *machine.manualMainQueue();
    int reports = 0;
    ASSERT_TRUE(machine.hotPlug()->start([&] { ++reports; }));
    EXPECT_EQ(machine.platform().registry, nullptr);
    EXPECT_EQ(machine.drm()->connectors().size(), 1u);
    EXPECT_EQ(machine.i2cDevices()->list(), (std::vector<int>{6}));

    auto monitor = machine.monitor(4);
    ASSERT_TRUE(machine.unplug(4));
    queue.runPending();
    EXPECT_EQ(reports, 1);
    EXPECT_TRUE(machine.drm()->connectors().empty());
    EXPECT_TRUE(machine.i2cDevices()->list().empty());
    EXPECT_FALSE(monitor->attached());

    DisplaySpec again;
    again.id = 4, again.vendor = 1, again.model = 2;
    again.monitor = MonitorSpec::withDefaultFeatures();
    again.connector.adapter = 6;
    ASSERT_TRUE(machine.plug(again));
    queue.runPending();
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(machine.adapterOf(4), 6);
    EXPECT_EQ(machine.drm()->connectors().at(0).name, "card0-HDMI-A-1"); // the same port again
}

} // namespace
} // namespace pw::sim
