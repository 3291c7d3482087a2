// The stored options acted on through the popover, the keys and the start-up action, on a
// simulated machine: what reaches the bus, the gamma tables and the store.
#include "base/Preferences.h"
#include "app/StartupActions.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "viewmodel/ViewModelTestBed.h"

namespace pw::test {
namespace {

using namespace std::chrono_literals;
namespace prefs = Preferences;

constexpr std::uint8_t kInput = 0x60;
const std::string kKey = "Monitor 2+4268+41002@2";

class Options : public ViewModelTestBed {
protected:
    void start() { ViewModelTestBed::start(scenarioOf({keyMonitor(2, {50, 100})})); }
    sim::MemoryUserDefaults& store() { return machine->defaults(); }
    std::optional<std::uint16_t> last(std::string_view option) {
        return prefs::lastValue(store(), kKey, option);
    }
    std::shared_ptr<StartupActions> startupActions() {
        auto actions = std::make_shared<StartupActions>(machine->platform(), displays, ddc);
        actions->start();
        return actions;
    }
    // Publishes a fresh enumeration, as a hot-plug does, and lets the writes it causes land.
    void reenumerate() {
        displays->enumerateDisplays();
        mainQueue().runPending();
        settleWrites();
    }
    void waitForRefreshedVolume() {
        runUntil([&] { return !displays->displays().empty() && displays->displays()[0].volume; });
    }
};

TEST_F(Options, ForcedSoftwareBrightnessDimsWithoutAnyDDCBrightnessWrite) {
    start();
    keyboard->setGammaManager(gamma);
    prefs::setForceSoftwareBrightness(store(), true, kKey);

    model->moveBrightnessSlider(2, 30);
    advance(200ms);
    EXPECT_NEAR(dimming(2), 0.1 + 0.9 * 0.3, 1e-9); // the whole slider on the gamma tables
    press(MediaKey::brightnessDown);
    EXPECT_NEAR(dimming(2), 0.37 - 0.0625, 1e-6);
    for (int i = 0; i < 10; ++i)
        press(MediaKey::brightnessDown);
    EXPECT_NEAR(dimming(2), BrightnessCurve::kSoftwareFloor, 1e-9); // never black
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    EXPECT_EQ(monitorValue(2, kBrightness), 50);

    // Switched off in the settings: the very next move is a DDC write again.
    prefs::setForceSoftwareBrightness(store(), false, kKey);
    model->moveBrightnessSlider(2, 100);
    advance(200ms);
    EXPECT_EQ(setWrites(2, kBrightness), std::vector<std::uint16_t>{100});
}

TEST_F(Options, TheValuesLastSetFromThePopoverAndTheKeysAreStoredPerDisplay) {
    start();
    EXPECT_FALSE(last(prefs::kLastBrightness));

    model->moveBrightnessSlider(2, 50); // 100 * 0.5^2.5 = 17.7
    model->moveVolumeSlider(2, 33);
    advance(200ms);
    EXPECT_EQ(last(prefs::kLastBrightness), 18);
    EXPECT_EQ(last(prefs::kLastVolume), 33);
    model->selectInput(2, InputSource::hdmi1);
    settleWrites();
    EXPECT_EQ(last(prefs::kLastInput), 0x11);

    press(MediaKey::volumeUp);
    EXPECT_EQ(last(prefs::kLastVolume), monitorValue(2, kVolume));
    EXPECT_NE(monitorValue(2, kVolume), 33);
}

TEST_F(Options, RestoreLastWritesTheStoredValuesAtLaunchAndWhenTheMonitorComesBack) {
    start();
    store().set(prefs::kStartupAction, std::int64_t{1});
    prefs::setLastValue(store(), kKey, prefs::kLastBrightness, 20);
    prefs::setLastValue(store(), kKey, prefs::kLastVolume, 7);
    prefs::setLastValue(store(), kKey, prefs::kLastInput, 0x0F);

    auto actions = startupActions();
    settleWrites();
    EXPECT_EQ(monitorValue(2, kBrightness), 20);
    EXPECT_EQ(monitorValue(2, kVolume), 7);
    EXPECT_EQ(monitorValue(2, kInput), 0x0F);
    waitForRefreshedVolume(); // read back for the popover
    EXPECT_EQ(displays->displays()[0].volume->current, 7);

    // Unplugged, then back with its own buttons' values: ours are written again.
    ASSERT_TRUE(machine->unplug(2));
    reenumerate();
    ASSERT_TRUE(machine->plug(keyMonitor(2, {90, 100}, {60, 100})));
    machine->bus().clear();
    reenumerate();
    EXPECT_EQ(setWrites(2, kBrightness), std::vector<std::uint16_t>{20});
    EXPECT_EQ(monitorValue(2, kVolume), 7);

    // A refresh changes records in place: not a monitor coming back, nothing written.
    waitForRefreshedVolume();
    machine->bus().clear();
    bool refreshed = false;
    displays->refreshDisplays([&] { refreshed = true; });
    runUntil([&] { return refreshed; });
    settleWrites();
    EXPECT_TRUE(setWrites(2, kBrightness).empty());

    // Changed to "Do nothing" while running: the next return writes nothing.
    store().set(prefs::kStartupAction, std::int64_t{0});
    ASSERT_TRUE(machine->unplug(2));
    reenumerate();
    ASSERT_TRUE(machine->plug(keyMonitor(2, {90, 100})));
    reenumerate();
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    EXPECT_EQ(monitorValue(2, kBrightness), 90);
}

TEST_F(Options, AfterSleepTheLastValuesAreWrittenBackOnlyWhenRestoreIsChosen) {
    start();
    prefs::setLastValue(store(), kKey, prefs::kLastBrightness, 20);
    prefs::setLastValue(store(), kKey, prefs::kLastVolume, 7);
    auto actions = startupActions(); // "Do nothing" at launch
    settleWrites();
    machine->monitor(2)->setFeature(kBrightness, 100, 100); // forgotten over the power cycle
    EXPECT_EQ(actions->afterWake(), 0u);
    settleWrites();
    EXPECT_EQ(monitorValue(2, kBrightness), 100);

    store().set(prefs::kStartupAction, std::int64_t{1});
    EXPECT_EQ(actions->afterWake(), 2u);
    settleWrites();
    EXPECT_EQ(monitorValue(2, kBrightness), 20);
    EXPECT_EQ(monitorValue(2, kVolume), 7);
}

TEST_F(Options, ReadFromDisplaysRefreshesAtLaunchAndDoNothingSendsNothing) {
    start();
    store().set(prefs::kStartupAction, std::int64_t{0});
    prefs::setLastValue(store(), kKey, prefs::kLastBrightness, 20);
    auto quiet = startupActions();
    settleWrites();
    EXPECT_TRUE(machine->bus().transfers().empty());
    EXPECT_FALSE(displays->displays()[0].volume);

    store().set(prefs::kStartupAction, std::int64_t{2});
    auto reading = startupActions();
    waitForRefreshedVolume();
    ASSERT_TRUE(displays->displays()[0].volume);
    EXPECT_EQ(displays->displays()[0].volume->current, 50);
    EXPECT_TRUE(setWrites(2, kBrightness).empty()); // reads only
}

TEST_F(Options, TheTitleFollowsTheFriendlyNameAsItIsTyped) {
    start();
    EXPECT_EQ(model->title(2), "Monitor 2");
    prefs::setFriendlyName(store(), "Left", kKey);
    EXPECT_EQ(model->title(2), "Left");
    EXPECT_EQ(displayTitle(displays->displays()[0]), "Left");
    prefs::setFriendlyName(store(), std::string(), kKey);
    EXPECT_EQ(model->title(2), "Monitor 2");
    EXPECT_EQ(model->title(9), ""); // not shown
}

} // namespace
} // namespace pw::test
