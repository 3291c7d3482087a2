// The keyboard manager and the machine's key source: what it asks for, how keys come in,
// and what a source that cannot start leaves behind.
#include "base/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "keyboard/KeyboardTestBed.h"

#include <iostream>
#include <sstream>

namespace pw::test {
namespace {

using platform::KeyPressMode;

sim::Scenario linuxWithMonitor() {
    auto scenario = scenarioOf({keyMonitor(2, {50, 100})});
    scenario.flavor = sim::Flavor::linux;
    return scenario;
}

class KeySourceTest : public KeyboardTestBed {};

TEST_F(KeySourceTest, TheManagerWantsTheDisplayKeysOnKeyDownAndNotOverABuiltInPanel) {
    boot(linuxWithMonitor());
    auto& keys = machine->keyboard();
    ASSERT_TRUE(keyboard->targetDisplay());
    keyboard->start();
    const platform::KeyWish expected{{MediaKey::brightnessUp, MediaKey::brightnessDown,
                                      MediaKey::volumeUp, MediaKey::volumeDown, MediaKey::mute},
                                     KeyPressMode::keyDown,
                                     false};
    EXPECT_EQ(keys.wish(), expected);

    // A key typed is taken at once and acted on from the main queue.
    EXPECT_TRUE(keys.type(MediaKey::brightnessUp));
    EXPECT_FALSE(keys.type(MediaKey::playPause)); // not wanted: the desktop's
    EXPECT_TRUE(keys.type(MediaKey::brightnessUp, {false, false})); // release: taken, unheard
    EXPECT_EQ(mainQueue().pendingCount(), 1u);
    mainQueue().runPending(); // the press, acted on
    settle();
    EXPECT_EQ(monitorValue(2, kBrightness), 56);

    keyboard->stop();
    EXPECT_FALSE(keys.running());
    EXPECT_FALSE(keys.type(MediaKey::brightnessUp));
}

TEST_F(KeySourceTest, ASourceThatCannotStartIsLoggedAndTheProgramRunsOn) {
    boot(linuxWithMonitor());
    TempDir dir;
    DiagnosticLog::start(dir / "Panelwright.log", machine->host(), *machine->virtualClock());
    const std::pair<platform::KeysError, std::string> cases[] = {
        {platform::KeysError::refused, "Event tap creation failed: is your application sandboxed?"},
        {platform::KeysError::noDelivery, "Runloop source creation failed"}};
    for (const auto& [error, text] : cases) {
        machine->keyboard().refuseStarts(1, error);
        std::ostringstream out;
        auto* previous = std::cout.rdbuf(out.rdbuf());
        keyboard->start();
        std::cout.rdbuf(previous);
        EXPECT_EQ(out.str(), "") << "nobody reads a desktop program's standard output";
        EXPECT_TRUE(machine->systemLog().contains("Keyboard", platform::LogLevel::error, text));
        EXPECT_NE(readFile(dir / "Panelwright.log").find("[Keyboard] " + text + "\n"),
                  std::string::npos);
        EXPECT_FALSE(machine->keyboard().type(MediaKey::brightnessUp));
        keyboard->stop();
    }
    DiagnosticLog::resetForTesting();
}

TEST_F(KeySourceTest, AKeyPostedAfterTheManagerWentDoesNothing) {
    boot(linuxWithMonitor());
    keyboard->start();
    EXPECT_TRUE(machine->keyboard().type(MediaKey::brightnessUp));
    keyboard.reset(); // stops the source and joins the workers
    EXPECT_FALSE(machine->keyboard().running());
    mainQueue().runPending();
    EXPECT_EQ(monitorValue(2, kBrightness), 50);
}

} // namespace
} // namespace pw::test
