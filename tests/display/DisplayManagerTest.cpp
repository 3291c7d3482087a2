#include "display/DisplayTestBed.h"

#include <algorithm>

namespace pw {
namespace {

using platform::LogLevel;
using test::builtinPanel;
using test::monitorDisplay;
using test::scenarioOf;

class Enumeration : public test::DisplayTestBed {};

TEST_F(Enumeration, LogsEveryStepAndListsADeadMonitorAsUnverified) {
    auto apple = monitorDisplay(3, "Studio Display", 1552, 44562);
    apple.appleDisplay = true, apple.monitor.reset();
    auto noChannel = monitorDisplay(4, "Projector", 7789, 9001);
    noChannel.monitor.reset();
    auto dead = monitorDisplay(5, "Dead 24", 1286, 2210, 77);
    dead.monitor->faults.silent.always = true;
    boot(scenarioOf({builtinPanel(), monitorDisplay(2, "Office 27", 4268, 41000, 9, 40), apple,
                     noChannel, dead}));
    machine->defaults().set("display.Office 27+4268+41000@2.longerDelay", true);
    manager->enumerateDisplays();
    EXPECT_TRUE(manager->displays().empty()); // published on the main queue, not before
    mainQueue().runPending();

    EXPECT_EQ(logLines("Display"),
              (std::vector<std::string>{
                  "[Display] enumerateDisplays() called",
                  "[Display] Architecture: arm64, finding Apple Silicon transports",
                  // What the machine found, paired and left out...
                  "[Display] The machine lists 5 active display(s)",
                  "[Display] Found 2 Apple Silicon transport(s)",
                  "[Display] Display 2: paired by EDID identity with service 2",
                  "[Display] Display 3 reports a built-in brightness — Apple display",
                  "[Display] Display 3: Apple display, skipping DDC",
                  "[Display] Display 4: none of the 2 transports carries its EDID identity",
                  "[Display] Display 5: paired by EDID identity with service 3",
                  // ... and what the display manager made of it.
                  "[Display] Display[0]: id=1 builtin=true",
                  "[Display] Display[1]: id=2 builtin=false",
                  "[Display] Display[1]: vendor=4268 product=41000",
                  "[Display] Display name resolved: Office 27",
                  "[Display] Display[2]: id=4 builtin=false",
                  "[Display] Display[2]: vendor=7789 product=9001",
                  "[Display] No I2C transport for display 4 — skipping",
                  "[Display] Display[3]: id=5 builtin=false",
                  "[Display] Display[3]: vendor=1286 product=2210",
                  "[Display] Display name resolved: Dead 24",
                  "[Display] Enumeration complete: 2 external, 2 with DDC",
              }));
    const auto ddcLines = logLines("DDC");
    for (const char* line :
         {"[DDC] Reading DDC brightness for Office 27 (display 2)...",
          "[DDC] DDC read OK: Office 27 brightness=40/100",
          "[DDC] DDC read failed for Dead 24 — controls shown anyway (writes may still work)"})
        EXPECT_EQ(std::count(ddcLines.begin(), ddcLines.end(), line), 1) << line;
    for (const auto& [level, message] : std::vector<std::pair<LogLevel, std::string>>{
             {LogLevel::info, "Enumerating displays..."},
             {LogLevel::info, "Found DDC display: Office 27 (brightness: 40/100)"},
             {LogLevel::info, "Skipping Apple display 3 — DDC not supported"},
             {LogLevel::error, "No I2C transport for display 4"},
             {LogLevel::info,
              "Display Dead 24: DDC reads failed but controls enabled (writes may work)"},
             {LogLevel::info, "Found 2 external display(s), 2 with DDC"}})
        EXPECT_TRUE(systemLogHas(level, message)) << message;

    const auto list = manager->displays();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].brightness, (DDCReadResult{40, 100}));
    EXPECT_EQ(list[0].ddcStatus, DDCStatus::verified);
    EXPECT_TRUE(list[0].longerDelay);
    EXPECT_FALSE(list[0].contrast || list[0].volume || list[0].mute || list[0].inputSource);
    EXPECT_EQ(list[1].ddcStatus, DDCStatus::unverified);
    EXPECT_TRUE(list[1].ddcSupported && !list[1].brightness && !list[1].longerDelay);
}

// One monitor, so its channel is always found; each case takes one naming source away.
TEST_F(Enumeration, NamesFallBackInOrder) {
    using Names = std::vector<std::pair<std::string, std::string>>;
    const std::tuple<Names, std::string, std::uint32_t, std::optional<std::string>, std::string>
        cases[] = {
            {{{"fr_FR", "Écran"}, {"en_US", "Office"}}, "Screen", 4268, "Edid", "Office"},
            {{{"de_DE", "Bildschirm"}}, "Screen", 4268, "Edid", "Bildschirm"},
            {{{"en_US", ""}, {"de_DE", "B"}}, "Screen", 4268, "Edid", "Screen"},
            {{}, "Unknown", 4268, "Edid", "Display 4268-41000"}, // the EDID is not consulted
            {{}, "", 0, "Edid Name", "Edid Name"},
            {{}, "", 0, std::nullopt, "External Display"},
            // Control characters never reach a name (and so a settings key); a name that
            // was nothing else counts as missing.
            {{{"en_US", "Off\x01ice\n"}}, "Screen", 4268, "Edid", "Office"},
            {{{"en_US", "\x1b\t"}}, "Scr\x7f" "een", 4268, "Edid", "Screen"},
        };
    for (const auto& [names, screen, vendor, edidName, expected] : cases) {
        auto display = monitorDisplay(2, "", vendor, 41000);
        display.productNames = names, display.screenName = screen, display.name = edidName;
        boot(scenarioOf({builtinPanel(), display}));
        const auto list = enumerate();
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list[0].name, expected);
    }
}

TEST_F(Enumeration, PairsSeveralChannelsStrictlyAndOneChannelWithEveryone) {
    // A display whose channel carries no EDID is left out rather than guessed at.
    auto unreadable = monitorDisplay(4, "No EDID", 19971, 3000);
    unreadable.hasEDID = false;
    boot(scenarioOf({monitorDisplay(2, "Office 27", 4268, 41000), unreadable}));
    auto list = enumerate();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].id, 2u);

    // One channel is every external display's, whatever its identity.
    unreadable.monitor.reset();
    boot(scenarioOf({monitorDisplay(2, "Office 27", 4268, 41000), unreadable}));
    list = enumerate();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].transport, list[1].transport);
}

} // namespace
} // namespace pw
