// Repeats that arrive while a display's key work is still on the bus: they queue per
// display on its worker and fold into one further unit instead of one stale step each.
#include "base/Preferences.h"
#include "keyboard/KeyboardTestBed.h"

#include <future>

namespace pw::test {
namespace {

using Values = std::vector<std::uint16_t>;

// Holds the DDC manager's transfer queue, as a slow bus does, until released: key work
// scheduled meanwhile waits at its first transfer.
class BusHold {
public:
    explicit BusHold(DDCManager& ddc) {
        ddc.globalDDCQueue().async([gate = released_.get_future().share()] { gate.wait(); });
    }
    ~BusHold() { release(); }
    void release() {
        if (!done_) released_.set_value();
        done_ = true;
    }

private:
    std::promise<void> released_;
    bool done_ = false;
};

// Key workers take their name a moment after they start: spins (no sleeping) until
// `ready` holds for the count.
template <typename Ready> std::size_t keyPressThreadsOnceSettled(Ready ready) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    auto n = threadCount("keypress");
    while (!ready(n) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
        n = threadCount("keypress");
    }
    return n;
}
bool keyPressThreadsGone() {
    return threadCount("keypress") == 0; // joined: gone at once
}
// At least `expected` running: then exactly that many, however many presses wait.
std::size_t keyPressThreadsRunning(std::size_t expected) {
    return keyPressThreadsOnceSettled([&](std::size_t n) { return n >= expected; });
}

class KeyRepeatTest : public KeyboardTestBed {
protected:
    // A key typed on the simulated keyboard, as the tap delivers it (repeat bit set).
    void type(std::int32_t systemCode) {
        const auto event =
            machine->eventTaps().inject(sim::SimEventTaps::systemDefined(systemCode << 16 | 0x0A01));
        ASSERT_TRUE(event->runMainUntilReady(mainQueue()));
        ASSERT_EQ(event->outcome(), sim::InjectedEvent::Outcome::swallowed);
    }
    std::size_t getRequests(platform::DisplayID id, std::uint8_t code) const {
        std::size_t n = 0;
        for (const auto& t : machine->bus().transfers())
            if (t.endpoint == "display " + std::to_string(id) && t.bytes.size() == 4 &&
                t.bytes[1] == 0x01 && t.bytes[2] == code)
                ++n;
        return n;
    }

    static constexpr std::int32_t kVolumeUpCode = 0, kVolumeDownCode = 1, kBrightnessUpCode = 2,
                                  kMuteCode = 7;
};

TEST_F(KeyRepeatTest, RepeatsFoldPerDisplayAndFeatureIntoOneUnitFromTheValueLeftBehind) {
    boot(scenarioOf({builtinPanel(), keyMonitor(2, {50, 100}, {50, 100}, {2, 2}),
                     keyMonitor(3, {20, 100})}));
    keyboard->start();
    ASSERT_TRUE(keyPressThreadsGone()); // a worker comes with a display's first key
    machine->displayServices().movePointerTo(2);
    {
        BusHold slowBus(*ddc);
        for (int i = 0; i < 4; ++i) // the first runs, three wait
            type(kBrightnessUpCode);
        type(kVolumeDownCode);
        type(kVolumeDownCode);
        for (int i = 0; i < 3; ++i) // an odd number: one toggle
            type(kMuteCode);
        machine->displayServices().movePointerTo(3);
        type(kBrightnessUpCode); // another display: a lane of its own
        EXPECT_EQ(keyboard->pressesInFlight(), 10u);
        EXPECT_EQ(keyPressThreadsRunning(2), 2u);
    }
    settle();
    EXPECT_EQ(setWrites(2, kBrightness), (Values{56, 74})); // 50+6, then +6 +6 +6 from 56
    EXPECT_EQ(setWrites(2, kVolume), Values{38});
    EXPECT_EQ(setWrites(2, kMute), Values{1});
    EXPECT_EQ(setWrites(3, kBrightness), Values{26});
    EXPECT_EQ(monitorValue(2, kBrightness), 74);
    EXPECT_EQ(ddc->cachedValue(*displays->displays()[0].transport, kBrightness)->current, 74);

    std::vector<std::pair<std::uint32_t, std::uint32_t>> shown; // image, filled
    for (const auto& s : nativeShows())
        if (s.displayID == 2) shown.emplace_back(s.image, s.filledChiclets);
    const auto filled = [](float level) {
        return static_cast<std::uint32_t>(platform::macos::MacLevelIndicator::filledChiclets(level));
    };
    EXPECT_EQ(shown, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{
                         {platform::macos::kOSDBrightnessImage, filled(0.56f)},
                         {platform::macos::kOSDBrightnessImage, filled(0.74f)},
                         {platform::macos::kOSDVolumeImage, filled(0.38f)},
                         {platform::macos::kOSDMuteImage, 0}}));

    // Toggles that cancel out leave the monitor alone; down steps after up ones count too.
    {
        BusHold slowBus(*ddc);
        type(kVolumeUpCode);
        type(kMuteCode);
        type(kMuteCode);
        type(kVolumeUpCode);
        type(kVolumeDownCode);
        type(kVolumeDownCode);
    }
    settle();
    EXPECT_EQ(setWrites(3, kMute), Values{});
    EXPECT_EQ(getRequests(3, kMute), 0u);
    EXPECT_EQ(setWrites(3, kVolume), (Values{56, 50})); // 50+6, then +6 -6 -6 from 56
    EXPECT_EQ(threadCount("keypress"), 2u); // one worker per display, kept
    keyboard->stop();
    EXPECT_TRUE(keyPressThreadsGone()); // stop joined them
}

TEST_F(KeyRepeatTest, AHeldKeyOnASilentMonitorCostsTwoUnitsWhateverTheRepeatCount) {
    auto silent = keyMonitor(2, {50, 100});
    silent.monitor->faults.silent.always = true;
    boot(scenarioOf({silent}));
    keyboard->start();
    press(MediaKey::brightnessUp);
    const auto onePress = machine->bus().transfers().size();
    ASSERT_GT(onePress, 0u);

    machine->bus().clear();
    machine->systemLog().clear();
    {
        BusHold slowBus(*ddc);
        for (int r = 0; r < 60; ++r) { // two seconds of auto-repeat
            type(kBrightnessUpCode);
            mainQueue().advance(std::chrono::milliseconds(33));
        }
        EXPECT_EQ(keyboard->pressesInFlight(), 60u);
        EXPECT_EQ(keyPressThreadsRunning(1), 1u);
    }
    settle();
    EXPECT_EQ(machine->bus().transfers().size(), 2 * onePress);
    EXPECT_EQ(machine->bus().overlapCount(), 0u);
    EXPECT_EQ(machine->systemLog().messages("Keyboard"),
              std::vector<std::string>(2, "Failed to read Brightness for key adjustment"));
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    keyboard->stop();
    EXPECT_TRUE(keyPressThreadsGone());
}

TEST_F(KeyRepeatTest, UnmutingReadsTheVolumeInThePressNotOnTheMainThread) {
    boot(scenarioOf({keyMonitor(2, {50, 100}, {75, 100}, {1, 2})}));
    const auto transport = displays->displays()[0].transport;
    ddc->invalidateCache(*transport); // the volume read goes to the bus
    keyboard->handle({MediaKey::mute});
    keyboard->waitForPresses();
    EXPECT_EQ(getRequests(2, kVolume), 1u);
    const auto transfers = machine->bus().transfers().size();
    mainQueue().runPending();
    EXPECT_EQ(machine->bus().transfers().size(), transfers) << "the main thread touched the bus";
    ASSERT_EQ(nativeShows().size(), 1u);
    EXPECT_EQ(nativeShows()[0].image, platform::macos::kOSDVolumeImage);
    EXPECT_EQ(nativeShows()[0].filledChiclets,
              static_cast<std::uint32_t>(platform::macos::MacLevelIndicator::filledChiclets(0.75f)));

    // Indicators off when the key is pressed: nothing is read for them.
    machine->defaults().set(Preferences::kShowOSD, platform::DefaultsValue(false));
    press(MediaKey::mute);
    ddc->invalidateCache(*transport);
    press(MediaKey::mute);
    EXPECT_EQ(setWrites(2, kMute), (Values{2, 1, 2}));
    EXPECT_EQ(getRequests(2, kVolume), 1u);
    EXPECT_EQ(nativeShows().size(), 1u);
}

} // namespace
} // namespace pw::test
