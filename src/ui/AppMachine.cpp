#include "ui/AppMachine.h"

#include "platform/linux/JournalSystemLog.h"
#include "platform/linux/JsonUserDefaults.h"
#include "platform/linux/LinuxHostFacts.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/WindowIndicator.h"
#include "platform/linux/XdgAutostart.h"
#include "platform/posix/SystemClock.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimulatedState.h"
#include "ui/BusRecorder.h"
#include "ui/DesktopAssembly.h"

namespace pw::ui {

AppMachine::~AppMachine() = default;

std::unique_ptr<AppMachine> AppMachine::simulated(sim::Scenario scenario,
                                                  std::filesystem::path scenarioFile,
                                                  std::shared_ptr<platform::MainQueue> mainQueue,
                                                  std::shared_ptr<platform::IndicatorWindow> indicatorWindow) {
    std::unique_ptr<AppMachine> app(new AppMachine);
    auto clock = std::make_shared<platform::SystemClock>();
    app->machine_ = std::make_unique<sim::SimMachine>(std::move(scenario), clock, mainQueue);
    app->stateFile_ = sim::statePathFor(scenarioFile);
    sim::restoreState(*app->machine_, *app->stateFile_, "panelwright");
    // The simulated bus keeps every transfer for tests that read them back; the running
    // app reads none, and that history grew with every opening of the popover.
    app->machine_->bus().setObserver(
        [bus = &app->machine_->bus()](const sim::BusTransfer&) { bus->clear(); });
    // The monitors are simulated; the person is real: their log file, their settings,
    // their journal.
    app->machine_->host().setLogPath(platform::LinuxHostFacts().diagnosticLogPath());
    app->platform_ = app->machine_->platform();
    app->platform_.systemLog = platform::makeSystemLog();
    app->platform_.defaults = std::make_shared<platform::JsonUserDefaults>();
    // The person's desktop shows the simulated machine's levels in our own window.
    app->platform_.indicator =
        platform::WindowIndicator::create(mainQueue, app->platform_.screens, indicatorWindow);
    // Launch at login is remembered like the monitors' values: an autostart entry in the
    // simulated machine's own folder, never in the person's real one.
    app->platform_.loginItems = std::make_shared<platform::XdgAutostart>(
        app->stateFile_->parent_path() / "config", platform::XdgAutostart::appExecutable());
    return app;
}

std::unique_ptr<AppMachine> AppMachine::real(std::shared_ptr<platform::MainQueue> mainQueue,
                                             std::shared_ptr<platform::IndicatorWindow> indicatorWindow) {
    std::unique_ptr<AppMachine> app(new AppMachine);
    platform::LinuxMachineOptions options;
    options.mainQueue = mainQueue;
    platform::LinuxMachine linuxMachine = platform::makeLinuxMachine(options);
    if (linuxMachine.reachesMonitors()) {
        app->powerEvents_ = assembleDesktop(linuxMachine, indicatorWindow);
        app->platform_ = std::move(linuxMachine.platform);
        return app;
    }
    const platform::Platform& real = linuxMachine.platform;
    // Fill what the real machine lacks from a machine without displays.
    app->machine_ = std::make_unique<sim::SimMachine>(sim::Scenario{}, real.clock, mainQueue);
    platform::Platform p = app->machine_->platform();
    p.clock = real.clock;
    p.host = real.host;
    p.systemLog = real.systemLog;
    p.defaults = real.defaults;
    p.loginItems = real.loginItems;
    p.indicator = platform::WindowIndicator::create(mainQueue, p.screens, indicatorWindow);
    app->platform_ = std::move(p);
    app->unreachableNote_ =
        "panelwright: no monitor can be reached on this machine yet; to try the program "
        "on a simulated one, run: panelwright --simulate scenarios/two-monitors-and-builtin.json";
    return app;
}

bool AppMachine::recordBus(const std::filesystem::path& file) {
    if (!machine_ || !stateFile_) return false;
    recorder_ = BusRecorder::open(file);
    if (!recorder_) return false;
    machine_->bus().setObserver(
        [recorder = recorder_, bus = &machine_->bus()](const sim::BusTransfer& t) {
            recorder->record(t);
            bus->clear();
        });
    return true;
}

void AppMachine::saveState() const {
    if (machine_ && stateFile_) sim::saveState(*machine_, *stateFile_, "panelwright");
}

} // namespace pw::ui
