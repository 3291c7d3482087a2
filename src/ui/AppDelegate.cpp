#include "ui/AppDelegate.h"

#include "app/Tuning.h"

#include "app/DiagnosticLog.h"
#include "app/StartupActions.h"
#include "app/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "gamma/GammaManager.h"
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "platform/Platform.h"
#include "ui/QtStatusBar.h"
#include "ui/Updater.h"

namespace pw::ui {
namespace {
void fileLog(std::string_view message) { DiagnosticLog::log("App", message); }
} // namespace

AppDelegate::AppDelegate(QQmlEngine& engine, std::shared_ptr<Updater> updater)
    : statusBarController_(std::make_unique<QtStatusBar>(engine)),
      displayManager_(DisplayManager::shared()),
      keyboardManager_(KeyboardManager::shared()),
      updaterController_(std::move(updater)) {}

// Every manager goes here, in the reverse of the order it was made in, while the Qt
// application and the window engine that its windows (the level indicator's) belong to
// still exist: a window left for static destruction would outlive both.
AppDelegate::~AppDelegate() {
    applicationWillTerminate();
    startupActions_.reset();
    keyboardManager_.reset();
    KeyboardManager::releaseShared();
    OSDManager::releaseShared();
    statusBarController_.reset(); // the popover's view model and the click rules
    displayManager_.reset();
    DisplayManager::releaseShared();
    GammaManager::releaseShared();
    DDCManager::releaseShared();
}

void AppDelegate::applicationDidFinishLaunching(std::function<void()> launched) {
    launched_ = std::move(launched);
    DiagnosticLog::start();
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
    if (const auto& defaults = platform::current().defaults)
        applyTuningPreferences(*defaults, *displayManager_->ddcManager(), keyboardManager_.get());
    // The launch's list reaches the main queue after this continuation; the start-up
    // action (restore, read or nothing) applies to it there, then follows hot-plug.
    startupActions_ = std::make_shared<StartupActions>(platform::current(), displayManager_,
                                                       displayManager_->ddcManager());
    if (const auto& queue = platform::current().mainQueue)
        queue->post([actions = startupActions_] { actions->start(); });

    fileLog("Startup complete");
    SystemLog::app().info("Panelwright ready");
    if (launched_) std::exchange(launched_, nullptr)();
}

void AppDelegate::applicationWillTerminate() {
    if (std::exchange(terminated_, true)) return; // SIGTERM and the quit item may both ask
    keyboardManager_->stop();
    if (const auto gamma = GammaManager::shared()) gamma->restoreAll();
}

} // namespace pw::ui
