#include "display/DisplayTestBed.h"

#include <algorithm>
#include <atomic>

namespace pw {
namespace {

using namespace std::chrono_literals;
using test::builtinPanel;
using test::monitorDisplay;
using test::scenarioOf;

class HotPlug : public test::DisplayTestBed {
protected:
    long enumerations() const {
        const auto messages = machine->systemLog().messages("Display");
        return std::count(messages.begin(), messages.end(), "Enumerating displays...");
    }
};

// The journey: a monitor plugged in is listed a second later under its name with its
// brightness; pulled out, it disappears the same way. Each report gets its own pass.
TEST_F(HotPlug, PluggedMonitorsAppearAndLeaveOneSecondAfterEachReport) {
    boot(scenarioOf({builtinPanel(), monitorDisplay(2, "Office 27", 4268, 41000, 1)}));
    enumerate();
    manager->startMonitoring();
    mainQueue().runPending();
    EXPECT_EQ(enumerations(), 1); // arming the notifications is not a report

    machine->plug(monitorDisplay(3, "Studio 32", 19971, 3000, 55, 65));
    mainQueue().runPending();
    mainQueue().advance(999ms);
    EXPECT_EQ(enumerations(), 1);
    mainQueue().advance(1ms);
    auto list = manager->displays();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].name, "Studio 32");
    EXPECT_EQ(list[1].brightness, (DDCReadResult{65, 100}));

    machine->unplug(2);
    mainQueue().runPending();
    mainQueue().advance(300ms);
    machine->plug(monitorDisplay(4, "Second", 7789, 5000, 2));
    mainQueue().runPending();
    mainQueue().advance(700ms); // the first report's pass sees both changes...
    EXPECT_EQ(enumerations(), 3);
    list = manager->displays();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, 3u);
    mainQueue().advance(300ms); // ...and the second report still gets its own
    EXPECT_EQ(enumerations(), 4);

    manager.reset(); // reports after the manager is gone change nothing and leak nothing
    machine->plug(monitorDisplay(5, "Late", 1286, 2210, 3));
    mainQueue().runUntilIdle();
    EXPECT_EQ(enumerations(), 4);
    EXPECT_TRUE(machine->ledger().balanced());
}

class Refresh : public test::DisplayTestBed {
protected:
    void forgetReadings() { // as opening the popover does, so reads reach the monitors
        for (const auto& d : manager->displays())
            ddc->invalidateCache(*d.transport);
    }
};

TEST_F(Refresh, StoresWhatCameBackAndRaisesTheStatusOnlyForControlValues) {
    auto contrastOnly = monitorDisplay(2, "Contrast", 4268, 41000, 1);
    contrastOnly.monitor->unsupported = {0x10, 0x62};
    auto muteOnly = monitorDisplay(3, "Mute", 7789, 5000, 2);
    muteOnly.monitor->unsupported = {0x10, 0x12, 0x62};
    boot(scenarioOf({contrastOnly, muteOnly, monitorDisplay(4, "Healthy", 1286, 2210, 3, 40),
                     monitorDisplay(5, "Pulled", 19971, 3000, 4, 30)}));
    enumerate();
    machine->monitor(4)->setFeature(0x10, 75, 100);
    machine->monitor(5)->setAttached(false); // every read fails, no report yet
    forgetReadings();
    int changes = 0;
    manager->subscribe([&](const std::vector<ExternalDisplay>&) { ++changes; });
    const auto list = refresh();

    EXPECT_EQ(list[0].ddcStatus, DDCStatus::verified);
    EXPECT_EQ(list[0].contrast, (DDCReadResult{75, 100}));
    EXPECT_EQ(list[1].ddcStatus, DDCStatus::unverified); // mute and input alone prove nothing
    EXPECT_EQ(list[1].mute, (DDCReadResult{2, 2}));
    EXPECT_EQ(list[1].inputSource, (DDCReadResult{15, 18}));
    EXPECT_EQ(list[2].brightness, (DDCReadResult{75, 100}));
    EXPECT_EQ(list[3].brightness, (DDCReadResult{30, 100})); // kept from the probe
    EXPECT_EQ(list[3].ddcStatus, DDCStatus::verified);
    EXPECT_EQ(changes, (3 + 1) + 2 + (5 + 1)); // one per stored value and status raised

    manager->updateDisplay(4, DDCReadResult{1, 2}, {}, {}, {}, {}); // a vanished position
    EXPECT_EQ(changes, 12);
}

// The refresh reads on its own queue while the main thread replaces the list: whatever
// the interleaving, results land by position or are dropped, the completion runs once,
// and nothing races (run under tsan).
TEST_F(Refresh, RacingAReEnumerationStaysConsistent) {
    boot(scenarioOf({monitorDisplay(2, "A", 4268, 41000, 1), monitorDisplay(3, "B", 7789, 5000, 2),
                     monitorDisplay(4, "C", 1286, 2210, 3)}));
    enumerate();
    forgetReadings();
    for (platform::DisplayID gone : {4u, 3u, 2u}) {
        std::atomic<int> completions = 0;
        manager->refreshDisplays([&] { ++completions; });
        machine->unplug(gone);
        const auto list = enumerate();
        while (completions == 0)
            mainQueue().waitAndRun();
        mainQueue().runUntilIdle();
        EXPECT_EQ(completions, 1);
        EXPECT_EQ(list.size(), gone - 2);
        if (!list.empty()) EXPECT_EQ(manager->displays().back().id, gone - 1);
    }
    // An empty list reads nothing and still completes, once.
    machine->bus().clear();
    int completions = 0;
    manager->refreshDisplays([&] { ++completions; });
    while (completions == 0)
        mainQueue().waitAndRun();
    mainQueue().runUntilIdle();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(machine->bus().transfers().empty());
    EXPECT_TRUE(machine->ledger().balanced());
}

} // namespace
} // namespace pw
