#include "platform/linux/desktop/KGlobalAccelKeys.h"

#include "platform/linux/CallbackGuard.h"
#include "platform/linux/desktop/BusKeyTap.h"
#include "platform/linux/desktop/MediaKeyEvents.h"
#include "platform/linux/desktop/SessionBus.h"

#include <algorithm>
#include <cstring>
#include <systemd/sd-bus.h>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Keyboard";
constexpr const char* kService = "org.kde.kglobalaccel";
constexpr const char* kObject = "/kglobalaccel";
constexpr const char* kInterface = "org.kde.KGlobalAccel";
constexpr const char* kComponentInterface = "org.kde.kglobalaccel.Component";
constexpr const char* kComponent = "panelwright";
constexpr const char* kComponentName = "Panelwright";
// The key is marked present (we are running and want it), and the service is to use the
// key we name, not one it remembers from an earlier run.
constexpr std::uint32_t kSetPresent = 2, kNoAutoloading = 4;

struct Message {
    sd_bus_message* message = nullptr;
    ~Message() { sd_bus_message_unref(message); }
};

std::string errorText(const sd_bus_error& error, int result) {
    return error.message ? error.message : std::strerror(-result);
}

class KGlobalAccelService final : public KeyService {
public:
    explicit KGlobalAccelService(std::vector<const MediaKeySpec*> keys) : keys_(std::move(keys)) {}
    ~KGlobalAccelService() override { sd_bus_slot_unref(match_); }

    // On the caller's thread, before the tap's thread runs. False when the service does
    // not answer; refused keys are named.
    bool registerKeys(BusKeyTap& tap, std::string& whyNot) {
        tap_ = &tap;
        for (const auto* key : keys_)
            if (!call(tap.bus(), "doRegister", *key, nullptr, whyNot)) return false;

        Message reply;
        sd_bus_error error{};
        int result = sd_bus_call_method(tap.bus(), kService, kObject, kInterface, "getComponent",
                                        &error, &reply.message, "s", kComponent);
        const char* path = nullptr;
        if (result >= 0) result = sd_bus_message_read(reply.message, "o", &path);
        if (result >= 0)
            result = sd_bus_match_signal(tap.bus(), &match_, kService, path, kComponentInterface,
                                         nullptr, &KGlobalAccelService::onSignal, this);
        if (result < 0) whyNot = errorText(error, result);
        sd_bus_error_free(&error);
        if (result < 0) return false;

        const auto granted = askForKeys(tap, whyNot);
        if (!granted) return false;
        for (const auto* key : keys_)
            if (std::find(granted->begin(), granted->end(), key) == granted->end())
                tap.log().error(kCategory, keyTakenLine(*key));
        return true;
    }

    void setActive(BusKeyTap& tap, bool active) override {
        if (active) {
            std::string whyNot;
            askForKeys(tap, whyNot);
            return;
        }
        for (const auto* key : granted_)
            send(tap.bus(), "setInactive", *key);
        granted_.clear();
        tap.setHeldKeys({});
    }

    void stop(BusKeyTap& tap) override {
        // Unregistered, the actions and their keys are gone from the service: the desktop
        // has the keys again and its settings do not list a program that is not running.
        for (const auto* key : keys_) {
            sd_bus_message* message = nullptr;
            if (sd_bus_message_new_method_call(tap.bus(), &message, kService, kObject, kInterface,
                                               "unregister") >= 0 &&
                sd_bus_message_append(message, "ss", kComponent, key->keysym) >= 0 &&
                sd_bus_message_set_expect_reply(message, 0) >= 0)
                sd_bus_send(tap.bus(), message, nullptr);
            sd_bus_message_unref(message);
        }
        sd_bus_flush(tap.bus());
    }

private:
    static int appendActionId(sd_bus_message* message, const MediaKeySpec& key) {
        return sd_bus_message_append(message, "as", 4, kComponent, key.keysym, kComponentName,
                                     key.label);
    }

    // Calls `member` with the key's action id (and, for setShortcut, the key); the reply
    // goes to `reply` when given. False with `whyNot` when the service did not answer.
    static bool call(sd_bus* bus, const char* member, const MediaKeySpec& key, Message* reply,
                     std::string& whyNot) {
        Message message;
        sd_bus_error error{};
        int result = sd_bus_message_new_method_call(bus, &message.message, kService, kObject,
                                                    kInterface, member);
        if (result >= 0) result = appendActionId(message.message, key);
        if (result >= 0 && reply)
            result = sd_bus_message_append(message.message, "aiu", 1, key.shortcutCode,
                                           kSetPresent | kNoAutoloading);
        Message ignored;
        if (result >= 0)
            result = sd_bus_call(bus, message.message, 0, &error,
                                 reply ? &reply->message : &ignored.message);
        if (result < 0)
            whyNot = std::string("KDE's global shortcuts did not answer ") + member + ": " +
                     errorText(error, result);
        sd_bus_error_free(&error);
        return result >= 0;
    }

    static void send(sd_bus* bus, const char* member, const MediaKeySpec& key) {
        sd_bus_message* message = nullptr;
        if (sd_bus_message_new_method_call(bus, &message, kService, kObject, kInterface, member) >=
                0 &&
            appendActionId(message, key) >= 0 && sd_bus_message_set_expect_reply(message, 0) >= 0)
            sd_bus_send(bus, message, nullptr);
        sd_bus_message_unref(message);
    }

    // Asks for every key; the reply lists the keys the service gave us (none when another
    // component holds it).
    std::optional<std::vector<const MediaKeySpec*>> askForKeys(BusKeyTap& tap,
                                                               std::string& whyNot) {
        std::vector<const MediaKeySpec*> granted;
        for (const auto* key : keys_) {
            Message reply;
            if (!call(tap.bus(), "setShortcut", *key, &reply, whyNot)) return std::nullopt;
            if (sd_bus_message_enter_container(reply.message, 'a', "i") < 0) continue;
            std::int32_t code = 0;
            while (sd_bus_message_read(reply.message, "i", &code) > 0)
                if (code == key->shortcutCode) {
                    granted.push_back(key);
                    break;
                }
        }
        granted_ = granted;
        std::vector<std::string> held;
        for (const auto* key : granted)
            held.emplace_back(key->keysym);
        tap.setHeldKeys(std::move(held));
        return granted;
    }

    static int onSignal(sd_bus_message* message, void* self, sd_bus_error*) {
        auto* service = static_cast<KGlobalAccelService*>(self);
        return platform::guardCallback(
            "The handler of KDE's global shortcut signals", 0,
            [&] { return service->signalled(message); },
            service->tap_->log().errorsIn(kCategory));
    }

    int signalled(sd_bus_message* message) {
        auto* service = this;
        const bool press =
            sd_bus_message_is_signal(message, kComponentInterface, "globalShortcutPressed");
        const bool release =
            sd_bus_message_is_signal(message, kComponentInterface, "globalShortcutReleased");
        const char* component = nullptr;
        const char* action = nullptr;
        if ((!press && !release) || sd_bus_message_read(message, "ss", &component, &action) < 0 ||
            std::strcmp(component, kComponent) != 0)
            return 0;
        for (const auto* key : service->granted_) {
            if (std::strcmp(action, key->keysym) != 0) continue;
            press ? service->tap_->pressed(*key) : service->tap_->released(*key);
        }
        return 0;
    }

    std::vector<const MediaKeySpec*> keys_;
    std::vector<const MediaKeySpec*> granted_;
    BusKeyTap* tap_ = nullptr;
    sd_bus_slot* match_ = nullptr;
};

} // namespace

KGlobalAccelKeys::KGlobalAccelKeys(std::optional<std::string> busAddress, DesktopLog log,
                                   std::vector<std::string> keys)
    : busAddress_(std::move(busAddress)), log_(std::move(log)),
      keys_(keys.empty() ? allMediaKeyNames() : std::move(keys)) {}

KGlobalAccelKeys::~KGlobalAccelKeys() {
    stop();
}

bool KGlobalAccelKeys::available(const std::optional<std::string>& busAddress,
                                 std::string& whyNot) {
    return openServiceBus(busAddress, BusKind::session, kService, whyNot) != nullptr;
}

void KGlobalAccelKeys::want(const platform::KeyWish& wish) {
    const bool before = !delivery_->wish().keys.empty();
    delivery_->want(wish);
    if (tap_ && before != !wish.keys.empty()) tap_->enable(!wish.keys.empty());
}

std::optional<platform::KeysError> KGlobalAccelKeys::start(OnKey onKey) {
    stop();
    std::string whyNot;
    auto bus = openServiceBus(busAddress_, BusKind::session, kService, whyNot);
    if (!bus) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::refused;
    }
    const auto wanted = delivery_->wish().keys;
    std::vector<const MediaKeySpec*> keys;
    for (const auto& name : keys_)
        if (const auto* key = mediaKeyNamed(name); key && wanted.contains(key->key))
            keys.push_back(key);

    auto tap = std::make_unique<BusKeyTap>(std::move(bus), delivery_, log_);
    auto service = std::make_unique<KGlobalAccelService>(std::move(keys));
    if (!service->registerKeys(*tap, whyNot)) {
        service->stop(*tap); // what was registered before the service stopped answering
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::refused;
    }
    if (!tap->start(std::move(service), whyNot)) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::noDelivery;
    }
    delivery_->open(std::move(onKey));
    tap_ = std::move(tap);
    return std::nullopt;
}

void KGlobalAccelKeys::stop() {
    tap_.reset(); // joins the bus thread; the actions are unregistered there
    delivery_->close();
}

std::vector<std::string> KGlobalAccelKeys::heldKeys() const {
    return tap_ ? tap_->heldKeys() : std::vector<std::string>{};
}

} // namespace pw::linuxdesktop
