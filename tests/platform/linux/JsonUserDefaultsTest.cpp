#include "platform/linux/JsonUserDefaults.h"

#include "common/TestSupport.h"
#include "platform/posix/BaseDirectories.h"

#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace pw::platform {
namespace {

namespace fs = std::filesystem;

// A store in a folder that does not exist yet, with its reports collected.
struct JsonUserDefaultsStore : ::testing::Test {
    test::TempDir dir;
    fs::path folder = dir / "config" / "panelwright";
    fs::path file = folder / "settings.json";
    std::vector<std::string> reports;
    JsonUserDefaults store{file, [this](const std::string& line) { reports.push_back(line); }};

    void writeFileDirectly(const std::string& text) {
        fs::create_directories(folder);
        std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    }
    // Every name in the folder other than settings.json itself.
    std::vector<std::string> otherEntries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            if (entry.path().filename() != "settings.json")
                names.push_back(entry.path().filename().string());
        return names;
    }
    fs::path onlyAsideCopy() const {
        auto names = otherEntries();
        EXPECT_EQ(names.size(), 1u);
        if (names.empty()) return {};
        EXPECT_EQ(names[0].rfind("settings.json.corrupt-", 0), 0u) << names[0];
        return folder / names[0];
    }
};

TEST_F(JsonUserDefaultsStore, EveryKindSurvivesARoundTripAndNoTempFileIsLeft) {
    store.set("flag", true);
    store.set("whole", std::int64_t{5});
    store.set("wholeDouble", 5.0);
    store.set("fraction", 0.1);
    store.set("big", 1e20);
    store.set("min", std::numeric_limits<std::int64_t>::min());
    store.set("text", std::string("Bureau \"Nord\" 27\xE2\x80\x93inch"));
    store.set("display.Office 27+1234+5678@2.friendlyName", std::string("Desk"));
    store.remove("big");
    EXPECT_TRUE(otherEntries().empty()); // the folder was created; temp files are gone
    EXPECT_TRUE(reports.empty());

    JsonUserDefaults fresh(file);
    EXPECT_EQ(fresh.object("flag"), DefaultsValue(true));
    EXPECT_EQ(fresh.object("whole"), DefaultsValue(std::int64_t{5}));
    EXPECT_EQ(fresh.object("wholeDouble"), DefaultsValue(5.0)); // a double, not the int 5
    EXPECT_EQ(fresh.object("fraction"), DefaultsValue(0.1));
    EXPECT_EQ(fresh.object("min"), DefaultsValue(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(fresh.object("text"),
              DefaultsValue(std::string("Bureau \"Nord\" 27\xE2\x80\x93inch")));
    EXPECT_EQ(fresh.object("big"), std::nullopt);
    EXPECT_EQ(fresh.keys(),
              (std::vector<std::string>{"display.Office 27+1234+5678@2.friendlyName", "flag",
                                        "fraction", "min", "text", "whole", "wholeDouble"}));
}

TEST_F(JsonUserDefaultsStore, HandWrittenNumbersKeepTheirKind) {
    writeFileDirectly(R"({"retries": 3, "ttl": 5.0, "ttl2": 2e1, "step": -4, "on": false})");
    EXPECT_EQ(store.object("retries"), DefaultsValue(std::int64_t{3}));
    EXPECT_EQ(store.object("ttl"), DefaultsValue(5.0));
    EXPECT_EQ(store.object("ttl2"), DefaultsValue(20.0));
    EXPECT_EQ(store.object("step"), DefaultsValue(std::int64_t{-4}));
    EXPECT_EQ(store.object("on"), DefaultsValue(false));
    EXPECT_TRUE(reports.empty());
}

TEST_F(JsonUserDefaultsStore, ChangesByAnotherProcessAreSeenAtTheNextRead) {
    store.set("a", std::int64_t{1});
    EXPECT_EQ(store.object("a"), DefaultsValue(std::int64_t{1}));

    writeFileDirectly(R"({"a": 2, "b": "new"})"); // in place, same inode
    EXPECT_EQ(store.object("a"), DefaultsValue(std::int64_t{2}));
    EXPECT_EQ(store.object("b"), DefaultsValue(std::string("new")));

    // Another instance stands for a second process: each change keeps the other's keys.
    JsonUserDefaults other(file);
    other.set("c", true);
    store.set("d", false);
    EXPECT_EQ(store.object("c"), DefaultsValue(true));
    EXPECT_EQ(other.object("d"), DefaultsValue(false));
    EXPECT_EQ(other.keys().size(), 4u);

    fs::remove(file);
    EXPECT_EQ(store.object("a"), std::nullopt);
    EXPECT_TRUE(reports.empty());
}

TEST_F(JsonUserDefaultsStore, FileThatIsNotJsonIsMovedAsideOnceAndTheStoreStartsEmpty) {
    const std::string garbage = "{\"a\": 1,\n oops \x01\xff";
    writeFileDirectly(garbage);
    EXPECT_EQ(store.object("a"), std::nullopt);
    EXPECT_TRUE(store.keys().empty());
    EXPECT_EQ(store.object("a"), std::nullopt);
    ASSERT_EQ(reports.size(), 1u);
    fs::path aside = onlyAsideCopy();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(test::readFile(aside), garbage);
    EXPECT_NE(reports[0].find(aside.string()), std::string::npos) << reports[0];
    EXPECT_NE(reports[0].find("not valid JSON"), std::string::npos) << reports[0];
    EXPECT_EQ(reports[0].find('\n'), std::string::npos);
    EXPECT_EQ(reports[0].find('\x01'), std::string::npos);

    store.set("a", std::int64_t{2}); // starts a fresh file; the copy stays
    EXPECT_EQ(JsonUserDefaults(file).object("a"), DefaultsValue(std::int64_t{2}));
    EXPECT_EQ(test::readFile(aside), garbage);
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(JsonUserDefaultsStore, JsonThatIsNotAnObjectIsMovedAside) {
    writeFileDirectly("[1, 2, 3]");
    EXPECT_TRUE(store.keys().empty());
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(test::readFile(onlyAsideCopy()), "[1, 2, 3]");
}

TEST_F(JsonUserDefaultsStore, HalfValidFileKeepsItsGoodEntriesAndACopyOfTheOriginal) {
    const std::string original = R"({"good": 1, "flag": true, "name": "Desk", "ttl": 2.5,
        "null": null, "list": [1], "nested": {"x": 1}, "huge": 18446744073709551615})";
    writeFileDirectly(original);
    EXPECT_EQ(store.keys(), (std::vector<std::string>{"flag", "good", "name", "ttl"}));
    EXPECT_EQ(store.object("ttl"), DefaultsValue(2.5));
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].find("4 entries"), std::string::npos) << reports[0];
    EXPECT_NE(reports[0].find("'nested'"), std::string::npos) << reports[0];
    fs::path aside = onlyAsideCopy();
    EXPECT_EQ(test::readFile(aside), original);

    // The file itself was rewritten clean, so nobody reports it again.
    std::vector<std::string> again;
    JsonUserDefaults fresh(file, [&](const std::string& line) { again.push_back(line); });
    EXPECT_EQ(fresh.keys().size(), 4u);
    EXPECT_TRUE(again.empty());
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(JsonUserDefaultsStore, UnreadableFileIsMovedAsideAndWritesStartAfresh) {
    // Permissions do not stop root, so a folder stands in the file's place.
    fs::create_directories(file / "inside");
    EXPECT_EQ(store.object("a"), std::nullopt);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].find("folder"), std::string::npos) << reports[0];
    fs::path aside = onlyAsideCopy();
    EXPECT_TRUE(fs::exists(aside / "inside")); // moved whole, nothing deleted

    store.set("a", true);
    EXPECT_EQ(JsonUserDefaults(file).object("a"), DefaultsValue(true));
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(JsonUserDefaultsStore, EmptyFileMeansNoSettingsAndIsNotReported) {
    writeFileDirectly("");
    EXPECT_TRUE(store.keys().empty());
    store.set("a", std::int64_t{1});
    EXPECT_EQ(JsonUserDefaults(file).object("a"), DefaultsValue(std::int64_t{1}));
    EXPECT_TRUE(reports.empty());
}

TEST_F(JsonUserDefaultsStore, ANumberJsonCannotHoldIsRefusedWithAReport) {
    store.set("ttl", 1.5);
    store.set("ttl", std::numeric_limits<double>::infinity());
    EXPECT_EQ(store.object("ttl"), DefaultsValue(1.5));
    EXPECT_EQ(JsonUserDefaults(file).object("ttl"), DefaultsValue(1.5));
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(JsonUserDefaultsStore, ASymbolicLinkIsWrittenThroughNotReplaced) {
    fs::create_directories(folder);
    fs::path real = dir / "dotfiles-settings.json";
    std::ofstream(real) << R"({"kept": 1})";
    fs::create_symlink(real, file);
    store.set("added", true);
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_EQ(JsonUserDefaults(real).keys(), (std::vector<std::string>{"added", "kept"}));
}

// Each process has its own store object, so only the lock on the settings folder keeps
// one's read-change-write from overwriting the other's.
TEST_F(JsonUserDefaultsStore, ConcurrentWritersInSeparateProcessesLoseNothing) {
    fs::create_directories(folder);
    constexpr int kWriters = 3;
    constexpr int kKeys = 15;
    std::vector<pid_t> writers;
    for (int w = 0; w < kWriters; ++w) {
        const pid_t child = ::fork();
        if (child == 0) {
            JsonUserDefaults own(file, [](const std::string&) {});
            for (int i = 0; i < kKeys; ++i)
                own.set("w" + std::to_string(w) + "." + std::to_string(i), std::int64_t{i});
            ::_exit(0);
        }
        writers.push_back(child);
    }
    for (pid_t child : writers) {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(JsonUserDefaults(file).keys().size(), std::size_t{kWriters * kKeys});
    EXPECT_TRUE(otherEntries().empty());
}

TEST(JsonUserDefaultsPath, FollowsTheBaseDirectoryRules) {
    EXPECT_EQ(JsonUserDefaults::pathFor("/x/cfg", "/home/u"), "/x/cfg/panelwright/settings.json");
    EXPECT_EQ(JsonUserDefaults::pathFor("", "/home/u"),
              "/home/u/.config/panelwright/settings.json");
    EXPECT_EQ(JsonUserDefaults::pathFor("relative/cfg", "/home/u"),
              "/home/u/.config/panelwright/settings.json");
}

TEST(BaseDirectories, OneRuleForEveryFolder) {
    EXPECT_EQ(xdg::baseDirectory("/x/state", "/home/u", ".local/state"), "/x/state");
    EXPECT_EQ(xdg::baseDirectory("", "/home/u", ".local/state"), "/home/u/.local/state");
    EXPECT_EQ(xdg::baseDirectory("x/state", "/home/u", ".config"), "/home/u/.config");
    // Without HOME, the password database's home: never the folder the program started in.
    EXPECT_TRUE(xdg::baseDirectory("", "", ".config").is_absolute());
}

} // namespace
} // namespace pw::platform
