#include "app/Tuning.h"
#include "base/Preferences.h"
#include "keyboard/KeyboardTestBed.h"

#include <cmath>

namespace pw::test {
namespace {

using Direction = KeyboardManager::Direction;
using Values = std::vector<std::uint16_t>;

TEST(KeyboardStep, TruncatesLimitsAndNeverWrapsSixteenBits) {
    const auto step = [](std::uint16_t cur, std::uint16_t max, Direction d, float s = 0.0625f) {
        return KeyboardManager::stepValue(cur, max, d, s);
    };
    EXPECT_EQ(step(95, 100, Direction::up), 100); // 6.25 -> 6, limited to the maximum
    EXPECT_EQ(step(3, 100, Direction::down), 0);  // 3 is not above 6
    EXPECT_EQ(step(7, 100, Direction::down), 1);
    EXPECT_EQ(step(4, 10, Direction::up), 5); // 0.625 still moves by one
    EXPECT_EQ(step(65530, 65535, Direction::up), 65535);
    EXPECT_EQ(step(10, 65535, Direction::up, 2.0f), 65535); // product >= 65536: clamped
    EXPECT_EQ(step(65000, 65535, Direction::down, 2.0f), 0);
    EXPECT_EQ(step(50, 100, Direction::up, -1.0f), 51);
    EXPECT_EQ(step(50, 100, Direction::down, std::nanf("")), 49);
    // A monitor reporting more than its maximum: up keeps the value, down starts from max.
    EXPECT_EQ(step(120, 100, Direction::up), 120);
    EXPECT_EQ(step(100, 100, Direction::up), 100);
    EXPECT_EQ(step(120, 100, Direction::down), 94);
    EXPECT_EQ(step(65535, 10, Direction::down, 2.0f), 0);
}

class KeyboardManagerTest : public KeyboardTestBed {};

TEST_F(KeyboardManagerTest, StepsStopAtBothEndsHonourPreferencesAndLeaveTheWriteInTheCache) {
    boot(scenarioOf({keyMonitor(2, {95, 100}, {5, 10}, {1, 2})}));
    const auto transport = displays->displays()[0].transport;
    press(MediaKey::brightnessUp);
    press(MediaKey::brightnessUp); // at the top: nothing written, nothing shown
    EXPECT_EQ(setWrites(2, kBrightness), Values{100});
    ASSERT_EQ(nativeShows().size(), 1u);
    EXPECT_EQ(nativeShows()[0].image, platform::macos::kOSDBrightnessImage);
    EXPECT_EQ(nativeShows()[0].filledChiclets, 16u);
    const auto busBefore = machine->bus().transfers().size();
    EXPECT_EQ(ddc->read(transport, VCPCode::brightness), (DDCReadResult{100, 100}));
    EXPECT_EQ(machine->bus().transfers().size(), busBefore);

    ddc->storeInCache(*transport, kBrightness, {3, 100});
    press(MediaKey::brightnessDown);
    press(MediaKey::brightnessDown);
    EXPECT_EQ(setWrites(2, kBrightness), (Values{100, 0}));

    // Reported above its maximum: up writes and shows nothing, down comes into the range.
    ddc->storeInCache(*transport, kBrightness, {120, 100});
    press(MediaKey::brightnessUp);
    EXPECT_EQ(setWrites(2, kBrightness), (Values{100, 0}));
    press(MediaKey::brightnessDown);
    EXPECT_EQ(setWrites(2, kBrightness), (Values{100, 0, 94}));

    // Maximum 10 moves by one; a muted monitor's mute is neither read nor written.
    press(MediaKey::volumeUp);
    press(MediaKey::volumeDown);
    press(MediaKey::volumeDown);
    EXPECT_EQ(setWrites(2, kVolume), (Values{6, 5, 4}));
    EXPECT_EQ(nativeShows().back().filledChiclets, 6u); // 0.4 x 16 = 6.4
    EXPECT_TRUE(setWrites(2, kMute).empty());
    EXPECT_EQ(monitorValue(2, kMute), 1);

    // A step from the preferences (how they are read is the tuning tests' business).
    machine->defaults().set(Preferences::kBrightnessStepPercent,
                            platform::DefaultsValue(std::int64_t{10}));
    applyTuningPreferences(machine->defaults(), *ddc, keyboard.get());
    press(MediaKey::brightnessUp);
    EXPECT_EQ(setWrites(2, kBrightness), (Values{100, 0, 94, 100}));
}

TEST_F(KeyboardManagerTest, TheTargetIsTheMonitorUnderThePointerElseTheFirst) {
    boot(scenarioOf({builtinPanel(), keyMonitor(2, {50, 100}), keyMonitor(3, {50, 100})}));
    auto& screens = machine->displayServices();
    const auto target = [&] { return keyboard->targetDisplay()->id; };
    screens.movePointerTo(3);
    press(MediaKey::brightnessUp);
    EXPECT_EQ(setWrites(3, kBrightness), Values{56});
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    EXPECT_EQ(nativeShows().back().displayID, 3u);
    screens.movePointerTo(1); // the built-in panel's screen: the first monitor
    EXPECT_EQ(target(), 2u);
    screens.movePointerTo(3);
    screens.setPointer({-5000, -5000}); // no screen at all
    EXPECT_EQ(target(), 2u);

    // One monitor with DDC: it, wherever the pointer is. None: keys do nothing.
    machine->unplug(2);
    displays->enumerateDisplays();
    settle();
    screens.movePointerTo(1);
    EXPECT_EQ(target(), 3u);
    machine->unplug(3);
    displays->enumerateDisplays();
    settle();
    machine->bus().clear();
    press(MediaKey::brightnessUp);
    press(MediaKey::mute);
    EXPECT_TRUE(machine->bus().transfers().empty());
}

TEST_F(KeyboardManagerTest, MuteTogglesOneAndTwoAndIndicatorsFollowTheShowOSDSetting) {
    boot(scenarioOf({keyMonitor(2, {50, 100}, {50, 100}, {1, 2})}));
    press(MediaKey::mute); // muted -> unmuted: the volume it comes back at
    press(MediaKey::mute); // -> muted: the mute image
    EXPECT_EQ(setWrites(2, kMute), (Values{2, 1}));
    ASSERT_EQ(nativeShows().size(), 2u);
    EXPECT_EQ(nativeShows()[0].image, platform::macos::kOSDVolumeImage);
    EXPECT_EQ(nativeShows()[0].filledChiclets, 8u);
    EXPECT_EQ(nativeShows()[1].image, platform::macos::kOSDMuteImage);
    EXPECT_EQ(nativeShows()[1].filledChiclets, 0u);

    // Without the native indicator; 0 counts as not muted.
    machine->osdFramework().setFault(sim::SimOSDFramework::Fault::noBundle);
    rebuildKeyboard();
    ddc->storeInCache(*displays->displays()[0].transport, kMute, {0, 2});
    press(MediaKey::mute);
    EXPECT_EQ(setWrites(2, kMute), (Values{2, 1, 1}));
    ASSERT_TRUE(machine->indicatorWindow().lastShown());
    EXPECT_EQ(machine->indicatorWindow().lastShown()->symbol, "speaker.slash.fill");

    // "app.showOSD" off: the keys still write, nothing is shown, however it is shown.
    machine->defaults().set(Preferences::kShowOSD, platform::DefaultsValue(false));
    const auto shown = machine->indicatorWindow().shows().size();
    press(MediaKey::mute);
    press(MediaKey::brightnessUp);
    press(MediaKey::volumeUp);
    machine->osdFramework().setFault(sim::SimOSDFramework::Fault::none);
    rebuildKeyboard();
    press(MediaKey::mute);
    EXPECT_EQ(setWrites(2, kMute), (Values{2, 1, 1, 2, 1}));
    EXPECT_EQ(monitorValue(2, kBrightness), 56);
    EXPECT_EQ(machine->indicatorWindow().shows().size(), shown);
    EXPECT_EQ(nativeShows().size(), 2u);
}

TEST_F(KeyboardManagerTest, FailedReadsWritesAndPulledMonitorsChangeNothing) {
    auto silent = keyMonitor(2, {50, 100});
    silent.monitor->faults.silent.always = true;
    boot(scenarioOf({silent, keyMonitor(3, {50, 100})}));
    const auto dead = *keyboard->targetDisplay();
    press(MediaKey::brightnessUp);
    press(MediaKey::mute); // a failed mute read is silent
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    EXPECT_EQ(machine->systemLog().messages("Keyboard"),
              std::vector<std::string>{"Failed to read Brightness for key adjustment"});

    // A cached value: the write is tried 3 x 2 times and fails silently.
    ddc->storeInCache(*dead.transport, kVolume, {40, 100});
    press(MediaKey::volumeUp);
    EXPECT_EQ(setWrites(2, kVolume).size(), 6u);
    EXPECT_EQ(ddc->cachedValue(*dead.transport, kVolume), (DDCReadResult{40, 100}));

    // Monitor 3 pulled while its record is still listed: the press ends on the dead bus.
    machine->displayServices().movePointerTo(3);
    const auto pulled = *keyboard->targetDisplay();
    machine->unplug(3);
    keyboard->adjust(pulled, VCPCode::brightness, Direction::up, 0.5f);
    keyboard->toggleDisplayMute(pulled);
    settle();
    EXPECT_EQ(ddc->cachedValue(*pulled.transport, kBrightness), (DDCReadResult{50, 100}));
    EXPECT_TRUE(nativeShows().empty());
    EXPECT_EQ(machine->systemLog().messages("Keyboard").size(), 1u);
}

} // namespace
} // namespace pw::test
