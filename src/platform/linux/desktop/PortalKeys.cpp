#include "platform/linux/desktop/PortalKeys.h"

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
constexpr const char* kService = "org.freedesktop.portal.Desktop";
constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
constexpr const char* kSessionInterface = "org.freedesktop.portal.Session";

// Nothing, and why in words, when the portal does not offer global shortcuts.
bool offersGlobalShortcuts(sd_bus* bus, std::string& whyNot) {
    sd_bus_error error{};
    std::uint32_t version = 0;
    const int result = sd_bus_get_property_trivial(bus, kService, kObject, kInterface, "version",
                                                   &error, 'u', &version);
    if (result < 0)
        whyNot = std::string("the desktop portal offers no global shortcuts (") +
                 (error.message ? error.message : std::strerror(-result)) + ")";
    sd_bus_error_free(&error);
    return result >= 0;
}

// Reads an a{sv} of a portal response, handing each key to `entry` with the message at
// the variant's contents; `entry` reads them or leaves them to be skipped.
template <typename Entry> int readResults(sd_bus_message* message, Entry entry) {
    int result = sd_bus_message_enter_container(message, 'a', "{sv}");
    while (result >= 0 && (result = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        const char* key = nullptr;
        result = sd_bus_message_read(message, "s", &key);
        if (result < 0) break;
        const char* contents = nullptr;
        result = sd_bus_message_peek_type(message, nullptr, &contents);
        if (result < 0) break;
        result = sd_bus_message_enter_container(message, 'v', contents);
        if (result < 0) break;
        if (!entry(std::string_view(key), std::string_view(contents)))
            sd_bus_message_skip(message, contents);
        sd_bus_message_exit_container(message); // v
        sd_bus_message_exit_container(message); // e
    }
    return result;
}

class PortalService final : public KeyService {
public:
    explicit PortalService(std::vector<const MediaKeySpec*> keys) : keys_(std::move(keys)) {}
    ~PortalService() override {
        sd_bus_slot_unref(responses_);
        sd_bus_slot_unref(activations_);
        sd_bus_slot_unref(call_);
    }

    // On the caller's thread, before the tap's thread runs: the session is asked for, and
    // its answer read on the tap's thread.
    bool begin(BusKeyTap& tap, std::string& whyNot) {
        tap_ = &tap;
        const char* unique = nullptr;
        int result = sd_bus_get_unique_name(tap.bus(), &unique);
        if (result >= 0) {
            // Request and session objects are named after our connection: ":1.42" -> "1_42".
            sender_ = unique + 1;
            std::replace(sender_.begin(), sender_.end(), '.', '_');
            result =
                sd_bus_match_signal(tap.bus(), &responses_, kService, nullptr, kRequestInterface,
                                    "Response", &PortalService::onResponse, this);
        }
        if (result >= 0)
            result = sd_bus_match_signal(tap.bus(), &activations_, kService, kObject, kInterface,
                                         nullptr, &PortalService::onActivation, this);
        if (result < 0) {
            whyNot = std::string("the bus refused to pass on the desktop portal's answers: ") +
                     std::strerror(-result);
            return false;
        }
        createSession();
        return true;
    }

    void setActive(BusKeyTap&, bool active) override { active ? createSession() : closeSession(); }
    void stop(BusKeyTap&) override {
        closeSession();
        sd_bus_flush(tap_->bus());
    }

private:
    enum class Step { idle, creating, binding, bound };

    std::string objectPath(const char* kind, const std::string& token) const {
        return std::string(kObject) + "/" + kind + "/" + sender_ + "/" + token;
    }
    std::string nextToken() { return "panelwright" + std::to_string(++tokens_); }

    void createSession() {
        closeSession();
        const auto requestToken = nextToken(), sessionToken = nextToken();
        request_ = objectPath("request", requestToken);
        session_ = objectPath("session", sessionToken);
        step_ = Step::creating;
        sd_bus_message* message = nullptr;
        int result = sd_bus_message_new_method_call(tap_->bus(), &message, kService, kObject,
                                                    kInterface, "CreateSession");
        if (result >= 0)
            result = sd_bus_message_append(message, "a{sv}", 2, "handle_token", "s",
                                           requestToken.c_str(), "session_handle_token", "s",
                                           sessionToken.c_str());
        send(message, result, "CreateSession");
    }

    void bindShortcuts() {
        const auto requestToken = nextToken();
        request_ = objectPath("request", requestToken);
        step_ = Step::binding;
        sd_bus_message* message = nullptr;
        int result = sd_bus_message_new_method_call(tap_->bus(), &message, kService, kObject,
                                                    kInterface, "BindShortcuts");
        if (result >= 0) result = sd_bus_message_append(message, "o", session_.c_str());
        if (result >= 0) result = sd_bus_message_open_container(message, 'a', "(sa{sv})");
        for (const auto* key : keys_)
            if (result >= 0)
                result =
                    sd_bus_message_append(message, "(sa{sv})", key->keysym, 2, "description", "s",
                                          key->label, "preferred_trigger", "s", key->keysym);
        if (result >= 0) result = sd_bus_message_close_container(message);
        if (result >= 0)
            result = sd_bus_message_append(message, "sa{sv}", "", 1, "handle_token", "s",
                                           requestToken.c_str());
        send(message, result, "BindShortcuts");
    }

    // Sends a portal call; its answer comes later as the request's Response. A call the
    // portal does not take (an error, no reply within the bus timeout) is a refusal.
    void send(sd_bus_message* message, int result, const char* member) {
        sd_bus_slot_unref(call_);
        call_ = nullptr;
        if (result >= 0)
            result = sd_bus_call_async(tap_->bus(), &call_, message, &PortalService::onCallReply,
                                       this, 0);
        sd_bus_message_unref(message);
        if (result < 0)
            refuse(std::string("the desktop portal could not be asked (") + member + ": " +
                   std::strerror(-result) + ")");
    }

    void refuse(const std::string& why) {
        tap_->log().error(kCategory, "Media keys unavailable: " + why);
        closeSession();
    }

    void closeSession() {
        if (step_ == Step::idle) return;
        step_ = Step::idle;
        request_.clear();
        call_ = sd_bus_slot_unref(call_); // an answer still on its way is of no interest
        sd_bus_message* message = nullptr;
        // No reply wanted: nothing waits on a portal that may be gone.
        if (sd_bus_message_new_method_call(tap_->bus(), &message, kService, session_.c_str(),
                                           kSessionInterface, "Close") >= 0 &&
            sd_bus_message_set_expect_reply(message, 0) >= 0)
            sd_bus_send(tap_->bus(), message, nullptr);
        sd_bus_message_unref(message);
        session_.clear();
        tap_->setHeldKeys({});
    }

    // The portal's answers, on the tap's thread.
    static int onCallReply(sd_bus_message* reply, void* self, sd_bus_error*) {
        return static_cast<PortalService*>(self)->guarded("The desktop portal's reply handler",
                                                          &PortalService::replied, reply);
    }
    static int onResponse(sd_bus_message* message, void* self, sd_bus_error*) {
        return static_cast<PortalService*>(self)->guarded("The desktop portal's response handler",
                                                          &PortalService::responded, message);
    }
    static int onActivation(sd_bus_message* message, void* self, sd_bus_error*) {
        return static_cast<PortalService*>(self)->guarded("The desktop portal's shortcut handler",
                                                          &PortalService::activated, message);
    }

    int guarded(std::string_view name, int (PortalService::*handler)(sd_bus_message*),
                sd_bus_message* message) {
        return platform::guardCallback(
            name, 0, [&] { return (this->*handler)(message); }, tap_->log().errorsIn(kCategory));
    }

    int replied(sd_bus_message* reply) {
        auto* service = this;
        const sd_bus_error* error = sd_bus_message_get_error(reply);
        if (error) {
            service->refuse(std::string("the desktop portal did not take the request (") +
                            (error->message ? error->message : error->name) + ")");
            return 0;
        }
        // Portals before version 0.9 name the request object themselves.
        const char* path = nullptr;
        if (sd_bus_message_read(reply, "o", &path) >= 0 && service->step_ != Step::idle)
            service->request_ = path;
        return 0;
    }

    int responded(sd_bus_message* message) {
        auto* service = this;
        if (service->step_ == Step::idle || service->request_ != sd_bus_message_get_path(message))
            return 0;
        std::uint32_t code = 0;
        if (sd_bus_message_read(message, "u", &code) < 0) return 0;
        if (code != 0) {
            service->refuse(code == 1 ? "the desktop's global shortcuts were not allowed"
                                      : "the desktop portal refused the global shortcuts");
            return 0;
        }
        service->request_.clear();
        if (service->step_ == Step::creating) {
            readResults(message, [&](std::string_view key, std::string_view type) {
                const char* handle = nullptr;
                if (key != "session_handle" || (type != "s" && type != "o") ||
                    sd_bus_message_read_basic(message, type[0], &handle) < 0)
                    return false;
                service->session_ = handle;
                return true;
            });
            service->bindShortcuts();
        } else if (service->step_ == Step::binding) {
            service->bound(message);
        }
        return 0;
    }

    void bound(sd_bus_message* message) {
        std::vector<std::string> held;
        readResults(message, [&](std::string_view key, std::string_view type) {
            if (key != "shortcuts" || type != "a(sa{sv})") return false;
            if (sd_bus_message_enter_container(message, 'a', "(sa{sv})") < 0) return false;
            while (sd_bus_message_enter_container(message, 'r', "sa{sv}") > 0) {
                const char* id = nullptr;
                if (sd_bus_message_read(message, "s", &id) >= 0 && mediaKeyNamed(id))
                    held.emplace_back(id);
                sd_bus_message_skip(message, "a{sv}");
                sd_bus_message_exit_container(message);
            }
            sd_bus_message_exit_container(message);
            return true;
        });
        step_ = Step::bound;
        std::string names;
        for (const auto& id : held)
            names += (names.empty() ? "" : ", ") + std::string(mediaKeyNamed(id)->label);
        tap_->setHeldKeys(std::move(held));
        tap_->log().info(kCategory, names.empty()
                                        ? "The desktop portal bound none of the media keys"
                                        : "Media keys bound through the desktop portal: " + names);
    }

    int activated(sd_bus_message* message) {
        auto* service = this;
        const bool press = sd_bus_message_is_signal(message, kInterface, "Activated");
        const bool release = sd_bus_message_is_signal(message, kInterface, "Deactivated");
        const char* session = nullptr;
        const char* id = nullptr;
        if ((!press && !release) || service->step_ != Step::bound ||
            sd_bus_message_read(message, "os", &session, &id) < 0 || service->session_ != session)
            return 0;
        const auto held = service->tap_->heldKeys();
        if (std::find(held.begin(), held.end(), id) == held.end()) return 0;
        const auto* key = mediaKeyNamed(id);
        press ? service->tap_->pressed(*key) : service->tap_->released(*key);
        return 0;
    }

    std::vector<const MediaKeySpec*> keys_;
    BusKeyTap* tap_ = nullptr;
    std::string sender_;
    int tokens_ = 0;
    Step step_ = Step::idle;
    std::string request_; // the request whose Response is awaited
    std::string session_;
    sd_bus_slot* responses_ = nullptr;
    sd_bus_slot* activations_ = nullptr;
    sd_bus_slot* call_ = nullptr;
};

} // namespace

PortalKeys::PortalKeys(std::optional<std::string> busAddress, DesktopLog log)
    : busAddress_(std::move(busAddress)), log_(std::move(log)) {}

PortalKeys::~PortalKeys() {
    stop();
}

bool PortalKeys::available(const std::optional<std::string>& busAddress, std::string& whyNot) {
    auto bus = openBus(busAddress, BusKind::session, whyNot);
    return bus && offersGlobalShortcuts(bus.get(), whyNot);
}

void PortalKeys::want(const platform::KeyWish& wish) {
    const bool before = !delivery_->wish().keys.empty();
    delivery_->want(wish);
    if (tap_ && before != !wish.keys.empty()) tap_->enable(!wish.keys.empty());
}

std::optional<platform::KeysError> PortalKeys::start(OnKey onKey) {
    stop();
    std::string whyNot;
    auto bus = openBus(busAddress_, BusKind::session, whyNot);
    if (!bus || !offersGlobalShortcuts(bus.get(), whyNot)) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::refused;
    }
    const auto wanted = delivery_->wish().keys;
    std::vector<const MediaKeySpec*> keys;
    for (const auto& key : mediaKeySpecs())
        if (wanted.contains(key.key)) keys.push_back(&key);

    auto tap = std::make_unique<BusKeyTap>(std::move(bus), delivery_, log_);
    auto service = std::make_unique<PortalService>(std::move(keys));
    if (!service->begin(*tap, whyNot) || !tap->start(std::move(service), whyNot)) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::refused;
    }
    delivery_->open(std::move(onKey));
    tap_ = std::move(tap);
    return std::nullopt;
}

void PortalKeys::stop() {
    tap_.reset(); // joins the bus thread; the session is closed there
    delivery_->close();
}

std::vector<std::string> PortalKeys::heldKeys() const {
    return tap_ ? tap_->heldKeys() : std::vector<std::string>{};
}

} // namespace pw::linuxdesktop
