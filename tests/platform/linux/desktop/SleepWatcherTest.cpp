#include "platform/linux/desktop/SleepWatcher.h"

#include "DesktopTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace pw::linuxdesktop {
namespace {

using namespace std::chrono_literals;

constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

class Journal {
public:
    void add(std::string entry) {
        {
            std::lock_guard lock(mutex_);
            entries_.push_back(std::move(entry));
        }
        changed_.notify_all();
    }
    std::vector<std::string> waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 10s, [&] { return entries_.size() >= count; });
        return entries_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> entries_;
};

// Also: a handler that throws is stopped at the bus library's edge with one line, and the
// watcher goes on to the next signal.
TEST(LogindSleepWatcher, SleepAndWakeFromLogindOnlyReachTheHandlers) {
    auto bus = test::PrivateBus::start();
    if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    auto log = std::make_shared<sim::MemorySystemLog>();
    Journal journal;
    auto watcher = LogindSleepWatcher::start(bus->address(),
                                             {[&] {
                                                  journal.add("sleep");
                                                  throw std::runtime_error("no panel to save");
                                              },
                                              [&] { journal.add("wake"); }},
                                             DesktopLog{log});
    ASSERT_TRUE(watcher);
    EXPECT_EQ(log->messages("App"),
              std::vector<std::string>{"No logind on the system bus yet: waiting for it to tell of sleep"});

    // Someone who is not logind cannot make the program think the machine woke up.
    auto impostor = test::BusPeer::connect(bus->address());
    ASSERT_TRUE(impostor);
    impostor->emitBool(kPath, kInterface, "PrepareForSleep", false);
    impostor->roundTrip();

    auto logind = test::BusPeer::connect(bus->address(), "org.freedesktop.login1");
    ASSERT_TRUE(logind);
    logind->emitBool(kPath, kInterface, "PrepareForSleep", true);
    logind->emitBool(kPath, kInterface, "PrepareForSleep", false);
    EXPECT_EQ(journal.waitFor(2), (std::vector<std::string>{"sleep", "wake"}));
    EXPECT_TRUE(log->contains("App", platform::LogLevel::error,
                              "The sleep and wake-up handler failed and was stopped there: no "
                              "panel to save; the program carries on"));
}

TEST(LogindSleepWatcher, NoBusIsOneLineAndNoWatcher) {
    auto log = std::make_shared<sim::MemorySystemLog>();
    EXPECT_FALSE(LogindSleepWatcher::start(std::string("unix:path=/nonexistent/bus"), {}, DesktopLog{log}));
    const auto lines = log->messages("App");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("Values are not restored after sleep: cannot connect to the bus at", 0), 0u);
}

} // namespace
} // namespace pw::linuxdesktop
