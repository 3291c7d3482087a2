// The simulated Linux machine: what plugging does to sysfs, /dev and udev. Its scenario
// fields are refused in the scenario loader's tests.

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

TEST(SimLinuxMachine, PluggingChangesSysfsAndDevAndIsReported) {
    SimMachine machine(load(R"({"flavor": "linux", "displays": [
        {"id": 4, "vendor": 1, "model": 2, "linux": {"adapter": 6}, "monitor": {}}]})"));
    auto& queue = *machine.manualMainQueue();
    int reports = 0;
    ASSERT_TRUE(machine.hotPlug()->start([&] { ++reports; }));
    EXPECT_EQ(machine.macMonitors(), nullptr);
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
