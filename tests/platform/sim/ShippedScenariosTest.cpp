#include "display/DisplayTestBed.h"

#include <filesystem>
#include <set>

namespace pw {
namespace {

// How a listed monitor answers, as its scenario's description says.
enum class Answers {
    always,  // every read gives its brightness
    settles, // its first replies are damaged, then every read gives its brightness
    never,   // nothing: listed, unverified, no values
};

struct Listed {
    std::uint16_t brightness; // what the scenario gives it (0 for a monitor that never answers)
    Answers answers = Answers::always;
};

struct Shipped {
    const char* file;
    std::vector<Listed> monitors; // the monitors the program lists, in order
    bool dims = true;             // the machine offers gamma tables
};

const std::vector<Shipped> kShipped = {
    {"apple-display.json", {{65}}},
    {"dead-monitor.json", {{0, Answers::never}}},
    {"flaky-monitor.json", {{55, Answers::settles}}},
    {"identical-twins-same-serial.json", {{25}, {75}}},
    {"identical-twins.json", {{30}, {90}}},
    {"intel-direct.json", {{45}}},
    {"intel-fallback-twins.json", {{30}, {90}}},
    {"linux-docked-laptop.json", {{35}, {70}}},
    {"linux-one-monitor.json", {{60}}},
    {"no-software-dimming.json", {{60}}, false},
    {"one-monitor.json", {{60}}},
    {"two-monitors-and-builtin.json", {{45}, {80}}},
};

class ShippedScenarios : public test::DisplayTestBed {
protected:
    std::optional<std::uint16_t> freshBrightness(const ExternalDisplay& display) {
        ddc->invalidateCache(*display.transport);
        const auto read = ddc->read(display.transport, VCPCode::brightness);
        return read ? std::optional(read->current) : std::nullopt;
    }
};

// Each shipped scenario does what its description promises, read through the program's
// own enumeration and DDC manager; a scenario added without a row here fails.
TEST_F(ShippedScenarios, EachDoesWhatItsDescriptionSays) {
    std::set<std::string> files, described;
    for (const auto& entry : std::filesystem::directory_iterator(test::sourcePath("scenarios")))
        files.insert(entry.path().filename().string());
    for (const auto& row : kShipped)
        described.insert(row.file);
    EXPECT_EQ(files, described);

    for (const auto& row : kShipped) {
        SCOPED_TRACE(row.file);
        auto loaded = sim::loadScenarioFile(test::sourcePath(std::string("scenarios/") + row.file));
        ASSERT_TRUE(std::holds_alternative<sim::Scenario>(loaded))
            << std::get<sim::ScenarioError>(loaded).message();
        EXPECT_FALSE(std::get<sim::Scenario>(loaded).description.empty());
        EXPECT_EQ(std::get<sim::Scenario>(loaded).flavor == sim::Flavor::linux,
                  std::string(row.file).starts_with("linux-"));
        EXPECT_EQ(std::get<sim::Scenario>(loaded).source,
                  test::sourcePath(std::string("scenarios/") + row.file).string());
        const auto& scenario = std::get<sim::Scenario>(loaded);
        boot(scenario);
        EXPECT_EQ(machine->platform().gamma != nullptr, row.dims);
        auto listed = enumerate();
        ASSERT_EQ(listed.size(), row.monitors.size());

        // Built-in panels, Apple displays and displays without a DDC/CI channel are left
        // out; every other display is listed, each on a channel of its own.
        std::vector<platform::DisplayID> expected, ids;
        for (const auto& d : scenario.displays)
            if (!d.builtin && !d.appleDisplay && d.vendor != 1552 && d.monitor)
                expected.push_back(d.id);
        std::set<std::int64_t> channels;
        for (const auto& d : listed) {
            ids.push_back(d.id);
            channels.insert(d.transport->endpointKey());
        }
        EXPECT_EQ(ids, expected);
        EXPECT_EQ(channels.size(), listed.size());

        for (std::size_t i = 0; i < listed.size(); ++i) {
            const ExternalDisplay& display = listed[i];
            const Listed& want = row.monitors[i];
            SCOPED_TRACE(display.name);
            // A probe that read anything read this display's own monitor, not a neighbour's.
            if (display.brightness) EXPECT_EQ(display.brightness->current, want.brightness);
            switch (want.answers) {
            case Answers::always:
                EXPECT_EQ(display.ddcStatus, DDCStatus::verified);
                EXPECT_TRUE(display.brightness);
                EXPECT_EQ(freshBrightness(display), want.brightness);
                break;
            case Answers::settles: {
                // Within a few reads it gives its value, and from then on always does.
                int reads = 1;
                while (freshBrightness(display) != want.brightness && reads < 4)
                    ++reads;
                EXPECT_LT(reads, 4) << "never settled";
                for (int again = 0; again < 5; ++again)
                    EXPECT_EQ(freshBrightness(display), want.brightness);
                break;
            }
            case Answers::never:
                EXPECT_NE(display.ddcStatus, DDCStatus::verified);
                EXPECT_FALSE(display.brightness);
                EXPECT_EQ(freshBrightness(display), std::nullopt);
                break;
            }
        }
        listed.clear(); // the records hold their channels, and a channel may hold a service
        manager.reset();
        EXPECT_TRUE(machine->ledger().balanced());
    }
}

} // namespace
} // namespace pw
