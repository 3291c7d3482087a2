#include "viewmodel/ViewModelTestBed.h"

#include <cmath>
#include <functional>

namespace pw::test {
namespace {

using namespace std::chrono_literals;
using Values = std::vector<std::uint16_t>;

// The worked examples run on the simulated monitor below; these are the edges.
TEST(BrightnessCurveTest, EdgesOfTheCurve) {
    EXPECT_DOUBLE_EQ(BrightnessCurve::sliderPosition(30, 0), 30); // no maximum: unchanged
    EXPECT_EQ(BrightnessCurve::fraction(-5, 100), 0);
    EXPECT_EQ(BrightnessCurve::fraction(50, 0), 0);
    EXPECT_EQ(BrightnessCurve::ddcValue(0.5, 5), 3); // a half rounds away from zero
    EXPECT_EQ(BrightnessCurve::ddcValue(1.5, 65535), 65535);
    EXPECT_DOUBLE_EQ(BrightnessCurve::dimmingLevel(0.05), 1.0);
    EXPECT_DOUBLE_EQ(BrightnessCurve::dimmingLevel(0.025), 0.5);
    EXPECT_DOUBLE_EQ(BrightnessCurve::dimmingLevel(std::nan("")), 0);
}

TEST(PopoverViewModelStatic, StreamKeysAndInputChoices) {
    EXPECT_EQ(PopoverViewModel::writeStreamKey(2, VCPCode::brightness), "2-16");
    EXPECT_EQ(PopoverViewModel::writeStreamKey(2, VCPCode::mute), "2-141");
    std::vector<InputSource> sources;
    for (const auto& choice : PopoverViewModel::inputChoices())
        sources.push_back(choice.source);
    EXPECT_EQ(sources, (std::vector<InputSource>{InputSource::hdmi1, InputSource::hdmi2,
                                                 InputSource::displayPort1,
                                                 InputSource::displayPort2, InputSource::usbC}));
    EXPECT_EQ(PopoverViewModel::inputChoices()[0].label, "HDMI 1");
}

class PopoverViewModelTest : public ViewModelTestBed {};

TEST_F(PopoverViewModelTest, StatesFollowTheReadingsAndSurviveDisplaysThatLeave) {
    start(scenarioOf({keyMonitor(2, {25, 100}), keyMonitor(3, {30, 0})}));
    int changes = 0;
    model->subscribe([&] { ++changes; });

    ASSERT_EQ(model->ddcDisplays().size(), 2u);
    EXPECT_EQ(model->ddcDisplays()[0].id, 2u);
    EXPECT_NEAR(model->stateFor(2).brightness, 57.43, 0.005);
    EXPECT_EQ(model->stateFor(3).brightness, 30); // maximum 0: the reading as it is
    EXPECT_EQ(model->stateFor(3).brightnessMax, 0);
    EXPECT_EQ(model->stateFor(2).volume, 50); // not read yet: the default
    EXPECT_EQ(model->stateFor(99), DisplayState{});

    // Readings that arrive fill their fields; mute is on only for the value 1.
    displays->updateDisplay(DisplayManager::keyOf(displays->displays()[0]), std::nullopt,
                            DDCReadResult{70, 100}, DDCReadResult{12, 40}, DDCReadResult{1, 2},
                            DDCReadResult{0x11, 0});
    mainQueue().runPending();
    EXPECT_GT(changes, 0);
    auto state = model->stateFor(2);
    EXPECT_EQ(state.contrast, 70);
    EXPECT_EQ(state.volume, 12);
    EXPECT_EQ(state.volumeMax, 40);
    EXPECT_TRUE(state.isMuted);
    EXPECT_EQ(state.activeInput, 0x11);
    EXPECT_NEAR(state.brightness, 57.43, 0.005);

    // Display 2 leaves: its entry stays, but it is no longer shown or written.
    displays->startMonitoring();
    machine->unplug(2);
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    runUntil([&] { return model->ddcDisplays().size() == 1; }); // enumerated in the background
    ASSERT_EQ(model->ddcDisplays().size(), 1u);
    EXPECT_EQ(model->ddcDisplays()[0].id, 3u);
    EXPECT_EQ(model->stateFor(2), state);
    machine->bus().clear();
    model->moveBrightnessSlider(2, 90);
    model->moveVolumeSlider(2, 5);
    model->toggleMute(2);
    model->selectInput(2, InputSource::hdmi2);
    advance(1s);
    EXPECT_TRUE(machine->bus().transfers().empty());
    EXPECT_EQ(gammaInstalls(2), 0u);

    // It comes back: the probe brings brightness only, so the other values are the old ones.
    machine->plug(keyMonitor(2, {100, 100}));
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    runUntil([&] { return model->ddcDisplays().size() == 2; });
    ASSERT_EQ(model->ddcDisplays().size(), 2u);
    const auto back = model->stateFor(2);
    EXPECT_EQ(back.brightness, 100);
    EXPECT_EQ(back.volume, 5);  // what the slider left
    EXPECT_FALSE(back.isMuted); // toggled while away, kept
    EXPECT_EQ(back.activeInput, 0x11);
}

TEST_F(PopoverViewModelTest, BrightnessWritesTheCurveValueAndDimsBelowFivePercent) {
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    model->moveBrightnessSlider(2, 57);
    EXPECT_EQ(model->stateFor(2).brightness, 57);
    EXPECT_EQ(dimming(2), 1.0);
    advance(100ms);
    EXPECT_EQ(setWrites(2, kBrightness), Values{25});
    EXPECT_EQ(monitorValue(2, kBrightness), 25);

    model->moveBrightnessSlider(2, 56);
    advance(100ms);
    EXPECT_EQ(monitorValue(2, kBrightness), 23);

    model->moveBrightnessSlider(2, 20);
    EXPECT_NEAR(dimming(2), 0.358, 0.001);
    EXPECT_NE(machine->gamma().installed(2), machine->gamma().calibrated(2));
    advance(100ms);
    EXPECT_EQ(monitorValue(2, kBrightness), 2);

    model->moveBrightnessSlider(2, 0);
    EXPECT_EQ(dimming(2), 0);
    advance(100ms);
    EXPECT_EQ(monitorValue(2, kBrightness), 0);
    EXPECT_EQ(setWrites(2, kBrightness), (Values{25, 23, 2, 0}));
}

TEST_F(PopoverViewModelTest, ASectionSaysWhenItsDisplayCannotBeDimmed) {
    auto scenario = scenarioOf({keyMonitor(2, {25, 100}), keyMonitor(3, {25, 100})});
    start(scenario);
    EXPECT_TRUE(model->dimmingAvailable(2));
    int changes = 0;
    model->subscribe([&] { ++changes; });

    // A table that cannot be read shows on that display's section at the first dim, and
    // the slider still writes the monitor's own brightness.
    machine->gamma().failNextReads(2, 1);
    model->changeBrightness(2, 10); // what the slider calls, without storing its state
    EXPECT_FALSE(model->dimmingAvailable(2));
    EXPECT_TRUE(model->dimmingAvailable(3));
    mainQueue().runPending();
    EXPECT_EQ(changes, 1);
    advance(100ms);
    EXPECT_EQ(setWrites(2, kBrightness), Values{0});
    // Readable again later: the note goes.
    model->moveBrightnessSlider(2, 5);
    EXPECT_TRUE(model->dimmingAvailable(2));

    // A desktop without gamma tables: every section says so from the start.
    scenario.softwareDimming = false;
    model.reset();
    start(scenario);
    EXPECT_FALSE(model->dimmingAvailable(2));
    EXPECT_FALSE(model->dimmingAvailable(3));
    model->moveBrightnessSlider(2, 10);
    EXPECT_EQ(machine->gamma().count(sim::SimGammaTables::Call::Kind::apply, 2), 0u);
}

TEST_F(PopoverViewModelTest, ABurstWritesOnlyItsLastValueWhileDimmingFollowsEveryValue) {
    start(scenarioOf({keyMonitor(2, {25, 100}), keyMonitor(3, {25, 100})}));
    model->moveBrightnessSlider(2, 10);
    EXPECT_NEAR(dimming(2), BrightnessCurve::dimmingLevel(BrightnessCurve::fraction(10, 100)),
                1e-9);
    advance(30ms);
    model->moveBrightnessSlider(2, 15);
    EXPECT_NEAR(dimming(2), BrightnessCurve::dimmingLevel(BrightnessCurve::fraction(15, 100)),
                1e-9);
    advance(30ms);
    model->moveBrightnessSlider(2, 60);
    model->moveVolumeSlider(2, 37.9); // another stream of the same display
    model->moveVolumeSlider(3, 20);   // the same code on another display
    EXPECT_EQ(gammaInstalls(2), 2u);
    EXPECT_EQ(dimming(2), 1.0);
    EXPECT_TRUE(machine->gamma().showsCalibrated(2));

    advance(99ms);
    EXPECT_TRUE(machine->bus().transfers().empty());
    advance(1ms);
    EXPECT_EQ(setWrites(2, kBrightness), Values{28}); // 100 * 0.6^2.5 = 27.89
    EXPECT_EQ(setWrites(2, kVolume), Values{37});     // cut toward zero
    EXPECT_EQ(setWrites(3, kVolume), Values{20});
    EXPECT_EQ(model->stateFor(2).volume, 37.9);
    EXPECT_EQ(machine->bus().overlapCount(), 0u);

    // Streams are made once per display and code and then reused.
    model->moveVolumeSlider(2, 40);
    advance(100ms);
    EXPECT_EQ(setWrites(2, kVolume), (Values{37, 40}));
    EXPECT_EQ(model->writeStreamKeys(), (std::vector<std::string>{"2-16", "2-98", "3-98"}));
}

TEST_F(PopoverViewModelTest, MuteTwiceQuicklySendsOnlyTheLastValue) {
    start(scenarioOf({keyMonitor(2, {25, 100}, {50, 100}, {2, 2})}));
    model->toggleMute(2);
    EXPECT_TRUE(model->stateFor(2).isMuted);
    advance(50ms);
    model->toggleMute(2);
    EXPECT_FALSE(model->stateFor(2).isMuted);
    advance(100ms);
    EXPECT_EQ(setWrites(2, kMute), Values{2});

    model->toggleMute(2);
    advance(100ms);
    EXPECT_EQ(setWrites(2, kMute), (Values{2, 1}));
    EXPECT_EQ(monitorValue(2, kMute), 1);
}

TEST_F(PopoverViewModelTest, InputIsWrittenAtOnceAndUnknownDisplaysAreIgnored) {
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    int changes = 0;
    model->subscribe([&] { ++changes; });
    model->selectInput(2, InputSource::displayPort1);
    settleWrites(); // no time passes: nothing waits for a quiet period
    EXPECT_EQ(setWrites(2, 0x60), Values{0x0F});
    EXPECT_EQ(monitorValue(2, 0x60), 0x0F);
    EXPECT_EQ(model->stateFor(2).activeInput, 0x0F);
    EXPECT_EQ(changes, 1);

    machine->bus().clear();
    model->selectInput(7, InputSource::hdmi1);
    model->changeBrightness(7, 10);
    model->queueWrite(7, VCPCode::volume, 3);
    model->toggleMute(7);
    advance(1s);
    EXPECT_TRUE(machine->bus().transfers().empty());
    EXPECT_EQ(dimming(7), -1);
    EXPECT_EQ(model->displayStates().count(7), 0u);
    EXPECT_EQ(changes, 1);
}

TEST_F(PopoverViewModelTest, NoMaximumMeansNoBrightnessWriteAndNoDimming) {
    start(scenarioOf({keyMonitor(3, {30, 0})}));
    model->moveBrightnessSlider(3, 10);
    advance(1s);
    EXPECT_TRUE(setWrites(3, kBrightness).empty());
    EXPECT_EQ(dimming(3), -1);
    EXPECT_EQ(gammaInstalls(3), 0u);
    EXPECT_EQ(model->stateFor(3).brightness, 10); // the slider keeps where the user left it
}

TEST_F(PopoverViewModelTest, WorkQueuedForAModelThatIsGoneIsDropped) {
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    model->moveBrightnessSlider(2, 80);
    model->moveVolumeSlider(2, 10);
    displays->updateDisplay(DisplayManager::keyOf(displays->displays()[0]), DDCReadResult{90, 100}, {}, {}, {}, {}); // a list on its way
    model.reset();
    advance(1s);
    EXPECT_TRUE(machine->bus().transfers().empty());
    EXPECT_EQ(monitorValue(2, kBrightness), 25);
}

TEST_F(PopoverViewModelTest, RefreshReadsTheShownMonitorsPastTheCache) {
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    // The cache still holds 25 from the probe; the monitor was changed on its own buttons.
    machine->monitor(2)->setFeature(kBrightness, 100, 100);
    machine->monitor(2)->setFeature(kVolume, 7, 100);
    model->refresh();
    runUntil([&] { return model->stateFor(2).volume == 7; });
    EXPECT_EQ(model->stateFor(2).brightness, 100);
    EXPECT_EQ(model->stateFor(2).volume, 7);
}

// What the monitor says it lacks is left out of its section once the popover has asked.
TEST_F(PopoverViewModelTest, AFeatureTheMonitorLacksIsNotOffered) {
    auto lacking = keyMonitor(2, {25, 100});
    lacking.monitor->unsupported = {kVolume, kMute};
    start(scenarioOf({lacking, keyMonitor(3, {30, 100})}));
    EXPECT_TRUE(model->supports(2, VCPCode::volume)); // not asked yet
    // Display 3 is refreshed last: once its new value is in, the refresh holds the display
    // manager no more, and the test can end without a refresh still on its way.
    machine->monitor(3)->setFeature(kBrightness, 64, 100);
    const double before = model->stateFor(3).brightness;
    model->refresh();
    runUntil([&] {
        return !model->supports(2, VCPCode::volume) && model->stateFor(3).brightness != before;
    });
    for (const auto [id, code, offered] :
         {std::tuple{2u, VCPCode::volume, false}, std::tuple{2u, VCPCode::mute, false},
          std::tuple{2u, VCPCode::brightness, true}, std::tuple{2u, VCPCode::inputSource, true},
          std::tuple{3u, VCPCode::volume, true}, std::tuple{9u, VCPCode::volume, true}})
        EXPECT_EQ(model->supports(id, code), offered) << id << " " << rawValue(code);
}

// A write the monitor did not take (every retry spent) puts the control back to what the
// monitor last had and says so for a few seconds; a monitor that never answered is known.
TEST_F(PopoverViewModelTest, AFailedWritePutsTheControlBackAndSaysSoForAWhile) {
    auto silent = keyMonitor(3, {30, 100});
    silent.monitor->faults.silent.always = true;
    start(scenarioOf({keyMonitor(2, {25, 100}, {40, 100}, {2, 2}), silent}));
    EXPECT_TRUE(model->answered(2));
    EXPECT_FALSE(model->answered(3));

    const DisplayState before = model->stateFor(2);
    machine->monitor(2)->setAttached(false);
    const struct {
        const char* what;
        std::function<void()> act;
        std::function<bool(const DisplayState&)> back;
    } cases[] = {
        {"brightness", [&] { model->moveBrightnessSlider(2, 90); },
         [&](const DisplayState& s) { return s.brightness == before.brightness; }},
        {"volume", [&] { model->moveVolumeSlider(2, 90); },
         [&](const DisplayState& s) { return s.volume == before.volume; }},
        {"mute setting", [&] { model->toggleMute(2); },
         [&](const DisplayState& s) { return s.isMuted == before.isMuted; }},
        {"input", [&] { model->selectInput(2, InputSource::hdmi2); },
         [&](const DisplayState& s) { return s.activeInput == before.activeInput; }},
    };
    for (const auto& c : cases) {
        c.act();
        EXPECT_FALSE(c.back(model->stateFor(2))) << c.what; // shown at once
        advance(PopoverViewModel::kWriteDebounce);
        runUntil([&] { return !model->writeFailure(2).empty(); });
        EXPECT_TRUE(c.back(model->stateFor(2))) << c.what;
        EXPECT_NE(model->writeFailure(2).find(c.what), std::string::npos) << model->writeFailure(2);
        advance(PopoverViewModel::kFailureNoticeTime);
        EXPECT_EQ(model->writeFailure(2), "") << c.what;
    }
    EXPECT_DOUBLE_EQ(dimming(2), 1.0); // the picture follows the slider back

    // A write that lands records the value: a later failure goes back to it.
    machine->monitor(2)->setAttached(true);
    model->moveVolumeSlider(2, 70);
    advance(PopoverViewModel::kWriteDebounce);
    EXPECT_EQ(monitorValue(2, kVolume), 70);
    machine->monitor(2)->setAttached(false);
    model->moveVolumeSlider(2, 10);
    advance(PopoverViewModel::kWriteDebounce);
    runUntil([&] { return !model->writeFailure(2).empty(); });
    EXPECT_EQ(model->stateFor(2).volume, 70);
}

} // namespace
} // namespace pw::test
