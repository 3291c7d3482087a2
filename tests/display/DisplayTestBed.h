#pragma once

#include "base/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "platform/sim/SimMachine.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace pw::test {

// A simulated machine on virtual time, installed as the platform, with a private DDC
// manager and display manager and the diagnostic log in a temp file.
class DisplayTestBed : public ::testing::Test {
protected:
    ~DisplayTestBed() override {
        boot(std::nullopt);
        DiagnosticLog::resetForTesting();
    }

    void boot(std::optional<sim::Scenario> scenario) {
        manager.reset(), ddc.reset(), scoped.reset(), machine.reset(); // reverse of building
        if (!scenario) return;
        machine = std::make_unique<sim::SimMachine>(std::move(*scenario));
        scoped = std::make_unique<ScopedPlatform>(machine->platform());
        ddc =
            std::make_shared<DDCManager>(machine->platform().clock, machine->platform().mainQueue);
        manager = std::make_shared<DisplayManager>(machine->platform(), ddc);
        DiagnosticLog::resetForTesting();
        DiagnosticLog::start(dir / "Panelwright.log", machine->host(), *machine->virtualClock());
    }

    sim::ManualMainQueue& mainQueue() { return *machine->manualMainQueue(); }

    // Enumerates on this (the main) thread, publishes, and returns the published list.
    std::vector<ExternalDisplay> enumerate() {
        manager->enumerateDisplays();
        mainQueue().runPending();
        return manager->displays();
    }

    // Refreshes and runs the main queue until the completion has run.
    std::vector<ExternalDisplay> refresh() {
        bool done = false;
        manager->refreshDisplays([&] { done = true; });
        while (!done)
            mainQueue().waitAndRun();
        return manager->displays();
    }

    // Diagnostic lines of one category, as "[category] message" without time stamps.
    std::vector<std::string> logLines(const std::string& category) const {
        std::vector<std::string> lines;
        std::istringstream in(readFile(dir / "Panelwright.log"));
        for (std::string line; std::getline(in, line);) {
            const auto stamp = line.find("] [" + category + "] ");
            if (stamp != std::string::npos) lines.push_back(line.substr(stamp + 2));
        }
        return lines;
    }

    bool systemLogHas(platform::LogLevel level, std::string_view message) const {
        return machine->systemLog().contains("Display", level, message);
    }

    TempDir dir;
    std::unique_ptr<sim::SimMachine> machine;
    std::unique_ptr<ScopedPlatform> scoped;
    std::shared_ptr<DDCManager> ddc;
    std::shared_ptr<DisplayManager> manager;
};

// Displays written the way the scenario loader fills them in.
inline sim::DisplaySpec monitorDisplay(platform::DisplayID id, const std::string& name,
                                       std::uint32_t vendor, std::uint32_t model,
                                       std::uint32_t serial = 0, std::uint16_t brightness = 50) {
    sim::DisplaySpec d;
    d.id = id, d.vendor = vendor, d.model = model, d.serial = serial, d.name = name;
    d.productNames = {{"en_US", name}};
    d.screenName = name;
    d.monitor = sim::MonitorSpec::withDefaultFeatures();
    d.monitor->features[0x10] = {brightness, 100};
    return d;
}

inline sim::DisplaySpec builtinPanel() {
    auto d = monitorDisplay(1, "Built-in Display", 1552, 41216);
    d.builtin = true, d.monitor.reset(), d.location = "Embedded";
    return d;
}

inline sim::Scenario scenarioOf(std::vector<sim::DisplaySpec> displays) {
    sim::Scenario s;
    s.displays = std::move(displays);
    return s;
}

} // namespace pw::test
