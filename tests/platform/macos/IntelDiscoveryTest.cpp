#include "platform/macos/MacMonitors.h"

#include "display/DisplayTestBed.h"
#include "platform/macos/RecordingFramebufferI2C.h"

#include <gmock/gmock.h>

namespace pw {
namespace {

using namespace std::chrono_literals;
using platform::LogLevel;
using test::monitorDisplay;
using ::testing::Contains;
using ::testing::Not;

class IntelDiscovery : public test::DisplayTestBed {
protected:
    // The machine's displays, its registry and clock, but an Intel Mac's framebuffer I2C
    // (the recording one) and a display manager built for that kind of machine.
    void bootIntel(std::vector<sim::DisplaySpec> displays) {
        boot(test::scenarioOf(std::move(displays)));
        i2c = std::make_shared<test::RecordingFramebufferI2C>(machine->registry());
        auto parts = machine->macParts();
        parts.kind = macos::MacParts::Kind::intel, parts.framebufferI2C = i2c;
        auto intel = machine->platform();
        intel.monitors = std::make_shared<macos::MacMonitors>(parts);
        manager = std::make_shared<DisplayManager>(intel, ddc);
    }
    long count(const std::string& category, const std::string& message) const {
        const auto lines = logLines(category);
        return std::count(lines.begin(), lines.end(), "[" + category + "] " + message);
    }
    static std::int64_t key(platform::IOObject fb) { return static_cast<std::int64_t>(fb); }

    std::shared_ptr<test::RecordingFramebufferI2C> i2c;
};

// Display 2 is found directly; 3 and 4 are two monitors of one model that only the
// fallback listing finds, told apart by their serial numbers.
TEST_F(IntelDiscovery, DirectLookupFirstThenOneSharedFallbackListDecidedBySerial) {
    bootIntel({monitorDisplay(2, "Office", 4268, 41000, 7),
               monitorDisplay(3, "Left", 7789, 5000, 222),
               monitorDisplay(4, "Right", 7789, 5000, 111)});
    const auto direct = i2c->add(1, 4268, 100, 0);
    const auto first = i2c->add(2, 7789, 5000, 111);
    const auto second = i2c->add(1, 7789, 5000, 222);
    i2c->add(0, 1286, 1); // no buses
    i2c->add(1);          // no display information
    i2c->add(1, 0, 9, 9); // vendor unknown
    i2c->windowServer[2] = direct;

    auto list = enumerate();
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].transport->endpointKey(), key(direct));
    EXPECT_EQ(list[1].transport->endpointKey(), key(second));
    EXPECT_EQ(list[2].transport->endpointKey(), key(first));

    EXPECT_EQ(count("Intel", "Building fallback transport list via IOFramebuffer iteration..."), 1);
    for (const auto& line :
         {"CGS transport OK for display 2, service=" + std::to_string(direct),
          std::string("CGS lookup FAILED for display 4, trying framebuffer iteration"),
          std::string("Framebuffer[3]: vendor=7789 product=5000 serial=222 buses=1"),
          std::string("Framebuffer[4]: no I2C buses, skipping"),
          std::string("Framebuffer[5]: no display info dict, skipping"),
          std::string("Framebuffer[6]: vendorID=0, skipping"),
          std::string("Fallback found 3 transport(s)"),
          std::string("Fallback match found: vendor=7789 product=5000")}) {
        EXPECT_EQ(count("Intel", line), line.starts_with("Fallback match") ? 2 : 1) << line;
    }
    EXPECT_TRUE(systemLogHas(LogLevel::info, "Intel: direct CGS transport for display 2"));
    EXPECT_TRUE(systemLogHas(
        LogLevel::debug, "Intel: CGS lookup failed for display 3, trying framebuffer iteration"));
    EXPECT_TRUE(systemLogHas(
        LogLevel::info, "Created Intel transport: vendor=7789 product=5000 serial=111 buses=2"));
    EXPECT_TRUE(systemLogHas(LogLevel::debug, "Found 3 Intel transport(s)"));

    // Each probe after the first waits 200 ms, on virtual time.
    EXPECT_EQ(count("DDC", "Waiting 200ms before probing next display..."), 2);
    const auto sleeps = machine->virtualClock()->sleeps();
    EXPECT_EQ(std::count_if(sleeps.begin(), sleeps.end(),
                            [](const auto& s) { return s.duration == 200ms; }),
              2);

    // The fallback transport nobody took went with its enumeration; the others live in the
    // published records, and nothing is left once those go.
    EXPECT_EQ(machine->registry().heldReferences(direct), 1u);
    list.clear(), manager.reset();
    EXPECT_TRUE(machine->ledger().balanced());
}

TEST_F(IntelDiscovery, FallbackWithoutAChoiceAndDisplaysLeftWithoutAChannel) {
    bootIntel({monitorDisplay(2, "Office", 4268, 41000), monitorDisplay(3, "Other", 7789, 5000)});
    EXPECT_TRUE(enumerate().empty()); // no framebuffer at all
    EXPECT_EQ(count("Display", "No I2C transport for display 3 — skipping"), 1);
    EXPECT_TRUE(systemLogHas(LogLevel::error, "No I2C transport for display 2"));
    EXPECT_EQ(count("Intel", "Fallback found 0 transport(s)"), 1);

    // One framebuffer serves every display that needs the fallback, whatever its vendor;
    // among equal scores the earlier wins. Each enumeration lists the framebuffers afresh.
    const auto only = i2c->add(1, 1286, 1);
    EXPECT_EQ(enumerate().at(1).transport->endpointKey(), key(only));
    const auto earlier = i2c->add(1, 4268, 41000);
    i2c->add(1, 4268, 41000);
    EXPECT_EQ(enumerate().at(0).transport->endpointKey(), key(earlier));
    EXPECT_EQ(count("Intel", "Building fallback transport list via IOFramebuffer iteration..."), 3);
}

TEST_F(IntelDiscovery, ADirectFramebufferWithoutBusesIsListedUnverifiedAndHotPlugWatchesIODisplay) {
    sim::DisplaySpec unnamed; // no name anywhere, vendor unknown
    unnamed.id = 2;
    bootIntel({unnamed});
    const auto silent = i2c->add(0);
    i2c->windowServer[2] = silent;

    const auto list = enumerate();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].name, "External Display"); // a direct match has no EDID to name it by
    EXPECT_EQ(list[0].ddcStatus, DDCStatus::unverified);
    EXPECT_EQ(count("Intel", "Framebuffer service " + std::to_string(silent) + ": I2C bus count=0"),
              1);
    EXPECT_GE(count("Intel", "No I2C buses on service " + std::to_string(silent)), 1);

    manager->startMonitoring();
    auto& registry = machine->registry();
    registry.announceMatched({registry.addEntry(registry.root(), "IODisplay", "display")});
    mainQueue().runPending();
    mainQueue().advance(1000ms);
    while (manager->enumerationInProgress())
        mainQueue().waitAndRun();
    EXPECT_EQ(count("Display", "enumerateDisplays() called"), 2);
}

// The journey on the simulated Intel Mac: the window server knows neither framebuffer, the
// fallback tells the twins apart by serial, and reads and writes reach each one's own monitor
// (the second one only on its framebuffer's second bus).
TEST_F(IntelDiscovery, TwinsOnASimulatedIntelMacAreReadAndWrittenThroughTheirOwnFramebuffers) {
    auto loaded = sim::loadScenarioFile(test::sourcePath("scenarios/intel-fallback-twins.json"));
    ASSERT_TRUE(std::holds_alternative<sim::Scenario>(loaded));
    boot(std::get<sim::Scenario>(loaded));
    const auto list = enumerate();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].brightness, (DDCReadResult{30, 100}));
    EXPECT_EQ(list[1].brightness, (DDCReadResult{90, 100}));
    EXPECT_EQ(count("Intel", "Building fallback transport list via IOFramebuffer iteration..."), 1);

    std::optional<bool> written;
    ddc->write(list[1].transport, VCPCode::brightness, 55, [&](bool ok) { written = ok; });
    while (!written)
        mainQueue().waitAndRun();
    EXPECT_TRUE(*written);
    EXPECT_EQ(machine->monitor(2)->feature(0x10)->current, 55);
    EXPECT_EQ(machine->monitor(1)->feature(0x10)->current, 30);
    ddc->invalidateCache(*list[1].transport); // the next read asks the monitor itself
    EXPECT_EQ(ddc->read(list[1].transport, VCPCode::brightness), (DDCReadResult{55, 100}));
}

} // namespace
} // namespace pw
