// The stable per-display key and the stored last values, against a plain store.
#include "base/Preferences.h"
#include "platform/sim/MemoryUserDefaults.h"

#include <gtest/gtest.h>

namespace pw::Preferences {
namespace {

using Outcome = DisplayKeyLookup::Outcome;

TEST(DisplayKey, OnlyTheSameNameVendorAndProductUnderAnotherNumberIsMoved) {
    sim::MemoryUserDefaults store;
    // A name with the key's own separators in it; and neighbours that share a prefix.
    setFriendlyName(store, std::string("Mine"), "A+B@C+1+2@7");
    setFriendlyName(store, std::string("Prefix"), "A+B@C 2+1+2@8");
    setFriendlyName(store, std::string("Other product"), "A+B@C+1+3@9");
    store.set("display.A+B@C+1+2@x.friendlyName", "not a number");
    store.set("display.A+B@C+1+2@6.somethingElse", true);

    const auto lookup = adoptDisplayOptions(store, "A+B@C+1+2@4", {4});
    EXPECT_EQ(lookup.outcome, Outcome::migrated);
    EXPECT_EQ(lookup.movedFrom, "A+B@C+1+2@7");
    EXPECT_EQ(friendlyName(store, "A+B@C+1+2@4"), "Mine");
    EXPECT_FALSE(store.object("display.A+B@C+1+2@7.friendlyName"));
    EXPECT_EQ(friendlyName(store, "A+B@C 2+1+2@8"), "Prefix");
    EXPECT_EQ(friendlyName(store, "A+B@C+1+3@9"), "Other product");
    EXPECT_TRUE(store.object("display.A+B@C+1+2@6.somethingElse")); // not an option of ours

    // Done once: the display now has its own options, and they are not moved again.
    EXPECT_EQ(adoptDisplayOptions(store, "A+B@C+1+2@4", {4}).outcome, Outcome::current);
}

TEST(DisplayKey, OptionsOfSeveralNumbersOrOfAConnectedTwinStayWhereTheyAre) {
    sim::MemoryUserDefaults store;
    setLongerDelay(store, true, "Twin+1+2@2");
    setLastValue(store, "Twin+1+2@3", kLastVolume, 20);

    auto lookup = adoptDisplayOptions(store, "Twin+1+2@5", {5});
    EXPECT_EQ(lookup.outcome, Outcome::ambiguous);
    EXPECT_EQ(lookup.candidates.size(), 2u);
    EXPECT_FALSE(longerDelay(store, "Twin+1+2@5"));

    // With the twin at 3 connected, only 2 is a candidate.
    lookup = adoptDisplayOptions(store, "Twin+1+2@5", {3, 5});
    EXPECT_EQ(lookup.outcome, Outcome::migrated);
    EXPECT_TRUE(longerDelay(store, "Twin+1+2@5"));
    EXPECT_EQ(lastValue(store, "Twin+1+2@3", kLastVolume), 20);
}

TEST(DisplayKey, OnlyAStoredSixteenBitIntegerIsALastValue) {
    sim::MemoryUserDefaults store;
    setLastValue(store, "M+1+2@3", kLastBrightness, 65535);
    EXPECT_EQ(lastValue(store, "M+1+2@3", kLastBrightness), 65535);
    for (const auto& bad : {platform::DefaultsValue(std::int64_t{65536}),
                            platform::DefaultsValue(std::int64_t{-1}),
                            platform::DefaultsValue(std::string("40")),
                            platform::DefaultsValue(40.0), platform::DefaultsValue(true)}) {
        store.set(displayKey("M+1+2@3", kLastVolume), bad);
        EXPECT_FALSE(lastValue(store, "M+1+2@3", kLastVolume));
    }
}

} // namespace
} // namespace pw::Preferences
