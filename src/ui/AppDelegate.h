#pragma once

#include <functional>
#include <memory>

class QQmlEngine;

namespace pw {
class Core;
class DisplayManager;
class KeyboardManager;
class StartupActions;
} // namespace pw

namespace pw::ui {

class QtStatusBar;
class Updater;

// The application's start and stop, in a fixed order with a log line around each stage.
// It owns no logic beyond the ordering; every stage logs its own problems, so the launch
// always runs to "Startup complete".
class AppDelegate {
public:
    // Construction: the status bar (and with it the popover's view model and the click
    // rules) over `core`'s managers; `engine` loads the popover's views. `core` outlives
    // the delegate.
    AppDelegate(Core& core, QQmlEngine& engine, std::shared_ptr<Updater> updater);
    // Runs the shutdown sequence if nobody did, then lets go of what it made (the status
    // bar, the start-up actions), so that `core` can let the managers go after it.
    ~AppDelegate();

    // The launch sequence, on the main thread. `launched` runs once "Startup complete"
    // is written.
    void applicationDidFinishLaunching(std::function<void()> launched = {});
    // The shutdown sequence: the keyboard stops, every display gets its calibrated
    // colour tables back. No DDC traffic, nothing written to the diagnostic log.
    void applicationWillTerminate();

    QtStatusBar& statusBar() const { return *statusBarController_; }
    const std::shared_ptr<DisplayManager>& displayManager() const { return displayManager_; }
    // The start-up action's carrier, from the end of the launch on (null before).
    const std::shared_ptr<StartupActions>& startupActions() const { return startupActions_; }
    const std::shared_ptr<KeyboardManager>& keyboardManager() const { return keyboardManager_; }

private:
    // Everything after the enumeration, as the continuation of that step.
    void finishLaunching();

    Core& core_;
    std::unique_ptr<QtStatusBar> statusBarController_;
    std::shared_ptr<DisplayManager> displayManager_;
    std::shared_ptr<KeyboardManager> keyboardManager_;
    std::shared_ptr<StartupActions> startupActions_;
    std::shared_ptr<Updater> updaterController_;
    std::function<void()> launched_;
    bool terminated_ = false;
};

} // namespace pw::ui
