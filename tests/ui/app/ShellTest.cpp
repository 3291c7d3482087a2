#include "app/Core.h"
#include "base/Preferences.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "ui/AppDelegate.h"
#include "ui/PopoverModel.h"
#include "ui/PopoverPlacement.h"
#include "ui/PopoverWindow.h"
#include "ui/QtMainQueue.h"
#include "ui/QtStatusBar.h"
#include "ui/SingleInstance.h"
#include "ui/TrayItem.h"
#include "ui/views/Views.h"
#include "viewmodel/StatusBarController.h"
#include "viewmodel/ViewModelTestBed.h"

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QMenu>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QThread>
#include <QUuid>

#include <atomic>
#include <thread>

namespace pw::test {
namespace {

using namespace std::chrono_literals;
using Row = ui::DisplayListModel::Row;
using Values = std::vector<std::uint16_t>;

void processEvents() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

// --- The display rows ---------------------------------------------------------------------

Row row(std::uint32_t id, double brightness = 50) {
    Row r{id, QStringLiteral("Display %1").arg(id), QStringLiteral("verified"), {}};
    r.state.brightness = brightness;
    return r;
}

TEST(DisplayListModelTest, SurvivorsChangeInPlaceAnnouncingOnlyWhatChanged) {
    ui::DisplayListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.update({row(2), row(3)});
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    model.update({row(2, 80), row(3)});
    ASSERT_EQ(changed.size(), 1);
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 0);
    EXPECT_EQ(changed[0][2].value<QList<int>>(), QList<int>{ui::DisplayListModel::BrightnessRole});
    model.update({row(2, 80), row(3)}); // nothing new: nothing announced
    EXPECT_EQ(changed.size(), 1);
    EXPECT_TRUE(removed.isEmpty() && inserted.isEmpty() && reset.isEmpty());
    EXPECT_EQ(model.data(model.index(0), ui::DisplayListModel::BrightnessRole).toDouble(), 80);
}

TEST(DisplayListModelTest, DisplaysThatLeaveOrArriveMoveOnlyTheirOwnRows) {
    ui::DisplayListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.update({row(2), row(3), row(4)});
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    model.update({row(2), row(4)}); // the middle one leaves
    ASSERT_EQ(removed.size(), 1);
    EXPECT_EQ(removed[0][1].toInt(), 1);
    model.update({row(2), row(3), row(4), row(5)}); // it comes back, and a new one
    ASSERT_EQ(inserted.size(), 2);
    EXPECT_EQ(inserted[0][1].toInt(), 1);
    EXPECT_EQ(inserted[1][1].toInt(), 3);
    EXPECT_TRUE(reset.isEmpty());
    std::vector<int> ids;
    for (int i = 0; i < model.rowCount(); ++i)
        ids.push_back(model.data(model.index(i), ui::DisplayListModel::DisplayIdRole).toInt());
    EXPECT_EQ(ids, (std::vector<int>{2, 3, 4, 5}));
    model.update({});
    EXPECT_EQ(model.rowCount(), 0);
}

// --- Where the popover goes ---------------------------------------------------------------

TEST(PopoverPlacementTest, AgainstTheTrayItemOnEveryPanelEdge) {
    const QRect screen(0, 0, 1920, 1080);
    const QSize size(360, 400);
    // A top panel 32 high with the item near the right edge: below it, kept on screen.
    QPoint p = ui::popoverPosition(QRect(1880, 4, 24, 24), size, screen,
                                   QRect(0, 32, 1920, 1048), {});
    EXPECT_EQ(p, QPoint(1920 - ui::kPopoverMargin - 360, 32 + ui::kPopoverMargin));
    // A bottom panel: centred on the item, above the panel.
    p = ui::popoverPosition(QRect(900, 1050, 24, 24), size, screen, QRect(0, 0, 1920, 1044), {});
    EXPECT_EQ(p, QPoint(QRect(900, 1050, 24, 24).center().x() - 180,
                        1044 - ui::kPopoverMargin - 400));
    // A left panel: beside it.
    p = ui::popoverPosition(QRect(4, 500, 24, 24), size, screen, QRect(40, 0, 1880, 1080), {});
    EXPECT_EQ(p.x(), 40 + ui::kPopoverMargin);
}

TEST(PopoverPlacementTest, WithoutItemGeometryInThePointersCornerNearestThePanel) {
    const QRect screen(1920, 0, 1920, 1080); // a second screen, to the right
    const QSize size(360, 400);
    const int m = ui::kPopoverMargin;
    // Top panel, pointer on the right: top-right corner of the usable area.
    EXPECT_EQ(ui::popoverPosition({}, size, screen, QRect(1920, 30, 1920, 1050), {3700, 10}),
              QPoint(3840 - m - 360, 30 + m));
    // Bottom panel, pointer on the left: bottom-left.
    EXPECT_EQ(ui::popoverPosition({}, size, screen, QRect(1920, 0, 1920, 1040), {2000, 1070}),
              QPoint(1920 + m, 1040 - m - 400));
    // No panel at all: the edge nearest the pointer.
    EXPECT_EQ(ui::popoverPosition({}, size, screen, screen, {3000, 900}),
              QPoint(3840 - m - 360, 1080 - m - 400));
}

// --- The main queue on the Qt event loop ---------------------------------------------------

TEST(QtMainQueueTest, TasksFromAnyThreadRunOnTheGuiThreadInOrder) {
    ui::QtMainQueue queue(qApp);
    EXPECT_TRUE(queue.isMainThread());
    std::vector<int> order;
    bool onMain = true;
    std::thread worker([&] {
        EXPECT_FALSE(queue.isMainThread());
        queue.postAfter(20ms, [&] { order.push_back(3); });
        queue.post([&] {
            onMain = onMain && QThread::currentThread() == qApp->thread();
            order.push_back(1);
        });
    });
    worker.join();
    queue.post([&] { order.push_back(2); });
    QElapsedTimer waited;
    waited.start();
    while (order.size() < 3 && waited.elapsed() < 5000) processEvents();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(onMain);
}

// Threads still posting while the GUI thread destroys the queue's context: no post may
// reach the dying object (the address sanitizer sees one that does), none runs after it.
TEST(QtMainQueueTest, PostsRacingTheContextsDestructionAreDropped) {
    auto* context = new QObject;
    ui::QtMainQueue queue(context);
    std::atomic<bool> stop = false;
    std::atomic<int> ran = 0, posted = 0;
    std::vector<std::thread> workers;
    for (int i = 0; i < 2; ++i)
        workers.emplace_back([&] {
            while (!stop) {
                queue.post([&] { ++ran; });
                queue.postAfter(1ms, [&] { ++ran; });
                ++posted;
            }
        });
    while (posted < 1000) std::this_thread::yield();
    delete context; // while the workers post
    const int before = posted;
    while (posted < before + 1000) std::this_thread::yield();
    stop = true;
    for (auto& worker : workers) worker.join();
    processEvents();
    EXPECT_EQ(ran, 0);
}

// --- One instance per session -----------------------------------------------------------

TEST(SingleInstanceTest, ASecondStartReachesTheFirstAndAStaleSocketIsTakenOver) {
    const QString name = QStringLiteral("pw-test-") + QUuid::createUuid().toString(QUuid::Id128);
    ui::SingleInstance nobody(name);
    EXPECT_FALSE(nobody.notifyRunningInstance(200)); // nothing runs yet

    ui::SingleInstance first(name);
    ASSERT_TRUE(first.listen());
    QSignalSpy activated(&first, &ui::SingleInstance::activationRequested);
    std::atomic<bool> answered = false;
    std::thread second([&] { answered = ui::SingleInstance(name).notifyRunningInstance(3000); });
    QElapsedTimer waited;
    waited.start();
    while (activated.isEmpty() && waited.elapsed() < 5000) processEvents();
    second.join();
    EXPECT_EQ(activated.size(), 1);
    EXPECT_TRUE(answered);
}

// --- The status bar over a simulated machine ------------------------------------------------

// The tray item, popover window and adapter over a view model of the simulated machine,
// on virtual time. No tray host exists offscreen; the clicks come from the tray's signals.
class StatusBarTest : public ViewModelTestBed {
protected:
    void SetUp() override { ui::installViews(engine); }

    void open(sim::Scenario scenario) {
        start(std::move(scenario));
        auto shared = std::shared_ptr<PopoverViewModel>(std::move(model));
        viewModel = shared.get();
        bar = std::make_unique<ui::QtStatusBar>(engine, shared);
        bar->setup(nullptr);
        mainQueue().runPending();
        processEvents();
    }
    void TearDown() override {
        bar.reset();
        processEvents();
    }
    void leftClick() {
        emit bar->tray()->leftClicked();
        processEvents();
    }
    void rightClick() {
        emit bar->tray()->rightClicked();
        processEvents();
    }
    int rows() const { return bar->model()->displays()->rowCount(); }
    QVariant role(int row, int r) const {
        auto* m = bar->model()->displays();
        return m->data(m->index(row), r);
    }

    QQmlEngine engine;
    std::unique_ptr<ui::QtStatusBar> bar;
    PopoverViewModel* viewModel = nullptr;
};

TEST_F(StatusBarTest, ClicksOpenAndCloseThePopoverAndEveryCloseDropsTheWatcher) {
    open(scenarioOf({keyMonitor(2, {25, 100})}));
    // Made on the first opening: the tray item alone does not carry the popover's views.
    EXPECT_EQ(bar->window(), nullptr);
    leftClick();
    ui::PopoverWindow* window = bar->window();
    ASSERT_NE(window, nullptr);
    ASSERT_NE(window->content(), nullptr);
    EXPECT_EQ(window->width(), ui::PopoverWindow::kWidth);
    EXPECT_GT(window->height(), 100); // one section and the footer
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(bar->hasOutsideClickWatcher());
    leftClick(); // the second click closes
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(bar->hasOutsideClickWatcher());

    leftClick();
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(window, &escape);
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(bar->hasOutsideClickWatcher());
    EXPECT_FALSE(bar->controller().hasOutsideClickWatcher());

    // A click elsewhere takes the focus: closed, and the click on the tray item that took
    // it does not open it again.
    leftClick();
    QFocusEvent focusOut(QEvent::FocusOut, Qt::MouseFocusReason);
    QCoreApplication::sendEvent(window, &focusOut);
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(bar->hasOutsideClickWatcher());
    leftClick();
    EXPECT_FALSE(window->isVisible());

    // A right click closes the popover and opens the menu, never the popover.
    bar->openPopover();
    ASSERT_TRUE(window->isVisible());
    rightClick();
    EXPECT_FALSE(window->isVisible());
    EXPECT_TRUE(bar->tray()->menuVisible());
    EXPECT_FALSE(bar->hasOutsideClickWatcher());
    bar->tray()->hideMenu();
}

// Where the window system composites, the window is larger than the panel by the shadow's
// margin; a press there lands beside the panel, over whatever lies beneath (the tray item
// itself, under a top panel), and counts as a click elsewhere.
TEST_F(StatusBarTest, APressInTheShadowsMarginClosesAndOneOnThePanelDoesNot) {
    struct Case {
        bool composited;
        QPoint at;
        bool closes;
    };
    start(scenarioOf({keyMonitor(2, {25, 100})}));
    auto shared = std::shared_ptr<PopoverViewModel>(std::move(model));
    for (const Case c : {Case{true, {4, 4}, true}, Case{true, {40, 40}, false},
                         Case{false, {4, 4}, false}}) {
        SCOPED_TRACE(testing::Message() << c.composited << " " << c.at.x());
        bar = std::make_unique<ui::QtStatusBar>(engine, shared);
        bar->setWindowSystemComposites(c.composited);
        bar->setup(nullptr);
        mainQueue().runPending();
        processEvents();
        leftClick();
        ui::PopoverWindow* window = bar->window();
        ASSERT_TRUE(window && window->isVisible());
        EXPECT_EQ(window->width(), ui::PopoverWindow::kWidth + (c.composited ? 32 : 0));
        QMouseEvent press(QEvent::MouseButtonPress, c.at, window->mapToGlobal(c.at),
                          Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(window, &press);
        processEvents();
        EXPECT_EQ(window->isVisible(), !c.closes);
        EXPECT_EQ(bar->hasOutsideClickWatcher(), !c.closes);
        bar.reset();
        processEvents();
    }
}

TEST_F(StatusBarTest, TheMenuHoldsTheFourEntriesWithQuitOnCtrlQ) {
    open(scenarioOf({keyMonitor(2, {25, 100})}));
    QStringList titles;
    for (QAction* a : bar->tray()->menu()->actions())
        titles << (a->isSeparator() ? QStringLiteral("-") : a->text());
    QStringList expected;
    for (const auto& item : StatusBarController::contextMenuItems())
        expected << (item.isSeparator() ? QStringLiteral("-")
                                        : QString::fromUtf8(item.title.data(),
                                                            qsizetype(item.title.size())));
    EXPECT_EQ(titles, expected);
    QSignalSpy quit(bar.get(), &ui::QtStatusBar::quitRequested);
    bar->tray()->showMenu();
    QKeyEvent ctrlQ(QEvent::KeyPress, Qt::Key_Q, Qt::ControlModifier);
    QCoreApplication::sendEvent(bar->tray()->menu(), &ctrlQ);
    EXPECT_EQ(quit.size(), 1);
    EXPECT_FALSE(bar->tray()->menuVisible());
}

TEST_F(StatusBarTest, TheAdapterHandsActionsToTheViewModelAndFollowsItsList) {
    open(scenarioOf({keyMonitor(2, {25, 100}), keyMonitor(3, {80, 100})}));
    ui::PopoverModel* model = bar->model();
    ASSERT_EQ(rows(), 2);
    EXPECT_NEAR(role(0, ui::DisplayListModel::BrightnessRole).toDouble(), 57.43, 0.01);
    EXPECT_EQ(role(0, ui::DisplayListModel::DDCStatusRole).toString(), u"verified");
    const QVariantList inputs = model->inputs();
    ASSERT_EQ(inputs.size(), 5);
    EXPECT_EQ(inputs[4].toMap()[QStringLiteral("label")].toString(), u"USB-C");
    EXPECT_EQ(inputs[0].toMap()[QStringLiteral("value")].toInt(), 0x11);

    // A slider at 57 writes 25 once, 100 ms after it stopped; the row follows at once.
    model->changeBrightness(2, 56);
    model->changeBrightness(2, 57);
    mainQueue().runPending();
    processEvents();
    EXPECT_EQ(role(0, ui::DisplayListModel::BrightnessRole).toDouble(), 57);
    advance(100ms);
    EXPECT_EQ(setWrites(2, 0x10), Values{25});
    // Volume cuts toward zero; an input is written without waiting.
    model->changeVolume(3, 37.9);
    model->selectInput(3, 0x12);
    settleWrites();
    EXPECT_EQ(setWrites(3, 0x60), Values{0x12});
    advance(100ms);
    EXPECT_EQ(setWrites(3, 0x62), Values{37});

    // The display leaves: its row goes, later actions for it reach nothing.
    displays->startMonitoring();
    machine->unplug(2);
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    while (displays->enumerationInProgress()) mainQueue().waitAndRun();
    mainQueue().runPending();
    processEvents();
    ASSERT_EQ(rows(), 1);
    EXPECT_EQ(role(0, ui::DisplayListModel::DisplayIdRole).toInt(), 3);
    machine->bus().clear();
    model->changeBrightness(2, 10);
    model->toggleMute(2);
    model->selectInput(-1, 0x11); // nonsense from QML is ignored
    advance(200ms);
    EXPECT_TRUE(machine->bus().transfers().empty());
}

// The only test here that builds the whole Core, as the application does.
TEST(AppDelegateTest, ShutdownGivesTheColourTablesBackAndSendsNoDDC) {
    sim::SimMachine machine(scenarioOf({keyMonitor(2, {25, 100})}));
    auto& queue = *machine.manualMainQueue();
    QQmlEngine engine;
    ui::installViews(engine);
    Core core(machine.platform());
    ui::AppDelegate app(core, engine, nullptr);
    bool launched = false;
    app.applicationDidFinishLaunching([&] { launched = true; });
    // The monitors are probed off the main thread; the launch ends once the list is published.
    while (!launched) queue.waitAndRun();
    queue.runPending();
    processEvents();
    ASSERT_EQ(app.statusBar().model()->displays()->rowCount(), 1);

    // Low on the slider: the picture is dimmed in software too.
    app.statusBar().model()->changeBrightness(2, 10);
    queue.advance(100ms);
    core.ddc()->queue().sync([] {});
    queue.runPending();
    EXPECT_GT(machine.gamma().count(sim::SimGammaTables::Call::Kind::apply, 2), 0u);
    EXPECT_EQ(machine.monitor(2)->feature(0x10)->current, 0); // 100 x 0.1^2.5 rounds to 0

    machine.bus().clear();
    app.applicationWillTerminate();
    app.applicationWillTerminate(); // a signal and the Quit item may both ask
    queue.advance(2s);
    core.ddc()->queue().sync([] {});
    EXPECT_EQ(machine.gamma().count(sim::SimGammaTables::Call::Kind::restore), 1u);
    EXPECT_TRUE(machine.bus().transfers().empty());
    EXPECT_EQ(machine.monitor(2)->feature(0x10)->current, 0); // the monitor keeps its value
}

} // namespace
} // namespace pw::test
