#include "platform/macos/AppleSiliconDiscovery.h"
#include "display/DisplayTestBed.h"
#include "platform/Edid.h"
#include "platform/sim/Edid.h"

namespace pw {
namespace {

using platform::LogLevel;
using platform::PropertyValue;
using test::monitorDisplay;

class Discovery : public test::DisplayTestBed {};

TEST_F(Discovery, CountsSkipsAndReadsOddRegistriesSafely) {
    auto refused = monitorDisplay(2, "Dock", 4268, 41000, 1);
    refused.location = "Dock", refused.avServiceCreateFails = true;
    auto noLocation = monitorDisplay(3, "Ten", 7789, 5000, 2);
    noLocation.proxyProperties = {{"Location", std::nullopt}};
    noLocation.edidParentDepth = 10; // the farthest a framebuffer may be
    auto eleven = monitorDisplay(4, "Eleven", 1286, 2210, 3);
    eleven.proxyProperties = {{"Location", PropertyValue{std::int64_t{7}}}};
    eleven.edidParentDepth = 11;
    auto textEdid = monitorDisplay(5, "Text", 19971, 3000, 4);
    textEdid.framebufferProperties = {{"IODisplayEDID", PropertyValue{std::string("00ff")}}};
    auto damaged = monitorDisplay(6, "Damaged", 19971, 3001, 5);
    damaged.edid = sim::buildEdid(damaged);
    damaged.edid->at(127) ^= 0xFF;
    boot(test::scenarioOf({test::builtinPanel(), refused, noLocation, eleven, textEdid, damaged}));

    const auto found = macos::findAppleSiliconTransports(
        machine->registry(), machine->avServices(), machine->platform().clock);
    ASSERT_EQ(found.size(), 4u);
    // Positions count the embedded and the refused service too.
    EXPECT_EQ(found[0].serviceLocation, 3);
    EXPECT_EQ(found[3].serviceLocation, 6);
    EXPECT_EQ(platform::Edid::parse(found[0].edid).name, "Ten");
    EXPECT_EQ(found[0].vendorID, 7789u);
    EXPECT_EQ(found[0].serialNumber, 2u);
    EXPECT_EQ(found[0].ioDisplayLocation.rfind("IOService:/", 0), 0u);
    EXPECT_TRUE(found[1].edid.empty()); // would need an 11th step
    EXPECT_TRUE(found[2].edid.empty()); // not a byte block
    EXPECT_EQ(platform::Edid::parse(found[3].edid).name, "Damaged"); // still names it,
    EXPECT_EQ(found[3].vendorID, 0u); // but is no proof of identity

    EXPECT_TRUE(systemLogHas(LogLevel::debug, "Found DCPAVServiceProxy: Location=Embedded"));
    EXPECT_TRUE(systemLogHas(LogLevel::error,
                             "IOAVServiceCreateWithService failed for proxy at location: Dock"));
    EXPECT_TRUE(systemLogHas(LogLevel::info,
                             "Created Apple Silicon transport for external display (location: )"));
    EXPECT_TRUE(systemLogHas(LogLevel::debug, "Found 4 external transport(s)"));
    EXPECT_TRUE(machine->ledger().balanced());
}

} // namespace
} // namespace pw
