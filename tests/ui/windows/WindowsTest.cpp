#include "base/Preferences.h"
#include "display/ExternalDisplay.h"
#include "platform/LoginItems.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "ui/AboutWindow.h"
#include "ui/BuildInfo.h"
#include "ui/FixedWindow.h"
#include "ui/SettingsModel.h"
#include "ui/SettingsWindow.h"
#include "ui/Updater.h"
#include "ui/views/Symbols.h"
#include "ui/views/Views.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <QGuiApplication>
#include <QMessageBox>
#include <QQmlEngine>
#include <QQuickItem>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

namespace pw::test {
namespace {

using Preferences::displayKey;

void processEvents() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

// --- Version and build --------------------------------------------------------------------

TEST(BuildInfoTest, VersionDropsTrailingZeroPiecesDownToTwoAndNoCommitIsADevBuild) {
    const std::pair<QString, QString> versions[] = {
        {"3.0.0.0", "3.0"}, {"2.1.0", "2.1"}, {"2.0", "2.0"},   {"1.2.0.5", "1.2.0.5"},
        {"4", "4"},         {"1..2.0", "1.2"}, {QString(), "1.0"}, {"", "1.0"}}; // empty pieces do not count
    for (const auto& [version, shortened] : versions)
        EXPECT_EQ(ui::shortVersion(version), shortened) << qPrintable(version);
    EXPECT_EQ(ui::buildIdentifier(""), "dev");
    EXPECT_EQ(ui::buildIdentifier("  \n"), "dev");
    EXPECT_EQ(ui::buildIdentifier("5faadf2c1e"), "5faadf2c1e");
}

// --- Fixtures -----------------------------------------------------------------------------

// The autostart registration as a file would be: something else may change it.
class FakeLoginItems final : public platform::LoginItems {
public:
    bool isEnabled() const override { return enabled; }
    bool setEnabled(bool value) override {
        ++calls;
        if (failing) return false;
        enabled = value;
        return true;
    }
    bool enabled = false;
    bool failing = false;
    int calls = 0;
};

ExternalDisplay display(std::uint32_t id, std::string name, DDCStatus status = DDCStatus::verified,
                        bool ddc = true) {
    ExternalDisplay d;
    d.id = id;
    d.name = std::move(name);
    d.vendorID = 4268;
    d.productID = 41200;
    d.ddcStatus = status;
    d.ddcSupported = ddc;
    return d;
}

// By the visual tree: a list view's delegates have no QObject parent to be found through.
void collect(QQuickItem* item, const QString& name, QList<QQuickItem*>& found) {
    if (!item) return;
    if (item->objectName() == name) found.append(item);
    for (QQuickItem* child : item->childItems()) collect(child, name, found);
}

QList<QQuickItem*> findAll(QQuickItem* root, const char* name) {
    QList<QQuickItem*> found;
    collect(root, QString::fromLatin1(name), found);
    return found;
}

QQuickItem* find(QQuickItem* root, const char* name) {
    const auto found = findAll(root, name);
    return found.isEmpty() ? nullptr : found.first();
}

void click(QQuickItem* item) {
    ASSERT_NE(item, nullptr);
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(item->window(), Qt::LeftButton, {}, centre.toPoint());
    processEvents();
}

class SettingsWindowTest : public ::testing::Test {
protected:
    void SetUp() override { ui::installViews(engine); }

    ui::SettingsWindowController& open(std::vector<ExternalDisplay> displays = {}) {
        auto model = std::make_shared<ui::SettingsModel>(store, loginItems, updater);
        model->setDisplays(displays);
        controller = std::make_unique<ui::SettingsWindowController>(engine, model, nullptr);
        controller->show();
        window = controller->window();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window));
        processEvents();
        return *controller;
    }
    QQuickItem* item(const char* name) { return find(window->content(), name); }
    // Lays the window out and draws a frame now, as the next vsync would: a view that just
    // became current makes its delegates then.
    void settle() {
        processEvents();
        window->grabWindow();
        processEvents();
    }

    QQmlEngine engine;
    std::shared_ptr<sim::MemoryUserDefaults> store = std::make_shared<sim::MemoryUserDefaults>();
    std::shared_ptr<FakeLoginItems> loginItems = std::make_shared<FakeLoginItems>();
    std::shared_ptr<ui::PackageManagerUpdater> updater =
        std::make_shared<ui::PackageManagerUpdater>("3.0", "abc1234");
    std::unique_ptr<ui::SettingsWindowController> controller;
    ui::FixedWindow* window = nullptr;
};

// --- The settings window ------------------------------------------------------------------

TEST_F(SettingsWindowTest, IsOneFixedWindowThatKeepsItsTabAcrossShows) {
    open({display(2, "DELL U2720Q")});
    ASSERT_NE(window->content(), nullptr);
    EXPECT_EQ(window->minimumSize(), window->maximumSize()); // not resizable

    click(item("displaysTab"));
    EXPECT_EQ(controller->currentTab(), 1);
    window->close();
    processEvents();
    controller->show();
    processEvents();
    EXPECT_EQ(controller->window(), window);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(controller->currentTab(), 1);
    EXPECT_TRUE(item("displayList")->isVisible());
}

// Without a pointer: Tab walks the tab strip and then the form, Space chooses a tab, and a
// switch that is on still shows the ring around it.
TEST_F(SettingsWindowTest, TheKeyboardReachesTheTabsAndEveryControlWithAVisibleRing) {
    open({display(2, "DELL U2720Q")});
    const auto focused = [&] {
        QQuickItem* item = window->activeFocusItem();
        return item ? item->objectName() : QString();
    };
    QStringList order;
    for (int i = 0; i < 6; ++i) {
        QTest::keyClick(window, Qt::Key_Tab);
        processEvents();
        order << focused();
    }
    EXPECT_EQ(order, QStringList({"generalTab", "displaysTab", "startupPicker",
                                  "launchAtLoginToggle", "checkForUpdatesButton",
                                  "showOSDToggle"}));
    // The overlay switch is on: its ring lies outside the accent track.
    EXPECT_TRUE(item("showOSDToggle")->property("checked").toBool());
    QQuickItem* ring = find(item("showOSDToggle"), "focusRing");
    ASSERT_NE(ring, nullptr);
    EXPECT_TRUE(ring->isVisible());

    QTest::keyClick(window, Qt::Key_Tab, Qt::ShiftModifier);
    for (int i = 0; i < 3; ++i) QTest::keyClick(window, Qt::Key_Backtab);
    processEvents();
    EXPECT_EQ(focused(), "displaysTab");
    QTest::keyClick(window, Qt::Key_Space);
    processEvents();
    EXPECT_EQ(controller->currentTab(), 1);
}

// Cards that do not fit show a scroll bar at once; a long stored name shows its start.
TEST_F(SettingsWindowTest, MoreCardsThanFitShowAScrollBarAndLongNamesTheirStart) {
    const auto first = display(2, "DELL U2720Q");
    store->set("display." + first.preferenceKey() + ".friendlyName",
               std::string("The long monitor on the left of the desk, by the window"));
    open({first, display(3, "LG HDR 4K"), display(4, "BenQ PD2700U")});
    click(item("displaysTab"));
    settle();
    QQuickItem* bar = item("scrollBar");
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->property("policy").toInt(), 2); // ScrollBar.AlwaysOn
    QQuickItem* field = item("friendlyNameField");
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->property("cursorPosition").toInt(), 0);
}

TEST_F(SettingsWindowTest, PickerShowsTheStoredStartupActionAndStoresAChoiceAtOnce) {
    store->set(Preferences::kStartupAction, std::int64_t{7}); // out of range: the last case
    open();
    QQuickItem* picker = item("startupPicker");
    ASSERT_NE(picker, nullptr);
    EXPECT_EQ(picker->property("currentIndex").toInt(), 2);
    EXPECT_EQ(picker->property("displayText").toString(), "Read from displays");

    picker->forceActiveFocus();
    QTest::keyClick(window, Qt::Key_Up);
    processEvents();
    EXPECT_EQ(Preferences::integer(*store, Preferences::kStartupAction), 1);
    EXPECT_EQ(picker->property("displayText").toString(), "Restore last values");

    store->remove(Preferences::kStartupAction);
    controller->show(); // every show reads the store again
    processEvents();
    EXPECT_EQ(picker->property("displayText").toString(), "Do nothing");
}

TEST_F(SettingsWindowTest, TogglesWriteTheirKeysAtOnce) {
    open();
    EXPECT_TRUE(item("showOSDToggle")->property("checked").toBool()); // absent reads as shown
    click(item("showOSDToggle"));
    EXPECT_EQ(store->object(Preferences::kShowOSD), platform::DefaultsValue(false));
    EXPECT_FALSE(item("showOSDToggle")->property("checked").toBool());
    click(item("showOSDToggle"));
    EXPECT_EQ(store->object(Preferences::kShowOSD), platform::DefaultsValue(true));

    click(item("launchAtLoginToggle"));
    EXPECT_TRUE(loginItems->enabled);
    EXPECT_EQ(store->object(Preferences::kLaunchAtLogin), platform::DefaultsValue(true));
    EXPECT_TRUE(item("launchAtLoginToggle")->property("checked").toBool());
}

TEST_F(SettingsWindowTest, LaunchAtLoginShowsTheRealRegistrationEachTimeItOpens) {
    store->set(Preferences::kLaunchAtLogin, true); // stored, but the entry was removed since
    open();
    EXPECT_FALSE(item("launchAtLoginToggle")->property("checked").toBool());
    EXPECT_EQ(store->object(Preferences::kLaunchAtLogin), platform::DefaultsValue(false));

    loginItems->enabled = true; // someone put the entry back
    window->close();
    controller->show();
    processEvents();
    EXPECT_TRUE(item("launchAtLoginToggle")->property("checked").toBool());

    // A registration that cannot be changed leaves the switch where the system is.
    loginItems->failing = true;
    click(item("launchAtLoginToggle"));
    EXPECT_EQ(loginItems->calls, 1);
    EXPECT_TRUE(item("launchAtLoginToggle")->property("checked").toBool());
    EXPECT_EQ(store->object(Preferences::kLaunchAtLogin), platform::DefaultsValue(true));
    EXPECT_FALSE(controller->model().launchAtLoginNote().isEmpty());
}

TEST_F(SettingsWindowTest, WithoutLoginItemsTheToggleIsDisabledWithAReason) {
    loginItems = nullptr;
    open();
    QQuickItem* toggle = item("launchAtLoginToggle");
    EXPECT_FALSE(toggle->isEnabled());
    click(toggle);
    EXPECT_FALSE(store->object(Preferences::kLaunchAtLogin).has_value());
    EXPECT_FALSE(controller->model().launchAtLoginNote().isEmpty());
}

TEST_F(SettingsWindowTest, UpdatesAreHonestAboutComingFromThePackage) {
    open();
    QQuickItem* automatic = item("automaticUpdatesToggle");
    EXPECT_FALSE(automatic->property("checked").toBool());
    EXPECT_FALSE(automatic->isEnabled());
    EXPECT_EQ(controller->model().automaticUpdatesNote(), updater->automaticChecksNote());

    click(item("checkForUpdatesButton"));
    QMessageBox* dialog = updater->dialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(dialog->informativeText().contains("3.0"));
    // The build and its number stay on one line however the dialog wraps.
    EXPECT_TRUE(dialog->informativeText().contains(QStringLiteral("(build\u00a0abc1234)")));
    EXPECT_TRUE(dialog->informativeText().contains("package"));
    click(item("checkForUpdatesButton")); // a second ask brings back the same dialog
    EXPECT_EQ(updater->dialog(), dialog);
    dialog->close();
}

// --- The Displays tab ---------------------------------------------------------------------

TEST_F(SettingsWindowTest, EveryDisplayGetsARowDDCOrNotAndNoneSaysSo) {
    open({display(2, "DELL U2720Q"), display(3, "", DDCStatus::softwareOnly, false)});
    controller->selectTab(1);
    settle();
    const auto rows = findAll(window->content(), "displayRow");
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(find(rows[1], "title")->property("text").toString(), "Display 3");
    EXPECT_EQ(find(rows[1], "status")->property("text").toString(), "Software");
    EXPECT_EQ(find(rows[0], "status")->property("text").toString(), "DDC");
    EXPECT_EQ(find(rows[0], "identifier")->property("text").toString(),
              "ID: DELL U2720Q+4268+41200@2");
    EXPECT_FALSE(item("emptyState")->isVisible());

    controller->model().setDisplays({});
    settle();
    EXPECT_TRUE(item("emptyState")->isVisible());
    EXPECT_TRUE(findAll(window->content(), "displayRow").isEmpty());
}

TEST_F(SettingsWindowTest, FriendlyNameIsStoredAsTypedAndClearingItRemovesTheKey) {
    const auto d = display(2, "DELL U2720Q");
    const std::string key = displayKey(d.preferenceKey(), Preferences::kFriendlyName);
    open({d});
    controller->selectTab(1);
    settle();
    QQuickItem* field = item("friendlyNameField");
    click(field);
    for (char c : std::string("Desk")) QTest::keyClick(window, c);
    processEvents();
    EXPECT_EQ(store->object(key), platform::DefaultsValue(std::string("Desk")));
    EXPECT_EQ(item("title")->property("text").toString(), "Desk");

    for (int i = 0; i < 4; ++i) QTest::keyClick(window, Qt::Key_Backspace);
    processEvents();
    EXPECT_FALSE(store->object(key).has_value());
    EXPECT_EQ(item("title")->property("text").toString(), "DELL U2720Q");
}

TEST_F(SettingsWindowTest, RowsStartFromTheStoredOptionsAndWriteTogglesAtOnce) {
    const auto d = display(2, "DELL U2720Q");
    store->set(displayKey(d.preferenceKey(), Preferences::kFriendlyName), "Left");
    store->set(displayKey(d.preferenceKey(), Preferences::kLongerDelay), true);
    open({d});
    controller->selectTab(1);
    settle();
    EXPECT_EQ(item("friendlyNameField")->property("text").toString(), "Left");
    EXPECT_TRUE(item("longerDelayToggle")->property("checked").toBool());
    EXPECT_FALSE(item("forceSoftwareToggle")->property("checked").toBool());

    click(item("longerDelayToggle"));
    EXPECT_EQ(store->object(displayKey(d.preferenceKey(), Preferences::kLongerDelay)),
              platform::DefaultsValue(false));
    click(item("forceSoftwareToggle"));
    EXPECT_EQ(store->object(displayKey(d.preferenceKey(), Preferences::kForceSoftwareBrightness)),
              platform::DefaultsValue(true));
    EXPECT_TRUE(item("forceSoftwareToggle")->property("checked").toBool());
}

TEST(SettingsModelTest, ValueRefreshesDoNotRebuildTheRows) {
    auto store = std::make_shared<sim::MemoryUserDefaults>();
    ui::SettingsModel model(store, nullptr, nullptr);
    int rebuilt = 0;
    QObject::connect(&model, &ui::SettingsModel::displaysChanged, [&] { ++rebuilt; });
    auto d = display(2, "DELL U2720Q");
    model.setDisplays({d});
    d.brightness = DDCReadResult{40, 100};
    model.setDisplays({d});
    EXPECT_EQ(rebuilt, 1);
    d.ddcStatus = DDCStatus::unverified;
    model.setDisplays({d});
    model.setDisplays({});
    EXPECT_EQ(rebuilt, 3);
}

// --- About --------------------------------------------------------------------------------

TEST(AboutWindowTest, OnePanelWithTheBuildsTextsBroughtBackByEveryShow) {
    QQmlEngine engine;
    ui::installViews(engine);
    ui::AboutWindowController about(engine, {ui::shortVersion("3.0.0.0"), ui::buildIdentifier("")});
    about.show();
    ui::FixedWindow* panel = about.window();
    ASSERT_NE(panel, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(panel));
    EXPECT_EQ(panel->minimumSize(), panel->maximumSize());
    EXPECT_FALSE(panel->flags() & Qt::WindowMinimizeButtonHint);
    EXPECT_EQ(find(panel->content(), "version")->property("text").toString(), "Version 3.0");
    EXPECT_EQ(find(panel->content(), "build")->property("text").toString(), "Build dev");
    EXPECT_EQ(find(panel->content(), "copyright")->property("text").toString(),
              ui::AboutWindowController::builtInCopyright());

    panel->close();
    processEvents();
    about.show(); // from the menu, then from the footer: still the one panel
    about.show();
    EXPECT_EQ(about.window(), panel);
    EXPECT_TRUE(panel->isVisible());
    int panels = 0;
    for (const QWindow* w : QGuiApplication::topLevelWindows())
        if (w->objectName() == "aboutWindow") ++panels;
    EXPECT_EQ(panels, 1);
}

// --- Symbols ------------------------------------------------------------------------------

// A symbol named in a view but missing from the mapping would draw the "missing" picture.
TEST(WindowSymbolsTest, EverySymbolTheWindowsNameIsMapped) {
    const QRegularExpression named(QStringLiteral(R"re((?:name|symbol):\s*"([a-z0-9.]+)")re"));
    int seen = 0;
    for (const char* file : {"SettingsView.qml", "SettingsTab.qml", "DisplaySettingsView.qml",
                             "DisplaySettingsRow.qml", "AboutView.qml"}) {
        QFile qml(QStringLiteral(":/qt/qml/Panelwright/Views/") + QLatin1String(file));
        ASSERT_TRUE(qml.open(QIODevice::ReadOnly)) << file;
        const QString text = QString::fromUtf8(qml.readAll());
        for (auto match = named.globalMatch(text); match.hasNext();) {
            const QString symbol = match.next().captured(1);
            ++seen;
            EXPECT_FALSE(ui::freedesktopIconFor(symbol).isEmpty()) << qPrintable(symbol);
            EXPECT_FALSE(ui::symbolIcon(symbol).isNull()) << qPrintable(symbol);
        }
    }
    EXPECT_GE(seen, 4);
}

} // namespace
} // namespace pw::test
