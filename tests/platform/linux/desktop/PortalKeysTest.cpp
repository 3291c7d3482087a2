#include "platform/linux/desktop/PortalKeys.h"

#include "DesktopTestSupport.h"
#include "FakeBusService.h"
#include "KeyTapTestSupport.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <mutex>
#include <systemd/sd-bus.h>

namespace pw::linuxdesktop {
namespace {


constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";

// The string option `name` of an a{sv} the call is at.
std::string option(sd_bus_message* call, const char* name) {
    std::string found;
    sd_bus_message_enter_container(call, 'a', "{sv}");
    while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
        const char* key = nullptr;
        const char* value = nullptr;
        sd_bus_message_read(call, "s", &key);
        if (std::string_view(key) == name && sd_bus_message_read(call, "v", "s", &value) >= 0)
            found = value;
        else
            sd_bus_message_skip(call, "v");
        sd_bus_message_exit_container(call);
    }
    sd_bus_message_exit_container(call);
    return found;
}

std::string objectPath(sd_bus_message* call, const char* kind, const std::string& token) {
    std::string sender = sd_bus_message_get_sender(call) + 1;
    std::replace(sender.begin(), sender.end(), '.', '_');
    return std::string(kObject) + "/" + kind + "/" + sender + "/" + token;
}

// The desktop portal's global shortcuts as far as the source uses them. Binding answers
// `bindResponse` (0 granted, 1 the user said no); before it answers, an activation of the
// first shortcut is sent, which a source not bound yet must not take.
struct FakePortal {
    std::uint32_t bindResponse = 0;
    std::mutex mutex;
    std::string session; // the last one made
    std::unique_ptr<test::FakeBusService> service;

    std::string currentSession() {
        std::lock_guard lock(mutex);
        return session;
    }

    bool start(const std::string& address) {
        using Answer = test::FakeBusService::Answer;
        std::map<std::string, Answer> answers;
        answers["Get"] = [](sd_bus*, sd_bus_message* call) {
            const char* interface = nullptr;
            sd_bus_message_read(call, "s", &interface);
            if (std::string_view(interface) == kInterface)
                sd_bus_reply_method_return(call, "v", "u", 1u);
            else
                sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_PROPERTY, "no such property");
        };
        answers["CreateSession"] = [this](sd_bus* bus, sd_bus_message* call) {
            const auto request = objectPath(call, "request", option(call, "handle_token"));
            sd_bus_message_rewind(call, 1);
            const auto made = objectPath(call, "session", option(call, "session_handle_token"));
            {
                std::lock_guard lock(mutex);
                session = made;
            }
            sd_bus_reply_method_return(call, "o", request.c_str());
            sd_bus_emit_signal(bus, request.c_str(), "org.freedesktop.portal.Request", "Response",
                               "ua{sv}", 0u, 1, "session_handle", "s", made.c_str());
        };
        answers["BindShortcuts"] = [this](sd_bus* bus, sd_bus_message* call) {
            sd_bus_message_skip(call, "oa(sa{sv})s");
            const auto request = objectPath(call, "request", option(call, "handle_token"));
            sd_bus_reply_method_return(call, "o", request.c_str());
            sd_bus_emit_signal(bus, kObject, kInterface, "Activated", "osta{sv}",
                               currentSession().c_str(), "XF86MonBrightnessUp", std::uint64_t{1},
                               0);
            if (bindResponse != 0) {
                sd_bus_emit_signal(bus, request.c_str(), "org.freedesktop.portal.Request",
                                   "Response", "ua{sv}", bindResponse, 0);
                return;
            }
            // The portal lists the shortcuts it bound: all but mute, here.
            sd_bus_emit_signal(bus, request.c_str(), "org.freedesktop.portal.Request", "Response",
                               "ua{sv}", 0u, 1, "shortcuts", "a(sa{sv})", 4, "XF86MonBrightnessUp",
                               0, "XF86MonBrightnessDown", 0, "XF86AudioRaiseVolume", 0,
                               "XF86AudioLowerVolume", 0);
        };
        service = test::FakeBusService::start(address, "org.freedesktop.portal.Desktop",
                                              std::move(answers));
        return service != nullptr;
    }

    void emit(const char* member, const char* id, const std::string& fromSession) {
        service->onBus([&](sd_bus* bus) {
            sd_bus_emit_signal(bus, kObject, kInterface, member, "osta{sv}", fromSession.c_str(),
                               id, std::uint64_t{2}, 0);
        });
    }
};

class PortalKeysTest : public test::KeyTapOnBus {
protected:
    void SetUp() override {
        KeyTapOnBus::SetUp();
        if (bus) keys = std::make_unique<PortalKeys>(bus->address(), DesktopLog{log});
    }

    void TearDown() override { keys.reset(); }
    std::unique_ptr<PortalKeys> keys;
};

TEST_F(PortalKeysTest, BindsTheKeysAsTheirOwnTriggersAndTurnsActivationsIntoPresses) {
    FakePortal portal;
    ASSERT_TRUE(portal.start(bus->address()));
    ASSERT_TRUE(test::startKeys(*keys, recorder));
    const auto lines = log->waitForLine(
        "Keyboard", "Media keys bound through the desktop portal: Brightness Up, Brightness Down, "
                    "Volume Up, Volume Down");
    EXPECT_EQ(lines.size(), 1u);
    const auto bound = portal.service->calls("BindShortcuts");
    ASSERT_EQ(bound.size(), 1u);
    EXPECT_NE(
        bound[0].arguments.find(
            R"(("XF86AudioMute", [{"description", "Mute"}, {"preferred_trigger", "XF86AudioMute"}]))"),
        std::string::npos)
        << bound[0].arguments;
    EXPECT_EQ(keys->heldKeys().size(), 4u);

    // Another session's activation and a shortcut the portal did not bind are not ours.
    portal.emit("Activated", "XF86MonBrightnessUp", "/org/freedesktop/portal/desktop/session/x/y");
    const auto session = portal.currentSession();
    portal.emit("Activated", "XF86AudioMute", session);
    portal.emit("Activated", "XF86MonBrightnessDown", session);
    portal.emit("Deactivated", "XF86MonBrightnessDown", session);
    portal.emit("Activated", "XF86MonBrightnessDown", session);
    portal.emit("Activated", "XF86MonBrightnessDown", session);
    portal.emit("Deactivated", "XF86MonBrightnessDown", session);
    // The first press is followed by a release at once (the portal's releases are not
    // known to come yet); afterwards releases come from the portal.
    using test::keyEvent;
    const auto down = MediaKey::brightnessDown;
    EXPECT_EQ(recorder.waitFor(5),
              (std::vector<platform::MediaKeyEvent>{keyEvent(down, true), keyEvent(down, false),
                                                    keyEvent(down, true),
                                                    keyEvent(down, true, true),
                                                    keyEvent(down, false)}));

    // Wanting no keys, or stopped, the session is closed and the keys are the desktop's again.
    keys->want({{}, platform::KeyPressMode::keyDownAndUp, true});
    EXPECT_EQ(portal.service->waitForCalls("Close", 1).at(0).path, session);
    keys->want({test::kFiveKeys, platform::KeyPressMode::keyDownAndUp, true});
    EXPECT_EQ(portal.service->waitForCalls("BindShortcuts", 2).size(), 2u);
    const auto second = portal.currentSession();
    EXPECT_NE(second, session);
    keys->stop();
    EXPECT_EQ(portal.service->waitForCalls("Close", 2).at(1).path, second);
}

TEST_F(PortalKeysTest, RefusalIsOneLineAndNothingIsDelivered) {
    FakePortal portal;
    portal.bindResponse = 1;
    ASSERT_TRUE(portal.start(bus->address()));
    ASSERT_TRUE(test::startKeys(*keys, recorder));
    const auto lines = log->waitForLine(
        "Keyboard", "Media keys unavailable: the desktop's global shortcuts were not allowed");
    EXPECT_EQ(lines.size(), 1u);
    portal.service->waitForCalls("Close", 1);
    // The activation the portal sent before it answered came before the refusal.
    EXPECT_TRUE(recorder.waitFor(0).empty());
    EXPECT_TRUE(keys->heldKeys().empty());
}

TEST_F(PortalKeysTest, NoPortalIsOneLineAndAnError) {
    // A portal without global shortcuts, and no portal at all.
    auto other = test::FakeBusService::start(
        bus->address(), "org.freedesktop.portal.Desktop",
        {{"Get", [](sd_bus*, sd_bus_message* call) {
              sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_INTERFACE, "none");
          }}});
    ASSERT_TRUE(other);
    EXPECT_FALSE(test::startKeys(*keys, recorder));
    other.reset();
    EXPECT_FALSE(test::startKeys(*keys, recorder));
    const auto lines = log->messages("Keyboard");
    ASSERT_EQ(lines.size(), 2u);
    for (const auto& line : lines)
        EXPECT_EQ(line.rfind(
                      "Media keys unavailable: the desktop portal offers no global shortcuts (", 0),
                  0u)
            << line;
}

} // namespace
} // namespace pw::linuxdesktop
