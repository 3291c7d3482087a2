#include "platform/linux/LinuxHostInfo.h"

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

TEST(LinuxHostInfo, TheLogLivesInTheXdgStateFolder) {
    EXPECT_EQ(LinuxHostInfo::logPathFor("/state", "/home/ann"),
              "/state/panelwright/Panelwright.log");
    for (const char* unusable : {"", "relative/state"})
        EXPECT_EQ(LinuxHostInfo::logPathFor(unusable, "/home/ann"),
                  "/home/ann/.local/state/panelwright/Panelwright.log");
    const passwd* account = ::getpwuid(::getuid());
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(LinuxHostInfo::logPathFor("", ""),
              fs::path(account->pw_dir) / ".local/state/panelwright/Panelwright.log");
}

TEST(LinuxHostInfo, PreparingTheFolderCreatesItPrivateOrSaysItCannot) {
    test::TempDir dir;
    const LinuxHostInfo host(dir / "a/b/panelwright/Panelwright.log");
    EXPECT_TRUE(host.prepareDiagnosticLogFolder());
    struct stat info {};
    ASSERT_EQ(::stat((dir / "a/b/panelwright").c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_TRUE(host.prepareDiagnosticLogFolder()); // already there

    { std::ofstream(dir / "file") << "x"; }
    EXPECT_FALSE(
        LinuxHostInfo(dir / "file/panelwright/Panelwright.log").prepareDiagnosticLogFolder());
    EXPECT_FALSE(LinuxHostInfo(dir / "file/Panelwright.log").prepareDiagnosticLogFolder());
}

TEST(LinuxHostInfo, KernelReleasesAreShortenedToThreeNumbers) {
    EXPECT_EQ(LinuxHostInfo::kernelVersion("6.1.0-18-amd64"), "6.1.0");
    EXPECT_EQ(LinuxHostInfo::kernelVersion("5.15.146.1-microsoft-standard-WSL2"), "5.15.146");
    EXPECT_EQ(LinuxHostInfo::kernelVersion("6.8-rc1"), "6.8.0");
    EXPECT_EQ(LinuxHostInfo::kernelVersion("6.x"), "6.0.0");
    EXPECT_EQ(LinuxHostInfo::kernelVersion("weird"), "weird");
}

TEST(LinuxHostInfo, BannerFactsDescribeThisProcessAndBuild) {
    const LinuxHostInfo host(fs::path("/unused"));
    EXPECT_TRUE(std::regex_match(host.operatingSystemLine(), std::regex(R"(Linux \d+\.\d+\.\d+)")));
    EXPECT_TRUE(
        std::regex_match(host.architectureLine(), std::regex(R"(Architecture: \S+ \(Linux\))")));
    // The kernel keeps the first 15 bytes of the executable's name.
    EXPECT_EQ(host.processName(),
              fs::read_symlink("/proc/self/exe").filename().string().substr(0, 15));
    EXPECT_EQ(host.bundleInfo("CFBundleIdentifier"),
              BundleValue(std::string("com.panelwright.app")));
    const auto version = host.bundleInfo("CFBundleShortVersionString").value_or(std::int64_t{0});
    EXPECT_TRUE(std::holds_alternative<std::string>(version));
}

// A death-test child runs the test again from its start in a new process; it finds the
// parent's folder in the environment, so both look at the same file.
fs::path crashFolder() {
    if (const char* inherited = std::getenv("PANELWRIGHT_TEST_CRASH_FOLDER")) return inherited;
    static const test::TempDir folder;
    ::setenv("PANELWRIGHT_TEST_CRASH_FOLDER", folder.path().c_str(), 1);
    return folder.path();
}

TEST(LinuxHostInfo, CrashLinesCarryARealStackTrace) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fs::path folder = crashFolder();
    const fs::path file = folder / "Panelwright.log";

    EXPECT_EXIT(
        {
            const LinuxHostInfo host(file);
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
