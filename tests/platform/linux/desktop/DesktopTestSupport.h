#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sd_bus;
struct _XDisplay;

namespace pw::test {

// A helper program the test starts and stops: it writes one line on a descriptor it is
// given (a display number, a bus address) once it is ready.
class ChildProcess {
public:
    // Starts `argv`, passing the write end of a pipe as descriptor `readyFd` in the child,
    // and waits (at most 20 s, by poll, no sleeping) for the first line written there.
    // "{fd}" in an argument stands for the descriptor's number.
    static std::optional<ChildProcess> start(std::vector<std::string> argv, int readyFd = 3);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ~ChildProcess(); // SIGTERM and wait

    const std::string& readyLine() const { return line_; }

private:
    ChildProcess(pid_t pid, std::string line) : pid_(pid), line_(std::move(line)) {}
    pid_t pid_ = -1;
    std::string line_;
};

// A private X server (Xvfb with RandR) on a display number it picks itself.
class VirtualXServer {
public:
    // Nothing when Xvfb cannot be started.
    static std::optional<VirtualXServer> start(const std::string& geometry = "1280x1024x24");
    const std::string& name() const { return name_; } // ":N"

private:
    VirtualXServer(ChildProcess process, std::string name)
        : process_(std::move(process)), name_(std::move(name)) {}
    ChildProcess process_;
    std::string name_;
};

// A private D-Bus daemon with the session bus configuration.
class PrivateBus {
public:
    static std::optional<PrivateBus> start();
    const std::string& address() const { return address_; }

private:
    PrivateBus(ChildProcess process, std::string address)
        : process_(std::move(process)), address_(std::move(address)) {}
    ChildProcess process_;
    std::string address_;
};

// The user at the keyboard of a private X server, and the window that has the focus: a
// connection of the test's own that types through XTest and collects what reaches its
// window.
class XDesk {
public:
    explicit XDesk(const std::string& serverName);
    ~XDesk();
    XDesk(const XDesk&) = delete;
    XDesk& operator=(const XDesk&) = delete;

    _XDisplay* display() const { return x_; }
    unsigned code(const char* keysym) const;
    void key(const char* keysym, bool down);
    void tap(const char* keysym); // press and release
    // The key codes of the presses that reached the window, up to and including the
    // first press of `marker` (typed by the test after what it looks for: whatever came
    // before has arrived by then). Empty when it does not come within 10 s.
    std::vector<unsigned> pressesUntil(const char* marker);

private:
    _XDisplay* x_;
    unsigned long window_ = 0;
};

// The gamma ramp of a private X server's first CRTC, seen and set on a connection of the
// test's own (16-bit samples, red, green, blue).
class RampProbe {
public:
    explicit RampProbe(const std::string& serverName);
    ~RampProbe();
    RampProbe(const RampProbe&) = delete;
    RampProbe& operator=(const RampProbe&) = delete;

    int size() const;
    void install(const std::vector<unsigned short>& red, const std::vector<unsigned short>& green,
                 const std::vector<unsigned short>& blue);
    // red = green = blue = f(i / (size - 1)) for f from 0...1 to 0...1.
    template <typename F> void install(F f) {
        std::vector<unsigned short> ramp(static_cast<std::size_t>(size()));
        for (std::size_t i = 0; i < ramp.size(); ++i)
            ramp[i] = static_cast<unsigned short>(
                f(static_cast<double>(i) / static_cast<double>(ramp.size() - 1)) * 65535 + 0.5);
        install(ramp, ramp, ramp);
    }
    std::vector<unsigned short> channel(int index) const; // 0 red, 1 green, 2 blue
    std::vector<unsigned short> red() const { return channel(0); }

private:
    _XDisplay* x_;
    unsigned long crtc_ = 0;
};

// A 128-byte EDID-like block that differs from others by `serial` only.
std::vector<std::uint8_t> fakeEdid(std::uint8_t serial);

// A program of the test's own on a private bus: it may own a name (a fake service),
// records the method calls sent to it and emits signals. Used from one thread; its
// messages are read only while the test waits for them.
class BusPeer {
public:
    struct Call {
        std::string member;
        int argument = 0;
    };
    // Nothing when the bus cannot be reached or the name not owned.
    static std::unique_ptr<BusPeer> connect(const std::string& address, const char* name = nullptr);
    ~BusPeer();

    // The calls of `interface` received so far, after reading the bus until there are at
    // least `count` (at most 10 s).
    std::vector<Call> waitForCalls(const char* interface, std::size_t count);
    void emitBool(const char* path, const char* interface, const char* member, bool value);
    // Waits for a reply of the bus daemon: what this peer sent before has been routed.
    void roundTrip();

private:
    BusPeer() = default;
    sd_bus* bus_ = nullptr;
    std::vector<std::pair<std::string, Call>> calls_; // interface, call
};

} // namespace pw::test
