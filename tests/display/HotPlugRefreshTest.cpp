#include "display/DisplayTestBed.h"
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <thread>
#include <mutex>

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
    // Moves virtual time on, then lets a background enumeration that started meanwhile
    // finish and publish.
    void advanceAndSettle(std::chrono::milliseconds duration) {
        mainQueue().advance(duration);
        while (manager && manager->enumerationInProgress())
            mainQueue().waitAndRun();
    }
    std::vector<platform::DisplayID> ids() const {
        std::vector<platform::DisplayID> out;
        for (const auto& d : manager->displays())
            out.push_back(d.id);
        return out;
    }
};

// The journey: a dock announces its monitors one by one; they are listed together a second
// after its last report, by one enumeration, under their names with their brightness.
TEST_F(HotPlug, AStormOfReportsEndsInOneEnumerationOneSecondAfterTheLast) {
    boot(scenarioOf({builtinPanel(), monitorDisplay(2, "Office 27", 4268, 41000, 1)}));
    enumerate();
    manager->startMonitoring();
    mainQueue().runPending();
    EXPECT_EQ(enumerations(), 1); // arming the notifications is not a report

    machine->plug(monitorDisplay(3, "Studio 32", 19971, 3000, 55, 65));
    advanceAndSettle(600ms);
    machine->plug(monitorDisplay(4, "Second", 7789, 5000, 2));
    advanceAndSettle(600ms);
    machine->unplug(2);
    advanceAndSettle(999ms); // 2.2 s of reports and waiting, nothing enumerated yet
    EXPECT_EQ(enumerations(), 1);
    advanceAndSettle(1ms);
    EXPECT_EQ(enumerations(), 2);
    EXPECT_EQ(ids(), (std::vector<platform::DisplayID>{3, 4}));
    EXPECT_EQ(manager->displays()[0].name, "Studio 32");
    EXPECT_EQ(manager->displays()[0].brightness, (DDCReadResult{65, 100}));
    advanceAndSettle(5s);
    EXPECT_EQ(enumerations(), 2);

    // A report arriving after the window closed gets its own pass.
    machine->unplug(4);
    advanceAndSettle(1s);
    EXPECT_EQ(enumerations(), 3);
    EXPECT_EQ(ids(), (std::vector<platform::DisplayID>{3}));

    manager.reset(); // reports after the manager is gone change nothing and leak nothing
    machine->plug(monitorDisplay(5, "Late", 1286, 2210, 3));
    mainQueue().runUntilIdle();
    EXPECT_EQ(enumerations(), 3);
    EXPECT_TRUE(machine->ledger().balanced());
}

// Background passes never overlap: requests made while one runs are served by one more
// pass after it, and each completion runs once, after the list it waited for is out.
TEST_F(HotPlug, BackgroundPassesQueueBehindEachOtherAndCompleteAfterPublishing) {
    boot(scenarioOf({builtinPanel(), monitorDisplay(2, "Office 27", 4268, 41000, 1)}));
    std::vector<std::string> done;
    manager->enumerateDisplaysInBackground([&] {
        done.push_back("first:" + std::to_string(manager->displays().size()));
        DiagnosticLog::log("App", "Display enumeration complete");
    });
    EXPECT_TRUE(manager->enumerationInProgress());
    machine->plug(monitorDisplay(3, "Studio 32", 19971, 3000, 55));
    manager->enumerateDisplaysInBackground([&] { done.push_back("second"); });
    manager->enumerateDisplaysInBackground([&] { done.push_back("third"); });
    manager->enumerateDisplaysInBackground(); // no completion at all is fine too
    advanceAndSettle(0ms);

    EXPECT_EQ(enumerations(), 2);
    ASSERT_EQ(done.size(), 3u);
    EXPECT_TRUE(done[0] == "first:1" || done[0] == "first:2") << done[0];
    EXPECT_EQ(done[1], "second");
    EXPECT_EQ(done[2], "third");
    EXPECT_EQ(ids(), (std::vector<platform::DisplayID>{2, 3}));
    EXPECT_EQ(machine->bus().overlapCount(), 0u);

    // In the log, each pass runs from its first line to its last before the next begins,
    // and the launch's own line follows the first pass's lines.
    std::vector<std::string> marks;
    for (const auto& line : logLines("Display")) {
        if (line == "[Display] enumerateDisplays() called") marks.push_back("begin");
        if (line.starts_with("[Display] Enumeration complete")) marks.push_back("end");
    }
    EXPECT_EQ(marks, (std::vector<std::string>{"begin", "end", "begin", "end"}));
    const auto app = logLines("App");
    ASSERT_EQ(app.size(), 1u);
    const auto log = test::readFile(dir / "Panelwright.log");
    EXPECT_LT(log.find("Enumeration complete"), log.find("Display enumeration complete"));
}

// The main thread never waits for the bus: a hot-plug enumeration probing a monitor that
// does not answer must not keep the media keys waiting, since the key hook's thread waits
// for the main thread's answer to every key event.
TEST_F(HotPlug, KeysAreAnsweredWhileAHotPlugProbesADeadMonitor) {
    boot(scenarioOf({builtinPanel(), monitorDisplay(2, "Office 27", 4268, 41000, 1, 50)}));
    enumerate();
    auto osd = OSDManager::create(machine->platform());
    auto keyboard = std::make_shared<KeyboardManager>(machine->platform(), manager, ddc, osd);
    keyboard->start();
    manager->startMonitoring();
    mainQueue().runPending();

    // The first transfer to the new monitor holds the bus until the test lets go, so the
    // enumeration is caught in the middle of its probe.
    std::mutex mutex;
    std::condition_variable changed;
    bool probing = false, released = false;
    machine->bus().setObserver([&](const sim::BusTransfer& transfer) {
        if (transfer.endpoint != "display 3") return;
        std::unique_lock lock(mutex);
        if (probing) return;
        probing = true;
        changed.notify_all();
        // Bounded, so that a main thread stuck in the probe fails the test instead of
        // hanging it.
        changed.wait_for(lock, 20s, [&] { return released; });
    });
    ASSERT_TRUE(machine->plug(monitorDisplay(3, "Dead", 7789, 5000, 2)));
    machine->monitor(3)->setAttached(false);
    mainQueue().advance(1000ms); // the report's wait is over: the enumeration starts
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, 20s, [&] { return probing; }));
    }
    ASSERT_TRUE(manager->enumerationInProgress());

    machine->displayServices().movePointerTo(2);
    const auto key = machine->eventTaps().inject(sim::SimEventTaps::systemDefined(0x00020A00));
    ASSERT_TRUE(key->runMainUntilReady(mainQueue()));
    EXPECT_EQ(key->outcome(), sim::InjectedEvent::Outcome::swallowed);
    {
        std::lock_guard lock(mutex);
        EXPECT_FALSE(released); // answered while the probe still held the bus
        released = true;
    }
    changed.notify_all();
    EXPECT_TRUE(manager->enumerationInProgress());

    while (manager->enumerationInProgress())
        mainQueue().waitAndRun();
    keyboard->waitForPresses();
    mainQueue().runPending();
    machine->bus().setObserver({});

    const auto list = manager->displays();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].id, 3u);
    EXPECT_EQ(list[1].ddcStatus, DDCStatus::unverified);
    // The press waited for the bus, not the main thread, and reached its monitor.
    EXPECT_GT(machine->monitor(2)->feature(0x10)->current, 50);
    EXPECT_EQ(machine->bus().overlapCount(), 0u);
    keyboard->stop();
}

// The owner lets go of the manager while a refresh or a background enumeration is on the
// bus: the manager must still end on the main thread, never on the worker that read.
TEST_F(HotPlug, AManagerLetGoDuringBusWorkEndsOnTheMainThread) {
    // Held by the manager alone: its destructor tells on which thread the manager ended.
    struct EndWitness final : platform::LevelIndicator {
        std::promise<std::thread::id> ended;
        ~EndWitness() override { ended.set_value(std::this_thread::get_id()); }
        void show(platform::IndicatorKind, float, platform::DisplayID) override {}
    };
    using Start = std::function<void(DisplayManager&, DisplayManager::Completion)>;
    const std::pair<const char*, Start> work[] = {
        {"refresh", [](DisplayManager& m, auto done) { m.refreshDisplays(std::move(done)); }},
        {"enumeration",
         [](DisplayManager& m, auto done) { m.enumerateDisplaysInBackground(std::move(done)); }},
    };
    for (const auto& [name, start] : work) {
        SCOPED_TRACE(name);
        boot(scenarioOf({monitorDisplay(2, "Office 27", 4268, 41000, 1, 50)}));
        auto witness = std::make_shared<EndWitness>();
        auto ended = witness->ended.get_future();
        auto platform = machine->platform();
        platform.indicator = std::move(witness);
        auto owned = std::make_shared<DisplayManager>(platform, ddc);
        platform = {};
        owned->enumerateDisplays();
        mainQueue().runPending();
        ddc->invalidateCache(*owned->displays().at(0).transport);

        std::mutex mutex;
        std::condition_variable changed;
        bool reading = false, letGo = false, resetting = false;
        machine->bus().setObserver([&](const sim::BusTransfer&) {
            std::unique_lock lock(mutex);
            if (reading) return;
            reading = true;
            changed.notify_all();
            changed.wait_for(lock, 20s, [&] { return letGo; });
        });
        bool done = false;
        start(*owned, [&] { done = true; });
        {
            std::unique_lock lock(mutex);
            ASSERT_TRUE(changed.wait_for(lock, 20s, [&] { return reading; }));
        }
        // The bus is let go once the owner has begun letting go of the manager, which then
        // waits for its worker.
        std::thread releaser([&] {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return resetting; });
            letGo = true;
            changed.notify_all();
        });
        {
            std::lock_guard lock(mutex);
            resetting = true;
        }
        changed.notify_all();
        owned.reset(); // while the worker is on the bus
        releaser.join();
        while (ended.wait_for(0s) != std::future_status::ready && mainQueue().waitAndRun(1s) > 0) {
        }
        mainQueue().runUntilIdle();
        machine->bus().setObserver({});
        EXPECT_EQ(ended.get(), std::this_thread::get_id());
    }
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
    EXPECT_EQ(changes, 1); // the refreshed list is published once, whole

    manager->updateDisplay({5, list[3].transport->endpointKey() + 1}, DDCReadResult{1, 2}, {}, {},
                           {}, {}); // a channel the list does not hold
    EXPECT_EQ(changes, 1);
}

// One refresh of two displays, and one hot-plug pass, each tell the observers once.
TEST_F(Refresh, OneRefreshAndOnePassEachSendOneChangeNotification) {
    boot(scenarioOf({monitorDisplay(2, "A", 4268, 41000, 1, 20),
                     monitorDisplay(3, "B", 7789, 5000, 2, 40)}));
    enumerate();
    forgetReadings();
    std::vector<std::size_t> published;
    manager->subscribe([&](const std::vector<ExternalDisplay>& list) {
        published.push_back(list.size());
    });
    refresh();
    EXPECT_EQ(published, (std::vector<std::size_t>{2}));
    bool done = false;
    manager->enumerateDisplaysInBackground([&] { done = true; });
    while (!done)
        mainQueue().waitAndRun();
    EXPECT_EQ(published, (std::vector<std::size_t>{2, 2}));
}

// A test (or a program) that ends with a refresh and a pass in flight leaves nothing
// behind: the workers are joined and nothing on the main queue keeps the manager alive
// (asan's leak check fails otherwise).
TEST_F(Refresh, EndingWithWorkInFlightLeavesNothingBehind) {
    boot(scenarioOf({monitorDisplay(2, "A", 4268, 41000, 1, 20)}));
    enumerate();
    forgetReadings();
    std::weak_ptr<DisplayManager> weak = manager;
    manager->refreshDisplays();
    manager->enumerateDisplaysInBackground();
    manager.reset();
    EXPECT_TRUE(weak.expired());
    mainQueue().runUntilIdle();
}

// The refresh reads on its own queue while the main thread replaces the list: whatever
// the interleaving, results land on their own record or are dropped, the completion runs once,
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

// A display before the one being read goes away while the refresh runs, so the next one
// moves up into its place: nothing read from one monitor may land on another.
TEST_F(Refresh, AReadingNeverLandsOnTheDisplayThatMovedIntoItsPlace) {
    boot(scenarioOf({monitorDisplay(2, "A", 4268, 41000, 1, 20),
                     monitorDisplay(3, "B", 7789, 5000, 2, 40),
                     monitorDisplay(4, "C", 1286, 2210, 3, 60)}));
    machine->monitor(3)->setFeature(0x12, 41, 100);
    enumerate();
    // A is pulled out; the new list [B, C] is built (its probes read 40 and 60), and the
    // refresh starts from the old list [A, B, C] before the new one is published.
    machine->unplug(2);
    manager->enumerateDisplays();
    machine->monitor(3)->setFeature(0x10, 11, 100);
    machine->monitor(4)->setFeature(0x10, 77, 100);
    forgetReadings();
    bool done = false;
    manager->refreshDisplays([&] { done = true; });
    while (!done)
        mainQueue().waitAndRun();
    mainQueue().runUntilIdle();

    const auto list = manager->displays();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, 3u);
    EXPECT_EQ(list[1].id, 4u);
    // Readings of the old records are dropped: the new ones keep what their probes found.
    EXPECT_EQ(list[0].brightness, (DDCReadResult{40, 100}));
    EXPECT_EQ(list[1].brightness, (DDCReadResult{60, 100}));
    EXPECT_EQ(list[1].contrast, std::nullopt);

    // A refresh of the new list stores each monitor's own values.
    forgetReadings();
    const auto refreshed = refresh();
    EXPECT_EQ(refreshed[0].brightness, (DDCReadResult{11, 100}));
    EXPECT_EQ(refreshed[0].contrast, (DDCReadResult{41, 100}));
    EXPECT_EQ(refreshed[1].brightness, (DDCReadResult{77, 100}));
}

} // namespace
} // namespace pw
