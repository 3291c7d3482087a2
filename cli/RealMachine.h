#pragma once

#include "platform/Platform.h"

#include <functional>
#include <memory>
#include <string>

// The command line on the machine it runs on (Linux: DRM and i2c-dev).
namespace pw::cli {

struct RealMachineOptions {
    bool forceSlaveAddress = false;
    // Called with one line per bus transfer when --trace is on.
    std::function<void(const std::string&)> trace;
    std::shared_ptr<platform::MainQueue> mainQueue;
};

// The installed machine's platform. Its sysfs and /dev are found below the folder in
// PANELWRIGHT_ROOT when that is set (the test suite and the benchmark run the real
// system-call layer against a tree of their own), else below "/".
platform::Platform makeRealMachine(const RealMachineOptions& options);

} // namespace pw::cli
