#pragma once

#include "platform/sim/BusLog.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>

namespace pw::ui {

// A testing aid for the simulated machine (`--bus-log FILE`): one line per finished bus
// transfer, flushed at once so another process can follow it while the app runs:
//   <wall-clock start, ms since the Unix epoch, 3 decimals> <write|read> <endpoint>
//   0x<chip> 0x<offset> <result> <bytes in hex>
// fields separated by tabs. Transfers finish on the bus queue's thread, hence the lock.
class BusRecorder {
public:
    static std::shared_ptr<BusRecorder> open(const std::filesystem::path& file);
    ~BusRecorder();

    void record(const sim::BusTransfer& transfer);

private:
    explicit BusRecorder(std::FILE* file) : file_(file) {}
    std::mutex mutex_;
    std::FILE* file_;
};

} // namespace pw::ui
