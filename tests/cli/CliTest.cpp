#include "CliRunner.h"
#include "common/TestSupport.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
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

// A monitor that says it lacks a feature has answered: asked once, and said so with a
// status of its own.
TEST_F(Cli, AFeatureTheMonitorLacksIsNamedAsSuchAndAskedOnce) {
    const auto two = scenario("two-monitors-and-builtin.json");
    Outcome r = run({"--simulate", two, "--display", "3", "--trace", "getvcp", "volume"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.out, "Volume (0x62): not supported by this monitor\n");
    const auto requests = [](const std::string& trace) {
        int n = 0;
        for (auto at = trace.find(": 82 01 62 DE\n"); at != std::string::npos;
             at = trace.find(": 82 01 62 DE\n", at + 1))
            ++n;
        return n;
    };
    EXPECT_EQ(requests(r.err), 1) << r.err;

    r = run({"--simulate", two, "--display", "3", "--json", "getvcp", "mute", "brightness"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(json::parse(r.out), json::parse(R"([{"code":141,"name":"Mute","current":null,
        "max":null,"error":"unsupported"},{"code":16,"name":"Brightness","current":80,"max":100}])"));
    r = run({"--simulate", two, "--display", "3", "--json", "setvcp", "volume", "30"});
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(json::parse(r.out), json::parse(R"({"code":98,"value":30,"ok":true,
        "reported":null,"error":"unsupported"})"));
}

TEST_F(Cli, ScenariosThatAreNoScenarioAreNamedForWhatTheyAre) {
    Outcome r = run({"--simulate", "/dev/zero", "detect"}); // never ends
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("/dev/zero: expected a scenario file of at most 1 MiB"),
              std::string::npos)
        << r.err;

    r = run({"--simulate", home.path().string(), "detect"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("not a folder"), std::string::npos) << r.err;

    const auto above = home / "above.json";
    std::ofstream(above) << test::readFile(sourcePath("fuzz/corpus/scenario_loader/current_above_max.json"));
    r = run({"--simulate", above.string(), "detect"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("is above max"), std::string::npos) << r.err;
}

TEST_F(Cli, AValueAboveTheMonitorsMaximumIsReportedAsTheMonitorHasIt) {
    const auto one = scenario("one-monitor.json");
    Outcome r = run({"--simulate", one, "setvcp", "brightness", "500"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Brightness sent 500; the monitor now reports 100 of 100\n");
    EXPECT_NE(r.err.find("500 is above this monitor's maximum 100"), std::string::npos) << r.err;

    r = run({"--simulate", one, "--json", "setvcp", "brightness", "30"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(json::parse(r.out), json::parse(R"({"code":16,"value":30,"ok":true,
                                                 "reported":{"current":30,"max":100}})"));
    EXPECT_EQ(r.err, "");
}

// Scripts run the command line in parallel; every run must keep the simulated monitors'
// values file whole.
TEST_F(Cli, ConcurrentRunsAllSaveTheirState) {
    const auto one = scenario("one-monitor.json");
    constexpr int kRuns = 24;
    std::vector<pid_t> children;
    for (int i = 0; i < kRuns; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const int quiet = open("/dev/null", O_WRONLY);
            const auto err = home / ("stderr-" + std::to_string(i));
            const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(quiet, 1);
            dup2(errFd, 2);
            setenv("XDG_STATE_HOME", (home / "state").c_str(), 1);
            setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
            const std::string value = std::to_string(i);
            execl(PW_CLI_PATH, PW_CLI_PATH, "--simulate", one.c_str(), "setvcp", "volume",
                  value.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int i = 0; i < kRuns; ++i)
        EXPECT_EQ(test::readFile(home / ("stderr-" + std::to_string(i))), "") << "run " << i;
    // One state file, no temporary left behind, and it holds one of the values written.
    const auto saved = home / "state" / "panelwright" / "simulated";
    int files = 0;
    for (const auto& file : std::filesystem::directory_iterator(saved)) {
        ++files;
        EXPECT_EQ(file.path().extension(), ".json") << file.path();
    }
    EXPECT_EQ(files, 1);
    const Outcome r = run({"--simulate", one, "--json", "getvcp", "volume"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_LT(json::parse(r.out)[0]["current"].get<int>(), kRuns);
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
    EXPECT_EQ(json::parse(r.out), (json{{"code", 16},
                                        {"value", 70},
                                        {"ok", true},
                                        {"reported", {{"current", 70}, {"max", 100}}}}));
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

    // The read-back after a setting leaves the monitor its quiet time first.
    r = run({"--simulate", scenario("one-monitor.json"), "--trace", "setvcp", "brightness", "70"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::smatch set, next;
    ASSERT_TRUE(std::regex_search(
        r.err, set, std::regex(R"(\[ *([0-9.]+) ms\] write .*\(([0-9.]+) ms\): 84 03 10 00 46 EE\n)")))
        << r.err;
    const std::string after = set.suffix();
    ASSERT_TRUE(std::regex_search(after, next, std::regex(R"(\[ *([0-9.]+) ms\] write)"))) << r.err;
    EXPECT_GE(std::stod(next[1]) - std::stod(set[1]) - std::stod(set[2]), 49.99) << r.err;
}

// A command on one display sends DDC to that display's monitor alone (another monitor's
// bus may be held by another program), and twins still reach the monitor a full
// enumeration pairs with that id: each twin has a brightness of its own.
TEST_F(Cli, ACommandOnOneDisplayTalksToThatMonitorAlone) {
    const struct {
        const char* scenario;
        const char* id;
        int brightness;
    } cases[] = {
        {"two-monitors-and-builtin.json", "3", 80},
        {"identical-twins-same-serial.json", "3", 75},
        {"identical-twins.json", "3", 90},
    };
    const std::regex ddc(R"(\] (?:write|read) +(.*) chip 0x37 )");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.scenario);
        const Outcome r = run({"--simulate", scenario(c.scenario), "--display", c.id, "--trace",
                               "getvcp", "brightness"});
        EXPECT_EQ(r.out, "Brightness (0x10): " + std::to_string(c.brightness) + " of 100\n");
        std::set<std::string> endpoints;
        for (std::sregex_iterator at(r.err.begin(), r.err.end(), ddc), end; at != end; ++at)
            endpoints.insert((*at)[1]);
        EXPECT_EQ(endpoints.size(), 1u) << r.err;
    }
}

// Each run leaves its own diagnostic log beside the app's; --verbose shows the same lines.
TEST_F(Cli, EachRunLeavesItsDiagnosticLogAndVerboseShowsIt) {
    const auto log = home / "state" / "panelwright" / "panelwright-cli.log";
    Outcome r = run({"--simulate", scenario("one-monitor.json"), "detect"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::string quiet = test::readFile(log);
    EXPECT_NE(quiet.find("] [System] Process: panelwright-cli (PID "), std::string::npos) << quiet;
    EXPECT_NE(quiet.find("] [Display] "), std::string::npos) << quiet;

    r = run({"--simulate", scenario("one-monitor.json"), "--verbose", "detect"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, test::readFile(log)); // the same lines, and only this run's
}

TEST_F(Cli, ConfigKeepsEachKeysKindAndRefusesWhatNothingReads) {
    EXPECT_EQ(run({"config", "set", "ddcRetryCount", "1"}).status, 0);
    EXPECT_EQ(run({"config", "set", "ddcCacheTTL", "2"}).status, 0);
    EXPECT_EQ(run({"config", "set", "app.showOSD", "false"}).status, 0);
    EXPECT_EQ(run({"config", "set", "display.LG+1+2@2.friendlyName", "42"}).status, 0);
    EXPECT_EQ(run({"config", "set", "display.LG 27+3.5@1+7789+30471@2.longerDelay", "yes"}).status,
              0);
    Outcome r = run({"config", "set", "ddcRetryCount", "2.5"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("ddcRetryCount"), std::string::npos);
    EXPECT_EQ(run({"config", "set", "app.showOSD", "maybe"}).status, 2);

    // A misspelt key would be stored and never read: refused, with the keys that exist.
    for (const char* typo : {"ddcRetryCont", "custom.count", "display.LG+1+2@2.brightness",
                             "display.LG+1+2.friendlyName", "display.LG+x+2@2.longerDelay",
                             "display..friendlyName", "display.friendlyName"}) {
        r = run({"config", "set", typo, "1"});
        EXPECT_EQ(r.status, 2) << typo;
        EXPECT_NE(r.err.find(typo), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("ddcCacheTTL"), std::string::npos) << r.err;
    }

    r = run({"config", "list", "--json"});
    ASSERT_EQ(r.status, 0);
    const json all = json::parse(r.out);
    EXPECT_EQ(all.size(), 5u) << all.dump();
    EXPECT_TRUE(all["ddcRetryCount"].is_number_integer());
    EXPECT_TRUE(all["ddcCacheTTL"].is_number_float());
    EXPECT_EQ(all["app.showOSD"], false);
    EXPECT_EQ(all["display.LG+1+2@2.friendlyName"], "42");
    EXPECT_EQ(run({"config", "get", "ddcCacheTTL"}).out, "2.0\n");

    EXPECT_EQ(run({"config", "unset", "display.LG+1+2@2.friendlyName"}).status, 0);
    EXPECT_EQ(run({"config", "get", "display.LG+1+2@2.friendlyName"}).status, 1);
    // An empty friendly name is no friendly name: the key goes, as with unset.
    EXPECT_EQ(run({"config", "set", "display.LG+1+2@2.friendlyName", "Desk"}).status, 0);
    EXPECT_EQ(run({"config", "set", "display.LG+1+2@2.friendlyName", ""}).status, 0);
    EXPECT_EQ(run({"config", "get", "display.LG+1+2@2.friendlyName"}).status, 1);
}

TEST_F(Cli, TheStoredPassCountReachesTheBusWithinItsCap) {
    // Write transfers of one read of a silent monitor: one per attempt of each pass.
    auto writes = [&] {
        const Outcome t =
            run({"--simulate", scenario("dead-monitor.json"), "--trace", "getvcp", "brightness"});
        std::istringstream lines(t.err);
        int count = 0;
        for (std::string line; std::getline(lines, line);)
            count += line.find("] write") != std::string::npos;
        return count;
    };
    ASSERT_EQ(run({"config", "set", "ddcRetryCount", "1"}).status, 0);
    const int onePass = writes();
    ASSERT_GT(onePass, 0);
    EXPECT_EQ(run({"config", "unset", "ddcRetryCount"}).status, 0);
    EXPECT_GT(writes(), onePass);

    const Outcome r = run({"config", "set", "ddcRetryCount", "100000"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("at most 10 passes"), std::string::npos) << r.err;
    EXPECT_EQ(writes(), 10 * onePass);
}

TEST_F(Cli, DetectNamesADisplayAsTheUserNamedIt) {
    const auto two = scenario("two-monitors-and-builtin.json");
    ASSERT_EQ(run({"config", "set", "display.LG HDR 4K+7789+30471@2.friendlyName", "Desk left"})
                  .status,
              0);
    Outcome r = run({"--simulate", two, "--json", "detect"});
    ASSERT_EQ(r.status, 0) << r.err;
    const json list = json::parse(r.out);
    EXPECT_EQ(list[0]["name"], "Desk left");
    EXPECT_EQ(list[0]["systemName"], "LG HDR 4K");
    EXPECT_EQ(list[1]["name"], list[1]["systemName"]); // no friendly name: its own

    r = run({"--simulate", two, "detect"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Display 2: Desk left\n  system name: LG HDR 4K\n"), std::string::npos)
        << r.out;
}

} // namespace
} // namespace pw
