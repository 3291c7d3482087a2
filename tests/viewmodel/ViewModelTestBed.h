#pragma once

#include "gamma/GammaManager.h"
#include "keyboard/KeyboardTestBed.h" // machine, managers, setWrites, monitorValue
#include "platform/sim/SimGamma.h"
#include "viewmodel/PopoverViewModel.h"

#include <chrono>

namespace pw::test {

// The keyboard test bed's machine with a gamma manager and a popover model over it. The
// model has taken in the enumerated list by the time `start` returns.
class ViewModelTestBed : public KeyboardTestBed {
protected:
    void start(sim::Scenario scenario) {
        boot(std::move(scenario));
        gamma = std::make_shared<GammaManager>(machine->platform().gamma);
        model =
            std::make_unique<PopoverViewModel>(displays, ddc, gamma, machine->platform().mainQueue);
        mainQueue().runPending();
    }

    // Moves virtual time on, then lets every write handed to the DDC manager reach the bus.
    void advance(std::chrono::milliseconds duration) {
        mainQueue().advance(duration);
        settleWrites();
    }
    void settleWrites() {
        ddc->queue().sync([] {});
        mainQueue().runPending();
    }

    // Runs main-queue work posted by other threads (a refresh) until `done`, or until two
    // seconds pass in which nothing arrives.
    template <typename Done> void runUntil(Done done) {
        while (!done())
            if (mainQueue().waitAndRun(std::chrono::seconds(2)) == 0) return;
    }

    // The software dimming level last handed over for the display, or -1 for none.
    double dimming(platform::DisplayID id) const {
        const auto& levels = gamma->currentBrightness();
        const auto found = levels.find(id);
        return found == levels.end() ? -1 : found->second;
    }

    std::size_t gammaInstalls(platform::DisplayID id) const {
        return machine->gamma().count(sim::SimGammaTables::Call::Kind::apply, id);
    }

    std::shared_ptr<GammaManager> gamma;
    std::unique_ptr<PopoverViewModel> model;
};

} // namespace pw::test
