#include "platform/linux/desktop/WlrGamma.h"

#include "platform/linux/CallbackGuard.h"
#include "wlr-gamma-control-unstable-v1-client-protocol.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Display";
constexpr std::uint32_t kOutputVersion = 4; // the first to tell the output's name

using Clock = std::chrono::steady_clock;

int milliseconds(Clock::duration left) {
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::max<std::int64_t>(ms, 0));
}

// Sends what is queued, waiting at most until `deadline` for room in the socket.
bool flush(wl_display* display, Clock::time_point deadline) {
    while (wl_display_flush(display) < 0) {
        if (errno != EAGAIN) return false;
        pollfd fd{wl_display_get_fd(display), POLLOUT, 0};
        if (poll(&fd, 1, milliseconds(deadline - Clock::now())) <= 0) return false;
    }
    return true;
}

CrtcRamp identityRamp(std::uint32_t size) {
    CrtcRamp ramp;
    ramp.red.resize(size);
    for (std::uint32_t i = 0; i < size; ++i)
        ramp.red[i] = size < 2 ? std::uint16_t{65535}
                               : static_cast<std::uint16_t>((std::uint64_t{i} * 65535 + (size - 1) / 2) /
                                                            (size - 1));
    ramp.green = ramp.blue = ramp.red;
    return ramp;
}

// The compositor reads the table from the start of a file: 16-bit samples, red, green, blue.
bool writeTable(int fd, const CrtcRamp& ramp) {
    std::vector<std::uint16_t> table;
    table.reserve(ramp.size() * 3);
    for (const auto* channel : {&ramp.red, &ramp.green, &ramp.blue})
        table.insert(table.end(), channel->begin(), channel->end());
    const auto* bytes = reinterpret_cast<const char*>(table.data());
    const std::size_t total = table.size() * sizeof(std::uint16_t);
    for (std::size_t done = 0; done < total;) {
        const auto n = pwrite(fd, bytes + done, total - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

void onSyncDone(void* data, wl_callback* callback, std::uint32_t) {
    *static_cast<bool*>(data) = true;
    wl_callback_destroy(callback);
}
const wl_callback_listener kSyncListener{onSyncDone};

using Output = WlrGammaTables::Output;

void onGeometry(void*, wl_output*, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                std::int32_t, const char*, const char*, std::int32_t) {}
void onMode(void*, wl_output*, std::uint32_t, std::int32_t, std::int32_t, std::int32_t) {}
void onDone(void*, wl_output*) {}
void onScale(void*, wl_output*, std::int32_t) {}
void onName(void* data, wl_output*, const char* name) {
    platform::guardCallback(
        "The Wayland output's name event",
        [&] { static_cast<Output*>(data)->name = name ? name : ""; },
        DesktopLog{}.errorsIn(kCategory));
}
void onDescription(void*, wl_output*, const char*) {}
const wl_output_listener kOutputListener{onGeometry, onMode,  onDone,
                                         onScale,    onName, onDescription};

void onGammaSize(void* data, zwlr_gamma_control_v1*, std::uint32_t size) {
    static_cast<Output*>(data)->size = size;
}
void onFailed(void* data, zwlr_gamma_control_v1*) {
    static_cast<Output*>(data)->failed = true;
}
const zwlr_gamma_control_v1_listener kControlListener{onGammaSize, onFailed};

// Frees a proxy on our side only: nothing is sent to the compositor.
template <typename Proxy>
void forget(Proxy*& proxy) {
    if (proxy) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(proxy));
    proxy = nullptr;
}

} // namespace

struct WlrGammaTables::Globals {
    static void added(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                      std::uint32_t version) {
        auto* self = static_cast<WlrGammaTables*>(data);
        platform::guardCallback(
            "The Wayland registry's new-global event",
            [&] { add(self, registry, name, interface, version); }, self->log_.errorsIn(kCategory));
    }
    static void removed(void* data, wl_registry*, std::uint32_t name) {
        auto* self = static_cast<WlrGammaTables*>(data);
        platform::guardCallback(
            "The Wayland registry's global-removed event", [&] { remove(self, name); },
            self->log_.errorsIn(kCategory));
    }

    static void add(WlrGammaTables* self, wl_registry* registry, std::uint32_t name,
                    const char* interface, std::uint32_t version) {
        if (std::strcmp(interface, wl_output_interface.name) == 0) {
            auto output = std::make_unique<Output>();
            output->global = name;
            output->proxy = static_cast<wl_output*>(wl_registry_bind(
                registry, name, &wl_output_interface, std::min(version, kOutputVersion)));
            wl_output_add_listener(output->proxy, &kOutputListener, output.get());
            self->outputs_.push_back(std::move(output));
            self->outputsAdded_ = true;
        } else if (std::strcmp(interface, zwlr_gamma_control_manager_v1_interface.name) == 0 &&
                   !self->manager_) {
            self->manager_ = static_cast<zwlr_gamma_control_manager_v1*>(
                wl_registry_bind(registry, name, &zwlr_gamma_control_manager_v1_interface, 1));
        }
    }
    static void remove(WlrGammaTables* self, std::uint32_t name) {
        auto& outputs = self->outputs_;
        const auto gone = std::find_if(outputs.begin(), outputs.end(),
                                       [name](const auto& output) { return output->global == name; });
        if (gone == outputs.end() || (*gone)->gone) return;
        // A call under way may hold the record: it is only marked here.
        auto& output = **gone;
        self->dropControl(output);
        if (wl_proxy_get_version(reinterpret_cast<wl_proxy*>(output.proxy)) >= 3)
            wl_output_release(output.proxy);
        else
            wl_output_destroy(output.proxy);
        output.proxy = nullptr;
        output.gone = true;
    }
};

namespace {
const wl_registry_listener kRegistryListener{WlrGammaTables::Globals::added,
                                             WlrGammaTables::Globals::removed};
}

std::shared_ptr<WlrGammaTables> WlrGammaTables::create(const std::optional<std::string>& socketName,
                                                       DisplaySource source, DesktopLog log) {
    std::string where = socketName.value_or("");
    if (where.empty()) {
        const char* environment = std::getenv("WAYLAND_DISPLAY");
        where = environment && *environment ? environment : "wayland-0";
    }
    const std::string unavailable = "Dimming through the compositor's gamma control unavailable: ";
    wl_display* display = wl_display_connect(socketName ? socketName->c_str() : nullptr);
    if (!display) {
        log.info(kCategory, unavailable + "no Wayland compositor at \"" + where + "\"");
        return nullptr;
    }
    std::shared_ptr<WlrGammaTables> tables(new WlrGammaTables(display, std::move(source), log));
    std::lock_guard lock(tables->mutex_);
    tables->where_ = where;
    tables->registry_ = wl_display_get_registry(display);
    wl_registry_add_listener(tables->registry_, &kRegistryListener, tables.get());
    if (!tables->settle()) {
        if (!tables->connected()) return nullptr; // said why
        log.info(kCategory, "The Wayland compositor at \"" + where + "\" did not answer within " +
                                std::to_string(kAnswerTimeout.count()) +
                                " ms; dimming through its gamma control is tried again at the "
                                "next dim");
        return tables;
    }
    if (!tables->manager_) {
        log.info(kCategory, unavailable + "the compositor at \"" + where +
                                "\" offers no gamma control (zwlr_gamma_control_manager_v1)");
        return nullptr;
    }
    return tables;
}

// Asks the compositor what it offers, once it answers; true when it has. The second
// round trip brings the names the outputs send when bound. An answer that comes late is
// taken in by the next call's round trips like any other event.
bool WlrGammaTables::settle() {
    if (settled_) return true;
    if (!roundTrip() || !roundTrip()) return false;
    settled_ = true;
    outputsAdded_ = false;
    return true;
}

bool WlrGammaTables::settled() {
    std::lock_guard lock(mutex_);
    return settled_;
}

WlrGammaTables::WlrGammaTables(wl_display* display, DisplaySource source, DesktopLog log)
    : log_(std::move(log)), source_(std::move(source)), display_(display) {}

WlrGammaTables::~WlrGammaTables() {
    std::lock_guard lock(mutex_);
    for (auto& output : outputs_) {
        forget(output->control);
        forget(output->proxy);
    }
    forget(manager_);
    forget(registry_);
    wl_display_disconnect(display_);
}

bool WlrGammaTables::connected() {
    if (lost_) return false;
    if (wl_display_get_error(display_) == 0) return true;
    lost_ = true;
    log_.error(kCategory, "The Wayland compositor went away: software dimming stops");
    return false;
}

// One read of the socket, waiting at most `timeout` for something to arrive; false when
// nothing came or the connection broke.
bool WlrGammaTables::readEvents(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (wl_display_prepare_read(display_) != 0)
        if (wl_display_dispatch_pending(display_) < 0) return false;
    if (!flush(display_, deadline)) {
        wl_display_cancel_read(display_);
        return false;
    }
    pollfd fd{wl_display_get_fd(display_), POLLIN, 0};
    if (poll(&fd, 1, milliseconds(deadline - Clock::now())) <= 0) {
        wl_display_cancel_read(display_);
        return false;
    }
    if (wl_display_read_events(display_) < 0) return false;
    return wl_display_dispatch_pending(display_) >= 0;
}

// What wl_display_roundtrip does, but giving up after kAnswerTimeout.
bool WlrGammaTables::roundTrip() {
    if (!connected()) return false;
    bool done = false;
    wl_callback* callback = wl_display_sync(display_);
    wl_callback_add_listener(callback, &kSyncListener, &done);
    const auto deadline = Clock::now() + kAnswerTimeout;
    while (!done && Clock::now() < deadline && connected())
        readEvents(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
    // Its answer, should it still come, finds no listener.
    if (!done) wl_proxy_destroy(reinterpret_cast<wl_proxy*>(callback));
    return done;
}

// Takes in what the compositor sent since the last call, without waiting.
void WlrGammaTables::pump() {
    if (!connected()) return;
    wl_display_dispatch_pending(display_);
    while (readEvents(std::chrono::milliseconds{0})) {
    }
    if (outputsAdded_ && roundTrip()) outputsAdded_ = false;
}

WlrGammaTables::Output* WlrGammaTables::outputFor(platform::DisplayID display) {
    if (!settled_) {
        // Slow at start: asked again now, and said once whichever way it answers.
        if (!settle()) return nullptr;
        log_.info(kCategory, manager_ ? "The Wayland compositor answered: dimming through its "
                                        "gamma control (wlroots)"
                                      : "Dimming through the compositor's gamma control "
                                        "unavailable: the compositor at \"" + where_ +
                                            "\" offers no gamma control "
                                            "(zwlr_gamma_control_manager_v1)");
    }
    if (!manager_) return nullptr;
    pump();
    if (!connected()) return nullptr;
    std::erase_if(outputs_, [](const auto& output) { return output->gone; });
    std::vector<OutputIdentity> identities;
    for (const auto& output : outputs_) {
        identities.push_back(OutputIdentity{
            output->name, {}, std::nullopt,
            output->name.empty() ? std::nullopt : std::optional<std::string>(output->name)});
    }
    const auto paired = pairOutputs(identities, source_);
    for (std::size_t i = 0; i < paired.size(); ++i)
        if (paired[i] == display) return outputs_[i].get();
    return nullptr;
}

void WlrGammaTables::noteFailure(Output& output, platform::DisplayID display,
                                 const std::string& why) {
    if (output.failureLogged) return;
    output.failureLogged = true;
    const std::string name = output.name.empty() ? "of display " + std::to_string(display)
                                                 : "\"" + output.name + "\"";
    log_.error(kCategory, "Output " + name + " cannot be dimmed: " + why);
}

bool WlrGammaTables::takeControl(Output& output, platform::DisplayID display) {
    if (output.failed) {
        // A control that failed while we held it: the compositor shows the output's own
        // gamma again, and the control is of no more use.
        if (output.control) {
            noteFailure(output, display, "the compositor took back its gamma control (the output "
                                         "lost its gamma, or another program, such as a "
                                         "night-light tool, holds it now)");
            dropControl(output);
            output.failed = true;
        }
        return false;
    }
    if (output.control && output.size > 0) return true;
    if (!output.control) {
        output.control = zwlr_gamma_control_manager_v1_get_gamma_control(manager_, output.proxy);
        zwlr_gamma_control_v1_add_listener(output.control, &kControlListener, &output);
    }
    const bool answered = roundTrip();
    if (!connected()) return false;
    if (output.gone) return false;
    if (!answered || output.failed || output.size == 0) {
        noteFailure(output, display,
                    !answered      ? "the compositor did not answer"
                    : output.failed ? "the compositor refused its gamma control (the output has "
                                      "no gamma, or another program, such as a night-light "
                                      "tool, holds it)"
                                    : "the compositor gives it no gamma ramp");
        const bool failed = output.failed || answered;
        dropControl(output);
        output.failed = failed;
        return false;
    }
    return true;
}

void WlrGammaTables::dropControl(Output& output) {
    if (output.control) {
        zwlr_gamma_control_v1_destroy(output.control);
        flush(display_, Clock::now() + kAnswerTimeout);
    }
    output.control = nullptr;
    output.size = 0;
    output.failed = false;
    output.installed.reset();
}

bool WlrGammaTables::install(Output& output, const CrtcRamp& ramp) {
    const int fd = memfd_create("gamma-table", MFD_CLOEXEC);
    if (fd < 0) return false;
    const bool written = writeTable(fd, ramp);
    // The request carries a duplicate of the descriptor.
    if (written) zwlr_gamma_control_v1_set_gamma(output.control, fd);
    close(fd);
    return written && roundTrip() && !output.failed;
}

std::optional<platform::GammaRamp> WlrGammaTables::read(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    Output* output = outputFor(display);
    if (!connected() || !settled_ || !manager_ || !output) return std::nullopt;
    if (!takeControl(*output, display)) return std::nullopt;
    return toGammaRamp(output->installed ? *output->installed : identityRamp(output->size));
}

bool WlrGammaTables::apply(platform::DisplayID display, const platform::GammaRamp& table) {
    // An empty table would leave the output half-set or black.
    if (!table.valid()) return false;
    std::lock_guard lock(mutex_);
    Output* output = outputFor(display);
    if (!connected() || !settled_ || !manager_ || !output) return false;
    if (!takeControl(*output, display)) return false;
    auto ramp = stretchRamp(table, output->size);
    if (!install(*output, ramp)) {
        if (!connected() || output->gone) return false;
        // A refused table ends the control, and the compositor shows the output's own gamma.
        noteFailure(*output, display, output->failed ? "the compositor refused its gamma table"
                                                     : "the compositor did not answer");
        const bool failed = output->failed;
        dropControl(*output);
        output->failed = failed;
        return false;
    }
    output->installed = std::move(ramp);
    return true;
}

void WlrGammaTables::restoreAll() {
    std::lock_guard lock(mutex_);
    if (!connected()) return;
    // Without our controls the compositor shows each output's own gamma again.
    for (auto& output : outputs_)
        dropControl(*output);
}

bool WlrGammaTables::holdsControl(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    const Output* output = outputFor(display);
    return output && output->control;
}

} // namespace pw::linuxdesktop
