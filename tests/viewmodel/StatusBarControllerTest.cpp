#include "viewmodel/StatusBarController.h"

#include "viewmodel/ViewModelTestBed.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace pw::test {
namespace {

using Calls = std::vector<std::string>;

// Records what the controller asks of the desktop, in one list with the refreshes, and
// behaves like a popover: shown until closed.
class RecordingHost : public StatusItemHost {
public:
    void showPopover() override { calls.push_back("show"), shown = true; }
    void closePopover() override {
        calls.push_back("close"), shown = false;
        if (reportCloses) reportCloses();
    }
    bool isPopoverShown() const override { return shown; }
    void showContextMenu() override { calls.push_back("menu"); }
    bool installOutsideClickWatcher(std::function<void()> onOutsideClick) override {
        calls.push_back("watch");
        ++watchers;
        outsideClick = std::move(onOutsideClick);
        return offerWatcher;
    }
    void removeOutsideClickWatcher() override { calls.push_back("unwatch"), --watchers; }

    // The popover goes by itself (Escape, focus moved away).
    void dismiss(StatusBarController& controller) {
        shown = false;
        controller.popoverDidClose();
    }
    Calls take() { return std::exchange(calls, {}); }

    Calls calls;
    bool shown = false;
    int watchers = 0; // installed minus removed
    bool offerWatcher = true;
    std::function<void()> outsideClick;
    std::function<void()> reportCloses; // a desktop that reports its own closes back
};

class StatusBarControllerTest : public ::testing::Test {
protected:
    RecordingHost host;
    StatusBarController controller{host, [this] { host.calls.push_back("refresh"); }};
};

TEST_F(StatusBarControllerTest, LeftClickTogglesAndRefreshesOncePerOpening) {
    controller.leftClick();
    EXPECT_EQ(host.take(), (Calls{"refresh", "show", "watch"}));
    EXPECT_TRUE(controller.hasOutsideClickWatcher());
    controller.leftClick();
    EXPECT_EQ(host.take(), (Calls{"close", "unwatch"}));
    EXPECT_FALSE(controller.hasOutsideClickWatcher());
    controller.leftClick();
    EXPECT_EQ(host.take(), (Calls{"refresh", "show", "watch"}));
    EXPECT_EQ(host.watchers, 1);
}

TEST_F(StatusBarControllerTest, RightClickClosesAndShowsTheMenuButNeverOpens) {
    controller.rightClick();
    EXPECT_EQ(host.take(), Calls{"menu"});
    controller.leftClick();
    host.take();
    controller.rightClick();
    EXPECT_EQ(host.take(), (Calls{"close", "unwatch", "menu"}));
    EXPECT_FALSE(host.shown);
    EXPECT_EQ(host.watchers, 0);
}

TEST_F(StatusBarControllerTest, EveryWayOfClosingLeavesNoWatcher) {
    // A click elsewhere.
    controller.leftClick();
    host.take();
    host.outsideClick();
    EXPECT_EQ(host.take(), (Calls{"close", "unwatch"}));
    host.outsideClick(); // a late report from the old watcher changes nothing
    EXPECT_TRUE(host.take().empty());

    // Escape or focus loss, reported by the desktop.
    controller.leftClick();
    host.take();
    host.dismiss(controller);
    EXPECT_EQ(host.take(), Calls{"unwatch"});
    controller.popoverDidClose();
    EXPECT_TRUE(host.take().empty());

    // A desktop that also reports the closes the controller asked for.
    host.reportCloses = [this] { controller.popoverDidClose(); };
    controller.leftClick();
    controller.leftClick();
    controller.leftClick();
    controller.rightClick();
    EXPECT_EQ(host.take(), (Calls{"refresh", "show", "watch", "close", "unwatch", "refresh", "show",
                                  "watch", "close", "unwatch", "menu"}));
    EXPECT_EQ(host.watchers, 0);
}

TEST_F(StatusBarControllerTest, WithoutAWatcherThePopoverStillOpensAndNothingIsRemoved) {
    host.offerWatcher = false;
    controller.leftClick();
    EXPECT_TRUE(host.shown);
    EXPECT_FALSE(controller.hasOutsideClickWatcher());
    controller.leftClick();
    EXPECT_EQ(host.take(), (Calls{"refresh", "show", "watch", "close"}));
}

TEST(StatusBarControllerLife, AControllerGoneRemovesItsWatcherAndIgnoresLateClicks) {
    RecordingHost host;
    auto controller = std::make_unique<StatusBarController>(host, [] {});
    controller->leftClick();
    controller.reset();
    EXPECT_EQ(host.watchers, 0);
    host.take();
    host.outsideClick();
    EXPECT_TRUE(host.take().empty());
}

TEST(StatusBarMenu, AboutUpdatesSeparatorQuit) {
    const auto& items = StatusBarController::contextMenuItems();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].title, "About Panelwright");
    EXPECT_EQ(items[0].action, "showAbout");
    EXPECT_EQ(items[1].title, "Check for Updates\xE2\x80\xA6"); // one ellipsis character
    EXPECT_EQ(items[1].action, "checkForUpdates");
    EXPECT_TRUE(items[2].isSeparator());
    EXPECT_EQ(items[3].title, "Quit Panelwright");
    EXPECT_EQ(items[3].action, "quitApp");
    EXPECT_EQ(items[3].shortcut, "Ctrl+Q");
    for (const auto& item : items)
        if (item.action != "quitApp") EXPECT_TRUE(item.shortcut.empty()) << item.title;
}

// The real model behind the controller: opening the popover reads the monitors again.
class StatusBarOverModelTest : public ViewModelTestBed {};

TEST_F(StatusBarOverModelTest, OpeningThePopoverReadsTheMonitorsAgain) {
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    RecordingHost host;
    StatusBarController controller(host, *model);
    machine->monitor(2)->setFeature(kBrightness, 64, 100); // changed on the monitor itself
    controller.leftClick();
    ASSERT_TRUE(host.shown);
    const double before = model->stateFor(2).brightness;
    runUntil([&] { return model->stateFor(2).brightness != before; });
    EXPECT_NEAR(model->stateFor(2).brightness, 83.65, 0.005); // 100 * 0.64^0.4
    controller.leftClick();
}

} // namespace
} // namespace pw::test
