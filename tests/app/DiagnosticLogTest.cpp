#include "support/SerialQueue.h"
#include "base/DiagnosticLog.h"

#include "common/TestSupport.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/VirtualClock.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

namespace pw {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(text.substr(begin, end - begin));
    if (begin < text.size()) lines.push_back(text.substr(begin) + "<no line feed>");
    return lines;
}

void useTimeZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
}

class DiagnosticLogTest : public ::testing::Test {
protected:
    DiagnosticLogTest() {
        useTimeZone("UTC");
        DiagnosticLog::resetForTesting();
    }
    ~DiagnosticLogTest() override { DiagnosticLog::resetForTesting(); }

    std::vector<std::string> lines() const { return linesOf(test::readFile(file)); }

    test::TempDir dir;
    fs::path file = dir / "Panelwright.log";
    sim::SimHostFacts host{sim::Flavor::appleSilicon, file};
    sim::VirtualClock clock; // 2025-03-01 14:05:09 UTC
};

TEST_F(DiagnosticLogTest, LinesCarryLocalTimeAndCategoryAndAreDroppedBeforeStart) {
    host.setBuild({.version = "0.1.0", .buildNumber = "1"});
    DiagnosticLog::log("App", "too early");
    EXPECT_FALSE(fs::exists(file));

    DiagnosticLog::start(file, host, clock);
    clock.advance(123ms);
    DiagnosticLog::log("App", "hello");
    useTimeZone("XST+05"); // five hours west of UTC
    DiagnosticLog::log("DDC", "west");
    clock.setNow(platform::Clock::TimePoint(std::chrono::sys_days(std::chrono::year(2000) / 1 / 1) +
                                            std::chrono::milliseconds(4 * 3600'000 + 1)));
    DiagnosticLog::log("Display", "day before");
    DiagnosticLog::log("CRASH", "Stack trace:\nframe 1\nframe 2");

    EXPECT_EQ(lines(), (std::vector<std::string>{
                           "[2025-03-01 14:05:09.123] [App] hello",
                           "[2025-03-01 09:05:09.123] [DDC] west",
                           "[1999-12-31 23:00:00.001] [Display] day before",
                           "[1999-12-31 23:00:00.001] [CRASH] Stack trace:",
                           "frame 1",
                           "frame 2",
                       }));
}

TEST_F(DiagnosticLogTest, EveryStartEmptiesTheFileAndTheBannerComesFirst) {
    DiagnosticLog::start(file, host, clock);
    DiagnosticLog::writeBanner();
    DiagnosticLog::log("App", "first run");

    DiagnosticLog::start(file, host, clock);
    DiagnosticLog::writeBanner();
    DiagnosticLog::log("App", "second run");

    const std::string stamp = "[2025-03-01 14:05:09.000] ";
    const std::string rule(40, '=');
    EXPECT_EQ(lines(),
              (std::vector<std::string>{
                  stamp + "[System] " + rule,
                  stamp + "[System] Panelwright v0.1.0 (1)",
                  stamp + "[System] macOS 14.5.0",
                  stamp + "[System] Architecture: arm64 (Apple Silicon)",
                  stamp + "[System] Process: Panelwright (PID " + std::to_string(::getpid()) + ")",
                  stamp + "[System] Log file: " + file.string(),
                  stamp + "[System] " + rule,
                  stamp + "[App] second run",
              }));
    EXPECT_EQ(DiagnosticLog::logFileURL(), file);
}

// A clock whose `now` holds its second caller (the first is `start`) until released, and
// which notes a call that finishes after the clock was destroyed.
class HeldClock final : public platform::Clock {
public:
    HeldClock(std::promise<void>& entered, std::shared_future<void> release,
              std::atomic<bool>& usedAfterFree)
        : entered_(entered), release_(std::move(release)), usedAfterFree_(usedAfterFree) {}
    ~HeldClock() override { alive_ = false; }
    TimePoint now() const override {
        if (calls_.fetch_add(1) == 1) {
            entered_.set_value();
            release_.wait();
            if (!alive_.load()) usedAfterFree_ = true;
        }
        return TimePoint{};
    }
    void sleepFor(std::chrono::microseconds) override {}

private:
    std::promise<void>& entered_;
    std::shared_future<void> release_;
    std::atomic<bool>& usedAfterFree_;
    std::atomic<bool> alive_{true};
    mutable std::atomic<int> calls_{0};
};

// A worker is inside `log` (stamping its line) while the program's main stops the log:
// the clock, the Core's machine's, goes only once the worker has left.
TEST_F(DiagnosticLogTest, StopWaitsForAThreadInsideLogBeforeTheClockGoes) {
    std::promise<void> entered, release;
    std::atomic<bool> usedAfterFree{false};
    auto clock = std::make_shared<HeldClock>(entered, release.get_future().share(), usedAfterFree);
    const std::weak_ptr<platform::Clock> watched = clock;
    DiagnosticLog::start(std::make_shared<sim::SimHostFacts>(sim::Flavor::linux, file),
                         std::move(clock));
    std::thread worker([] { DiagnosticLog::log("Worker", "busy"); });
    entered.get_future().wait(); // the worker holds the clock
    std::thread stopper([] { DiagnosticLog::stop(); });
    while (!DiagnosticLog::logFileURL().empty()) // the stop has let go of the file
        std::this_thread::yield();
    release.set_value();
    stopper.join();
    worker.join();
    EXPECT_FALSE(usedAfterFree.load());
    EXPECT_TRUE(watched.expired());
}

TEST_F(DiagnosticLogTest, StartFromAHostMakesItsFolderAndStopLetsItGo) {
    const fs::path nested = dir / "state" / "panelwright" / "Panelwright.log";
    auto host = std::make_shared<sim::SimHostFacts>(sim::Flavor::intel, nested);
    host->setBuild({}); // a build that knows neither its version nor its number
    std::shared_ptr<platform::Clock> clock = std::make_shared<sim::VirtualClock>();
    const std::weak_ptr<platform::Clock> watched = clock;

    DiagnosticLog::start(host, std::move(clock));
    DiagnosticLog::writeBanner();
    EXPECT_EQ(DiagnosticLog::logFileURL(), nested);

    const auto written = linesOf(test::readFile(nested));
    ASSERT_EQ(written.size(), 7u);
    EXPECT_EQ(written[1], "[2025-03-01 14:05:09.000] [System] Panelwright v? (?)");
    EXPECT_EQ(written[3], "[2025-03-01 14:05:09.000] [System] Architecture: x86_64 (Intel)");

    DiagnosticLog::stop();
    EXPECT_TRUE(watched.expired()); // nothing of the run is kept after the stop
    DiagnosticLog::log("App", "after the stop");
    EXPECT_EQ(linesOf(test::readFile(nested)).size(), 7u);
    EXPECT_EQ(DiagnosticLog::logFileURL(), fs::path());
}

TEST_F(DiagnosticLogTest, AnUnusableLocationLeavesTheProgramRunningWithoutAFileLog) {
    { std::ofstream(dir / "not-a-folder") << "x"; }
    for (const fs::path& unusable : {dir / "not-a-folder" / "Panelwright.log", dir.path()}) {
        DiagnosticLog::start(unusable, host, clock);
        DiagnosticLog::writeBanner();
        DiagnosticLog::log("App", "nowhere to go");
    }
    EXPECT_EQ(test::readFile(dir / "not-a-folder"), "x");
    DiagnosticLog::start(file, host, clock); // a later start at a good place works
    DiagnosticLog::log("App", "back");
    EXPECT_EQ(lines(), std::vector<std::string>{"[2025-03-01 14:05:09.000] [App] back"});
}

TEST_F(DiagnosticLogTest, LinesFromManyThreadsNeverInterleave) {
    DiagnosticLog::start(file, host, clock);
    constexpr int kThreads = 4;
    constexpr int kLines = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            // Long enough that a torn write would show in the middle of a line.
            const std::string body(2000, char('a' + t));
            for (int i = 0; i < kLines; ++i)
                DiagnosticLog::log("T" + std::to_string(t), std::to_string(i) + " " + body);
        });
    }
    for (auto& thread : threads)
        thread.join();

    std::vector<std::string> expected;
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kLines; ++i)
            expected.push_back("[2025-03-01 14:05:09.000] [T" + std::to_string(t) + "] " +
                               std::to_string(i) + " " + std::string(2000, char('a' + t)));
    auto written = lines();
    std::sort(written.begin(), written.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(written == expected) << "torn or missing lines"; // too long to print
}

TEST_F(DiagnosticLogTest, LinesReachTheFileAtOnceWithoutWaitingForTheDisk) {
    DiagnosticLog::start(file, host, clock);
    for (int i = 0; i < 20; ++i)
        DiagnosticLog::log("Intel", "transfer " + std::to_string(i));
    // Readable through another descriptor while the log keeps its own open: nothing is
    // held back in the process, so a crash cannot lose it.
    EXPECT_EQ(lines().size(), 20u);
    EXPECT_EQ(lines().back(), "[2025-03-01 14:05:09.000] [Intel] transfer 19");
    // Lines are written while the bus is held; a sync per line would hold it for the disk.
    EXPECT_EQ(DiagnosticLog::diskSyncsForTesting(), 0);
}

// --- Crashes ------------------------------------------------------------------------------

// A death-test child runs the test again from its start in a new process; it finds the
// parent's folder in the environment, so both look at the same files.
fs::path crashFolder() {
    if (const char* inherited = std::getenv("PANELWRIGHT_TEST_CRASH_FOLDER")) return inherited;
    static const test::TempDir folder;
    ::setenv("PANELWRIGHT_TEST_CRASH_FOLDER", folder.path().c_str(), 1);
    return folder.path();
}

class DiagnosticLogCrashTest : public ::testing::Test {
protected:
    DiagnosticLogCrashTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        useTimeZone("UTC");
        DiagnosticLog::resetForTesting();
    }
    ~DiagnosticLogCrashTest() override { DiagnosticLog::resetForTesting(); }

    void startAt(const fs::path& file) { DiagnosticLog::start(file, host, clock); }

    const fs::path folder = crashFolder();
    sim::SimHostFacts host{sim::Flavor::appleSilicon};
    sim::VirtualClock clock;
};

const std::string kStamp = "[2025-03-01 14:05:09.000] ";

const std::string kRealStack = "<frames of this test program>";

// The signal handler stamps its lines with the real time (the only clock it may read):
// checked for shape, then shown as kStamp so whole files compare. The stack is the real
// one even on the simulated machine: a run of frame lines ("file(symbol+0x1a) [0x5555]")
// that names this program's file is shown as kRealStack; anything else stays as written.
std::vector<std::string> crashLog(const fs::path& file) {
    static const std::regex realStamp(
        R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] (\[CRASH\] (Received signal|Stack trace:$)))");
    static const std::regex frame(R"(^\S.*\[0x[0-9a-f]+\]$)");
    const std::string program = fs::read_symlink("/proc/self/exe").filename().string();
    std::vector<std::string> lines;
    std::vector<std::string> frames;
    const auto endOfFrames = [&] {
        const bool ours = std::any_of(frames.begin(), frames.end(), [&](const std::string& f) {
            return f.find(program) != std::string::npos;
        });
        if (ours) lines.push_back(kRealStack);
        else lines.insert(lines.end(), frames.begin(), frames.end());
        frames.clear();
    };
    for (const auto& line : linesOf(test::readFile(file))) {
        if (std::regex_match(line, frame)) {
            frames.push_back(line);
            continue;
        }
        endOfFrames();
        lines.push_back(std::regex_replace(line, realStamp, kStamp + "$1"));
    }
    endOfFrames();
    return lines;
}

std::vector<std::string> signalLines(int signal, const char* name) {
    return {kStamp + "[CRASH] Received signal " + std::to_string(signal) + " (" + name + ")",
            kStamp + "[CRASH] Stack trace:", kRealStack};
}

// Deep enough to run out of any thread's stack; the frame's array and the use of the
// result keep the compiler from turning it into a loop.
int recurseForever(int depth) {
    volatile char frame[512];
    frame[depth % sizeof frame] = static_cast<char>(depth);
    return recurseForever(depth + 1) + frame[0];
}

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(DiagnosticLogCrashTest, AFatalSignalIsLoggedAndStillEndsTheProcess) {
    const fs::path file = folder / "segv.log";
    EXPECT_EXIT(
        {
            startAt(file);
            DiagnosticLog::log("App", "before the crash");
            std::raise(SIGSEGV);
        },
        ::testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EQ(crashLog(file),
              concat({kStamp + "[App] before the crash"}, signalLines(SIGSEGV, "SIGSEGV")));

    // The crashing thread itself in the middle of a line: waiting for the lock would hang.
    const fs::path midLine = folder / "bus.log";
    EXPECT_EXIT(
        {
            startAt(midLine);
            DiagnosticLog::withLockHeldForTesting([] { std::raise(SIGBUS); });
        },
        ::testing::KilledBySignal(SIGBUS), "");
    EXPECT_EQ(crashLog(midLine), signalLines(SIGBUS, "SIGBUS"));
}

TEST_F(DiagnosticLogCrashTest, AStackOverflowIsLogged) {
    const fs::path file = folder / "overflow.log";
    EXPECT_EXIT(
        {
            startAt(file);
            DiagnosticLog::log("App", "going down");
            std::exit(recurseForever(0));
        },
        ::testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EQ(crashLog(file),
              concat({kStamp + "[App] going down"}, signalLines(SIGSEGV, "SIGSEGV")));
}

TEST_F(DiagnosticLogCrashTest, AStackOverflowInAQueuedTaskIsLoggedToo) {
    const fs::path file = folder / "worker-overflow.log";
    EXPECT_EXIT(
        {
            startAt(file);
            SerialQueue queue("com.panelwright.ddc");
            queue.sync([] { std::exit(recurseForever(0)); });
        },
        ::testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EQ(crashLog(file), signalLines(SIGSEGV, "SIGSEGV"));
}

TEST_F(DiagnosticLogCrashTest, ALockWedgedOnAnotherThreadDoesNotHoldTheCrashLinesBack) {
    const fs::path file = folder / "wedged.log";
    EXPECT_EXIT(
        {
            startAt(file);
            std::promise<void> holding;
            std::thread([&holding] {
                DiagnosticLog::withLockHeldForTesting([&holding] {
                    holding.set_value();
                    for (;;)
                        ::pause();
                });
            }).detach();
            holding.get_future().wait();
            std::raise(SIGFPE);
        },
        ::testing::KilledBySignal(SIGFPE), "");
    EXPECT_EQ(crashLog(file), signalLines(SIGFPE, "SIGFPE"));
}

struct PanelOverheated {};

TEST_F(DiagnosticLogCrashTest, AnUncaughtExceptionIsLoggedBeforeTheAbort) {
    const fs::path withReason = folder / "reason.log";
    EXPECT_EXIT(
        {
            startAt(withReason);
            std::thread([] { throw std::runtime_error("panel on fire"); }).join();
        },
        ::testing::KilledBySignal(SIGABRT), "");
    EXPECT_EQ(crashLog(withReason),
              concat({kStamp + "[CRASH] Uncaught exception: std::runtime_error",
                      kStamp + "[CRASH] Reason: panel on fire",
                      kStamp + "[CRASH] Stack trace:", kRealStack},
                     signalLines(SIGABRT, "SIGABRT")));

    const fs::path withoutReason = folder / "nil.log";
    EXPECT_EXIT(
        {
            startAt(withoutReason);
            std::thread([] { throw PanelOverheated{}; }).join();
        },
        ::testing::KilledBySignal(SIGABRT), "");
    const auto written = linesOf(test::readFile(withoutReason));
    ASSERT_GE(written.size(), 2u);
    EXPECT_EQ(written[0],
              kStamp + "[CRASH] Uncaught exception: pw::(anonymous namespace)::PanelOverheated");
    EXPECT_EQ(written[1], kStamp + "[CRASH] Reason: nil");
}

} // namespace
} // namespace pw
