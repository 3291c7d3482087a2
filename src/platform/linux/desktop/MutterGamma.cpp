#include "platform/linux/desktop/MutterGamma.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Display";
constexpr const char* kService = "org.gnome.Mutter.DisplayConfig";
constexpr const char* kObject = "/org/gnome/Mutter/DisplayConfig";
constexpr const char* kInterface = "org.gnome.Mutter.DisplayConfig";

struct MessageRef {
    sd_bus_message* message = nullptr;
    ~MessageRef() { sd_bus_message_unref(message); }
};

// What GetResources says: the configuration serial and the outputs that a CRTC drives.
struct Resources {
    std::uint32_t serial = 0;
    std::vector<OutputIdentity> outputs;
    std::vector<std::uint32_t> crtcs; // per output
};

// The output's properties (a{sv}): only "edid" (ay) is taken.
int readEdid(sd_bus_message* reply, std::vector<std::uint8_t>& edid) {
    int r = sd_bus_message_enter_container(reply, 'a', "{sv}");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(reply, 'e', "sv")) > 0) {
        const char* key = nullptr;
        if ((r = sd_bus_message_read(reply, "s", &key)) < 0) return r;
        if (std::strcmp(key, "edid") == 0 && sd_bus_message_enter_container(reply, 'v', "ay") > 0) {
            const void* bytes = nullptr;
            std::size_t size = 0;
            if ((r = sd_bus_message_read_array(reply, 'y', &bytes, &size)) < 0) return r;
            const auto* first = static_cast<const std::uint8_t*>(bytes);
            edid.assign(first, first + size);
            if ((r = sd_bus_message_exit_container(reply)) < 0) return r;
        } else if ((r = sd_bus_message_skip(reply, "v")) < 0) {
            return r;
        }
        if ((r = sd_bus_message_exit_container(reply)) < 0) return r;
    }
    if (r < 0) return r;
    return sd_bus_message_exit_container(reply);
}

int readResources(sd_bus_message* reply, Resources& resources) {
    int r = sd_bus_message_read(reply, "u", &resources.serial);
    if (r < 0) return r;
    if ((r = sd_bus_message_skip(reply, "a(uxiiiiiuaua{sv})")) < 0) return r;
    if ((r = sd_bus_message_enter_container(reply, 'a', "(uxiausauaua{sv})")) < 0) return r;
    while ((r = sd_bus_message_enter_container(reply, 'r', "uxiausauaua{sv}")) > 0) {
        std::uint32_t id = 0;
        std::int64_t winsys = 0;
        std::int32_t crtc = -1;
        const char* name = nullptr;
        OutputIdentity output;
        if ((r = sd_bus_message_read(reply, "uxi", &id, &winsys, &crtc)) < 0) return r;
        if ((r = sd_bus_message_skip(reply, "au")) < 0) return r;
        if ((r = sd_bus_message_read(reply, "s", &name)) < 0) return r;
        if ((r = sd_bus_message_skip(reply, "auau")) < 0) return r;
        if ((r = readEdid(reply, output.edid)) < 0) return r;
        if ((r = sd_bus_message_exit_container(reply)) < 0) return r;
        if (crtc < 0) continue; // not lit
        output.name = name ? name : "";
        resources.outputs.push_back(std::move(output));
        resources.crtcs.push_back(static_cast<std::uint32_t>(crtc));
    }
    return r;
}

std::string busError(const sd_bus_error& error, int result) {
    return error.message ? error.message : std::strerror(-result);
}

// A call whose answer never came (timed out, or GNOME is not on the bus now), as opposed
// to GNOME's own "no".
bool unanswered(const sd_bus_error& error, int result) {
    if (result >= 0) return false;
    if (result == -ETIMEDOUT || !sd_bus_error_is_set(&error)) return true;
    for (const char* name :
         {SD_BUS_ERROR_TIMEOUT, SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_SERVICE_UNKNOWN,
          SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_DISCONNECTED, SD_BUS_ERROR_NO_SERVER})
        if (sd_bus_error_has_name(&error, name)) return true;
    return false;
}

} // namespace

std::shared_ptr<MutterGammaTables> MutterGammaTables::create(const std::optional<std::string>& busAddress,
                                                             DisplaySource source, DesktopLog log) {
    std::string whyNot;
    auto bus = openServiceBus(busAddress, BusKind::session, kService, whyNot);
    if (!bus) {
        log.info(kCategory, "Dimming through GNOME's display configuration unavailable (" +
                                whyNot + ")");
        return nullptr;
    }
    return std::shared_ptr<MutterGammaTables>(
        new MutterGammaTables(std::move(bus), std::move(source), std::move(log)));
}

MutterGammaTables::MutterGammaTables(BusConnection bus, DisplaySource source, DesktopLog log)
    : CrtcGammaTables(std::move(log), "GNOME"), bus_(std::move(bus)), source_(std::move(source)) {}

MutterGammaTables::~MutterGammaTables() {
    restoreNow();
}

std::optional<std::uint32_t> MutterGammaTables::crtcFor(platform::DisplayID display) {
    sd_bus_error error{};
    MessageRef reply;
    int r = sd_bus_call_method(bus_.get(), kService, kObject, kInterface, "GetResources", &error,
                               &reply.message, "");
    Resources resources;
    if (r >= 0) r = readResources(reply.message, resources);
    // Without its answer nothing is known about the display: not "no such display".
    unanswered_ = r < 0;
    if (r < 0) {
        log().error(kCategory, "GNOME's display configuration did not answer: " + busError(error, r));
        sd_bus_error_free(&error);
        return std::nullopt;
    }
    sd_bus_error_free(&error);
    serial_ = resources.serial;
    const auto paired = pairOutputs(resources.outputs, source_);
    for (std::size_t i = 0; i < paired.size(); ++i)
        if (paired[i] == display) return resources.crtcs[i];
    // A display the program has that GNOME shows on no CRTC (virtual monitors have none,
    // and a monitor whose EDID GNOME does not give cannot be told): said once.
    const auto ours = source_.displays ? source_.displays() : std::vector<platform::DisplayID>{};
    if (std::find(ours.begin(), ours.end(), display) != ours.end() &&
        unpairedNoted_.insert(display).second)
        log().error(kCategory,
                    "Display " + std::to_string(display) + " cannot be dimmed: GNOME's display "
                    "configuration shows it on no CRTC of its own (" +
                    std::to_string(resources.outputs.size()) +
                    " lit output(s) with a CRTC, none with its EDID; virtual monitors have none)");
    return std::nullopt;
}

std::optional<CrtcRamp> MutterGammaTables::readCrtc(std::uint32_t crtc) {
    sd_bus_error error{};
    MessageRef reply;
    int r = sd_bus_call_method(bus_.get(), kService, kObject, kInterface, "GetCrtcGamma", &error,
                               &reply.message, "uu", serial_, crtc);
    unanswered_ = unanswered(error, r);
    CrtcRamp ramp;
    std::vector<std::uint16_t>* channels[] = {&ramp.red, &ramp.green, &ramp.blue};
    for (auto* channel : channels) {
        if (r < 0) break;
        const void* samples = nullptr;
        std::size_t bytes = 0;
        r = sd_bus_message_read_array(reply.message, 'q', &samples, &bytes);
        if (r >= 0) {
            const auto* first = static_cast<const std::uint16_t*>(samples);
            channel->assign(first, first + bytes / sizeof(std::uint16_t));
        }
    }
    sd_bus_error_free(&error);
    if (r < 0 || ramp.size() == 0 || ramp.green.size() != ramp.size() ||
        ramp.blue.size() != ramp.size())
        return std::nullopt;
    return ramp;
}

bool MutterGammaTables::writeCrtc(std::uint32_t crtc, const CrtcRamp& ramp) {
    MessageRef call;
    int r = sd_bus_message_new_method_call(bus_.get(), &call.message, kService, kObject, kInterface,
                                           "SetCrtcGamma");
    if (r >= 0) r = sd_bus_message_append(call.message, "uu", serial_, crtc);
    for (const auto* channel : {&ramp.red, &ramp.green, &ramp.blue})
        if (r >= 0)
            r = sd_bus_message_append_array(call.message, 'q', channel->data(),
                                            channel->size() * sizeof(std::uint16_t));
    sd_bus_error error{};
    MessageRef reply;
    if (r >= 0) {
        r = sd_bus_call(bus_.get(), call.message, 0, &error, &reply.message);
        unanswered_ = unanswered(error, r);
    } else {
        unanswered_ = false; // the call could not even be made: nothing to wait for
    }
    sd_bus_error_free(&error);
    return r >= 0;
}

bool MutterGammaTables::beforeRestore() {
    MessageRef reply;
    sd_bus_error error{};
    std::uint32_t serial = 0;
    int r = sd_bus_call_method(bus_.get(), kService, kObject, kInterface, "GetResources", &error,
                               &reply.message, "");
    unanswered_ = unanswered(error, r);
    sd_bus_error_free(&error);
    if (r >= 0 && sd_bus_message_read(reply.message, "u", &serial) >= 0) serial_ = serial;
    return !unanswered_;
}

} // namespace pw::linuxdesktop
