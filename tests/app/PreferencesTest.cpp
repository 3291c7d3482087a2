#include "base/Preferences.h"

#include "common/TestSupport.h"
#include "platform/sim/MemoryUserDefaults.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

namespace pw {
namespace {

using platform::DefaultsValue;
using Preferences::StartupAction;

constexpr std::string_view kOffice = "Office 27+1234+5678@2";

TEST(Preferences, EmptyStoreGivesEveryDefault) {
    sim::MemoryUserDefaults store;
    EXPECT_EQ(Preferences::startupAction(store), StartupAction::doNothing);
    EXPECT_TRUE(Preferences::showOSD(store));
    EXPECT_FALSE(Preferences::forceSoftwareBrightness(store, kOffice));
    EXPECT_FALSE(Preferences::longerDelay(store, kOffice));
    EXPECT_EQ(Preferences::friendlyName(store, kOffice), std::nullopt);
    EXPECT_EQ(Preferences::integer(store, Preferences::kDDCRetryCount), 0);
    EXPECT_EQ(Preferences::doubleValue(store, Preferences::kDDCCacheTTL), 0.0);
    EXPECT_FALSE(Preferences::boolean(store, Preferences::kLaunchAtLogin));
    EXPECT_TRUE(store.keys().empty());
}

TEST(Preferences, PlainAccessorsUseTheInstalledStoreAndFallBackToDefaultsWithoutOne) {
    {
        test::ScopedPlatform none{platform::Platform{}};
        Preferences::setFriendlyName(std::string("Desk"), kOffice); // no store: no effect
        Preferences::setForceSoftwareBrightness(true, kOffice);
        EXPECT_EQ(Preferences::friendlyName(kOffice), std::nullopt);
        EXPECT_TRUE(Preferences::showOSD());
        EXPECT_EQ(Preferences::startupAction(), StartupAction::doNothing);
        EXPECT_FALSE(Preferences::longerDelay(kOffice));
    }
    auto store = std::make_shared<sim::MemoryUserDefaults>();
    platform::Platform p;
    p.defaults = store;
    test::ScopedPlatform installed{p};
    Preferences::setFriendlyName(std::string("Desk"), kOffice);
    Preferences::setForceSoftwareBrightness(true, kOffice);
    Preferences::setLongerDelay(true, kOffice);
    store->set(Preferences::kStartupAction, DefaultsValue(std::int64_t{1}));
    store->set(Preferences::kShowOSD, DefaultsValue(false));
    EXPECT_EQ(Preferences::friendlyName(*store, kOffice), "Desk");
    EXPECT_TRUE(Preferences::forceSoftwareBrightness(kOffice));
    EXPECT_TRUE(Preferences::longerDelay(kOffice));
    EXPECT_EQ(Preferences::startupAction(), StartupAction::restoreLast);
    EXPECT_FALSE(Preferences::showOSD());
}

TEST(Preferences, StartupActionReadsOutOfRangeValuesAsReadFromDisplay) {
    sim::MemoryUserDefaults store;
    auto read = [&](DefaultsValue v) {
        store.set(Preferences::kStartupAction, v);
        return Preferences::startupAction(store);
    };
    EXPECT_EQ(read(std::int64_t{0}), StartupAction::doNothing);
    EXPECT_EQ(read(std::int64_t{1}), StartupAction::restoreLast);
    EXPECT_EQ(read(std::int64_t{2}), StartupAction::readFromDisplay);
    EXPECT_EQ(read(std::int64_t{5}), StartupAction::readFromDisplay);
    EXPECT_EQ(read(std::int64_t{-1}), StartupAction::readFromDisplay);
    EXPECT_EQ(read(std::numeric_limits<std::int64_t>::min()), StartupAction::readFromDisplay);
    // The integer is read with the store's conversions, so hand-written forms work too.
    EXPECT_EQ(read(std::string("1")), StartupAction::restoreLast);
    EXPECT_EQ(read(1.9), StartupAction::restoreLast);
    EXPECT_EQ(read(std::string("later")), StartupAction::doNothing);

    EXPECT_EQ(Preferences::startupActionFromRaw(2), StartupAction::readFromDisplay);
    EXPECT_EQ(Preferences::startupActionFromRaw(3), std::nullopt);
    EXPECT_EQ(Preferences::startupActionFromRaw(-1), std::nullopt);
    EXPECT_EQ(Preferences::label(StartupAction::doNothing), "Do nothing");
    EXPECT_EQ(Preferences::label(StartupAction::restoreLast), "Restore last values");
    EXPECT_EQ(Preferences::label(StartupAction::readFromDisplay), "Read from displays");
}

TEST(Preferences, ShowOSDHonoursOnlyABoolean) {
    sim::MemoryUserDefaults store;
    store.set(Preferences::kShowOSD, std::string("false"));
    EXPECT_TRUE(Preferences::showOSD(store));
    store.set(Preferences::kShowOSD, std::int64_t{0});
    EXPECT_TRUE(Preferences::showOSD(store));
    store.set(Preferences::kShowOSD, false);
    EXPECT_FALSE(Preferences::showOSD(store));
    store.set(Preferences::kShowOSD, true);
    EXPECT_TRUE(Preferences::showOSD(store));
}

TEST(Preferences, FriendlyNameIsRemovedByEmptyOrNothingAndIgnoresOtherKinds) {
    sim::MemoryUserDefaults store;
    const std::string key = "display.Office 27+1234+5678@2.friendlyName";
    Preferences::setFriendlyName(store, std::string("Left desk"), kOffice);
    EXPECT_EQ(Preferences::friendlyName(store, kOffice), "Left desk");
    Preferences::setFriendlyName(store, std::string(), kOffice);
    EXPECT_EQ(store.object(key), std::nullopt);
    EXPECT_EQ(Preferences::friendlyName(store, kOffice), std::nullopt);

    Preferences::setFriendlyName(store, std::string("Again"), kOffice);
    Preferences::setFriendlyName(store, std::nullopt, kOffice);
    EXPECT_EQ(store.object(key), std::nullopt);

    store.set(key, std::int64_t{7});
    EXPECT_EQ(Preferences::friendlyName(store, kOffice), std::nullopt);
    store.set(key, std::string());
    EXPECT_EQ(Preferences::friendlyName(store, kOffice), std::nullopt);
}

TEST(Preferences, PerDisplayKeysKeepNamesVerbatimAndSeparateDisplayNumbers) {
    EXPECT_EQ(Preferences::displayKey("A+B@C 1+2+3@4", "longerDelay"),
              "display.A+B@C 1+2+3@4.longerDelay");
    EXPECT_EQ(Preferences::displayKey("+0+0@5", "friendlyName"), "display.+0+0@5.friendlyName");

    // Same model and name, different display numbers: settings must not bleed across.
    sim::MemoryUserDefaults store;
    const std::string first = "Dell U2720Q+4268+41234@1";
    const std::string second = "Dell U2720Q+4268+41234@2";
    Preferences::setForceSoftwareBrightness(store, true, first);
    Preferences::setFriendlyName(store, std::string("Left"), first);
    Preferences::setFriendlyName(store, std::string("Right"), second);
    Preferences::setLongerDelay(store, true, second);
    EXPECT_TRUE(Preferences::forceSoftwareBrightness(store, first));
    EXPECT_FALSE(Preferences::forceSoftwareBrightness(store, second));
    EXPECT_FALSE(Preferences::longerDelay(store, first));
    EXPECT_TRUE(Preferences::longerDelay(store, second));
    EXPECT_EQ(Preferences::friendlyName(store, first), "Left");
    EXPECT_EQ(Preferences::friendlyName(store, second), "Right");
}

TEST(Preferences, IntegerReaderConvertsOtherKinds) {
    sim::MemoryUserDefaults store;
    auto integer = [&](DefaultsValue v) {
        store.set("k", v);
        return Preferences::integer(store, "k");
    };
    EXPECT_EQ(integer(true), 1);
    EXPECT_EQ(integer(false), 0);
    EXPECT_EQ(integer(3.9), 3);
    EXPECT_EQ(integer(-3.9), -3);
    EXPECT_EQ(integer(1e300), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(integer(-1e300), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(integer(std::nan("")), 0);
    EXPECT_EQ(integer(std::string(" 42\n")), 42);
    EXPECT_EQ(integer(std::string("+7")), 7);
    EXPECT_EQ(integer(std::string("-3.7")), -3);
    EXPECT_EQ(integer(std::string("2e3")), 2000);
    // Beyond 2^53: parsed exactly, not through a double.
    EXPECT_EQ(integer(std::string("9007199254740993")), 9007199254740993);
    EXPECT_EQ(integer(std::string("99999999999999999999")),
              std::numeric_limits<std::int64_t>::max());
    for (const char* text : {"", "12abc", "YES", "nan", "inf", "0x10", "+-1", "--1"})
        EXPECT_EQ(integer(std::string(text)), 0) << text;
}

TEST(Preferences, DoubleAndBooleanReadersConvertOtherKinds) {
    sim::MemoryUserDefaults store;
    auto number = [&](DefaultsValue v) {
        store.set("k", v);
        return Preferences::doubleValue(store, "k");
    };
    EXPECT_EQ(number(std::int64_t{5}), 5.0);
    EXPECT_EQ(number(true), 1.0);
    EXPECT_EQ(number(std::string(" 2.5 ")), 2.5);
    EXPECT_EQ(number(std::string("2.5s")), 0.0);
    EXPECT_EQ(number(std::string("infinity")), 0.0);

    auto boolean = [&](DefaultsValue v) {
        store.set("k", v);
        return Preferences::boolean(store, "k");
    };
    EXPECT_TRUE(boolean(std::int64_t{2}));
    EXPECT_TRUE(boolean(std::int64_t{-1}));
    EXPECT_FALSE(boolean(std::int64_t{0}));
    EXPECT_TRUE(boolean(0.5));
    EXPECT_FALSE(boolean(0.0));
    EXPECT_FALSE(boolean(std::nan("")));
    for (const char* text : {"YES", "yes", "True", "1", " 2 ", "0.5"})
        EXPECT_TRUE(boolean(std::string(text))) << text;
    for (const char* text : {"NO", "false", "0", "0.0", "", "y", "on"})
        EXPECT_FALSE(boolean(std::string(text))) << text;

    // Per-display Booleans follow the same rules: a hand-written 1 switches the option on.
    store.set(Preferences::displayKey(kOffice, Preferences::kLongerDelay), std::int64_t{1});
    EXPECT_TRUE(Preferences::longerDelay(store, kOffice));
}

} // namespace
} // namespace pw
