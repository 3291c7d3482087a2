#include "ui/AppDelegate.h"

#include "app/Core.h"
#include "base/DiagnosticLog.h"
#include "app/StartupActions.h"
#include "base/SystemLog.h"
#include "app/Tuning.h"
#include "display/DisplayManager.h"
#include "gamma/GammaManager.h"
#include "keyboard/KeyboardManager.h"
#include "ui/QtStatusBar.h"
#include "ui/Updater.h"

namespace pw::ui {
namespace {
void fileLog(std::string_view message) { DiagnosticLog::log("App", message); }
} // namespace

AppDelegate::AppDelegate(Core& core, QQmlEngine& engine, std::shared_ptr<Updater> updater)
    : core_(core), statusBarController_(std::make_unique<QtStatusBar>(engine, core)),
      displayManager_(core.displays()), keyboardManager_(core.keyboard()),
      updaterController_(std::move(updater)) {}

// What the delegate made goes in the reverse of its making; the managers themselves go
// with the Core, after the delegate and before the Qt application and the window engine
// that the level indicator's window belongs to.
AppDelegate::~AppDelegate() {
    applicationWillTerminate();
    startupActions_.reset();
    keyboardManager_.reset();
    statusBarController_.reset(); // the popover's view model and the click rules
    displayManager_.reset();
}

void AppDelegate::applicationDidFinishLaunching(std::function<void()> launched) {
    launched_ = std::move(launched);
    DiagnosticLog::start(core_.machine().host, core_.machine().clock);
    DiagnosticLog::writeBanner();
    fileLog("applicationDidFinishLaunching");
    SystemLog::app().info("Panelwright starting...");

    fileLog("Setting up status bar...");
    statusBarController_->setup(updaterController_);
    fileLog("Status bar ready");

    fileLog("Enumerating displays...");
    // Each monitor is probed once, with the DDC manager's initial settings (the tuning comes
    // later), on the enumeration's own queue: the main thread stays free for the tray and the
    // keys. The rest of the launch runs once the new list is published.
    displayManager_->enumerateDisplaysInBackground([this] { finishLaunching(); });
}

void AppDelegate::finishLaunching() {
    fileLog("Display enumeration complete");

    fileLog("Starting display monitoring...");
    displayManager_->startMonitoring();
    fileLog("Display monitoring started");

    fileLog("Starting keyboard manager...");
    keyboardManager_->start();
    fileLog("Keyboard manager started");
    if (const auto& defaults = core_.machine().defaults)
        applyTuningPreferences(*defaults, *displayManager_->ddcManager(), keyboardManager_.get());
    // The launch's list reaches the main queue after this continuation; the start-up
    // action (restore, read or nothing) applies to it there, then follows hot-plug.
    startupActions_ = std::make_shared<StartupActions>(core_.machine(), displayManager_,
                                                       displayManager_->ddcManager());
    if (const auto& queue = core_.machine().mainQueue)
        queue->post([actions = startupActions_] { actions->start(); });

    fileLog("Startup complete");
    SystemLog::app().info("Panelwright ready");
    if (launched_) std::exchange(launched_, nullptr)();
}

void AppDelegate::applicationWillTerminate() {
    if (std::exchange(terminated_, true)) return; // SIGTERM and the quit item may both ask
    keyboardManager_->stop();
    if (const auto& gamma = core_.gamma()) gamma->restoreAll();
}

} // namespace pw::ui
