#include "common/TestSupport.h"
#include "platform/linux/XdgAutostart.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pw::platform {
namespace {

namespace fs = std::filesystem;

TEST(XdgAutostart, TheEntryAppearsAndDisappearsAtOnce) {
    test::TempDir home;
    std::vector<std::string> reports;
    XdgAutostart login(home / "config", "/usr/bin/panelwright",
                       [&](const std::string& m) { reports.push_back(m); });
    EXPECT_FALSE(login.isEnabled());
    EXPECT_TRUE(login.setEnabled(false)); // nothing to remove is no failure

    ASSERT_TRUE(login.setEnabled(true)); // the autostart folder does not exist yet
    const auto entry = home / "config" / "autostart" / "panelwright.desktop";
    EXPECT_EQ(login.entryPath(), entry);
    const auto text = test::readFile(entry);
    EXPECT_NE(text.find("[Desktop Entry]\nType=Application\nName=Panelwright\n"),
              std::string::npos);
    EXPECT_NE(text.find("\nExec=/usr/bin/panelwright\n"), std::string::npos);
    EXPECT_NE(text.find("\nX-GNOME-Autostart-enabled=true\n"), std::string::npos);
    EXPECT_TRUE(login.isEnabled());
    EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), {}), 1); // no temp left

    ASSERT_TRUE(login.setEnabled(false));
    EXPECT_FALSE(fs::exists(entry));
    EXPECT_FALSE(login.isEnabled());
    EXPECT_TRUE(reports.empty());
}

TEST(XdgAutostart, AnEntrySwitchedOffInTheDesktopReadsAsOff) {
    test::TempDir home;
    XdgAutostart login(home.path(), "/opt/pw/panelwright");
    fs::create_directories(home / "autostart");
    const auto write = [&](const std::string& text) {
        std::ofstream(home / "autostart" / "panelwright.desktop") << text;
    };
    write("[Desktop Entry]\nType=Application\nExec=x\nHidden = true\n");
    EXPECT_FALSE(login.isEnabled());
    write("[Desktop Entry]\nExec=x\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(login.isEnabled());
    // A key of another group does not speak for the entry.
    write("[Desktop Entry]\nExec=x\n[Desktop Action quit]\nHidden=true\n");
    EXPECT_TRUE(login.isEnabled());
    // Switching on again replaces the disabled entry with ours.
    write("[Desktop Entry]\nHidden=true\n");
    ASSERT_TRUE(login.setEnabled(true));
    EXPECT_TRUE(login.isEnabled());
}

TEST(XdgAutostart, APathThatNeedsQuotingIsQuoted) {
    EXPECT_NE(XdgAutostart::entryText("/home/a b/bin/panelwright").find(
                  "\nExec=\"/home/a b/bin/panelwright\"\n"),
              std::string::npos);
    EXPECT_NE(XdgAutostart::entryText("/home/$x/50%/pw").find("\nExec=\"/home/\\\\$x/50%%/pw\"\n"),
              std::string::npos);
}

TEST(XdgAutostart, AFolderThatCannotBeWrittenIsReportedNotThrown) {
    if (::geteuid() == 0) GTEST_SKIP() << "root writes anywhere";
    test::TempDir home;
    fs::create_directories(home / "autostart");
    ::chmod((home / "autostart").c_str(), 0500);
    std::vector<std::string> reports;
    XdgAutostart login(home.path(), "/usr/bin/panelwright",
                       [&](const std::string& m) { reports.push_back(m); });
    EXPECT_FALSE(login.setEnabled(true));
    EXPECT_FALSE(login.isEnabled());
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].find(login.entryPath().parent_path().string()), std::string::npos);
    ::chmod((home / "autostart").c_str(), 0700);
}

} // namespace
} // namespace pw::platform
