#pragma once

#include "platform/Platform.h"
#include "platform/PowerEvents.h"
#include "platform/sim/Scenario.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace pw::sim {
class SimMachine;
}

namespace pw::ui {

class BusRecorder;

// The machine the application runs on: a simulated one from a scenario file (real
// clock, the Qt main queue, the user's own log file and settings), or the real one.
// Where the real machine cannot reach monitors yet, the missing facilities come from an
// empty simulated machine, so the program starts, shows its empty state and says how
// to try a simulated one.
class AppMachine {
public:
    ~AppMachine();

    static std::unique_ptr<AppMachine> simulated(sim::Scenario scenario,
                                                 std::filesystem::path scenarioFile,
                                                 std::shared_ptr<platform::MainQueue> mainQueue,
                                                 std::shared_ptr<platform::IndicatorWindow> indicatorWindow);
    // `indicatorWindow`: our own level indicator window, where the machine shows no
    // indicator of its own (may be null: levels are then not shown there).
    static std::unique_ptr<AppMachine> real(std::shared_ptr<platform::MainQueue> mainQueue,
                                            std::shared_ptr<platform::IndicatorWindow> indicatorWindow);

    platform::Platform& platform() { return platform_; }
    // Null on the real machine.
    sim::SimMachine* simulation() const { return machine_.get(); }
    // The line to print when no monitor can be reached on this machine, else empty.
    const std::string& unreachableNote() const { return unreachableNote_; }
    // The machine's sleep and wake-up reports; null where there are none (simulated).
    const std::shared_ptr<platform::PowerEvents>& powerEvents() const { return powerEvents_; }

    // Records every bus transfer of the simulated machine to `file` (a testing aid).
    bool recordBus(const std::filesystem::path& file);
    // Keeps the simulated monitors' values for the next run.
    void saveState() const;

private:
    AppMachine() = default;

    platform::Platform platform_;
    std::unique_ptr<sim::SimMachine> machine_;
    std::optional<std::filesystem::path> stateFile_;
    std::shared_ptr<BusRecorder> recorder_;
    std::string unreachableNote_;
    std::shared_ptr<platform::PowerEvents> powerEvents_;
};

} // namespace pw::ui
