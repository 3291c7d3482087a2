#include "ddc/DDCManager.h"

#include "ddc/DDCManagerFixture.h"
#include "ddc/DDCMessages.h"
#include "display/PacedTransport.h"
#include "platform/sim/BusLog.h"
#include "platform/sim/SimAVService.h"
#include "platform/sim/VirtualMonitor.h"
#include "platform/macos/AppleSiliconTransport.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace pw {
namespace {

using namespace std::chrono_literals;
using test::DDCManagerFixture;
using test::replyBytes;
using test::ScriptedTransport;
using Us = std::vector<long long>;

constexpr auto kGlobal = "com.panelwright.globalDDCQueue";

class DDCManagerTest : public ::testing::Test, protected DDCManagerFixture {
protected:
    // Issues a write and runs the main queue until its completion arrives.
    std::optional<bool> writeAndWait(const std::shared_ptr<I2CTransport>& t, VCPCode code,
                                     std::uint16_t value) {
        std::optional<bool> outcome;
        bool onMain = false;
        manager->write(t, code, value, [&](bool ok) {
            outcome = ok;
            onMain = main->isMainThread();
        });
        while (!outcome && main->waitAndRun() > 0) {
        }
        EXPECT_TRUE(onMain);
        return outcome;
    }
};

TEST_F(DDCManagerTest, AWriteThatLandsAtOnceSleepsOnceOnTheTransferQueueAndCachesTheValue) {
    auto t = std::make_shared<ScriptedTransport>();
    manager->storeInCache(*t, 0x10, {40, 200});

    EXPECT_EQ(writeAndWait(t, VCPCode::brightness, 70), true);

    ASSERT_EQ(t->writes.size(), 1u);
    EXPECT_EQ(t->writes[0], (std::vector<std::uint8_t>{0x84, 0x03, 0x10, 0x00, 0x46, 0xEE}));
    EXPECT_EQ(sleepsUs(), (Us{10000}));
    EXPECT_EQ(clock->sleeps()[0].queueLabel, kGlobal);
    // The fresh entry's maximum is kept; the monitor is not asked again.
    EXPECT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{70, 200}));
    EXPECT_TRUE(t->reads.empty());
    EXPECT_TRUE(
        systemLog->contains("DDC", platform::LogLevel::debug, "DDC write OK: Brightness = 70"));
}

TEST_F(DDCManagerTest, AWriteThatNeverLandsRunsEveryPassAndLeavesTheCacheAlone) {
    auto t = std::make_shared<ScriptedTransport>();
    t->writeDefault = false;
    manager->storeInCache(*t, 0x62, {30, 100});

    EXPECT_EQ(writeAndWait(t, VCPCode::volume, 55), false);
    EXPECT_EQ(t->writes.size(), 6u);
    EXPECT_EQ(sleepsUs(), (Us{10000, 10000, 20000, 10000, 10000, 20000, 10000, 10000}));
    for (const auto& s : clock->sleeps())
        EXPECT_EQ(s.queueLabel, kGlobal);
    EXPECT_EQ(manager->cachedValue(*t, 0x62), (DDCReadResult{30, 100}));
    EXPECT_TRUE(
        systemLog->contains("DDC", platform::LogLevel::error, "DDC write FAILED: Volume = 55"));

    // One pass: two attempts and no pause between passes.
    clock->clearSleeps();
    t->writes.clear();
    manager->setMaxRetries(1);
    EXPECT_EQ(writeAndWait(t, VCPCode::volume, 55), false);
    EXPECT_EQ(t->writes.size(), 2u);
    EXPECT_EQ(sleepsUs(), (Us{10000, 10000}));

    // Seven passes when asked for seven; success in the second attempt of pass 3 stops there.
    clock->clearSleeps();
    t->writes.clear();
    manager->setMaxRetries(7);
    t->writeOutcomes = {false, false, false, false, false, true};
    EXPECT_EQ(writeAndWait(t, VCPCode::volume, 56), true);
    EXPECT_EQ(t->writes.size(), 6u);
    EXPECT_EQ(sleepsUs(), (Us{10000, 10000, 20000, 10000, 10000, 20000, 10000, 10000}));
}

// A written value is cached under the range the monitor last reported for that code, even
// once that reading has expired; only a code never read assumes 0...100.
TEST_F(DDCManagerTest, AWriteKeepsTheLastKnownMaximumAndAssumesOneHundredOnlyWithoutOne) {
    auto t = std::make_shared<ScriptedTransport>();
    EXPECT_EQ(writeAndWait(t, VCPCode::contrast, 80), true);
    EXPECT_EQ(manager->cachedValue(*t, 0x12), (DDCReadResult{80, 100}));

    manager->storeInCache(*t, 0x10, {10, 400});
    clock->advance(6s); // stale now
    EXPECT_EQ(manager->cachedValue(*t, 0x10), std::nullopt);
    EXPECT_EQ(writeAndWait(t, VCPCode::brightness, 20), true);
    EXPECT_EQ(manager->cachedValue(*t, 0x10), (DDCReadResult{20, 400}));

    // Invalidation forgets the range along with the values.
    manager->invalidateCache(*t);
    EXPECT_EQ(writeAndWait(t, VCPCode::brightness, 30), true);
    EXPECT_EQ(manager->cachedValue(*t, 0x10), (DDCReadResult{30, 100}));
}

TEST_F(DDCManagerTest, ReadsRetryRejectedRepliesWithPausesOnlyBetweenPasses) {
    auto t = std::make_shared<ScriptedTransport>();
    auto corrupt = replyBytes(0x10, 50, 100);
    corrupt.back() ^= 0xFF;
    t->defaultReply = corrupt;

    EXPECT_EQ(manager->read(t, VCPCode::brightness), std::nullopt);
    EXPECT_EQ(t->reads.size(), 3u);
    EXPECT_EQ(t->reads[0], (std::vector<std::uint8_t>{0x82, 0x01, 0x10, 0xAC}));
    EXPECT_EQ(t->replyLengths[0], 11u);
    EXPECT_EQ(sleepsUs(), (Us{20000, 20000}));
    EXPECT_TRUE(
        systemLog->contains("DDC", platform::LogLevel::error, "DDC read FAILED: Brightness"));
    EXPECT_EQ(manager->cachedValue(*t, 0x10), std::nullopt);

    // A send failure costs a pass too; the third pass answers.
    clock->clearSleeps();
    t->reads.clear();
    t->replies = {std::nullopt, corrupt, replyBytes(0x10, 33, 90)};
    EXPECT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{33, 90}));
    EXPECT_EQ(t->reads.size(), 3u);
    EXPECT_EQ(sleepsUs(), (Us{20000, 20000}));
    EXPECT_TRUE(
        systemLog->contains("DDC", platform::LogLevel::debug, "DDC read OK: Brightness = 33/90"));

    // One pass: no pause at all.
    clock->clearSleeps();
    t->reads.clear();
    manager->setMaxRetries(1);
    EXPECT_EQ(manager->read(t, VCPCode::volume), std::nullopt);
    EXPECT_EQ(t->reads.size(), 1u);
    EXPECT_TRUE(clock->sleeps().empty());
}

TEST_F(DDCManagerTest, CachedValuesAreFreshUpToAndIncludingTheirLifetime) {
    auto t = std::make_shared<ScriptedTransport>();
    t->defaultReply = replyBytes(0x10, 40, 100);
    ASSERT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{40, 100}));

    t->defaultReply = replyBytes(0x10, 41, 100);
    clock->advance(5s); // exactly the lifetime: still fresh
    EXPECT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{40, 100}));
    EXPECT_EQ(t->reads.size(), 1u);

    clock->advance(1ns); // just past it: back to the bus
    EXPECT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{41, 100}));
    EXPECT_EQ(t->reads.size(), 2u);

    // A lifetime with no exact binary form still ends on the tick it names.
    manager->setCacheTTL(0.3);
    manager->storeInCache(*t, 0x10, {42, 100});
    clock->advance(300ms);
    EXPECT_EQ(manager->cachedValue(*t, 0x10), (DDCReadResult{42, 100}));
    clock->advance(1ns);
    EXPECT_EQ(manager->cachedValue(*t, 0x10), std::nullopt);
}

TEST_F(DDCManagerTest, EntriesBelongToEndpointsAndInvalidationDropsOnlyOne) {
    auto a = std::make_shared<ScriptedTransport>(1);
    auto sameAsA = std::make_shared<ScriptedTransport>(1);
    auto b = std::make_shared<ScriptedTransport>(2);
    manager->storeInCache(*a, 0x10, {10, 100});
    manager->storeInCache(*a, 0x62, {20, 100});
    manager->storeInCache(*b, 0x10, {30, 100});

    EXPECT_EQ(manager->cachedValue(*sameAsA, 0x10), (DDCReadResult{10, 100}));
    manager->invalidateCache(*sameAsA);
    EXPECT_EQ(manager->cachedValue(*a, 0x10), std::nullopt);
    EXPECT_EQ(manager->cachedValue(*a, 0x62), std::nullopt);
    EXPECT_EQ(manager->cachedValue(*b, 0x10), (DDCReadResult{30, 100}));

    // The next read of the invalidated endpoint goes to the bus even within the lifetime.
    a->defaultReply = replyBytes(0x10, 11, 100);
    EXPECT_EQ(manager->read(a, VCPCode::brightness), (DDCReadResult{11, 100}));
    EXPECT_EQ(a->reads.size(), 1u);
}

// Reports how often it was written to when the last holder lets go of it.
class WatchedTransport final : public I2CTransport {
public:
    explicit WatchedTransport(std::promise<int>& gone) : gone_(gone) {}
    ~WatchedTransport() override { gone_.set_value(writes_); }
    std::int64_t endpointKey() const override { return 9; }
    bool write(std::span<const std::uint8_t>) override {
        ++writes_;
        return true;
    }
    std::optional<std::vector<std::uint8_t>> read(std::span<const std::uint8_t>,
                                                  std::uint32_t) override {
        return std::nullopt;
    }

private:
    std::promise<int>& gone_;
    int writes_ = 0;
};

TEST_F(DDCManagerTest, AQueuedWriteEndsWithoutEffectWhenTheManagerIsGone) {
    std::promise<void> gate;
    std::promise<int> transportGone;
    auto writesWhenGone = transportGone.get_future();
    auto gateOpen = gate.get_future().share();
    // The last strong reference rides in a task ahead of the write, so the manager dies
    // on its own queue with the write still waiting behind it.
    manager->queue().async([keep = manager, gateOpen] { gateOpen.wait(); });
    bool called = false;
    manager->write(std::make_shared<WatchedTransport>(transportGone), VCPCode::brightness, 10,
                   [&](bool) { called = true; });
    manager.reset();
    gate.set_value();

    ASSERT_EQ(writesWhenGone.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(writesWhenGone.get(), 0);
    main->runPending();
    EXPECT_FALSE(called);
    // The write queue's worker could not join itself; it is joined here, as the Core's
    // teardown does.
    EXPECT_EQ(SerialQueue::joinOrphans(), 1u);
}

// Marks, as its thread ends, that the thread has ended.
struct EndMark {
    std::atomic<int>* ended = nullptr;
    ~EndMark() {
        if (ended) ended->fetch_add(1);
    }
};
thread_local EndMark endMark;

// The manager owns its two workers: both have ended when its destructor returns, so
// nothing of it runs on after the machine it talks to is gone.
TEST_F(DDCManagerTest, TheManagerJoinsBothOfItsWorkersWhenItGoes) {
    std::atomic<int> ended{0};
    auto mark = [&ended] { endMark.ended = &ended; };
    manager->queue().sync(mark);
    manager->globalDDCQueue().sync(mark);
    EXPECT_EQ(ended.load(), 0);
    manager.reset();
    EXPECT_EQ(ended.load(), 2);
}

TEST_F(DDCManagerTest, AWriteWithoutCompletionStillRunsInOrder) {
    auto t = std::make_shared<ScriptedTransport>();
    manager->write(t, VCPCode::mute, 1);
    // Writes run in the order issued, so a later write's completion proves the first ran.
    EXPECT_EQ(writeAndWait(t, VCPCode::mute, 2), true);
    ASSERT_EQ(t->writes.size(), 2u);
    EXPECT_EQ(t->writes[0][4], 1);
    EXPECT_EQ(t->writes[1][4], 2);
}

// Many threads reading and writing two monitors at once: the bus never carries two
// transfers at the same time, and every write lands.
TEST(DDCManagerBus, ConcurrentTrafficToTwoMonitorsNeverOverlapsOnTheBus) {
    DDCManagerFixture f;
    auto bus = std::make_shared<sim::BusLog>(*f.clock);
    auto spec = sim::MonitorSpec::withDefaultFeatures();
    auto left = std::make_shared<sim::VirtualMonitor>(spec, *f.clock);
    auto right = std::make_shared<sim::VirtualMonitor>(spec, *f.clock);
    auto leftT = std::make_shared<AppleSiliconTransport>(
        std::make_shared<sim::SimAVService>(left, bus, "left", 101), f.clock);
    auto rightT = std::make_shared<AppleSiliconTransport>(
        std::make_shared<sim::SimAVService>(right, bus, "right", 202), f.clock);

    struct Lane {
        std::shared_ptr<AppleSiliconTransport> transport;
        std::shared_ptr<sim::VirtualMonitor> monitor;
        VCPCode code;
    };
    const std::vector<Lane> lanes = {{leftT, left, VCPCode::brightness},
                                     {leftT, left, VCPCode::volume},
                                     {rightT, right, VCPCode::brightness},
                                     {rightT, right, VCPCode::contrast}};
    constexpr int kWrites = 25;
    std::atomic<int> completions{0}, failures{0}, readsOk{0};
    std::vector<std::thread> threads;
    for (const auto& lane : lanes) {
        threads.emplace_back([&, lane] {
            for (int i = 1; i <= kWrites; ++i) {
                f.manager->write(lane.transport, lane.code, static_cast<std::uint16_t>(i),
                                 [&](bool ok) {
                                     if (!ok) ++failures;
                                     ++completions;
                                 });
                f.manager->invalidateCache(*lane.transport); // force reads onto the bus
                if (f.manager->read(lane.transport, lane.code)) ++readsOk;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    while (completions < static_cast<int>(lanes.size()) * kWrites) {
        if (f.main->waitAndRun() == 0) break;
    }

    EXPECT_EQ(completions, static_cast<int>(lanes.size()) * kWrites);
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(readsOk, static_cast<int>(lanes.size()) * kWrites);
    for (const auto& lane : lanes)
        EXPECT_EQ(lane.monitor->feature(rawValue(lane.code))->current, kWrites);
    const auto transfers = bus->transfers();
    EXPECT_GT(transfers.size(), 200u);
    EXPECT_EQ(bus->overlapCount(), 0u);
    for (std::size_t i = 0; i < transfers.size(); ++i) {
        EXPECT_EQ(transfers[i].queueLabel, kGlobal);
        // A reply is fetched right after its own request: nothing slips into the 50 ms the
        // monitor takes to prepare it.
        if (transfers[i].kind != sim::BusTransfer::Kind::read) continue;
        ASSERT_GT(i, 0u);
        const auto& request = transfers[i - 1];
        EXPECT_EQ(request.kind, sim::BusTransfer::Kind::write);
        EXPECT_EQ(request.endpoint, transfers[i].endpoint);
        ASSERT_EQ(request.bytes.size(), 4u);
        EXPECT_EQ(request.bytes[0], 0x82);
        EXPECT_EQ(transfers[i].start - request.end, AppleSiliconTransport::kReplyWait);
    }
}

// Keys are recycled: a framebuffer handle or a service's hash may name another monitor
// once every transport that used it is gone. What was cached under it must not answer.
TEST_F(DDCManagerTest, AKeyReusedAfterItsTransportsAreGoneStartsEmpty) {
    auto first = std::make_shared<ScriptedTransport>(7);
    first->defaultReply = replyBytes(0x10, 40, 400);
    ASSERT_EQ(manager->read(first, VCPCode::brightness), (DDCReadResult{40, 400}));
    auto twin = std::make_shared<ScriptedTransport>(7); // same key while the first lives
    EXPECT_EQ(manager->read(twin, VCPCode::brightness), (DDCReadResult{40, 400}));
    first.reset();
    EXPECT_EQ(manager->read(twin, VCPCode::brightness), (DDCReadResult{40, 400})); // still held
    EXPECT_TRUE(twin->reads.empty());

    twin.reset(); // now nothing holds key 7: the next transport under it is another monitor
    auto next = std::make_shared<ScriptedTransport>(7);
    next->defaultReply = replyBytes(0x10, 90, 100);
    EXPECT_EQ(manager->cachedValue(*next, 0x10), std::nullopt);
    EXPECT_EQ(manager->read(next, VCPCode::brightness), (DDCReadResult{90, 100}));
    EXPECT_EQ(next->reads.size(), 1u);

    // Nor does the old range reach a write through a transport only ever seen by reference.
    auto held = std::make_shared<ScriptedTransport>(8);
    held->defaultReply = replyBytes(0x62, 5, 50);
    ASSERT_EQ(manager->read(held, VCPCode::volume), (DDCReadResult{5, 50}));
    clock->advance(6s);
    held.reset();
    const auto plain = std::make_shared<ScriptedTransport>(8);
    manager->storeWritten(*plain, 0x62, 9);
    EXPECT_EQ(manager->cachedValue(*plain, 0x62), (DDCReadResult{9, 100}));
}

// A rebuilt list keeps only its own channels, and of those only what was stored since the
// rebuild began: the same channel may now lead to another monitor.
TEST_F(DDCManagerTest, ARebuiltListDropsEveryOtherChannelAndOlderReadings) {
    auto gone = std::make_shared<ScriptedTransport>(1);
    auto kept = std::make_shared<ScriptedTransport>(2);
    manager->displayListRebuilt({gone, kept}, clock->now());
    manager->storeInCache(*gone, 0x10, {10, 100});
    manager->storeInCache(*kept, 0x10, {20, 200});
    manager->storeInCache(*kept, 0x12, {30, 100});
    clock->advance(1s);
    const auto started = clock->now();
    manager->storeInCache(*kept, 0x12, {31, 100}); // the new list's own probe
    manager->displayListRebuilt({kept}, started);

    EXPECT_EQ(manager->cachedValue(*gone, 0x10), std::nullopt);
    EXPECT_EQ(manager->cachedValue(*kept, 0x10), std::nullopt);
    EXPECT_EQ(manager->cachedValue(*kept, 0x12), (DDCReadResult{31, 100}));
    EXPECT_EQ(manager->cachedChannelCount(), 1u);
    manager->storeWritten(*kept, 0x10, 15); // the old range went with the old reading
    EXPECT_EQ(manager->cachedValue(*kept, 0x10), (DDCReadResult{15, 100}));

    // A press still in flight on the old channel may store afterwards; once its transport
    // is gone too, nothing of it is left for whatever takes the key next.
    manager->storeInCache(*gone, 0x62, {44, 100});
    gone.reset();
    auto successor = std::make_shared<ScriptedTransport>(1);
    EXPECT_EQ(manager->read(successor, VCPCode::volume), std::nullopt);
    EXPECT_EQ(successor->reads.size(), 3u);
    EXPECT_EQ(manager->cachedValue(*successor, 0x62), std::nullopt);
}

// Replies that are no answer to this question cost a pass each; only a sound one counts,
// and only that one is cached.
TEST_F(DDCManagerTest, RepliesToAnotherCodeOrFromABusyMonitorAreRetried) {
    auto t = std::make_shared<ScriptedTransport>();
    const std::vector<std::uint8_t> busy = {0x6E, 0x80, 0xBE, 0xFF, 0xFF, 0xFF,
                                            0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    t->replies = {replyBytes(0x12, 66, 100), busy, replyBytes(0x10, 40, 100)};
    EXPECT_EQ(manager->read(t, VCPCode::brightness), (DDCReadResult{40, 100}));
    EXPECT_EQ(t->reads.size(), 3u);
    EXPECT_EQ(manager->cachedValue(*t, 0x12), std::nullopt);
    EXPECT_EQ(manager->cachedValue(*t, 0x10), (DDCReadResult{40, 100}));
    EXPECT_TRUE(systemLog->contains("DDC", platform::LogLevel::info,
                                    "DDC monitor busy (null message)"));
}

// "Unsupported" is the monitor's answer: one question, remembered for the channel and
// code (across invalidation, not across a key's reuse), told apart from no answer.
TEST_F(DDCManagerTest, AnUnsupportedAnswerEndsTheReadAndIsRemembered) {
    using Outcome = FeatureReading::Outcome;
    auto t = std::make_shared<ScriptedTransport>(5);
    auto unsupported = replyBytes(0x62, 0, 0);
    unsupported[3] = 0x01;
    unsupported.back() ^= 0x01;
    t->defaultReply = unsupported;
    EXPECT_EQ(manager->readFeature(t, VCPCode::volume).outcome, Outcome::unsupported);
    EXPECT_EQ(t->reads.size(), 1u);
    EXPECT_TRUE(clock->sleeps().empty());
    manager->invalidateCache(*t);
    EXPECT_EQ(manager->read(t, VCPCode::volume), std::nullopt);
    EXPECT_TRUE(manager->saidUnsupported(*t, 0x62));
    EXPECT_EQ(t->reads.size(), 1u);

    t->defaultReply = std::nullopt; // other codes still go to the bus, and fail as before
    EXPECT_EQ(manager->readFeature(t, VCPCode::mute).outcome, Outcome::noAnswer);
    EXPECT_FALSE(manager->saidUnsupported(*t, 0x8D));
    EXPECT_EQ(t->reads.size(), 4u);

    t.reset();
    auto next = std::make_shared<ScriptedTransport>(5);
    next->defaultReply = replyBytes(0x62, 7, 100);
    EXPECT_EQ(manager->readFeature(next, VCPCode::volume),
              (FeatureReading{Outcome::value, {7, 100}}));
}

// After a Set VCP the monitor is left alone for 50 ms: the next transfer to it waits only
// for what is left, other monitors not at all, and a lone write costs nothing extra.
TEST_F(DDCManagerTest, TheNextTransferToAMonitorWaitsOutItsQuietTimeAfterAWrite) {
    auto t = std::make_shared<ScriptedTransport>(1);
    auto other = std::make_shared<ScriptedTransport>(2);
    t->defaultReply = replyBytes(0x10, 40, 100);
    other->defaultReply = replyBytes(0x10, 45, 100);
    struct Step {
        const char* what;
        std::function<void()> run;
        Us sleeps;
    };
    const std::vector<Step> steps = {
        {"a lone write", [&] { writeAndWait(t, VCPCode::brightness, 40); }, {10000}},
        {"a write after a write", [&] { writeAndWait(t, VCPCode::brightness, 41); },
         {10000, 40000}},
        {"another monitor", [&] { manager->read(other, VCPCode::brightness); }, {}},
        {"a read after a write", [&] {
             manager->invalidateCache(*t);
             manager->read(t, VCPCode::brightness);
         }, {50000}},
        {"a read after a read", [&] {
             manager->invalidateCache(*t);
             manager->read(t, VCPCode::brightness);
         }, {}},
    };
    for (const auto& step : steps) {
        clock->clearSleeps();
        step.run();
        EXPECT_EQ(sleepsUs(), step.sleeps) << step.what;
    }
    // Time spent elsewhere counts towards it.
    writeAndWait(t, VCPCode::brightness, 42);
    clock->advance(30ms);
    clock->clearSleeps();
    manager->invalidateCache(*t);
    manager->read(t, VCPCode::brightness);
    EXPECT_EQ(sleepsUs(), (Us{20000}));

    // A monitor that wants a longer delay gets it on top: write, then read 100 ms later.
    auto paced = std::make_shared<PacedTransport>(t, clock);
    clock->clearSleeps();
    writeAndWait(paced, VCPCode::brightness, 43);
    manager->invalidateCache(*t);
    manager->read(paced, VCPCode::brightness);
    EXPECT_EQ(sleepsUs(), (Us{10000, 50000, 50000, 50000}));
}

// On a monitor that loses what comes too soon after a setting, a write, a second write and
// a read-back all land, each in one transfer.
TEST(DDCManagerBus, WritesAndReadBackLandOnAMonitorThatWantsItsQuietTime) {
    DDCManagerFixture f;
    auto bus = std::make_shared<sim::BusLog>(*f.clock);
    auto monitor = std::make_shared<sim::VirtualMonitor>(sim::MonitorSpec::withDefaultFeatures(),
                                                         *f.clock);
    auto transport = std::make_shared<AppleSiliconTransport>(
        std::make_shared<sim::SimAVService>(monitor, bus, "left", 101), f.clock);
    for (std::uint16_t value : {30, 40})
        f.manager->write(transport, VCPCode::brightness, value);
    f.manager->queue().sync([] {});
    f.manager->invalidateCache(*transport);
    EXPECT_EQ(f.manager->read(transport, VCPCode::brightness), (DDCReadResult{40, 100}));
    EXPECT_EQ(monitor->requestsIgnored(), 0u);
    EXPECT_EQ(monitor->requestsAccepted(), 3u);
    const auto transfers = bus->transfers();
    ASSERT_EQ(transfers.size(), 4u);
    for (std::size_t i = 1; i < 3; ++i)
        EXPECT_GE(transfers[i].start - transfers[i - 1].end, sim::MonitorSpec{}.quietTime);
}

} // namespace
} // namespace pw
