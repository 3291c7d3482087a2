#include "app/Core.h"

#include "base/Preferences.h"
#include "base/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "keyboard/KeyboardManager.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/MemoryUserDefaults.h"
#include "platform/sim/SimMachine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace pw {
namespace {

struct EndMark {
    std::atomic<int>* ended = nullptr;
    ~EndMark() {
        if (ended) ended->fetch_add(1);
    }
};
thread_local EndMark endMark;

// The Core makes what a program needs, lends the machine's log sink and settings store to
// every thread for exactly its lifetime, and leaves no worker behind.
TEST(Core, OwnsTheManagersTheSinksAndTheWorkersForItsLifetimeOnly) {
    struct Case {
        Core::Parts parts;
        bool keys;
    };
    for (const auto& [parts, keys] : {Case{Core::Parts::all, true},
                                      Case{Core::Parts::displaysOnly, false}}) {
        sim::SimMachine machine(sim::Scenario{});
        machine.defaults().set(Preferences::kShowOSD, platform::DefaultsValue(false));
        std::atomic<int> ended{0};
        std::weak_ptr<DDCManager> ddc;
        {
            Core core(machine.platform(), parts);
            ddc = core.ddc();
            EXPECT_EQ(core.displays()->ddcManager(), core.ddc());
            EXPECT_EQ(core.keyboard() != nullptr, keys);
            EXPECT_EQ(core.osd() != nullptr, keys);
            SystemLog::app().info("while the core lives");
            EXPECT_FALSE(Preferences::showOSD()); // the machine's store
            const auto mark = [&ended] { endMark.ended = &ended; };
            core.ddc()->queue().sync(mark);
            core.ddc()->globalDDCQueue().sync(mark);
        }
        EXPECT_TRUE(ddc.expired());
        EXPECT_EQ(ended.load(), 2); // both workers joined
        SystemLog::app().info("after the core");
        EXPECT_TRUE(Preferences::showOSD()); // no store: the default
        std::vector<std::string> ours;
        for (const auto& entry : machine.systemLog().entries())
            if (entry.category == "App") ours.push_back(entry.message);
        EXPECT_EQ(ours, std::vector<std::string>{"while the core lives"});
    }
}

} // namespace
} // namespace pw
