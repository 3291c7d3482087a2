// How long a brightness key takes to reach the level indicator, on the simulated machine in
// real time: monitors answer 40 ms after a request, the transport waits 50 ms before it
// fetches a reply, and the DDC manager sleeps 10 ms before every write attempt. A press whose
// value is in the cache costs at least the write wait plus the bus write; one without it
// pays for the read first. Measured from the key (the manager's `handle`, or an event typed
// on the simulated Mac keyboard, which also crosses the tap's thread and the post to the
// main thread) to the moment the system indicator is called on the main thread. Prints the
// figures; asserts nothing.
#include "BenchMachines.h"
#include "app/Core.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "platform/posix/LoopMainQueue.h"
#include "platform/posix/SystemClock.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimOSD.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono;
constexpr int kRounds = 15;
constexpr pw::platform::DisplayID kMonitor = 2;

pw::sim::Scenario machine() {
    pw::sim::Scenario scenario;
    scenario.displays.push_back(pw::bench::builtinPanel());

    pw::sim::DisplaySpec display;
    display.id = kMonitor;
    display.vendor = 4268;
    display.model = 41000;
    display.serial = 1000;
    display.name = "Bench";
    auto monitor = pw::sim::MonitorSpec::withDefaultFeatures();
    monitor.replyDelay = milliseconds(40);
    display.monitor = monitor;
    scenario.displays.push_back(display);
    scenario.source = "bench";
    return scenario;
}

struct Bed {
    std::shared_ptr<pw::platform::SystemClock> clock =
        std::make_shared<pw::platform::SystemClock>();
    std::shared_ptr<pw::platform::LoopMainQueue> mainQueue =
        std::make_shared<pw::platform::LoopMainQueue>();
    pw::sim::SimMachine sim{machine(), clock, mainQueue};
    pw::Core core{sim.platform()};
    const std::shared_ptr<pw::DDCManager>& ddc = core.ddc();
    const std::shared_ptr<pw::DisplayManager>& displays = core.displays();
    const std::shared_ptr<pw::KeyboardManager>& keyboard = core.keyboard();

    Bed() {
        displays->enumerateDisplays();
        mainQueue->runPending();
        sim.displayServices().movePointerTo(kMonitor);
    }
    ~Bed() {
        keyboard->stop();
        keyboard->waitForPresses();
        mainQueue->runPending();
    }

    std::shared_ptr<pw::I2CTransport> transport() const {
        return displays->displays().front().transport;
    }

    // Runs the main thread until the system indicator has been called once more; the time
    // from `pressed` to that moment, in milliseconds.
    double untilIndicator(steady_clock::time_point pressed, std::size_t shownBefore) {
        while (sim.osdFramework().showImageCalls().size() == shownBefore) {
            if (mainQueue->runPending() == 0) std::this_thread::yield();
        }
        return duration<double, std::milli>(steady_clock::now() - pressed).count();
    }
};

enum class Path { handle, typed };
enum class Cache { warm, cold };

double pressOnce(Bed& bed, Path path, Cache cache, bool up) {
    // Outside the timed part: the cache as the case wants it.
    if (cache == Cache::cold)
        bed.ddc->invalidateCache(*bed.transport());
    else
        bed.ddc->read(bed.transport(), pw::VCPCode::brightness);
    const auto shown = bed.sim.osdFramework().showImageCalls().size();

    const auto pressed = steady_clock::now();
    if (path == Path::handle) {
        bed.keyboard->handle({up ? pw::MediaKey::brightnessUp : pw::MediaKey::brightnessDown});
    } else {
        // Brightness up (code 2) or down (3), key down, decided on the tap's thread and
        // posted to the main thread, which the loop below runs.
        bed.sim.eventTaps().inject(
            pw::sim::SimEventTaps::systemDefined(up ? 0x00020A00 : 0x00030A00));
    }
    const double ms = bed.untilIndicator(pressed, shown);
    bed.keyboard->waitForPresses();
    return ms;
}

void run(const char* label, Path path, Cache cache) {
    Bed bed;
    if (path == Path::typed) bed.keyboard->start();
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round)
        times.push_back(pressOnce(bed, path, cache, round % 2 == 0));
    std::sort(times.begin(), times.end());
    const double mean = std::accumulate(times.begin(), times.end(), 0.0) / kRounds;
    std::printf("%-34s median %7.2f ms  mean %7.2f  min %7.2f  max %7.2f\n", label,
                times[kRounds / 2], mean, times.front(), times.back());
}

} // namespace

int main() {
    std::printf("key press to indicator, real clock, replyDelayMs 40, %d presses each\n", kRounds);
    std::printf("floors: value cached = 10 ms write wait + bus; not cached = + 50 ms read\n");
    run("handle, value cached", Path::handle, Cache::warm);
    run("handle, value not cached", Path::handle, Cache::cold);
    run("typed key, value cached", Path::typed, Cache::warm);
    run("typed key, value not cached", Path::typed, Cache::cold);
    return 0;
}
