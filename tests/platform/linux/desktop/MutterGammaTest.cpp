#include "platform/linux/desktop/MutterGamma.h"

#include "platform/linux/desktop/GammaChoice.h"

#include "DesktopTestSupport.h"
#include "common/TestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

namespace pw::linuxdesktop {
namespace {

constexpr std::size_t kRampSize = 1024;

using test::fakeEdid;

// GNOME's display configuration service, answering on a thread of its own: two lit
// outputs (DP-1 on CRTC 0, HDMI-1 on CRTC 1) and one dark one, ramps of 1024 samples.
class FakeMutter {
public:
    explicit FakeMutter(const std::string& address) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        started_ = sd_bus_start(bus_) >= 0 &&
                   sd_bus_request_name(bus_, "org.gnome.Mutter.DisplayConfig", 0) >= 0;
        std::vector<std::uint16_t> identity(kRampSize);
        for (std::size_t i = 0; i < kRampSize; ++i)
            identity[i] = static_cast<std::uint16_t>(i * 65535 / (kRampSize - 1));
        ramps_[0] = ramps_[1] = identity;
        sd_bus_add_filter(bus_, nullptr, &FakeMutter::onMessage, this);
        thread_ = std::thread([this] {
            while (!stop_) {
                if (sd_bus_process(bus_, nullptr) > 0) continue;
                sd_bus_wait(bus_, 50000);
            }
        });
    }
    ~FakeMutter() {
        stop_ = true;
        thread_.join();
        sd_bus_flush_close_unref(bus_);
    }
    bool started() const { return started_; }
    std::vector<std::uint16_t> red(std::uint32_t crtc) {
        std::lock_guard lock(mutex_);
        return ramps_[crtc];
    }
    void reconfigure() {
        std::lock_guard lock(mutex_);
        ++serial_;
    }
    // Every output dark, as where GNOME's only monitors are virtual: no CRTC to pair.
    void noCrtcs() {
        std::lock_guard lock(mutex_);
        lit_ = false;
    }
    // Calls of `member` get no answer (a compositor that hangs); "" answers all again.
    void ignore(std::string member) {
        std::lock_guard lock(mutex_);
        ignored_ = std::move(member);
    }

private:
    static int onMessage(sd_bus_message* m, void* self, sd_bus_error*) {
        return static_cast<FakeMutter*>(self)->handle(m);
    }
    int handle(sd_bus_message* m) {
        if (sd_bus_message_is_method_call(m, "org.gnome.Mutter.DisplayConfig", nullptr) <= 0)
            return 0;
        std::lock_guard lock(mutex_);
        sd_bus_message* reply = nullptr;
        const std::string member = sd_bus_message_get_member(m);
        if (member == ignored_) return 1;
        if (member == "GetResources") {
            sd_bus_message_new_method_return(m, &reply);
            sd_bus_message_append(reply, "u", serial_);
            sd_bus_message_append(reply, "a(uxiiiiiuaua{sv})", 0);
            sd_bus_message_open_container(reply, 'a', "(uxiausauaua{sv})");
            output(reply, 0, "DP-1", lit_ ? 0 : -1, fakeEdid(1));
            output(reply, 1, "HDMI-1", lit_ ? 1 : -1, fakeEdid(2));
            output(reply, 2, "DP-2", -1, fakeEdid(3));
            sd_bus_message_close_container(reply);
            sd_bus_message_append(reply, "a(uxuudu)ii", 0, 8192, 8192);
        } else {
            std::uint32_t serial = 0, crtc = 0;
            sd_bus_message_read(m, "uu", &serial, &crtc);
            if (serial != serial_ || crtc > 1)
                return sd_bus_reply_method_errorf(m, "org.freedesktop.DBus.Error.AccessDenied",
                                                  "stale serial or no such CRTC");
            sd_bus_message_new_method_return(m, &reply);
            if (member == "GetCrtcGamma") {
                for (int channel = 0; channel < 3; ++channel)
                    sd_bus_message_append_array(reply, 'q', ramps_[crtc].data(), kRampSize * 2);
            } else if (member == "SetCrtcGamma") {
                const void* samples = nullptr;
                std::size_t bytes = 0;
                sd_bus_message_read_array(m, 'q', &samples, &bytes);
                const auto* first = static_cast<const std::uint16_t*>(samples);
                ramps_[crtc].assign(first, first + bytes / 2);
            }
        }
        sd_bus_send(bus_, reply, nullptr);
        sd_bus_message_unref(reply);
        return 1;
    }
    static void output(sd_bus_message* reply, std::uint32_t id, const char* name, std::int32_t crtc,
                       const std::vector<std::uint8_t>& edidBytes) {
        sd_bus_message_open_container(reply, 'r', "uxiausauaua{sv}");
        sd_bus_message_append(reply, "uxi", id, std::int64_t{id} + 60, crtc);
        sd_bus_message_append(reply, "au", 0);
        sd_bus_message_append(reply, "s", name);
        sd_bus_message_append(reply, "auau", 0, 0);
        sd_bus_message_open_container(reply, 'a', "{sv}");
        sd_bus_message_append(reply, "{sv}", "display-name", "s", "Some Monitor");
        sd_bus_message_open_container(reply, 'e', "sv");
        sd_bus_message_append(reply, "s", "edid");
        sd_bus_message_open_container(reply, 'v', "ay");
        sd_bus_message_append_array(reply, 'y', edidBytes.data(), edidBytes.size());
        sd_bus_message_close_container(reply);
        sd_bus_message_close_container(reply);
        sd_bus_message_append(reply, "{sv}", "primary", "b", 0);
        sd_bus_message_close_container(reply);
        sd_bus_message_close_container(reply);
    }

    sd_bus* bus_ = nullptr;
    bool started_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::uint32_t serial_ = 7;
    bool lit_ = true;
    std::string ignored_;
    std::map<std::uint32_t, std::vector<std::uint16_t>> ramps_;
};

DisplaySource twoMonitors() {
    return DisplaySource{
        [] { return std::vector<platform::DisplayID>{10, 20}; },
        [](platform::DisplayID id) -> std::optional<std::vector<std::uint8_t>> {
            return fakeEdid(id == 10 ? 2 : 1);
        },
        nullptr};
}

// A private session bus with GNOME's service on it, a journal in a fresh directory and a
// log to read back; `create` opens the tables the way the tray does.
class MutterGammaTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus = test::PrivateBus::start();
        if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
        mutter = std::make_unique<FakeMutter>(bus->address());
        ASSERT_TRUE(mutter->started());
    }
    std::shared_ptr<MutterGammaTables> create(bool journalled = false) {
        auto tables = MutterGammaTables::create(bus->address(), twoMonitors(), DesktopLog{log});
        if (tables && journalled) tables->keepJournal(journal, "gnome", twoMonitors());
        return tables;
    }
    std::size_t recorded() {
        std::string whyNot;
        return journal->read(whyNot).size();
    }
    bool dim(MutterGammaTables& tables, const std::vector<float>& ramp, platform::DisplayID id = 10) {
        return tables.apply(id, platform::GammaRamp{ramp, ramp, ramp});
    }

    std::optional<test::PrivateBus> bus;
    std::unique_ptr<FakeMutter> mutter;
    test::TempDir dir;
    std::shared_ptr<GammaJournal> journal = std::make_shared<GammaJournal>(dir / "dimmed-gamma");
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
    const std::vector<float> half = std::vector<float>(256, 0.5f);
};

TEST_F(MutterGammaTest, DimsTheCrtcOfTheDisplayWithTheSameEdidAndGivesItBack) {
    auto tables = create();
    ASSERT_TRUE(tables);

    const auto ramp = tables->read(10);
    ASSERT_TRUE(ramp);
    ASSERT_EQ(ramp->size(), 1024u); // the CRTC's own length
    EXPECT_FLOAT_EQ(ramp->red[0], 0.0f);
    EXPECT_FLOAT_EQ(ramp->blue[1023], 1.0f);
    EXPECT_NEAR(ramp->green[512], 512.0f / 1023, 1e-3);

    auto r = ramp->red;
    for (auto& sample : r)
        sample *= 0.5f;
    ASSERT_TRUE(dim(*tables, r));
    EXPECT_NEAR(mutter->red(1)[kRampSize - 1], 32768, 1); // HDMI-1 carries display 10
    EXPECT_EQ(mutter->red(0)[kRampSize - 1], 65535);

    // A monitor arranged meanwhile gives a new serial; restoring still finds its CRTC.
    mutter->reconfigure();
    tables->restoreAll();
    EXPECT_EQ(mutter->red(1)[kRampSize - 1], 65535);
    EXPECT_EQ(mutter->red(1)[512], 512 * 65535 / (kRampSize - 1));

    EXPECT_FALSE(dim(*tables, r, 30));
    EXPECT_TRUE(log->messages("Display").empty());
}

TEST_F(MutterGammaTest, ADisplayOnNoCrtcIsSaidOnce) {
    mutter->noCrtcs();
    auto tables = create();
    ASSERT_TRUE(tables);
    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_FALSE(dim(*tables, half));
    EXPECT_EQ(log->messages("Display"),
              std::vector<std::string>{
                  "Display 10 cannot be dimmed: GNOME's display configuration shows it on no "
                  "CRTC of its own (0 lit output(s) with a CRTC, none with its EDID; virtual "
                  "monitors have none)"});
}

// A GNOME that does not answer has not lost the display: the kept ramp and its record
// stay until a restore is confirmed, so the next restore (or start) can still repair.
TEST_F(MutterGammaTest, AnUnansweredCallKeepsWhatWasNotGivenBack) {
    auto tables = create(true);
    ASSERT_TRUE(tables);
    ASSERT_TRUE(dim(*tables, half));
    ASSERT_EQ(recorded(), 1u);

    mutter->ignore("GetResources");
    EXPECT_FALSE(dim(*tables, half)); // a timeout, not "no such display"
    tables->restoreAll();
    mutter->ignore("SetCrtcGamma");
    tables->restoreAll();
    EXPECT_EQ(recorded(), 1u);
    EXPECT_EQ(mutter->red(1)[kRampSize - 1], 32768);

    mutter->ignore("");
    tables->restoreAll();
    EXPECT_EQ(mutter->red(1)[kRampSize - 1], 65535);
    EXPECT_EQ(recorded(), 0u);
    EXPECT_FALSE(tables->holdsOriginal(10));
    auto lines = log->messages("Display");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].rfind("GNOME's display configuration did not answer: ", 0), 0u) << lines[0];
    const std::string kept = ": the ramp is kept, with its record, to give back at the next "
                             "restore or the next start";
    EXPECT_EQ(lines[1], "GNOME did not answer when the gamma ramps were to be given back" + kept);
    EXPECT_EQ(lines[2], "GNOME did not confirm giving back the gamma ramp of CRTC 1" + kept);
}

// A run ends while GNOME does not answer; the next one starts while it still does not.
// The record outlives both, and a dim meanwhile does not take the dimmed ramp for the
// original: the first confirmed restore gives the real one back.
TEST_F(MutterGammaTest, ARecordNotRepairedAtStartStillRepairsLater) {
    std::vector<float> halfHeight(256); // the identity ramp at half its height
    for (std::size_t i = 0; i < halfHeight.size(); ++i)
        halfHeight[i] = 0.5f * static_cast<float>(i) / 255;
    {
        auto first = create(true);
        ASSERT_TRUE(first);
        ASSERT_TRUE(dim(*first, halfHeight));
        mutter->ignore("SetCrtcGamma");
    }
    auto next = create(true);
    ASSERT_TRUE(next);
    EXPECT_EQ(recorded(), 1u);
    EXPECT_EQ(log->messages("Display").back(),
              "GNOME did not confirm giving back the gamma ramp of display 10 left dimmed last "
              "time: the record of the displays left dimmed is kept for the next start");

    mutter->ignore("");
    ASSERT_TRUE(dim(*next, halfHeight));
    next->restoreAll();
    EXPECT_EQ(mutter->red(1)[kRampSize - 1], 65535);
    EXPECT_EQ(recorded(), 0u);
}

TEST_F(MutterGammaTest, ChosenFirstWhereverGnomeAnswersEvenOnWayland) {
    const auto tables = chooseGamma(SessionFacts{"wayland", true, std::nullopt}, bus->address(),
                                    twoMonitors(), DesktopLog{log});
    EXPECT_TRUE(std::dynamic_pointer_cast<MutterGammaTables>(tables));
    EXPECT_EQ(log->messages("Display"),
              std::vector<std::string>{"Dimming through GNOME's display configuration"});
}

TEST(MutterGamma, NoMutterIsOneLineAndNoTables) {
    auto bus = test::PrivateBus::start();
    if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    auto log = std::make_shared<sim::MemorySystemLog>();
    EXPECT_FALSE(MutterGammaTables::create(bus->address(), twoMonitors(), DesktopLog{log}));
    EXPECT_EQ(log->messages("Display"),
              std::vector<std::string>{"Dimming through GNOME's display configuration unavailable "
                                       "(org.gnome.Mutter.DisplayConfig is not on the session bus)"});
}

} // namespace
} // namespace pw::linuxdesktop
