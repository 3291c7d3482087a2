#include "platform/macos/AppleSiliconTransport.h"

#include "ddc/DDCMessages.h"
#include "platform/sim/VirtualClock.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace pw {
namespace {

using namespace std::chrono_literals;

// Records every I2C call with the virtual time it was made at.
class RecordingAVService final : public platform::AVService {
public:
    struct Call {
        char kind;
        std::uint32_t chip, address, count;
        platform::Clock::TimePoint at;
    };
    explicit RecordingAVService(sim::VirtualClock& clock) : clock_(clock) {}

    std::int32_t writeI2C(std::uint32_t chip, std::uint32_t address, const std::uint8_t*,
                          std::uint32_t count) override {
        calls.push_back({'w', chip, address, count, clock_.now()});
        return writeResult;
    }
    std::int32_t readI2C(std::uint32_t chip, std::uint32_t address, std::uint8_t* buffer,
                         std::uint32_t size) override {
        calls.push_back({'r', chip, address, size, clock_.now()});
        for (std::uint32_t i = 0; i < size; ++i)
            EXPECT_EQ(buffer[i], 0) << "buffer not zeroed";
        if (readResult == 0)
            for (std::uint32_t i = 0; i < size; ++i)
                buffer[i] = static_cast<std::uint8_t>(i + 1);
        return readResult;
    }
    std::int64_t hash() const override { return 0x5eed; }

    std::vector<Call> calls;
    std::int32_t writeResult = 0, readResult = 0;

private:
    sim::VirtualClock& clock_;
};

TEST(AppleSiliconTransport, WritesAndReadsWithTheDisplayAddressesAndTheReplyWait) {
    auto clock = std::make_shared<sim::VirtualClock>();
    auto service = std::make_shared<RecordingAVService>(*clock);
    AppleSiliconTransport transport(service, clock);
    const auto start = clock->now();

    const auto set = ddc::makeSetVCPRequest(0x10, 50);
    EXPECT_TRUE(transport.write(set));
    ASSERT_EQ(service->calls.size(), 1u);
    EXPECT_EQ(service->calls[0].kind, 'w');
    EXPECT_EQ(service->calls[0].chip, 0x37u);
    EXPECT_EQ(service->calls[0].address, 0x51u);
    EXPECT_EQ(service->calls[0].count, 6u);
    EXPECT_TRUE(clock->sleeps().empty());

    service->calls.clear();
    const auto get = ddc::makeGetVCPRequest(0x10);
    auto reply = transport.read(get, 11);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->size(), 11u);
    EXPECT_EQ((*reply)[0], 1);
    ASSERT_EQ(service->calls.size(), 2u);
    EXPECT_EQ(service->calls[0].count, 4u);
    EXPECT_EQ(service->calls[1].kind, 'r');
    EXPECT_EQ(service->calls[1].chip, 0x37u);
    EXPECT_EQ(service->calls[1].address, 0x51u);
    EXPECT_EQ(service->calls[1].count, 11u);
    EXPECT_EQ(service->calls[1].at - service->calls[0].at, 50ms);
    EXPECT_EQ(clock->now() - start, 50ms);

    // A fetch that fails yields nothing even though the request went out.
    service->readResult = 1;
    EXPECT_FALSE(transport.read(get, 11));

    // A send that fails neither waits nor fetches.
    service->calls.clear();
    clock->clearSleeps();
    service->writeResult = static_cast<std::int32_t>(0xE00002BCu);
    EXPECT_FALSE(transport.write(set));
    EXPECT_FALSE(transport.read(get, 11));
    EXPECT_EQ(service->calls.size(), 2u);
    EXPECT_TRUE(clock->sleeps().empty());
}

TEST(AppleSiliconTransport, TheEndpointIsTheServiceAndTheServiceLivesAsLongAsTheTransport) {
    auto clock = std::make_shared<sim::VirtualClock>();
    auto service = std::make_shared<RecordingAVService>(*clock);
    std::weak_ptr<RecordingAVService> watch = service;
    {
        AppleSiliconTransport a(service, clock), b(service, clock);
        EXPECT_EQ(a.endpointKey(), b.endpointKey());
        EXPECT_EQ(a.endpointKey(), 0x5eed);
        service.reset();
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());
}

} // namespace
} // namespace pw
