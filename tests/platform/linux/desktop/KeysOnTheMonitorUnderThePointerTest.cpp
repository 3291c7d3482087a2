// The whole key path on a desktop: a key typed on a private X server is taken by the X
// grab, posted to the main queue, and steps the simulated monitor whose screen is under
// the pointer, the screen paired with its display by the EDID the X server shows.
#include "keyboard/KeyboardTestBed.h"

#include "DesktopTestSupport.h"
#include "platform/linux/desktop/X11MediaKeys.h"
#include "platform/linux/desktop/XRandrScreens.h"
#include "platform/sim/Edid.h"

#include <gtest/gtest.h>
// Xlib's macros (None, Bool, Status) after the test framework, whose names they would take.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

namespace pw::test {
namespace {

using namespace std::chrono_literals;

class KeysOnTheMonitorUnderThePointer : public KeyboardTestBed {
protected:
    void SetUp() override {
        server = VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        desk.emplace(server->name());
        x = desk->display();
        boot(scenarioOf({builtinPanel(), keyMonitor(2, {30, 100}), keyMonitor(3, {40, 100})}));
    }
    void TearDown() override {
        // Everything holding a connection to the private server goes before the server.
        if (keyboard) keyboard->stop();
        settle();
        keyboard.reset();
        desk.reset();
    }

    // Runs the main queue, where the X source posts each key, until `done`.
    template <typename F>
    bool runMainUntil(F done) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            mainQueue().waitAndRun(100ms);
            settle();
        }
        return done();
    }

    // The X server's only output shows the EDID of simulated display `id`, and the
    // keyboard manager runs on the X keys and screens.
    void screenShows(platform::DisplayID id) {
        const auto active = machine->activeDisplays();
        const auto spec = std::find_if(active.begin(), active.end(),
                                       [&](const sim::DisplaySpec& d) { return d.id == id; });
        const auto edid = sim::buildEdid(*spec);
        XRRScreenResources* resources = XRRGetScreenResourcesCurrent(x, DefaultRootWindow(x));
        XRRChangeOutputProperty(x, resources->outputs[0], XInternAtom(x, "EDID", False),
                                XA_INTEGER, 8, PropModeReplace, edid.data(),
                                static_cast<int>(edid.size()));
        XRRFreeScreenResources(resources);
        XSync(x, False);

        linuxdesktop::DisplaySource source;
        source.displays = [this] { return machine->displayServices().activeDisplayList(16); };
        source.builtIn = [this](platform::DisplayID id) {
            return machine->displayServices().isBuiltin(id);
        };
        source.edid = [this](platform::DisplayID display) -> std::optional<std::vector<std::uint8_t>> {
            for (const auto& d : machine->activeDisplays())
                if (d.id == display) return sim::buildEdid(d);
            return std::nullopt;
        };
        auto desktop = machine->platform();
        desktop.mediaKeys = std::make_shared<linuxdesktop::X11MediaKeys>(
            server->name(), linuxdesktop::DesktopLog{desktop.systemLog});
        desktop.screens = linuxdesktop::XRandrScreens::create(
            server->name(), source, linuxdesktop::DesktopLog{desktop.systemLog});
        keyboard = std::make_shared<KeyboardManager>(desktop, displays, ddc, osd);
        keyboard->start();
        XWarpPointer(x, 0, DefaultRootWindow(x), 0, 0, 0, 0, 600, 500);
        XSync(x, False);
    }

    std::optional<VirtualXServer> server;
    std::optional<XDesk> desk;
    Display* x = nullptr;
};

TEST_F(KeysOnTheMonitorUnderThePointer, KeyStepsTheMonitorWhoseScreenIsUnderThePointer) {
    screenShows(3);
    desk->tap("XF86MonBrightnessUp");
    ASSERT_TRUE(runMainUntil([&] { return monitorValue(3, kBrightness) > 40; }));
    EXPECT_EQ(monitorValue(2, kBrightness), 30);
    EXPECT_TRUE(setWrites(2, kBrightness).empty());
    // The release, too, is the program's.
    ASSERT_TRUE(runMainUntil([&] { return mainQueue().pendingCount() == 0; }));
    const auto presses = desk->pressesUntil("a");
    ASSERT_EQ(presses.size(), 1u); // the marker alone: the key stayed with us
}

} // namespace
} // namespace pw::test
