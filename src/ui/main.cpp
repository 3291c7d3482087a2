// panelwright: the tray application. Builds the machine (simulated or real) and the Core
// that owns it and every manager, runs the launch sequence and the Qt event loop, and the shutdown sequence on the way out.

#include "app/Core.h"
#include "base/DiagnosticLog.h"
#include "platform/sim/Scenario.h"
#include "ui/AboutWindow.h"
#include "ui/AppDelegate.h"
#include "app/StartupActions.h"
#include "viewmodel/PopoverViewModel.h"
#include "ui/AppMachine.h"
#include "ui/BuildInfo.h"
#include "ui/DesktopAssembly.h"
#include "ui/ItemMap.h"
#include "ui/PopoverWindow.h"
#include "ui/QtMainQueue.h"
#include "ui/QtStatusBar.h"
#include "ui/Screenshot.h"
#include "ui/SettingsModel.h"
#include "ui/SettingsWindow.h"
#include "ui/SingleInstance.h"
#include "ui/Updater.h"
#include "ui/ViewLoad.h"
#include "ui/WakeFollower.h"
#include "ui/views/QtLevelIndicators.h"
#include "ui/views/Views.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#ifndef PW_VERSION
#define PW_VERSION "0.0.0"
#endif

namespace {

constexpr int kUsage = 2;
// A view cannot be loaded (a QML module is missing): nothing could be shown.
constexpr int kViewsUnavailable = 4;

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int) {
    const char byte = 1;
    [[maybe_unused]] auto written = ::write(signalPipe[1], &byte, 1);
}

// SIGTERM, SIGINT and SIGHUP (the session going away) quit through the event loop, so
// the shutdown sequence runs as it does for the Quit item.
void quitOnSignals(QApplication& app) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] {
        char byte;
        [[maybe_unused]] auto read = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

bool hasArgument(int argc, char** argv, const char* name) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], name) == 0) return true;
    return false;
}

} // namespace

int main(int argc, char** argv) {
    // Pictures need no display at all.
    const bool screenshot = hasArgument(argc, argv, "--screenshot");
    // Nor does the help text.
    const bool textOnly = hasArgument(argc, argv, "--help") || hasArgument(argc, argv, "-h") ||
                          hasArgument(argc, argv, "--version") || hasArgument(argc, argv, "-v");
    if ((screenshot || textOnly) && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // A 360-point popover needs no GPU; the software renderer keeps the app near a third
    // of the memory of the OpenGL path and draws its first frame sooner.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Panelwright"));
    QApplication::setApplicationVersion(QStringLiteral(PW_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.panelwright.app"));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Controls external monitors over DDC/CI from a tray item."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption simulate(
        QStringLiteral("simulate"),
        QStringLiteral("Run on a simulated machine described by SCENARIO (see scenarios/)."),
        QStringLiteral("SCENARIO"));
    const QCommandLineOption shot(
        QStringLiteral("screenshot"),
        QStringLiteral("Render KIND (popover, indicator, settings, settings-displays or about) "
                       "offscreen to the PNG file given as "
                       "the argument, then exit."),
        QStringLiteral("KIND"));
    const QCommandLineOption busLog(
        QStringLiteral("bus-log"),
        QStringLiteral("Testing aid: record every bus transfer of the simulated machine, with "
                       "its time, to FILE."),
        QStringLiteral("FILE"));
    parser.addOptions({simulate, shot, busLog});
    parser.addPositionalArgument(QStringLiteral("OUT.png"),
                                 QStringLiteral("With --screenshot only: the picture to write."),
                                 QStringLiteral("[OUT.png]"));
    parser.process(app);

    const QString kind = parser.value(shot);
    if (screenshot && (!pw::ui::isScreenshotKind(kind) || parser.positionalArguments().size() != 1)) {
        std::fprintf(stderr, "panelwright: --screenshot takes popover, indicator, settings, "
                             "settings-displays or about and then the PNG file to write, e.g. --screenshot popover popover.png\n");
        return kUsage;
    }

    // One instance per session: a second start opens the running one's popover.
    pw::ui::SingleInstance instance;
    if (!screenshot) {
        if (instance.notifyRunningInstance()) return 0;
        QString error;
        if (!instance.listen(&error))
            std::fprintf(stderr, "panelwright: cannot watch for other starts (%s); running on\n",
                         qPrintable(error));
    }

    auto mainQueue = std::make_shared<pw::ui::QtMainQueue>(&app);
    // Locals go in the reverse of their making: the delegate, then the Core with every
    // manager and worker, then the engine, then this closes the main queue, so a thread
    // still winding down posts nothing to the application object while it is destroyed.
    const struct CloseMainQueue {
        std::shared_ptr<pw::ui::QtMainQueue> queue;
        ~CloseMainQueue() { queue->close(); }
    } closeMainQueue{mainQueue};
    pw::ui::setUpIcons();
    QQmlEngine engine;
    pw::ui::installViews(engine);
    if (const QString error = pw::ui::viewsLoadError(engine); !error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return kViewsUnavailable;
    }
    // Our own indicator window (made on first show), for the machine to use where the
    // system shows no indicator of its own.
    const auto indicatorWindow = std::make_shared<pw::ui::QtIndicatorWindow>(engine);
    std::unique_ptr<pw::ui::AppMachine> machine;
    if (parser.isSet(simulate)) {
        const QString file = parser.value(simulate);
        auto loaded = pw::sim::loadScenarioFile(file.toStdString());
        if (const auto* error = std::get_if<pw::sim::ScenarioError>(&loaded)) {
            std::fprintf(stderr, "panelwright: %s\n", error->message().c_str());
            return kUsage;
        }
        machine = pw::ui::AppMachine::simulated(std::get<pw::sim::Scenario>(std::move(loaded)),
                                                file.toStdString(), mainQueue, indicatorWindow);
        // The monitors are simulated, the keyboard is the person's: its media keys step
        // the simulated monitors where the session lends them to programs.
        if (!screenshot)
            if (auto keys = pw::ui::sessionKeys(machine->platform()))
                machine->platform().mediaKeys = std::move(keys);
        if (parser.isSet(busLog) && !machine->recordBus(parser.value(busLog).toStdString())) {
            std::fprintf(stderr, "panelwright: cannot write the bus log %s\n",
                         qPrintable(parser.value(busLog)));
            return kUsage;
        }
    } else {
        machine = pw::ui::AppMachine::real(mainQueue, indicatorWindow);
        if (!machine->unreachableNote().empty())
            std::fprintf(stderr, "%s\n", machine->unreachableNote().c_str());
    }

    // The diagnostic log (started by the launch) stops once the Core below is gone.
    const struct StopLog {
        ~StopLog() { pw::DiagnosticLog::stop(); }
    } stopLog;
    // Every manager, made here and let go (in the reverse order) when `core` goes: after
    // everything below that uses them, before the window engine and the application.
    pw::Core core(machine->platform());

    const auto& host = core.machine().host;
    const pw::ui::BuildInfo build =
        pw::ui::BuildInfo::of(host ? host->build() : pw::platform::thisBuild());
    auto updater = std::make_shared<pw::ui::PackageManagerUpdater>(build.version, build.build);
    pw::ui::AppDelegate delegate(core, engine, updater);
    auto& statusBar = delegate.statusBar();
    // The offscreen platform (pictures, tests) draws as a compositing desktop shows it.
    statusBar.setWindowSystemComposites(QGuiApplication::platformName() == u"offscreen" ||
                                        pw::ui::windowSystemComposites());
    // One About panel and one settings window for the process, made on first use.
    pw::ui::AboutWindowController about(engine, build);
    const auto& installed = core.machine();
    auto settingsModel =
        std::make_shared<pw::ui::SettingsModel>(installed.defaults, installed.loginItems, updater);
    // A friendly name typed in the settings shows in the open popover at once.
    QObject::connect(settingsModel.get(), &pw::ui::SettingsModel::displayOptionsEdited, &app,
                     [&statusBar] { statusBar.viewModel().displayOptionsChanged(); });
    pw::ui::SettingsWindowController settings(engine, settingsModel, delegate.displayManager());
    // After sleep the monitors are read afresh. Writing the user's last values back
    // ("Restore last values") goes in through wake.setAfterWake.
    pw::ui::WakeFollower wake(machine->powerEvents(), mainQueue, delegate.displayManager());
    wake.setAfterWake([&delegate] {
        if (const auto& actions = delegate.startupActions()) actions->afterWake();
    });
    QObject::connect(&statusBar, &pw::ui::QtStatusBar::quitRequested, &app, &QCoreApplication::quit);
    QObject::connect(&statusBar, &pw::ui::QtStatusBar::aboutRequested, &app, [&about] { about.show(); });
    QObject::connect(&statusBar, &pw::ui::QtStatusBar::settingsRequested, &app,
                     [&settings] { settings.show(); });
    QObject::connect(&instance, &pw::ui::SingleInstance::activationRequested, &statusBar,
                     &pw::ui::QtStatusBar::openPopover);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &app, [&] {
        statusBar.closePopover();
        delegate.applicationWillTerminate();
    });
    quitOnSignals(app);

    // What follows the launch waits for the enumerated list: the display manager publishes
    // it on the main queue and the view model takes it in one hop later.
    const auto afterLaunch = [&] {
        // Testing aid: where the popover's controls are, written with every frame.
        if (const QString map = qEnvironmentVariable("PANELWRIGHT_ITEM_MAP"); !map.isEmpty()) {
            const auto follow = [&app, map](pw::ui::PopoverWindow* window) {
                QObject::connect(window, &QQuickWindow::frameSwapped, &app, [window, map] {
                    pw::ui::writeItemMap(window->content(), map);
                });
            };
            if (auto* window = statusBar.window()) follow(window);
            else QObject::connect(&statusBar, &pw::ui::QtStatusBar::popoverMade, &app, follow);
        }
        if (screenshot) {
            pw::ui::takeScreenshot({delegate, settings, about}, engine, kind,
                                   parser.positionalArguments().first());
            return;
        }
        if (!statusBar.trayAvailable()) {
            std::fprintf(stderr, "panelwright: this desktop shows no tray items, so the popover "
                                 "opens now; run panelwright again to bring it back\n");
            pw::DiagnosticLog::log("App", "No system tray available: opening the popover");
            statusBar.openPopover();
        }
    };
    delegate.applicationDidFinishLaunching([&] {
        mainQueue->post([&, mainQueue] { mainQueue->post(afterLaunch); });
    });

    const int status = app.exec();
    machine->saveState();
    return status;
}
