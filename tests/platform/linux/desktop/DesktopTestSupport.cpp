#include "DesktopTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xrandr.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <cstring>

extern char** environ;

namespace pw::test {

namespace {

std::optional<std::string> readLine(int fd, std::chrono::milliseconds limit) {
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd waitFor{fd, POLLIN, 0};
        if (poll(&waitFor, 1, static_cast<int>(left.count())) <= 0) continue;
        char c = 0;
        const auto got = read(fd, &c, 1);
        if (got <= 0) return line.empty() ? std::nullopt : std::optional(line);
        if (c == '\n') return line;
        line.push_back(c);
    }
}

} // namespace

std::optional<ChildProcess> ChildProcess::start(std::vector<std::string> argv, int readyFd) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return std::nullopt;
    for (auto& arg : argv)
        if (const auto at = arg.find("{fd}"); at != std::string::npos)
            arg.replace(at, 4, std::to_string(readyFd));

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // dup2 clears close-on-exec on the copy; the child's output stays out of test logs.
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], readyFd);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (auto& arg : argv)
        args.push_back(arg.data());
    args.push_back(nullptr);
    pid_t pid = -1;
    const int failed = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    if (failed) {
        close(pipeFds[0]);
        return std::nullopt;
    }
    auto line = readLine(pipeFds[0], std::chrono::seconds(20));
    close(pipeFds[0]);
    ChildProcess child(pid, line.value_or(""));
    if (!line) return std::nullopt; // the destructor stops it
    return child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(other.pid_), line_(std::move(other.line_)) {
    other.pid_ = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(line_, other.line_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
}

std::optional<VirtualXServer> VirtualXServer::start(const std::string& geometry) {
    auto process = ChildProcess::start({"Xvfb", "-displayfd", "{fd}", "-screen", "0", geometry,
                                        "+extension", "RANDR", "-nolisten", "tcp", "-noreset"});
    if (!process || process->readyLine().empty()) return std::nullopt;
    std::string name = ":" + process->readyLine();
    return VirtualXServer(std::move(*process), std::move(name));
}

std::optional<PrivateBus> PrivateBus::start() {
    auto process = ChildProcess::start(
        {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address={fd}"});
    if (!process || process->readyLine().empty()) return std::nullopt;
    std::string address = process->readyLine();
    return PrivateBus(std::move(*process), std::move(address));
}

XDesk::XDesk(const std::string& serverName) : x_(XOpenDisplay(serverName.c_str())) {
    window_ = XCreateSimpleWindow(x_, DefaultRootWindow(x_), 0, 0, 100, 100, 0, 0, 0);
    XSelectInput(x_, window_, KeyPressMask | KeyReleaseMask);
    XMapWindow(x_, window_);
    XSync(x_, False);
    XSetInputFocus(x_, window_, RevertToPointerRoot, CurrentTime);
    XSync(x_, False);
}

XDesk::~XDesk() {
    XCloseDisplay(x_);
}

unsigned XDesk::code(const char* keysym) const {
    return XKeysymToKeycode(x_, XStringToKeysym(keysym));
}

void XDesk::key(const char* keysym, bool down) {
    XTestFakeKeyEvent(x_, code(keysym), down ? True : False, CurrentTime);
    XSync(x_, False);
}

void XDesk::tap(const char* keysym) {
    key(keysym, true);
    key(keysym, false);
}

std::vector<unsigned> XDesk::pressesUntil(const char* marker) {
    tap(marker);
    const unsigned markerCode = code(marker);
    std::vector<unsigned> presses;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        while (XPending(x_) > 0) {
            XEvent event;
            XNextEvent(x_, &event);
            if (event.type != KeyPress) continue;
            presses.push_back(event.xkey.keycode);
            if (event.xkey.keycode == markerCode) return presses;
        }
        pollfd fd{ConnectionNumber(x_), POLLIN, 0};
        poll(&fd, 1, 100);
    }
    return {};
}

std::vector<std::uint8_t> fakeEdid(std::uint8_t serial) {
    std::vector<std::uint8_t> bytes(128, 0);
    bytes[1] = 0xFF;
    bytes[12] = serial;
    return bytes;
}

std::unique_ptr<BusPeer> BusPeer::connect(const std::string& address, const char* name) {
    std::unique_ptr<BusPeer> peer(new BusPeer);
    if (sd_bus_new(&peer->bus_) < 0 || sd_bus_set_address(peer->bus_, address.c_str()) < 0 ||
        sd_bus_set_bus_client(peer->bus_, 1) < 0 || sd_bus_start(peer->bus_) < 0)
        return nullptr;
    if (name && sd_bus_request_name(peer->bus_, name, 0) < 0) return nullptr;
    const auto filter = [](sd_bus_message* message, void* self, sd_bus_error*) -> int {
        std::uint8_t type = 0;
        sd_bus_message_get_type(message, &type);
        if (type != SD_BUS_MESSAGE_METHOD_CALL || !sd_bus_message_get_interface(message)) return 0;
        Call call{sd_bus_message_get_member(message), 0};
        sd_bus_message_read(message, "i", &call.argument);
        static_cast<BusPeer*>(self)->calls_.emplace_back(sd_bus_message_get_interface(message),
                                                         std::move(call));
        return 0;
    };
    sd_bus_add_filter(peer->bus_, nullptr, filter, peer.get());
    return peer;
}

BusPeer::~BusPeer() {
    sd_bus_flush_close_unref(bus_);
}

std::vector<BusPeer::Call> BusPeer::waitForCalls(const char* interface, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    auto matching = [&] {
        std::vector<Call> found;
        for (const auto& [name, call] : calls_)
            if (name == interface) found.push_back(call);
        return found;
    };
    while (matching().size() < count && std::chrono::steady_clock::now() < deadline) {
        if (sd_bus_process(bus_, nullptr) > 0) continue;
        sd_bus_wait(bus_, 100000);
    }
    return matching();
}

void BusPeer::emitBool(const char* path, const char* interface, const char* member, bool value) {
    sd_bus_emit_signal(bus_, path, interface, member, "b", value ? 1 : 0);
    sd_bus_flush(bus_);
}

void BusPeer::roundTrip() {
    sd_bus_message* reply = nullptr;
    sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                       "org.freedesktop.DBus", "GetId", nullptr, &reply, "");
    sd_bus_message_unref(reply);
}

RampProbe::RampProbe(const std::string& serverName) : x_(XOpenDisplay(serverName.c_str())) {
    XRRScreenResources* resources = XRRGetScreenResourcesCurrent(x_, DefaultRootWindow(x_));
    crtc_ = resources->ncrtc > 0 ? resources->crtcs[0] : 0;
    XRRFreeScreenResources(resources);
}

RampProbe::~RampProbe() { XCloseDisplay(x_); }

int RampProbe::size() const { return XRRGetCrtcGammaSize(x_, crtc_); }

void RampProbe::install(const std::vector<unsigned short>& red,
                        const std::vector<unsigned short>& green,
                        const std::vector<unsigned short>& blue) {
    XRRCrtcGamma* gamma = XRRAllocGamma(static_cast<int>(red.size()));
    std::copy(red.begin(), red.end(), gamma->red);
    std::copy(green.begin(), green.end(), gamma->green);
    std::copy(blue.begin(), blue.end(), gamma->blue);
    XRRSetCrtcGamma(x_, crtc_, gamma);
    XRRFreeGamma(gamma);
    XSync(x_, False);
}

std::vector<unsigned short> RampProbe::channel(int index) const {
    XRRCrtcGamma* gamma = XRRGetCrtcGamma(x_, crtc_);
    const unsigned short* samples = index == 0 ? gamma->red : index == 1 ? gamma->green : gamma->blue;
    std::vector<unsigned short> out(samples, samples + gamma->size);
    XRRFreeGamma(gamma);
    return out;
}

} // namespace pw::test
