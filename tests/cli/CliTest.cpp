#include "CliRunner.h"
#include "common/TestSupport.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace pw {
namespace {

using nlohmann::json;
using test::sourcePath;

using test::Outcome;

// Runs the command line with its state and settings in a private folder, as a user would
// from a shell: separate stdout and stderr, exit status.
class Cli : public ::testing::Test {
protected:
    test::TempDir home;

    Outcome run(const std::vector<std::string>& args) {
        // The real backend looks at an empty machine, never at this one's /sys and /dev.
        return test::runCli(home.path(), args,
                            {{"PANELWRIGHT_ROOT", (home / "empty-machine").string()}});
    }

    static std::string scenario(const std::string& name) {
        return sourcePath("scenarios/" + name).string();
    }
};

TEST_F(Cli, ExitStatusNamesEachKindOfFailure) {
    const auto two = scenario("two-monitors-and-builtin.json");

    Outcome r = run({"detect"});
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("--simulate"), std::string::npos) << r.err;

    r = run({"--simulate", two, "--display", "9", "getvcp", "brightness"});
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("9"), std::string::npos);
    // The built-in panel is a display, but not one the command line can drive.
    EXPECT_EQ(run({"--simulate", two, "--display", "1", "getvcp", "brightness"}).status, 3);

    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"--simulate", two, "getvcp"}).status, 2);
    EXPECT_EQ(run({"--simulate", two, "getvcp", "0x100"}).status, 2);
    EXPECT_EQ(run({"--simulate", two, "setvcp", "brightness", "70000"}).status, 2);
    EXPECT_EQ(run({"--simulate", two, "setvcp", "volume", "hdmi1"}).status, 2);
    EXPECT_EQ(run({"--display", "two", "detect"}).status, 2);

    const auto bad = home / "bad.json";
    std::ofstream(bad) << R"({"displays": [{"id": 1, "vendor": "LG"}]})";
    r = run({"--simulate", bad.string(), "detect"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(bad.string()), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("displays[0].vendor"), std::string::npos) << r.err;
    r = run({"--simulate", (home / "missing.json").string(), "detect"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("missing.json"), std::string::npos) << r.err;

    r = run({"--simulate", scenario("dead-monitor.json"), "--json", "getvcp", "brightness"});
    EXPECT_EQ(r.status, 1);
    const json dead = json::parse(r.out);
    EXPECT_TRUE(dead[0]["current"].is_null());
    EXPECT_TRUE(dead[0]["max"].is_null());
    EXPECT_TRUE(dead[0]["error"].is_string());
    EXPECT_EQ(
        run({"--simulate", scenario("dead-monitor.json"), "setvcp", "brightness", "5"}).status, 1);

    r = run({"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Examples"), std::string::npos);
}

TEST_F(Cli, DetectListsExternalDisplaysAsJson) {
    Outcome r = run({"--simulate", scenario("two-monitors-and-builtin.json"), "detect", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const json list = json::parse(r.out);
    ASSERT_EQ(list.size(), 2u); // the built-in panel is not listed
    EXPECT_EQ(list[0]["id"], 2);
    EXPECT_EQ(list[0]["name"], "LG HDR 4K");
    EXPECT_EQ(list[0]["vendorID"], 7789);
    EXPECT_EQ(list[0]["productID"], 30471);
    EXPECT_EQ(list[0]["ddcStatus"], "verified");
    EXPECT_EQ(list[0]["preferenceKey"], "LG HDR 4K+7789+30471@2");
    EXPECT_EQ(list[0]["brightness"], (json{{"current", 45}, {"max", 100}}));
    EXPECT_EQ(list[1]["id"], 3);

    r = run({"--simulate", scenario("dead-monitor.json"), "--json", "detect"});
    ASSERT_EQ(r.status, 0);
    const json dead = json::parse(r.out);
    ASSERT_EQ(dead.size(), 1u);
    EXPECT_EQ(dead[0]["ddcStatus"], "unverified");
    EXPECT_TRUE(dead[0]["brightness"].is_null());
}

TEST_F(Cli, ValuesSetInOneRunAreReadInTheNext) {
    const auto two = scenario("two-monitors-and-builtin.json");
    Outcome r = run({"--simulate", two, "--json", "getvcp", "brightness", "0x12", "98"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(json::parse(r.out),
              json::parse(R"([{"code":16,"name":"Brightness","current":45,"max":100},
                              {"code":18,"name":"Contrast","current":70,"max":100},
                              {"code":98,"name":"Volume","current":20,"max":100}])"));

    r = run({"--simulate", two, "--json", "setvcp", "brightness", "70"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(json::parse(r.out), (json{{"code", 16}, {"value", 70}, {"ok", true}}));
    EXPECT_EQ(run({"--simulate", two, "--display", "3", "setvcp", "inputSource", "HDMI1"}).status,
              0);

    r = run({"--simulate", two, "getvcp", "brightness"});
    EXPECT_EQ(r.out, "Brightness (0x10): 70 of 100\n");
    r = run({"--simulate", two, "--display", "3", "getvcp", "inputSource", "brightness"});
    EXPECT_EQ(r.out, "Input Source (0x60): 17 (HDMI 1) of 18\nBrightness (0x10): 80 of 100\n");

    // A damaged state file costs the saved values, with one line saying so, not the run.
    const auto saved = home / "state" / "panelwright" / "simulated";
    ASSERT_TRUE(std::filesystem::exists(saved));
    for (const auto& file : std::filesystem::directory_iterator(saved))
        std::ofstream(file.path()) << "{\"displays\": [";
    r = run({"--simulate", two, "getvcp", "brightness"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Brightness (0x10): 45 of 100\n");
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

TEST_F(Cli, TraceShowsEveryTransferOfARead) {
    Outcome r =
        run({"--simulate", scenario("one-monitor.json"), "--trace", "getvcp", "brightness"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Brightness (0x10): 60 of 100\n");
    // The probe's read of brightness: request, then the monitor's 11-byte reply.
    const std::regex write(R"(\] write .*: 82 01 10 AC\n)");
    const std::regex reply(
        R"(\] read .*\(\d+\.\d+ ms\): 6E 88 02 00 10 00 00 64 00 3C [0-9A-F]{2}\n)");
    EXPECT_TRUE(std::regex_search(r.err, write)) << r.err;
    EXPECT_TRUE(std::regex_search(r.err, reply)) << r.err;
}

TEST_F(Cli, ConfigKeepsEachKeysKind) {
    EXPECT_EQ(run({"config", "set", "ddcRetryCount", "1"}).status, 0);
    EXPECT_EQ(run({"config", "set", "ddcCacheTTL", "2"}).status, 0);
    EXPECT_EQ(run({"config", "set", "app.showOSD", "false"}).status, 0);
    EXPECT_EQ(run({"config", "set", "display.LG+1+2@2.friendlyName", "42"}).status, 0);
    EXPECT_EQ(run({"config", "set", "custom.count", "7"}).status, 0);
    EXPECT_EQ(run({"config", "set", "custom.word", "hello"}).status, 0);
    Outcome r = run({"config", "set", "ddcRetryCount", "2.5"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("ddcRetryCount"), std::string::npos);
    EXPECT_EQ(run({"config", "set", "app.showOSD", "maybe"}).status, 2);

    r = run({"config", "list", "--json"});
    ASSERT_EQ(r.status, 0);
    const json all = json::parse(r.out);
    EXPECT_TRUE(all["ddcRetryCount"].is_number_integer());
    EXPECT_TRUE(all["ddcCacheTTL"].is_number_float());
    EXPECT_EQ(all["app.showOSD"], false);
    EXPECT_EQ(all["display.LG+1+2@2.friendlyName"], "42");
    EXPECT_TRUE(all["custom.count"].is_number_integer());
    EXPECT_EQ(all["custom.word"], "hello");
    EXPECT_EQ(run({"config", "get", "ddcCacheTTL"}).out, "2.0\n");

    EXPECT_EQ(run({"config", "unset", "custom.word"}).status, 0);
    EXPECT_EQ(run({"config", "get", "custom.word"}).status, 1);

    // The stored retry count reaches the DDC manager: one pass per read on a silent monitor.
    auto writes = [&] {
        const Outcome t =
            run({"--simulate", scenario("dead-monitor.json"), "--trace", "getvcp", "brightness"});
        std::istringstream lines(t.err);
        int count = 0;
        for (std::string line; std::getline(lines, line);)
            count += line.find("] write") != std::string::npos;
        return count;
    };
    const int onePass = writes();
    EXPECT_EQ(run({"config", "unset", "ddcRetryCount"}).status, 0);
    EXPECT_GT(writes(), onePass);
}

} // namespace
} // namespace pw
