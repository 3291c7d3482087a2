// The main thread never waits for the bus: a hot-plug enumeration probing a monitor that
// does not answer must not keep the media keys waiting, since the key hook's thread waits
// for the main thread's answer to every event.
#include "display/DisplayTestBed.h"
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"

#include <condition_variable>
#include <mutex>

namespace pw {
namespace {

using namespace std::chrono_literals;
using test::builtinPanel;
using test::monitorDisplay;
using test::scenarioOf;

class BackgroundEnumeration : public test::DisplayTestBed {};

TEST_F(BackgroundEnumeration, KeysAreAnsweredWhileAHotPlugProbesADeadMonitor) {
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

} // namespace
} // namespace pw
