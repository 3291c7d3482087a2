// A virtual minute of held keys on two monitors, typed on the simulated keyboard at key
// repeat rate while the pointer moves between their screens, the popover opens (cache
// dropped, every value re-read) and its sliders write.
#include "keyboard/KeyboardTestBed.h"

#include <map>
#include <random>

namespace pw::test {
namespace {

using namespace std::chrono_literals;
using Direction = KeyboardManager::Direction;

struct HeldKey {
    std::int32_t systemCode;
    std::uint8_t feature;
    Direction direction;
};
constexpr HeldKey kHeldKeys[] = {{2, kBrightness, Direction::up},
                                 {3, kBrightness, Direction::down},
                                 {0, kVolume, Direction::up},
                                 {1, kVolume, Direction::down}};

class KeyStormTest : public KeyboardTestBed {};

TEST_F(KeyStormTest, HeldKeysAmidPopoverTrafficKeepTheBusSerialAndEndOnTheLastValue) {
    boot(scenarioOf({builtinPanel(), keyMonitor(2, {50, 100}, {30, 100}),
                     keyMonitor(3, {20, 100}, {70, 100})}));
    keyboard->start();
    std::map<platform::DisplayID, std::shared_ptr<I2CTransport>> transports;
    for (const auto& d : displays->displays())
        transports[d.id] = d.transport;
    std::mt19937 random(20250301);
    const auto pick = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    std::map<std::pair<platform::DisplayID, std::uint8_t>, std::uint16_t> model;
    for (platform::DisplayID id : {2u, 3u})
        for (std::uint8_t feature : {kBrightness, kVolume})
            model[{id, feature}] = monitorValue(id, feature);

    std::size_t presses = 0, sliderWrites = 0, sliderDone = 0;
    const auto end = machine->virtualClock()->now() + 60s;
    for (int burst = 0; machine->virtualClock()->now() < end; ++burst) {
        const HeldKey key = kHeldKeys[pick(4)];
        const platform::DisplayID first = 2 + pick(2);
        // The popover's re-reads may store values older than the first presses' writes, so
        // the pointer stays put then, and presses after the re-reads set things right.
        const bool popover = burst % 4 == 3, pointerMoves = !popover && pick(3) == 0;
        const int repeats = 15 + static_cast<int>(pick(45)); // 0.5 to 2 s at 30 Hz
        bool refreshing = popover;
        if (popover) {
            for (const auto& [id, transport] : transports)
                ddc->invalidateCache(*transport);
            displays->refreshDisplays([&] { refreshing = false; });
        }
        std::map<platform::DisplayID, int> pressesOn;
        const auto showsBefore = nativeShows().size();
        machine->displayServices().movePointerTo(1); // the built-in panel keeps its keys
        const auto passed = machine->eventTaps().inject(sim::SimEventTaps::systemDefined(0x20A00));
        ASSERT_TRUE(passed->runMainUntilReady(mainQueue()));
        ASSERT_EQ(passed->outcome(), sim::InjectedEvent::Outcome::reachedSystem);
        for (int r = 0; r < repeats; ++r) {
            const auto under = pointerMoves && r >= repeats / 2 ? 5 - first : first;
            machine->displayServices().movePointerTo(under);
            const auto event = machine->eventTaps().inject(
                sim::SimEventTaps::systemDefined(key.systemCode << 16 | 0x0A00 | (r > 0)));
            ASSERT_TRUE(event->runMainUntilReady(mainQueue()));
            ASSERT_EQ(event->outcome(), sim::InjectedEvent::Outcome::swallowed);
            ++pressesOn[under], ++presses;
            if (r % 8 == 4 && !refreshing) { // a slider moves the feature the key leaves alone
                const platform::DisplayID id = 2 + pick(2);
                const auto feature =
                    key.feature == kBrightness ? VCPCode::volume : VCPCode::brightness;
                const auto value = static_cast<std::uint16_t>(pick(101));
                ++sliderWrites;
                ddc->write(transports[id], feature, value, [&, id, feature, value](bool ok) {
                    ++sliderDone;
                    if (ok) model[{id, rawValue(feature)}] = value;
                });
            }
            mainQueue().advance(33ms);
            while (refreshing && r == 3)
                mainQueue().waitAndRun();
        }
        keyboard->waitForPresses();
        while (sliderDone < sliderWrites)
            mainQueue().waitAndRun();
        mainQueue().runPending();

        for (const auto& [id, count] : pressesOn) {
            SCOPED_TRACE("burst " + std::to_string(burst) + ", display " + std::to_string(id));
            auto& expected = model[{id, key.feature}];
            const auto now = monitorValue(id, key.feature);
            if (popover) { // re-reads may have repeated a step; the direction holds
                EXPECT_TRUE(key.direction == Direction::up ? now >= expected : now <= expected);
                expected = now;
            }
            for (int i = 0; i < count && !popover; ++i)
                expected = KeyboardManager::stepValue(expected, 100, key.direction, 0.0625f);
            EXPECT_EQ(now, expected);
            if (const auto cached = ddc->cachedValue(*transports[id], key.feature))
                EXPECT_EQ(cached->current, now);
            const auto shows = nativeShows();
            for (auto i = shows.size(); i-- > showsBefore;) { // the burst's last indicator
                if (shows[i].displayID != id) continue;
                EXPECT_EQ(shows[i].filledChiclets,
                          static_cast<std::uint32_t>(platform::macos::MacLevelIndicator::filledChiclets(now / 100.0f)));
                break;
            }
        }
        if (HasFailure()) return;
    }
    EXPECT_GT(presses, 1000u);
    EXPECT_GT(sliderWrites, 100u);
    const auto transfers = machine->bus().transfers();
    EXPECT_EQ(machine->bus().overlapCount(), 0u);
    for (const auto& t : transfers)
        ASSERT_EQ(t.queueLabel, "com.panelwright.globalDDCQueue");

    keyboard->stop();
    EXPECT_EQ(keyboard->pressesInFlight(), 0u);
    mainQueue().runUntilIdle();
    EXPECT_EQ(mainQueue().pendingCount(), 0u);
    EXPECT_EQ(machine->eventTaps().liveTapCount(), 0u);
    const auto after = machine->eventTaps().inject(sim::SimEventTaps::systemDefined(0x00020A00));
    EXPECT_TRUE(after->runMainUntilReady(mainQueue()));
    EXPECT_EQ(after->outcome(), sim::InjectedEvent::Outcome::reachedSystem);
    EXPECT_EQ(machine->bus().transfers().size(), transfers.size());
    EXPECT_EQ(
        machine->systemLog().messages("Keyboard"),
        (std::vector<std::string>{"Keyboard monitoring started", "Keyboard monitoring stopped"}));
}

} // namespace
} // namespace pw::test
