// The desktop's pieces as the app assembles them, and what the app does after the machine
// sleeps: on a simulated machine and virtual time, the sleep reports from a simulated source,
// exactly as logind's reach the app.
#include "keyboard/KeyboardTestBed.h"
#include "platform/WindowIndicator.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/SimOSD.h"
#include "platform/sim/VirtualClock.h"
#include "platform/sim/SimPowerEvents.h"
#include "common/TestSupport.h"
#include "ui/AppMachine.h"
#include "ui/DesktopAssembly.h"
#include "ui/QtMainQueue.h"

#include <QCoreApplication>

#include <fstream>
#include "platform/sim/BusLog.h"
#include "platform/sim/SimMachine.h"
#include "ui/WakeFollower.h"

#include <chrono>
#include <cstdlib>
#include <thread>

namespace pw::test {
namespace {

class WakeFollowerTest : public KeyboardTestBed {
protected:
    void SetUp() override {
        boot(scenarioOf({keyMonitor(2, {40, 100}), keyMonitor(3, {70, 100})}));
        follower = std::make_unique<ui::WakeFollower>(events, machine->platform().mainQueue,
                                                      displays);
        follower->setAfterWake([this] { ++afterWakeRuns; });
    }
    void TearDown() override { follower.reset(); }

    // Runs the main queue until the work posted from other threads is done (nothing more
    // arrives within two seconds of real time; only a broken test ever waits that long).
    void runUntilAfterWake(int runs) {
        while (afterWakeRuns < runs)
            if (mainQueue().waitAndRun(std::chrono::seconds(2)) == 0) return;
    }

    std::optional<std::uint16_t> listedBrightness(platform::DisplayID id) const {
        for (const auto& d : displays->displays())
            if (d.id == id && d.brightness) return d.brightness->current;
        return std::nullopt;
    }
    std::optional<std::uint16_t> read(platform::DisplayID id) {
        for (const auto& d : displays->displays())
            if (d.id == id) {
                auto value = ddc->read(d.transport, VCPCode(kBrightness));
                if (value) return value->current;
            }
        return std::nullopt;
    }

    std::shared_ptr<sim::SimPowerEvents> events = std::make_shared<sim::SimPowerEvents>();
    std::unique_ptr<ui::WakeFollower> follower;
    int afterWakeRuns = 0;
};

TEST_F(WakeFollowerTest, AfterWakeTheMonitorsAreReadAfreshNotFromTheCache) {
    ASSERT_EQ(read(2), 40); // now cached
    // The monitor came back from its power cycle at another brightness.
    machine->monitor(2)->setFeature(kBrightness, 100, 100);
    EXPECT_EQ(read(2), 40) << "a fresh cache still answers for the monitor";

    events->sleep();
    events->wake();
    EXPECT_EQ(afterWakeRuns, 0) << "the wake-up is handled on the main queue, not at once";
    runUntilAfterWake(1);

    EXPECT_EQ(afterWakeRuns, 1);
    EXPECT_EQ(listedBrightness(2), 100);
    EXPECT_EQ(listedBrightness(3), 70);
    EXPECT_EQ(read(2), 100);
    EXPECT_TRUE(setWrites(2, kBrightness).empty()) << "waking up reads, it writes nothing";
}

TEST_F(WakeFollowerTest, AMonitorPluggedWhileAsleepIsListedAfterWake) {
    ASSERT_TRUE(machine->unplug(3));
    ASSERT_TRUE(machine->plug(keyMonitor(4, {25, 100})));
    events->wake();
    runUntilAfterWake(1);
    std::vector<platform::DisplayID> ids;
    for (const auto& d : displays->displays()) ids.push_back(d.id);
    EXPECT_EQ(ids, (std::vector<platform::DisplayID>{2, 4}));
    EXPECT_EQ(listedBrightness(4), 25);
}

TEST_F(WakeFollowerTest, AWakeReportedFromAnotherThreadRunsOnTheMainQueue) {
    std::thread source([this] { events->wake(); });
    source.join();
    EXPECT_EQ(afterWakeRuns, 0);
    runUntilAfterWake(1);
    EXPECT_EQ(afterWakeRuns, 1);
}

TEST_F(WakeFollowerTest, OnceTheFollowerIsGoneWakeUpsChangeNothing) {
    events->wake(); // posted, then the follower goes before the main queue runs it
    follower.reset();
    events->wake(); // no handler any more
    mainQueue().runPending();
    EXPECT_EQ(afterWakeRuns, 0);
    EXPECT_FALSE(displays->enumerationInProgress());
}

TEST(WakeFollowerWithoutReports, AMachineWithoutSleepReportsIsFine) {
    ui::WakeFollower follower(nullptr, nullptr, nullptr);
    follower.setAfterWake([] {});
}

// Sets environment variables for one test and puts the old values back.
class ScopedEnvironment {
public:
    void set(const char* name, const char* value) {
        const char* old = std::getenv(name);
        saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
        if (value) ::setenv(name, value, 1);
        else ::unsetenv(name);
    }
    ~ScopedEnvironment() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
            if (it->second) ::setenv(it->first.c_str(), it->second->c_str(), 1);
            else ::unsetenv(it->first.c_str());
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(DesktopAssembly, AWaylandSessionWithoutXOrBusStartsAtOnceAndSaysWhatIsUnavailable) {
    ScopedEnvironment env;
    env.set("XDG_SESSION_TYPE", "wayland");
    env.set("WAYLAND_DISPLAY", "wayland-0");
    env.set("DISPLAY", nullptr);
    // A bus that is not there: neither the machine's session bus nor a wait.
    env.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/panelwright-test-bus");

    auto log = std::make_shared<sim::MemorySystemLog>();
    sim::VirtualClock clock;
    platform::LinuxMachine machine;
    platform::Platform& p = machine.platform;
    p.systemLog = log;
    p.mainQueue = std::make_shared<sim::ManualMainQueue>(clock);
    const auto started = std::chrono::steady_clock::now();
    const auto power =
        ui::assembleDesktop(machine, std::make_shared<sim::SimIndicatorWindow>(nullptr));
    // Generous: the pieces' bus timeouts are 500 ms each; a hang would be far longer.
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));

    EXPECT_FALSE(p.gamma) << "no half-working dimming";
    EXPECT_FALSE(p.mediaKeys);
    EXPECT_TRUE(dynamic_cast<platform::WindowIndicator*>(p.indicator.get()))
        << "the app's own indicator stays in charge";
    bool said = false;
    for (const auto& e : log->entries()) said = said || e.message.find("unavailable") != std::string::npos;
    EXPECT_TRUE(said) << "what is unavailable is said in the log";
}

// "Launch at login" on the simulated machine outlives the run, as on the real one, and
// stays out of the person's own autostart folder.
TEST(SimulatedAppMachine, LaunchAtLoginIsRememberedAtTheNextStart) {
    TempDir dir;
    ScopedEnvironment env;
    env.set("XDG_STATE_HOME", (dir.path() / "state").c_str());
    env.set("XDG_CONFIG_HOME", (dir.path() / "config").c_str());
    auto queue = std::make_shared<ui::QtMainQueue>(qApp);
    const auto scenarioFile = dir.path() / "one.json";
    {
        auto first = ui::AppMachine::simulated(sim::Scenario{}, scenarioFile, queue, nullptr);
        ASSERT_TRUE(first->platform().loginItems);
        EXPECT_FALSE(first->platform().loginItems->isEnabled());
        EXPECT_TRUE(first->platform().loginItems->setEnabled(true));
    }
    auto second = ui::AppMachine::simulated(sim::Scenario{}, scenarioFile, queue, nullptr);
    EXPECT_TRUE(second->platform().loginItems->isEnabled());
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "config" / "autostart"));
    queue->close();
}

// The app reads no bus history back: keeping it grew the demo by every transfer of every
// opening of the popover. What --bus-log records still reaches its file.
TEST(SimulatedAppMachine, KeepsNoBusHistory) {
    TempDir dir;
    ScopedEnvironment env;
    env.set("XDG_STATE_HOME", (dir.path() / "state").c_str());
    auto queue = std::make_shared<ui::QtMainQueue>(qApp);
    for (const bool recording : {false, true}) {
        auto app = ui::AppMachine::simulated(sim::Scenario{}, dir.path() / "one.json", queue, nullptr);
        if (recording) ASSERT_TRUE(app->recordBus(dir.path() / "bus.tsv"));
        auto& bus = app->simulation()->bus();
        for (int i = 0; i < 3; ++i)
            bus.finish(bus.begin(sim::BusTransfer::Kind::write, "display 2", 0x37, 0x51), {0x51},
                       0);
        EXPECT_TRUE(bus.transfers().empty()) << recording;
    }
    std::ifstream recorded(dir.path() / "bus.tsv");
    std::string line;
    int lines = 0;
    while (std::getline(recorded, line)) ++lines;
    EXPECT_EQ(lines, 3);
    queue->close();
}

} // namespace
} // namespace pw::test
