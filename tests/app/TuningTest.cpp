#include "app/Tuning.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "common/TestSupport.h"
#include "ddc/DDCManager.h"
#include "keyboard/KeyboardManager.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/VirtualClock.h"

#include <gtest/gtest.h>
#include <memory>

namespace pw {
namespace {

using platform::DefaultsValue;

class Tuning : public ::testing::Test {
protected:
    Tuning() { ::setenv("TZ", "UTC", 1); }

    std::shared_ptr<sim::VirtualClock> clock = std::make_shared<sim::VirtualClock>();
    std::shared_ptr<sim::ManualMainQueue> mainQueue = std::make_shared<sim::ManualMainQueue>(*clock);
    DDCManager ddc{clock, mainQueue};
    std::shared_ptr<KeyboardManager> keyboard =
        std::make_shared<KeyboardManager>(platform::Platform{}, nullptr, nullptr, nullptr);
    sim::MemoryUserDefaults store;
};

TEST_F(Tuning, AnEmptyStoreOrValuesBelowTheirFloorLeaveEveryDefault) {
    const auto passes = ddc.maxRetries();
    const auto ttl = ddc.cacheTTL();
    auto expectDefaults = [&] {
        applyTuningPreferences(store, ddc, keyboard.get());
        EXPECT_EQ(ddc.maxRetries(), passes);
        EXPECT_EQ(ddc.cacheTTL(), ttl);
        EXPECT_EQ(keyboard->brightnessStep(), KeyboardManager::kDefaultStep);
        EXPECT_EQ(keyboard->volumeStep(), KeyboardManager::kDefaultStep);
    };
    expectDefaults();
    for (const DefaultsValue& low :
         {DefaultsValue(std::int64_t{0}), DefaultsValue(std::int64_t{-4}), DefaultsValue(0.9),
          DefaultsValue(std::string("many")), DefaultsValue(false)}) {
        store.set(Preferences::kDDCRetryCount, low);
        store.set(Preferences::kDDCCacheTTL, std::holds_alternative<double>(low) ? -0.5 : 0.0);
        store.set(Preferences::kBrightnessStepPercent, low);
        store.set(Preferences::kVolumeStepPercent, low);
        expectDefaults();
    }
}

TEST_F(Tuning, StoredValuesApplyAndOnlyThePassCountIsCapped) {
    store.set(Preferences::kDDCRetryCount, std::int64_t{7});
    store.set(Preferences::kDDCCacheTTL, 0.25);
    store.set(Preferences::kBrightnessStepPercent, std::string("10")); // typed by hand
    store.set(Preferences::kVolumeStepPercent, std::int64_t{250});     // no upper limit
    applyTuningPreferences(store, ddc, keyboard.get());
    EXPECT_EQ(ddc.maxRetries(), 7);
    EXPECT_EQ(ddc.cacheTTL(), 0.25);
    EXPECT_EQ(keyboard->brightnessStep(), 0.1f);
    EXPECT_EQ(keyboard->volumeStep(), 2.5f);

    store.set(Preferences::kDDCRetryCount, std::int64_t{kMaxDDCPasses});
    applyTuningPreferences(store, ddc, nullptr);
    EXPECT_EQ(ddc.maxRetries(), kMaxDDCPasses);

    // A pass count meant as "keep trying" would hold the bus for hours on a dead monitor.
    test::TempDir dir;
    sim::SimHostFacts host{sim::Flavor::appleSilicon, dir / "log"};
    DiagnosticLog::resetForTesting();
    DiagnosticLog::start(dir / "log", host, *clock);
    store.set(Preferences::kDDCRetryCount, std::int64_t{100000});
    applyTuningPreferences(store, ddc, nullptr);
    DiagnosticLog::resetForTesting();
    EXPECT_EQ(ddc.maxRetries(), kMaxDDCPasses);
    EXPECT_EQ(test::readFile(dir / "log"),
              "[2025-03-01 14:05:09.000] [App] ddcRetryCount 100000 is above 10; using 10 "
              "passes\n");
}

} // namespace
} // namespace pw
