#include "osd/OSDManager.h"

#include "base/Preferences.h"
#include "common/TestSupport.h"
#include "platform/WindowIndicator.h"
#include "platform/macos/MacLevelIndicator.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimOSD.h"

#include <chrono>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace pw::test {
namespace {

using namespace std::chrono_literals;
using platform::IndicatorKind;
using platform::macos::MacLevelIndicator;
using sim::SimOSDFramework;
using Fault = SimOSDFramework::Fault;

sim::DisplaySpec screenDisplay(platform::DisplayID id, platform::Rect frame) {
    sim::DisplaySpec d;
    d.id = id;
    d.name = "Monitor " + std::to_string(id);
    d.frame = frame;
    return d;
}

// Display 2 is the first (main) screen, display 3 sits to its right.
sim::Scenario twoScreens(sim::Flavor flavor = sim::Flavor::appleSilicon) {
    sim::Scenario s;
    s.flavor = flavor;
    s.displays = {screenDisplay(2, {0, 0, 1920, 1080}), screenDisplay(3, {1920, 0, 2560, 1440})};
    return s;
}

class OSDTestBed {
public:
    explicit OSDTestBed(sim::Scenario scenario = twoScreens(), Fault fault = Fault::none)
        : machine(std::move(scenario)) {
        machine.osdFramework().setFault(fault);
    }

    std::shared_ptr<OSDManager> create() { return OSDManager::create(machine.platform()); }
    // Our own window as the Mac shows it when its indicator does not load.
    std::shared_ptr<platform::WindowIndicator> window(const platform::Platform& p) {
        // Not owning: the machine outlives every indicator of a test.
        return platform::WindowIndicator::create(
            p.mainQueue, p.screens,
            std::shared_ptr<platform::IndicatorWindow>(std::shared_ptr<void>{},
                                                       &machine.indicatorWindow()));
    }
    sim::ManualMainQueue& queue() { return *machine.manualMainQueue(); }
    sim::SimIndicatorWindow& windows() { return machine.indicatorWindow(); }
    std::vector<std::string> osdLines() const { return machine.systemLog().messages("OSD"); }
    platform::Clock::TimePoint now() const { return machine.virtualClock()->now(); }

    sim::SimMachine machine;
    ScopedPlatform scoped{machine.platform()};
};

// ---- the core's part: whether, what and where ---------------------------------------------

TEST(OSDManager, HandsKindLevelAndDisplayToTheMachineUnlessTheSettingIsOff) {
    OSDTestBed bed(twoScreens(sim::Flavor::linux));
    const auto osd = bed.create();
    osd->showBrightness(0.5f, 3);
    osd->showVolume(0.25f, 2);
    osd->showMute(2);
    bed.machine.defaults().set(Preferences::kShowOSD, platform::DefaultsValue(false));
    EXPECT_FALSE(osd->wanted());
    osd->showBrightness(0.75f, 3);
    osd->showMute(3);

    std::vector<std::tuple<IndicatorKind, float, platform::DisplayID>> shown;
    for (const auto& s : bed.machine.levelIndicator().shown())
        shown.emplace_back(s.kind, s.level, s.display);
    EXPECT_EQ(shown, (decltype(shown){{IndicatorKind::brightness, 0.5f, 3},
                                      {IndicatorKind::volume, 0.25f, 2},
                                      {IndicatorKind::mute, 0.0f, 2}}));
}

TEST(OSDManager, AMachineWithoutAnIndicatorSaysSoOnce) {
    OSDTestBed bed;
    auto platform = bed.machine.platform();
    platform.indicator = nullptr;
    const auto osd = OSDManager::create(platform);
    osd->showBrightness(0.5f, 2);
    osd->showVolume(0.5f, 2);
    EXPECT_EQ(bed.osdLines(),
              std::vector<std::string>{"No level indicator on this machine, levels are not shown"});
}

// ---- the Mac's indicator, through the simulated Mac ---------------------------------------

TEST(MacIndicator, ChicletsRoundInSinglePrecisionWithHalvesAwayFromZero) {
    // Exact halves (x.5 segments) go up, where rounding to even would not.
    const std::pair<float, int> cases[] = {
        {0.5f, 8},       {1.0f / 3.0f, 5}, {1.0f, 16},        {0.0f, 0},
        {8.5f / 16, 9},  {2.5f / 16, 3},   {0.5f / 16, 1},    {-0.5f / 16, -1},
        {std::numeric_limits<float>::quiet_NaN(), 0}};
    for (const auto& [level, segments] : cases)
        EXPECT_EQ(MacLevelIndicator::filledChiclets(level), segments) << level;
}

TEST(MacIndicator, LoadsOnceAtTheFirstShowAndShowsThroughTheSystemIndicator) {
    OSDTestBed bed;
    const auto osd = bed.create();
    EXPECT_TRUE(bed.machine.osdFramework().requests().empty()) << "nothing loads before a show";

    osd->showBrightness(0.5f, 3);
    osd->showVolume(1.0f / 3.0f, 2);
    osd->showMute(2);
    osd->showVolume(-0.2f, 2); // a stray level never wraps into a huge count
    osd->showBrightness(1.3f, 3);
    EXPECT_EQ(bed.osdLines(), std::vector<std::string>{"System level indicator loaded"});
    EXPECT_EQ(bed.machine.osdFramework().requests().size(), 5u) << "loaded once";
    using Call = SimOSDFramework::ShowImageCall;
    EXPECT_EQ(bed.machine.osdFramework().showImageCalls(),
              (std::vector<Call>{{1, 3, 500, 1000, 8, 16, false},
                                 {3, 2, 500, 1000, 5, 16, false},
                                 {4, 2, 500, 1000, 0, 16, false},
                                 {3, 2, 500, 1000, 0, 16, false},
                                 {1, 3, 500, 1000, 16, 16, false}}));

    EXPECT_EQ(bed.queue().runUntilIdle(), 0u) << "the system indicator needs no work of ours";
    EXPECT_TRUE(bed.windows().shows().empty());
}

TEST(MacIndicator, EachFailingLoadingStepLogsItsLineAndFallsBackToOurWindow) {
    const std::pair<Fault, std::string> steps[] = {
        {Fault::noBundle, "System level indicator not found, using our own"},
        {Fault::loadFails, "System level indicator did not load, using our own"},
        {Fault::classMissing, "System level indicator has no manager, using our own"},
        {Fault::noSharedObject, "System level indicator gave no manager, using our own"},
        {Fault::doesNotRespond, "System level indicator cannot show levels, using our own"},
    };
    for (const auto& [fault, line] : steps) {
        SCOPED_TRACE(line);
        OSDTestBed bed(twoScreens(), fault);
        const auto osd = bed.create();
        osd->showBrightness(0.5f, 2);
        osd->showMute(2);
        bed.queue().runPending();
        EXPECT_EQ(bed.osdLines(), std::vector<std::string>{line}) << "tried once, said once";
        EXPECT_TRUE(bed.machine.osdFramework().showImageCalls().empty());
        ASSERT_EQ(bed.windows().shows().size(), 2u);
        EXPECT_EQ(bed.windows().shows()[0].content.symbol, "sun.max.fill");
        EXPECT_EQ(bed.windows().shows()[1].content.symbol, "speaker.slash.fill");
    }

    // A machine without such an indicator at all.
    OSDTestBed bed;
    MacLevelIndicator none(nullptr, nullptr, [&](std::string_view line) {
        bed.machine.systemLog().write("test", "OSD", platform::LogLevel::info, line);
    });
    none.show(IndicatorKind::brightness, 0.5f, 2);
    EXPECT_EQ(bed.osdLines(),
              std::vector<std::string>{"No system level indicator on this machine, using our own"});
}

// ---- our own window: order, timing, placement ---------------------------------------------

TEST(WindowIndicator, ShowsEachLevelThroughTheMainQueueInOrder) {
    OSDTestBed bed;
    const auto indicator = bed.window(bed.machine.platform());

    indicator->show(IndicatorKind::brightness, 0.5f, 2);
    EXPECT_TRUE(bed.windows().shows().empty()) << "even the main thread goes through the queue";
    bed.queue().runPending();
    EXPECT_TRUE(bed.windows().visible());
    indicator->show(IndicatorKind::volume, 1.7f, 3);
    indicator->show(IndicatorKind::mute, 0.0f, 3);
    indicator->show(IndicatorKind::brightness, std::numeric_limits<float>::quiet_NaN(), 3);
    bed.queue().runPending();
    std::vector<std::pair<std::string, float>> shown;
    for (const auto& show : bed.windows().shows())
        shown.emplace_back(show.content.symbol, show.content.level);
    EXPECT_EQ(shown, (std::vector<std::pair<std::string, float>>{{"sun.max.fill", 0.5f},
                                                                 {"speaker.wave.2.fill", 1.0f},
                                                                 {"speaker.slash.fill", 0.0f},
                                                                 {"sun.max.fill", 0.0f}}));

    // From another thread the work still lands on the main queue.
    std::thread other([&] { indicator->show(IndicatorKind::volume, 0.25f, 2); });
    other.join();
    bed.queue().waitAndRun();
    EXPECT_EQ(bed.windows().lastShown()->level, 0.25f);
}

TEST(WindowIndicator, HidesOneAndAHalfSecondsAfterTheLastShow) {
    OSDTestBed bed;
    const auto indicator = bed.window(bed.machine.platform());
    const auto start = bed.now();

    indicator->show(IndicatorKind::brightness, 0.2f, 2);
    bed.queue().runPending();
    bed.queue().advance(1000ms);
    indicator->show(IndicatorKind::brightness, 0.3f, 2);
    bed.queue().runPending();
    bed.queue().advance(1499ms);
    EXPECT_TRUE(bed.windows().visible()) << "the first show's hide must not apply";
    EXPECT_TRUE(bed.windows().hides().empty());
    bed.queue().advance(1ms);
    EXPECT_FALSE(bed.windows().visible());
    ASSERT_EQ(bed.windows().hides().size(), 1u);
    EXPECT_EQ(bed.windows().hides()[0] - start, 2500ms);
}

// Screens as a test arranges them: a main screen that is not the first, visible frames
// smaller than the frames.
class ArrangedScreens final : public platform::Screens {
public:
    std::vector<platform::Screen> screens() override { return list; }
    std::optional<platform::Screen> mainScreen() override { return list.at(1); }
    platform::Point pointerLocation() override { return {}; }

    std::vector<platform::Screen> list{
        {std::nullopt, "Projector", {-1024, 0, 1024, 768}, std::nullopt},
        {5, "Desk", {0, 0, 1920, 1080}, platform::Rect{0, 80, 1920, 975}},
        {7, "Side", {1920, 200, 1200, 1920}, platform::Rect{1920, 230, 1200, 1890}},
    };
};

TEST(WindowIndicator, PlacesTheWindowOnTheDisplaysScreenElseTheMainScreen) {
    auto origin = [](OSDTestBed& bed, const platform::Platform& platform,
                     platform::DisplayID display) {
        const auto indicator = bed.window(platform);
        indicator->show(IndicatorKind::brightness, 0.5f, display);
        bed.queue().runPending();
        return bed.windows().lastShown()->origin;
    };
    auto expectAt = [](std::optional<platform::Point> p, double x, double y) {
        ASSERT_TRUE(p);
        EXPECT_EQ(p->x, x);
        EXPECT_EQ(p->y, y);
    };

    OSDTestBed bed;
    expectAt(origin(bed, bed.machine.platform(), 3), 1920 + 1280 - 100, 100);
    expectAt(origin(bed, bed.machine.platform(), 42), 960 - 100, 100);

    auto arranged = bed.machine.platform();
    arranged.screens = std::make_shared<ArrangedScreens>();
    expectAt(origin(bed, arranged, 7), 1920 + 600 - 100, 230 + 100);
    expectAt(origin(bed, arranged, 9), 960 - 100, 80 + 100);
    expectAt(origin(bed, arranged, 0), 960 - 100, 80 + 100); // a screen without a number

    OSDTestBed headless(sim::Scenario{});
    EXPECT_FALSE(origin(headless, headless.machine.platform(), 2));
    EXPECT_EQ(headless.windows().shows().size(), 1u) << "still shown, where it was";
}

TEST(WindowIndicator, WorkOutlivedByItsIndicatorDoesNothing) {
    OSDTestBed bed;
    auto indicator = bed.window(bed.machine.platform());
    indicator->show(IndicatorKind::brightness, 0.5f, 2);
    bed.queue().runPending();
    indicator->show(IndicatorKind::brightness, 0.6f, 2);
    indicator.reset();
    bed.queue().runUntilIdle();
    EXPECT_EQ(bed.windows().shows().size(), 1u);
    EXPECT_TRUE(bed.windows().visible()) << "no hide from an indicator that is gone";
}

} // namespace
} // namespace pw::test
