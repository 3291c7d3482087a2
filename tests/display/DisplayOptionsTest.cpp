// Per-display options as enumeration reads them: the longer delay, and the options of a
// monitor that comes back under another display number.
#include "base/Preferences.h"
#include "display/DisplayTestBed.h"
#include "display/PacedTransport.h"
#include "platform/sim/MemoryUserDefaults.h"

#include <algorithm>

namespace pw::test {
namespace {

namespace prefs = Preferences;

class DisplayOptions : public DisplayTestBed {
protected:
    sim::MemoryUserDefaults& store() { return machine->defaults(); }
    std::size_t longSleeps() const {
        const auto sleeps = machine->virtualClock()->sleeps();
        return static_cast<std::size_t>(std::count_if(sleeps.begin(), sleeps.end(), [](auto& s) {
            return s.duration == PacedTransport::kExtraDelay;
        }));
    }
    bool logged(const std::string& line) const {
        const auto lines = logLines("Display");
        return std::find(lines.begin(), lines.end(), "[Display] " + line) != lines.end();
    }
};

TEST_F(DisplayOptions, TheLongerDelayIsReadAtEveryEnumerationAndPacesEveryTransfer) {
    boot(scenarioOf({monitorDisplay(2, "Office", 1234, 5678)}));
    auto list = enumerate();
    EXPECT_FALSE(list[0].longerDelay);
    const auto usual = longSleeps(); // the DDC manager's own waits of that length

    // Ticked in the settings while running: the next enumeration has it.
    prefs::setLongerDelay(store(), true, "Office+1234+5678@2");
    machine->virtualClock()->clearSleeps();
    list = enumerate();
    EXPECT_TRUE(list[0].longerDelay);
    EXPECT_GE(longSleeps(), usual + 1); // before the probe
    ASSERT_TRUE(ddc->read(list[0].transport, VCPCode::volume));
    const auto afterProbe = longSleeps();
    ddc->invalidateCache(*list[0].transport);
    ASSERT_TRUE(ddc->read(list[0].transport, VCPCode::volume));
    EXPECT_GT(longSleeps(), afterProbe); // later reads are paced too

    prefs::setLongerDelay(store(), false, "Office+1234+5678@2");
    machine->virtualClock()->clearSleeps();
    list = enumerate();
    EXPECT_FALSE(list[0].longerDelay);
    EXPECT_EQ(longSleeps(), usual);
}

TEST_F(DisplayOptions, AMonitorBackUnderAnotherNumberFindsItsOptions) {
    boot(scenarioOf({monitorDisplay(5, "Office 27", 1234, 5678)}));
    prefs::setFriendlyName(store(), "Desk", "Office 27+1234+5678@2");
    prefs::setLongerDelay(store(), true, "Office 27+1234+5678@2");
    prefs::setLongerDelay(store(), true, "Office 2+1234+5678@3"); // another name: not it

    const auto list = enumerate();
    EXPECT_EQ(displayTitle(list[0], store()), "Desk");
    EXPECT_TRUE(list[0].longerDelay); // moved before it was read
    EXPECT_FALSE(store().object("display.Office 27+1234+5678@2.friendlyName"));
    EXPECT_TRUE(store().object("display.Office 2+1234+5678@3.longerDelay"));
    EXPECT_TRUE(logged("Options of Office 27+1234+5678@2 moved to Office 27+1234+5678@5"));
}

TEST_F(DisplayOptions, TwoEarlierMonitorsOfTheModelAreNotGuessedBetween) {
    boot(scenarioOf({monitorDisplay(5, "Twin", 1234, 5678)}));
    prefs::setFriendlyName(store(), "Left", "Twin+1234+5678@2");
    prefs::setFriendlyName(store(), "Right", "Twin+1234+5678@3");

    const auto list = enumerate();
    EXPECT_EQ(displayTitle(list[0], store()), "Twin");
    EXPECT_EQ(prefs::friendlyName(store(), "Twin+1234+5678@2"), "Left");
    EXPECT_EQ(prefs::friendlyName(store(), "Twin+1234+5678@3"), "Right");
    EXPECT_TRUE(logged("Options for Twin+1234+5678@5 not moved: 2 earlier displays of the same "
                       "model"));
}

TEST_F(DisplayOptions, ASecondMonitorOfTheModelDoesNotTakeTheOptionsOfTheConnectedOne) {
    boot(scenarioOf({monitorDisplay(2, "Twin", 1234, 5678, 1), monitorDisplay(3, "Twin", 1234,
                                                                               5678, 2)}));
    prefs::setFriendlyName(store(), "Left", "Twin+1234+5678@2");

    // Asked for the second alone (the command line's --display), the first is still
    // connected, so its options stay where they are.
    manager->enumerateDisplays(3);
    mainQueue().runPending();
    ASSERT_EQ(manager->displays().size(), 1u);
    EXPECT_EQ(prefs::friendlyName(store(), "Twin+1234+5678@2"), "Left");

    const auto list = enumerate();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(displayTitle(list[0], store()), "Left");
    EXPECT_EQ(displayTitle(list[1], store()), "Twin");
}

} // namespace
} // namespace pw::test
