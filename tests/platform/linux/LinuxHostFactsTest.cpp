#include "platform/linux/LinuxHostFacts.h"

#include "base/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "platform/posix/SystemClock.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace pw::platform {

// Outside the unnamed namespace so its name is exported and shows up in stack symbols.
[[gnu::noinline]] void crashInsidePanelwrightTest() {
    std::raise(SIGSEGV);
    asm volatile("" ::: "memory");
}

namespace {

namespace fs = std::filesystem;

TEST(LinuxHostFacts, TheLogLivesInTheXdgStateFolder) {
    EXPECT_EQ(LinuxHostFacts::logPathFor("/state", "/home/ann"),
              "/state/panelwright/Panelwright.log");
    for (const char* unusable : {"", "relative/state"})
        EXPECT_EQ(LinuxHostFacts::logPathFor(unusable, "/home/ann"),
                  "/home/ann/.local/state/panelwright/Panelwright.log");
    const passwd* account = ::getpwuid(::getuid());
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(LinuxHostFacts::logPathFor("", ""),
              fs::path(account->pw_dir) / ".local/state/panelwright/Panelwright.log");
}

TEST(LinuxHostFacts, PreparingTheFolderCreatesItPrivateOrSaysItCannot) {
    test::TempDir dir;
    const LinuxHostFacts host(dir / "a/b/panelwright/Panelwright.log");
    EXPECT_TRUE(host.prepareDiagnosticLogFolder());
    struct stat info {};
    ASSERT_EQ(::stat((dir / "a/b/panelwright").c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_TRUE(host.prepareDiagnosticLogFolder()); // already there

    { std::ofstream(dir / "file") << "x"; }
    EXPECT_FALSE(
        LinuxHostFacts(dir / "file/panelwright/Panelwright.log").prepareDiagnosticLogFolder());
    EXPECT_FALSE(LinuxHostFacts(dir / "file/Panelwright.log").prepareDiagnosticLogFolder());
}

TEST(LinuxHostFacts, KernelReleasesAreShortenedToThreeNumbers) {
    EXPECT_EQ(LinuxHostFacts::kernelVersion("6.1.0-18-amd64"), "6.1.0");
    EXPECT_EQ(LinuxHostFacts::kernelVersion("5.15.146.1-microsoft-standard-WSL2"), "5.15.146");
    EXPECT_EQ(LinuxHostFacts::kernelVersion("6.8-rc1"), "6.8.0");
    EXPECT_EQ(LinuxHostFacts::kernelVersion("6.x"), "6.0.0");
    EXPECT_EQ(LinuxHostFacts::kernelVersion("weird"), "weird");
}

TEST(LinuxHostFacts, BannerFactsDescribeThisProcessAndBuild) {
    const LinuxHostFacts host(fs::path("/unused"));
    EXPECT_TRUE(std::regex_match(host.operatingSystemLine(), std::regex(R"(Linux \d+\.\d+\.\d+)")));
    EXPECT_TRUE(
        std::regex_match(host.architectureLine(), std::regex(R"(Architecture: \S+ \(Linux\))")));
    // The kernel keeps the first 15 bytes of the executable's name.
    EXPECT_EQ(host.processName(),
              fs::read_symlink("/proc/self/exe").filename().string().substr(0, 15));
    // The build passed its version ("0.0.0" is the fallback of a build that did not).
    const BuildFacts build = host.build();
    EXPECT_EQ(build.identifier, "com.panelwright.app");
    EXPECT_TRUE(std::regex_match(build.version, std::regex(R"(\d+\.\d+\.\d+)")));
    EXPECT_NE(build.version, "0.0.0");
    EXPECT_FALSE(build.buildNumber.empty());
}

// A death-test child runs the test again from its start in a new process; it finds the
// parent's folder in the environment, so both look at the same file.
fs::path crashFolder() {
    if (const char* inherited = std::getenv("PANELWRIGHT_TEST_CRASH_FOLDER")) return inherited;
    static const test::TempDir folder;
    ::setenv("PANELWRIGHT_TEST_CRASH_FOLDER", folder.path().c_str(), 1);
    return folder.path();
}

TEST(LinuxHostFacts, CrashLinesCarryARealStackTrace) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fs::path folder = crashFolder();
    const fs::path file = folder / "Panelwright.log";

    EXPECT_EXIT(
        {
            const LinuxHostFacts host(file);
            SystemClock clock;
            DiagnosticLog::start(file, host, clock);
            crashInsidePanelwrightTest();
        },
        ::testing::KilledBySignal(SIGSEGV), "");

    const std::string written = test::readFile(file);
    const auto trace = written.find("] [CRASH] Stack trace:\n");
    EXPECT_NE(written.find("] [CRASH] Received signal 11 (SIGSEGV)\n"), std::string::npos);
    ASSERT_NE(trace, std::string::npos) << written;
    EXPECT_NE(written.find("crashInsidePanelwrightTest", trace), std::string::npos) << written;
}

} // namespace
} // namespace pw::platform
