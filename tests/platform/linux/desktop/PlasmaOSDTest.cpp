#include "platform/linux/desktop/PlasmaOSD.h"

#include "DesktopTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>

namespace pw::linuxdesktop {
namespace {

constexpr const char* kInterface = "org.kde.osdService";

class PlasmaOSDTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus = test::PrivateBus::start();
        if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    }

    std::optional<test::PrivateBus> bus;
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
};

TEST_F(PlasmaOSDTest, LevelsReachThePlasmaIndicatorAsPercentages) {
    auto plasma = test::BusPeer::connect(bus->address(), "org.kde.plasmashell");
    ASSERT_TRUE(plasma);
    auto indicator = PlasmaIndicator::create(bus->address(), DesktopLog{log});
    ASSERT_TRUE(indicator);
    EXPECT_EQ(log->messages("OSD"), std::vector<std::string>{"Using KDE Plasma's level indicator"});

    using Kind = platform::IndicatorKind;
    indicator->show(Kind::brightness, 0.5f, 5);
    indicator->show(Kind::volume, 0.69f, 5);
    indicator->show(Kind::mute, 0.69f, 5);
    indicator->show(Kind::brightness, 1.25f, 5);
    indicator->show(Kind::brightness, -0.5f, 5);

    const auto calls = plasma->waitForCalls(kInterface, 5);
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].member, "brightnessChanged");
    EXPECT_EQ(calls[0].argument, 50);
    EXPECT_EQ(calls[1].member, "volumeChanged");
    EXPECT_EQ(calls[1].argument, 69);
    EXPECT_EQ(calls[2].member, "volumeChanged");
    EXPECT_EQ(calls[2].argument, 0); // drawn as muted
    EXPECT_EQ(calls[3].argument, 100); // never more than full
    EXPECT_EQ(calls[4].argument, 0);   // never less than empty
}

TEST_F(PlasmaOSDTest, NoPlasmaOrNoBusIsOneLineAndTheProgramsOwnIndicator) {
    EXPECT_FALSE(PlasmaIndicator::create(bus->address(), DesktopLog{log}));
    EXPECT_FALSE(PlasmaIndicator::create(std::string("unix:path=/nonexistent/bus"), DesktopLog{log}));
    const auto lines = log->messages("OSD");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "KDE Plasma's level indicator unavailable (org.kde.plasmashell is not on "
                        "the session bus), using the program's own");
    EXPECT_NE(lines[1].find("cannot connect to the bus at \"unix:path=/nonexistent/bus\""),
              std::string::npos);
}

} // namespace
} // namespace pw::linuxdesktop
