#include "platform/sim/Scenario.h"

#include "common/TestSupport.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace pw::sim {
namespace {

Scenario parsed(std::string_view json) {
    auto result = parseScenario(json, "test.json");
    if (const auto* error = std::get_if<ScenarioError>(&result)) {
        ADD_FAILURE() << error->message();
        return {};
    }
    return std::get<Scenario>(result);
}

ScenarioError refused(std::string_view json) {
    auto result = parseScenario(json, "bad.json");
    if (!std::holds_alternative<ScenarioError>(result)) {
        ADD_FAILURE() << "accepted: " << json;
        return {};
    }
    return std::get<ScenarioError>(result);
}

// Only the defaults the loader decides; the rest are DisplaySpec's own.
TEST(ScenarioLoader, FillsDefaultsFromPositionAndName) {
    const auto scenario = parsed(R"({"displays": [{}, {"builtin": true}, {"name": "Desk",
                                     "monitor": {}}, {"id": 9, "monitor": {"features": {}}}]})");
    EXPECT_EQ(scenario.flavor, sim::Flavor::appleSilicon);
    EXPECT_EQ(scenario.source, "test.json");
    EXPECT_TRUE(scenario.softwareDimming);
    EXPECT_FALSE(parsed(R"({"softwareDimming": false})").softwareDimming);
    EXPECT_EQ(refused(R"({"softwareDimming": 0})").path, "softwareDimming");
    ASSERT_EQ(scenario.displays.size(), 4u);

    const auto& bare = scenario.displays[0];
    EXPECT_EQ(bare.id, 1u);
    EXPECT_FALSE(bare.name);
    EXPECT_FALSE(bare.monitor);
    EXPECT_TRUE(bare.productNames.empty());
    EXPECT_EQ(bare.screenName, "");
    EXPECT_EQ(bare.location, "External");
    EXPECT_EQ(scenario.displays[1].id, 2u);
    EXPECT_EQ(scenario.displays[1].location, "Embedded");

    const auto& named = scenario.displays[2];
    EXPECT_EQ(named.productNames, (decltype(named.productNames){{"en_US", "Desk"}}));
    EXPECT_EQ(named.screenName, "Desk");
    ASSERT_TRUE(named.monitor);
    const auto defaults = MonitorSpec::withDefaultFeatures();
    ASSERT_EQ(named.monitor->features.size(), defaults.features.size());
    for (const auto& [code, value] : defaults.features) {
        EXPECT_EQ(named.monitor->features.at(code).current, value.current) << int(code);
        EXPECT_EQ(named.monitor->features.at(code).max, value.max) << int(code);
    }
    EXPECT_EQ(named.monitor->replyDelay, std::chrono::milliseconds(40));

    // Features given replace the defaults rather than adding to them.
    EXPECT_EQ(scenario.displays[3].id, 9u);
    EXPECT_TRUE(scenario.displays[3].monitor->features.empty());
}

TEST(ScenarioLoader, ReadsEveryFieldAndFeatureSpelling) {
    const auto scenario = parsed(R"({
      "flavor": "appleSilicon", "description": "all of it",
      "displays": [{
        "id": 7, "vendor": 65535, "model": 41000, "serial": 4294967295, "name": "Office 27",
        "appleDisplay": true,
        "productNames": {"fr_FR": "Bureau", "en_US": "Office", "de_DE": "Büro"},
        "productNamesWrongType": true, "screenName": "Left", "frame": [-1920, 0.5, 1920, 1080],
        "location": null, "hasEDID": false, "edid": "00FFff00", "edidParentDepth": 11,
        "avServiceCreateFails": true,
        "proxyProperties": {"Location": 3, "Blob": [1, 255], "Info": {"a": "b", "on": true}},
        "framebufferProperties": {"IODisplayEDID": "text"},
        "monitor": {
          "features": {"brightness": [0, 0], "contrast": [1, 2], "redGain": [3, 4],
                       "greenGain": [5, 6], "blueGain": [7, 8], "inputSource": [9, 10],
                       "volume": [11, 12], "mute": [13, 14], "standby": [15, 16],
                       "0xe0": [17, 18], "0XF": [19, 20], "255": [65535, 65535], "0": [21, 22]},
          "unsupported": ["contrast", "0x62", "200"],
          "replyDelayMs": 0,
          "faults": {"corruptChecksum": 2, "wrongOpcode": true, "nullReply": 0, "nak": false,
                     "silent": 4294967295}
        }
      }]})");
    EXPECT_EQ(scenario.description, "all of it");
    ASSERT_EQ(scenario.displays.size(), 1u);
    const auto& d = scenario.displays[0];
    // The largest values each field takes.
    EXPECT_EQ((std::vector<std::uint64_t>{d.id, d.vendor, d.serial, d.edidParentDepth}),
              (std::vector<std::uint64_t>{7, 65535, 4294967295u, 11}));
    EXPECT_TRUE(d.appleDisplay && d.productNamesWrongType && d.avServiceCreateFails && !d.hasEDID);
    // Locales stay in file order: the order the system would report them in.
    EXPECT_EQ(d.productNames, (decltype(d.productNames){
                                  {"fr_FR", "Bureau"}, {"en_US", "Office"}, {"de_DE", "Büro"}}));
    EXPECT_EQ(d.screenName, "Left");
    EXPECT_EQ(d.frame.x, -1920.0);
    EXPECT_EQ(d.frame.y, 0.5);
    EXPECT_EQ(*d.edid, (std::vector<std::uint8_t>{0x00, 0xFF, 0xFF, 0x00}));

    // A null location removes the property; later overrides come after it.
    ASSERT_EQ(d.proxyProperties.size(), 4u);
    EXPECT_EQ(d.proxyProperties[0].first, "Location");
    EXPECT_FALSE(d.proxyProperties[0].second);
    EXPECT_EQ(*d.proxyProperties[1].second->number(), 3);
    EXPECT_EQ(*d.proxyProperties[2].second->bytes(), (platform::PropertyBytes{1, 255}));
    const auto* info = d.proxyProperties[3].second->dictionary();
    ASSERT_TRUE(info);
    EXPECT_EQ(*info->at("a").string(), "b");
    EXPECT_TRUE(*info->at("on").boolean());
    EXPECT_EQ(*d.framebufferProperties.at(0).second->string(), "text");

    const auto& m = *d.monitor;
    const std::pair<std::uint8_t, std::uint16_t> codes[] = {
        {0x10, 0},  {0x12, 1},  {0x16, 3},  {0x18, 5},  {0x1A, 7},     {0x60, 9}, {0x62, 11},
        {0x8D, 13}, {0xD6, 15}, {0xE0, 17}, {0x0F, 19}, {0xFF, 65535}, {0x00, 21}};
    EXPECT_EQ(m.features.size(), std::size(codes));
    for (const auto& [code, current] : codes) {
        ASSERT_TRUE(m.features.count(code)) << int(code);
        EXPECT_EQ(m.features.at(code).current, current) << int(code);
    }
    EXPECT_EQ(m.unsupported, (std::set<std::uint8_t>{0x12, 0x62, 200}));
    EXPECT_EQ(m.replyDelay, std::chrono::milliseconds(0));
    const auto& f = m.faults; // a number counts, true is always, 0 and false are off
    EXPECT_TRUE(f.corruptChecksum.count == 2 && !f.corruptChecksum.always);
    EXPECT_TRUE(f.wrongOpcode.always && !f.nullReply.active() && !f.nak.active());
    EXPECT_EQ(f.silent.count, 4294967295u);
}

// Each bad input names the place it went wrong and what belongs there.
TEST(ScenarioLoader, RefusesBadInputNamingPathAndExpectation) {
    constexpr const char* kFeatureValue = "[current, max] with 0 <= current, max <= 65535";
    const struct {
        const char* json;
        const char* path;
        const char* expected; // the start of what was expected
    } cases[] = {
        {R"([])", "", "an object with the fields"},
        {R"({"displays": [], "colour": 1})", "colour", "a scenario field (flavor, displays"},
        {R"({"flavor": "arm"})", "flavor", R"("appleSilicon", "intel" or "linux")"},
        {R"({"displays": {}})", "displays", "an array of displays"},
        {R"({"displays": [3]})", "displays[0]", "an object describing one display"},
        {R"({"displays": [{}, {"Name": "x"}]})", "displays[1].Name", "a display field (id, "},
        {R"({"displays": [{"id": 0}]})", "displays[0].id", "an integer 1..4294967295"},
        {R"({"displays": [{"id": 4294967296}]})", "displays[0].id", "an integer 1..4294967295"},
        {R"({"displays": [{"id": 2}, {"id": 2}]})", "displays[1].id",
         "an id no other display has (2 is also displays[0]'s)"},
        {R"({"displays": [{"id": 2}, {}]})", "displays[1]", "an id no other display has"},
        {R"({"displays": [{"builtin": 1}]})", "displays[0].builtin", "true or false"},
        {R"({"displays": [{"vendor": -1}]})", "displays[0].vendor", "an integer 0..65535"},
        {R"({"displays": [{"model": 65536}]})", "displays[0].model", "an integer 0..65535"},
        {R"({"displays": [{"name": null}]})", "displays[0].name", "a string"},
        {R"({"displays": [{"builtin": true, "monitor": {}}]})", "displays[0].monitor",
         "no monitor on a built-in display"},
        {R"({"displays": [{"builtin": true, "location": "x"}]})", "displays[0].location",
         "no location on a built-in display"},
        {R"({"displays": [{"location": 5}]})", "displays[0].location", "a string, or null"},
        {R"({"displays": [{"productNames": {"en_US": 1}}]})", "displays[0].productNames.en_US",
         "a string"},
        {R"({"displays": [{"frame": [0, 0, 0, 10]}]})", "displays[0].frame",
         "[x, y, width, height] with width and height > 0"},
        {R"({"displays": [{"edid": "0g"}]})", "displays[0].edid", "the EDID as hexadecimal"},
        {R"({"displays": [{"edidParentDepth": 17}]})", "displays[0].edidParentDepth",
         "an integer 1..16"},
        {R"({"displays": [{"proxyProperties": {"X": -1}}]})", "displays[0].proxyProperties.X",
         "a string, a non-negative integer"},
        {R"({"displays": [{"proxyProperties": {"X": [256]}}]})", "displays[0].proxyProperties.X[0]",
         "an integer 0..255"},
        {R"({"displays": [{"framebufferProperties": {"D": {"k": null}}}]})",
         "displays[0].framebufferProperties.D.k", "a value"},
        {R"({"displays": [{"monitor": []}]})", "displays[0].monitor", "an object"},
        {R"({"displays": [{"monitor": {"feature": {}}}]})", "displays[0].monitor.feature",
         "a monitor field"},
        {R"({"displays": [{"monitor": {"features": []}}]})", "displays[0].monitor.features",
         "an object mapping features"},
        {R"({"displays": [{"monitor": {"features": {"brightnes": [1, 2]}}}]})",
         "displays[0].monitor.features.brightnes", "a feature name (brightness, contrast"},
        {R"({"displays": [{"monitor": {"features": {"0x100": [1, 2]}}}]})",
         "displays[0].monitor.features.0x100", "a feature name"},
        {R"({"displays": [{}, {"monitor": {"features": {"brightness": [101, 100]}}}]})",
         "displays[1].monitor.features.brightness", kFeatureValue},
        {R"({"displays": [{"monitor": {"features": {"brightness": [1, 65536]}}}]})",
         "displays[0].monitor.features.brightness", kFeatureValue},
        {R"({"displays": [{"monitor": {"features": {"brightness": 50}}}]})",
         "displays[0].monitor.features.brightness", kFeatureValue},
        {R"({"displays": [{"monitor": {"features": {"brightness": [1, 2], "0x10": [1, 2]}}}]})",
         "displays[0].monitor.features.0x10",
         R"(each feature once (0x10 is also given as "brightness"))"},
        {R"({"displays": [{"monitor": {"unsupported": ["mute", 141]}}]})",
         "displays[0].monitor.unsupported[1]", "a feature name"},
        {R"({"displays": [{"monitor": {"replyDelayMs": 60001}}]})",
         "displays[0].monitor.replyDelayMs", "an integer 0..60000 (milliseconds)"},
        {R"({"displays": [{"monitor": {"faults": {"slow": 1}}}]})",
         "displays[0].monitor.faults.slow", "a fault (corruptChecksum, wrongOpcode"},
        {R"({"displays": [{"monitor": {"faults": {"nak": "always"}}}]})",
         "displays[0].monitor.faults.nak", "a count of spoiled transfers"},
        {R"({"displays": [{"vendor": 1, "vendor": 2}]})", "displays[0].vendor",
         R"(each key once ("vendor" is given twice))"},
        {R"({"displays": [[1, {}], {"monitor": {"faults": {"nak": 1, "nak": 2}}}]})",
         "displays[1].monitor.faults.nak", "each key once"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        const auto error = refused(c.json);
        EXPECT_EQ(error.file, "bad.json");
        EXPECT_EQ(error.path, c.path);
        EXPECT_EQ(error.expected.rfind(c.expected, 0), 0u) << error.expected;
    }

    EXPECT_EQ(
        refused(R"({"displays": [{}, {"monitor": {"features": {"brightness": [1]}}}]})").message(),
        "bad.json: displays[1].monitor.features.brightness: expected [current, max] with "
        "0 <= current, max <= 65535");
    EXPECT_EQ(refused("[]").message(),
              "bad.json: expected an object with the fields flavor, displays, description");
}

TEST(ScenarioLoader, ReadsIntelFramebufferFields) {
    const auto scenario = parsed(R"({"displays": [{"monitor": {}, "intel": {"buses": 0}},
      {"intel": {"openFails": [2], "transactionTypes": [6, null, 1], "monitorBuses": [2, 1],
                 "buses": 3, "copyFails": [0], "lookupFails": true, "countFails": true,
                 "infoDictionary": {"DisplayVendorID": "1e6d"}, "replyWaitMs": 0}},
      {"intel": {"transactionTypes": null, "infoDictionary": false}}], "flavor": "intel"})");
    ASSERT_EQ(scenario.displays.size(), 3u);
    // No buses means no bus can reach the monitor either.
    EXPECT_TRUE(scenario.displays[0].intel.monitorBuses.empty());
    // The bus count bounds the indices even when it comes after them.
    const auto& full = scenario.displays[1].intel;
    EXPECT_EQ(full.monitorBuses, (std::vector<std::uint32_t>{2, 1}));
    EXPECT_EQ(full.busTransactionTypes,
              (std::vector<std::optional<std::uint64_t>>{6, std::nullopt, 1}));
    EXPECT_EQ(full.copyFails, std::vector<std::uint32_t>{0});
    EXPECT_EQ(full.openFails, std::vector<std::uint32_t>{2});
    EXPECT_TRUE(full.lookupFails && full.countFails && full.hasInfoDictionary);
    EXPECT_EQ(*full.infoDictionary.at(0).second->string(), "1e6d");
    EXPECT_EQ(full.replyWait, std::chrono::milliseconds(0));
    EXPECT_FALSE(scenario.displays[2].intel.transactionTypes);
    EXPECT_FALSE(scenario.displays[2].intel.hasInfoDictionary);
}

TEST(ScenarioLoader, RefusesBadPlatformFieldsAndPartsOfOtherMachines) {
    const struct {
        const char* json;
        const char* path;
        const char* expected;
    } cases[] = {
        {R"({"displays": [{"intel": {}}]})", "displays[0].intel", "no intel object on an Apple"},
        {R"({"displays": [{"location": "External"}], "flavor": "intel"})", "displays[0].location",
         "no location on an Intel Mac"},
        {R"({"flavor": "intel", "displays": [{"proxyProperties": {}}]})",
         "displays[0].proxyProperties", "no proxyProperties on an Intel Mac"},
        {R"({"flavor": "intel", "displays": [{"intel": {"bus": 1}}]})", "displays[0].intel.bus",
         "an intel field (buses, monitorBuses"},
        {R"({"flavor": "intel", "displays": [{"intel": {"buses": 17}}]})",
         "displays[0].intel.buses", "an integer 0..16"},
        {R"({"flavor": "intel", "displays": [{"intel": {"buses": 0, "openFails": [0]}}]})",
         "displays[0].intel.openFails[0]", "no bus index (the display has no I2C buses)"},
        {R"({"flavor": "intel", "displays": [{"intel": {"buses": 2, "copyFails": [1, 1]}}]})",
         "displays[0].intel.copyFails[1]", "each bus once"},
        {R"({"flavor": "intel", "displays": [{"intel": {"transactionTypes": [6, 6]}}]})",
         "displays[0].intel.transactionTypes", "one mask per bus (1)"},
        {R"({"flavor": "intel", "displays": [{"intel": {"transactionTypes": "6"}}]})",
         "displays[0].intel.transactionTypes", "a transaction-type mask 0..4294967295"},
        {R"({"flavor": "intel", "displays": [{"intel": {"infoDictionary": null}}]})",
         "displays[0].intel.infoDictionary", "true, false or an object"},
        // Linux fields on a Mac and Mac fields on a Linux machine.
        {R"({"displays": [{"linux": {}}]})", "displays[0].linux", "no linux object on a Mac"},
        {R"({"linux": {}})", "linux", "no linux object on a Mac"},
        {R"({"flavor": "linux", "displays": [{"location": "x"}]})", "displays[0].location",
         "no location on a Linux machine"},
        {R"({"flavor": "linux", "displays": [{"linux": {"openError": "EWHAT"}}]})",
         "displays[0].linux.openError", "an error name: EACCES, EPERM, ENOENT, ENODEV, EBUSY"},
        {R"({"flavor": "linux", "linux": {"adapters": [{"number": 1, "pciClass": "3"}]}})",
         "linux.adapters[0].pciClass", "a PCI class as hex text"},
        {R"({"flavor": "linux", "displays": [{"linux": {"connector": "HDMI-1"}}]})",
         "displays[0].linux.connector", "a connector name such as"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        const auto error = refused(c.json);
        EXPECT_EQ(error.path, c.path);
        EXPECT_EQ(error.expected.rfind(c.expected, 0), 0u) << error.expected;
    }
    EXPECT_EQ(refused(R"({"flavor": "intel", "displays": [{"intel": {"buses": 2,
                         "monitorBuses": [2]}}]})")
                  .message(),
              "bad.json: displays[0].intel.monitorBuses[0]: expected an integer 0..1");
}

TEST(ScenarioLoader, MalformedJsonNamesWhereItBroke) {
    auto error = refused("{\n  \"displays\": [\n    {\"id\": 1,}\n  ]\n}");
    EXPECT_EQ(error.path, "line 3, column 14 (byte 32)");
    EXPECT_EQ(error.expected.rfind("well-formed JSON (syntax error", 0), 0u) << error.expected;
    EXPECT_EQ(
        error.message().rfind("bad.json: line 3, column 14 (byte 32): expected well-formed", 0),
        0u);

    for (const std::string_view text :
         {std::string_view(""), std::string_view("{\"displays\": ["),
          std::string_view("{} trailing"), std::string_view("{\"name\": \"\xff\"}", 13)}) {
        SCOPED_TRACE(text);
        error = refused(text);
        EXPECT_EQ(error.path.rfind("line 1, column ", 0), 0u) << error.path;
        EXPECT_EQ(error.expected.rfind("well-formed JSON (", 0), 0u) << error.expected;
    }
}

// The shipped files load (and keep their promises): ShippedScenariosTest.cpp.
TEST(ScenarioLoader, NamesAMissingFileInTheError) {
    test::TempDir dir;
    const auto missing = std::get<ScenarioError>(loadScenarioFile(dir / "none.json"));
    EXPECT_EQ(missing.message(),
              (dir / "none.json").string() + ": expected a readable scenario file");
}

} // namespace
} // namespace pw::sim
