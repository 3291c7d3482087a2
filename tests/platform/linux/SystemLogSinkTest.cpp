#include "common/TestSupport.h"
#include "platform/posix/StderrSystemLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace pw::platform {
namespace {

// One tagged line per message; debug stays off the terminal unless asked for.
TEST(StderrSystemLog, WritesOneTaggedLinePerMessageFromItsFloorUp) {
    const struct {
        LogLevel least;
        const char* expected;
    } cases[] = {
        {LogLevel::info, "panelwright[com.panelwright.app/App] info: Panelwright starting...\n"
                         "panelwright[com.panelwright.app/DDC] error: two\nlines\n"},
        {LogLevel::debug, "panelwright[com.panelwright.app/App] info: Panelwright starting...\n"
                          "panelwright[com.panelwright.app/DDC] error: two\nlines\n"
                          "panelwright[org.example/OSD] debug: \n"},
    };
    for (const auto& c : cases) {
        test::TempDir dir;
        const int fd = ::open((dir / "stderr").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        StderrSystemLog sink(fd, c.least);
        sink.write("com.panelwright.app", "App", LogLevel::info, "Panelwright starting...");
        sink.write("com.panelwright.app", "DDC", LogLevel::error, "two\nlines");
        sink.write("org.example", "OSD", LogLevel::debug, "");
        ::close(fd);
        EXPECT_EQ(test::readFile(dir / "stderr"), c.expected);
    }
}

} // namespace
} // namespace pw::platform
