// How long one display enumeration blocks the main thread, on the simulated machine in
// real time: monitors answer 40 ms after a request, as typical hardware does, and each
// probe is one brightness read with the DDC manager's pacing and retries. A monitor that
// never answers costs every retry. Prints the figures; asserts nothing.
#include "BenchMachines.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "platform/posix/LoopMainQueue.h"
#include "platform/posix/SystemClock.h"
#include "platform/sim/SimMachine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono;

// `dead` monitors either never acknowledge (silent) or acknowledge and only ever answer
// with the null message, which costs every pass its full reply wait.
enum class Death { silent, nullReply };

pw::sim::Scenario machine(int healthy, int dead, Death death) {
    pw::sim::Scenario scenario;
    scenario.displays.push_back(pw::bench::builtinPanel());
    for (int i = 0; i < healthy + dead; ++i) {
        pw::sim::DisplaySpec display;
        display.id = static_cast<pw::platform::DisplayID>(i + 2);
        display.vendor = 4268;
        display.model = 41000;
        display.serial = static_cast<std::uint32_t>(1000 + i); // twins told apart by serial
        display.name = "Bench " + std::to_string(i + 1);
        auto monitor = pw::sim::MonitorSpec::withDefaultFeatures();
        monitor.replyDelay = milliseconds(40);
        if (i >= healthy && death == Death::silent) monitor.faults.silent.always = true;
        if (i >= healthy && death == Death::nullReply) monitor.faults.nullReply.always = true;
        display.monitor = monitor;
        scenario.displays.push_back(display);
    }
    scenario.source = "bench";
    return scenario;
}

// One enumeration on a fresh DDC manager (empty cache), timed until the list is published.
double enumerateOnce(int healthy, int dead, Death death, std::size_t& listed) {
    auto clock = std::make_shared<pw::platform::SystemClock>();
    auto mainQueue = std::make_shared<pw::platform::LoopMainQueue>();
    pw::sim::SimMachine sim(machine(healthy, dead, death), clock, mainQueue);
    auto ddc = std::make_shared<pw::DDCManager>(clock, mainQueue);
    auto manager = std::make_shared<pw::DisplayManager>(sim.platform(), ddc);

    const auto start = steady_clock::now();
    manager->enumerateDisplays();
    mainQueue->runPending();
    const auto elapsed = duration<double, std::milli>(steady_clock::now() - start).count();
    listed = manager->displays().size();
    return elapsed;
}

void run(const char* label, int healthy, int dead, Death death = Death::silent) {
    constexpr int kRounds = 3;
    std::vector<double> times;
    std::size_t listed = 0;
    for (int round = 0; round < kRounds; ++round)
        times.push_back(enumerateOnce(healthy, dead, death, listed));
    std::sort(times.begin(), times.end());
    const double median = times[kRounds / 2];
    const int monitors = healthy + dead;
    std::printf("%-28s monitors=%d listed=%zu  median %8.1f ms  per display %7.1f ms  "
                "(min %.1f, max %.1f)\n",
                label, monitors, listed, median, median / monitors, times.front(), times.back());
}

} // namespace

int main() {
    std::printf("enumerateDisplays, real clock, replyDelayMs 40, %d rounds each\n", 3);
    run("1 healthy", 1, 0);
    run("4 healthy", 4, 0);
    run("8 healthy", 8, 0);
    run("1 silent", 0, 1);
    run("1 null replies", 0, 1, Death::nullReply);
    run("3 healthy + 1 silent", 3, 1);
    run("3 healthy + 1 null replies", 3, 1, Death::nullReply);
    return 0;
}
