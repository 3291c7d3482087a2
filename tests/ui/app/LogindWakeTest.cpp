// The whole way from logind's wake-up to the monitors: a fake logind on a private system
// bus, the real watcher behind the sleep seam, the app's wake follower and start-up
// actions, and a simulated machine whose monitor forgot its values while asleep.
#include "base/Preferences.h"
#include "app/StartupActions.h"
#include "keyboard/KeyboardTestBed.h"
#include "platform/linux/desktop/SleepWatcher.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "ui/WakeFollower.h"

#include "DesktopTestSupport.h"

namespace pw::test {
namespace {

namespace prefs = Preferences;

constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

class LogindWake : public KeyboardTestBed {
protected:
    void SetUp() override {
        bus = PrivateBus::start();
        if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
        boot(scenarioOf({keyMonitor(2, {50, 100})}));
        const std::string key = displays->displays().at(0).preferenceKey();
        auto& store = machine->defaults();
        prefs::setLastValue(store, key, prefs::kLastBrightness, 20);
        prefs::setLastValue(store, key, prefs::kLastVolume, 7);
        store.set(prefs::kStartupAction, std::int64_t{1}); // "Restore last values"

        actions = std::make_shared<StartupActions>(machine->platform(), displays, ddc);
        actions->start();
        settleWrites();
        machine->bus().clear();

        events = std::make_shared<linuxdesktop::LogindPowerEvents>(
            linuxdesktop::DesktopLog{log}, bus->address());
        follower = std::make_unique<ui::WakeFollower>(events, machine->platform().mainQueue, displays);
        follower->setAfterWake([this] {
            actions->afterWake();
            ++afterWakeRuns;
        });
        logind = BusPeer::connect(bus->address(), "org.freedesktop.login1");
        ASSERT_TRUE(logind);
    }
    void TearDown() override {
        follower.reset();
        events.reset();
    }

    void settleWrites() {
        ddc->queue().sync([] {});
        mainQueue().runPending();
    }
    // The wake-up comes from the watcher's thread through the main queue; nothing more
    // arriving for two seconds of real time means it never will (only a broken test waits).
    void runUntilAfterWake() {
        while (afterWakeRuns == 0)
            if (mainQueue().waitAndRun(std::chrono::seconds(2)) == 0) return;
        settleWrites();
    }

    std::optional<PrivateBus> bus;
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
    std::shared_ptr<StartupActions> actions;
    std::shared_ptr<linuxdesktop::LogindPowerEvents> events;
    std::unique_ptr<ui::WakeFollower> follower;
    std::unique_ptr<BusPeer> logind;
    int afterWakeRuns = 0;
};

TEST_F(LogindWake, ResumeFromLogindWritesTheLastValuesBack) {
    ASSERT_EQ(monitorValue(2, kBrightness), 20) << "restored at launch";
    // Over the power cycle the monitor went back to its own defaults.
    machine->monitor(2)->setFeature(kBrightness, 100, 100);
    machine->monitor(2)->setFeature(kVolume, 50, 100);

    logind->emitBool(kPath, kInterface, "PrepareForSleep", true);
    logind->emitBool(kPath, kInterface, "PrepareForSleep", false);
    runUntilAfterWake();

    ASSERT_EQ(afterWakeRuns, 1);
    // One write each: going to sleep wrote nothing, waking up wrote the values once.
    EXPECT_EQ(setWrites(2, kBrightness), std::vector<std::uint16_t>{20});
    EXPECT_EQ(setWrites(2, kVolume), std::vector<std::uint16_t>{7});
    EXPECT_EQ(monitorValue(2, kBrightness), 20);
    EXPECT_EQ(monitorValue(2, kVolume), 7);
}

} // namespace
} // namespace pw::test
