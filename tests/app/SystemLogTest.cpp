#include "base/SystemLog.h"

#include "common/TestSupport.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/SimHostFacts.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace pw {
namespace {

using platform::LogLevel;

TEST(SystemLog, MessagesCarryTheBuildIdentifierOrTheDefaultSubsystem) {
    auto sink = std::make_shared<sim::MemorySystemLog>();
    auto host = std::make_shared<sim::SimHostFacts>(sim::Flavor::appleSilicon);
    SystemLog::app().info("nowhere to go"); // no sink installed: dropped
    for (const std::string identifier : {"org.example.panels", ""}) {
        host->setBuild({.identifier = identifier});
        SystemLog::Scope scope(sink, host.get());
        SystemLog::ddc().error("rejected");
        // Settled by the scope: a later change of the build does not move it.
        host->setBuild({.identifier = "org.example.later"});
        SystemLog::osd().debug("shown");
    }
    SystemLog::app().info("gone"); // the scope ended: dropped
    std::vector<std::string> seen;
    for (const auto& entry : sink->entries())
        seen.push_back(entry.subsystem + " " + entry.category + " " +
                       std::to_string(static_cast<int>(entry.level)) + " " + entry.message);
    const std::string fallback = "com.panelwright.app";
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "org.example.panels DDC 2 rejected", "org.example.panels OSD 0 shown",
                        fallback + " DDC 2 rejected", fallback + " OSD 0 shown"}));
}

// Worker threads log while the main thread installs and removes sinks, as a program's
// Core does at its start and end and test fixtures do one after another: each message
// reaches one of the sinks that were installed or is dropped, and no thread uses a sink
// that is being let go.
TEST(SystemLog, LoggingWhileSinksComeAndGoIsSafe) {
    std::vector<std::shared_ptr<sim::MemorySystemLog>> sinks;
    std::atomic<bool> done{false};
    std::atomic<int> sent{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 3; ++t)
        workers.emplace_back([&] {
            while (!done.load()) {
                SystemLog::app().info("busy");
                sent.fetch_add(1);
            }
        });
    for (int round = 0; round < 300; ++round) {
        sinks.push_back(std::make_shared<sim::MemorySystemLog>());
        const sim::SimHostFacts host(sim::Flavor::appleSilicon);
        SystemLog::Scope scope(sinks.back(), &host);
        std::this_thread::yield();
    }
    done = true;
    for (auto& worker : workers)
        worker.join();
    std::size_t received = 0;
    for (const auto& sink : sinks)
        received += sink->entries().size();
    EXPECT_LE(received, static_cast<std::size_t>(sent.load()));
}

} // namespace
} // namespace pw
