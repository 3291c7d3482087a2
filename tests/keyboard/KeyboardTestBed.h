#pragma once

#include "common/TestSupport.h"

#include "display/DisplayTestBed.h" // monitorDisplay, builtinPanel, scenarioOf
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "platform/macos/MacLevelIndicator.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"
#include "platform/sim/SimKeyboard.h"
#include "platform/sim/SimOSD.h"

#include <filesystem>
#include <fstream>

namespace pw::test {

inline constexpr std::uint8_t kBrightness = 0x10, kVolume = 0x62, kMute = 0x8D;

// A simulated machine on virtual time with private DDC, display, indicator and keyboard
// managers; the displays are enumerated and published, the bus and system logs emptied.
class KeyboardTestBed : public ::testing::Test {
protected:
    ~KeyboardTestBed() override {
        if (keyboard) keyboard->waitForPresses();
        if (machine) machine->manualMainQueue()->runPending();
        keyboard.reset(), osd.reset(), displays.reset(), ddc.reset(), scoped.reset();
    }

    void boot(sim::Scenario scenario) {
        machine = std::make_unique<sim::SimMachine>(std::move(scenario));
        scoped = std::make_unique<ScopedPlatform>(machine->platform());
        ddc =
            std::make_shared<DDCManager>(machine->platform().clock, machine->platform().mainQueue);
        displays = std::make_shared<DisplayManager>(machine->platform(), ddc);
        displays->enumerateDisplays();
        rebuildKeyboard();
        machine->bus().clear();
        machine->systemLog().clear();
    }
    void rebuildKeyboard() {
        osd = OSDManager::create(machine->platform());
        keyboard = std::make_shared<KeyboardManager>(machine->platform(), displays, ddc, osd);
        settle();
    }

    sim::ManualMainQueue& mainQueue() { return *machine->manualMainQueue(); }
    void press(MediaKey key) {
        keyboard->handle({key});
        settle();
    }
    void settle() {
        if (keyboard) keyboard->waitForPresses();
        mainQueue().runPending();
    }

    // The values of the Set VCP writes of `code` that reached the display's bus, in order.
    std::vector<std::uint16_t> setWrites(platform::DisplayID id, std::uint8_t code) const {
        std::vector<std::uint16_t> values;
        for (const auto& t : machine->bus().transfers()) {
            const auto& b = t.bytes;
            if (t.endpoint == "display " + std::to_string(id) && b.size() == 6 && b[0] == 0x84 &&
                b[2] == code)
                values.push_back(static_cast<std::uint16_t>(b[3] << 8 | b[4]));
        }
        return values;
    }
    std::uint16_t monitorValue(platform::DisplayID id, std::uint8_t code) const {
        return machine->monitor(id)->feature(code)->current;
    }
    std::vector<sim::SimOSDFramework::ShowImageCall> nativeShows() const {
        return machine->osdFramework().showImageCalls();
    }

    std::unique_ptr<sim::SimMachine> machine;
    std::unique_ptr<ScopedPlatform> scoped;
    std::shared_ptr<DDCManager> ddc;
    std::shared_ptr<DisplayManager> displays;
    std::shared_ptr<OSDManager> osd;
    std::shared_ptr<KeyboardManager> keyboard;
};

inline sim::DisplaySpec keyMonitor(platform::DisplayID id, sim::MonitorSpec::Feature brightness,
                                   sim::MonitorSpec::Feature volume = {50, 100},
                                   sim::MonitorSpec::Feature mute = {2, 2}) {
    auto d = monitorDisplay(id, "Monitor " + std::to_string(id), 4268, 41000 + id, 100 + id);
    d.monitor->features[kVolume] = volume;
    d.monitor->features[kMute] = mute;
    d.monitor->features[kBrightness] = brightness;
    return d;
}

} // namespace pw::test
