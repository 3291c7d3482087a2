#include "app/SystemLog.h"

#include "common/TestSupport.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/SimHostInfo.h"

#include <gtest/gtest.h>

namespace pw {
namespace {

using platform::LogLevel;

TEST(SystemLog, MessagesCarryTheBundleIdentifierOrTheDefaultSubsystem) {
    auto sink = std::make_shared<sim::MemorySystemLog>();
    auto host = std::make_shared<sim::SimHostInfo>(platform::Flavor::appleSilicon);
    platform::Platform machine;
    machine.systemLog = sink;
    SystemLog::resetForTesting();
    {
        // Before the platform is installed: dropped, and the identity is not fixed yet.
        test::ScopedPlatform bare(platform::Platform{});
        SystemLog::app().info("nowhere to go");
    }
    machine.host = host;
    for (const auto& identifier : std::vector<std::optional<platform::BundleValue>>{
             std::string("org.example.panels"), std::nullopt, std::string(), std::int64_t{7}}) {
        host->setBundleInfo("CFBundleIdentifier", identifier);
        test::ScopedPlatform scoped(machine);
        SystemLog::ddc().error("rejected");
        // Settled by the first message: a later change of the bundle does not move it.
        host->setBundleInfo("CFBundleIdentifier", std::string("org.example.later"));
        SystemLog::osd().debug("shown");
        SystemLog::resetForTesting();
    }
    std::vector<std::string> seen;
    for (const auto& entry : sink->entries())
        seen.push_back(entry.subsystem + " " + entry.category + " " +
                       std::to_string(static_cast<int>(entry.level)) + " " + entry.message);
    const std::string fallback = "com.panelwright.app";
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "org.example.panels DDC 2 rejected", "org.example.panels OSD 0 shown",
                        fallback + " DDC 2 rejected", fallback + " OSD 0 shown",
                        fallback + " DDC 2 rejected", fallback + " OSD 0 shown",
                        fallback + " DDC 2 rejected", fallback + " OSD 0 shown"}));
}

} // namespace
} // namespace pw
