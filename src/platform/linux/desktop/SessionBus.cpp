#include "platform/linux/desktop/SessionBus.h"

#include <systemd/sd-bus.h>

#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <ctime>

namespace pw::linuxdesktop {

void BusCloser::operator()(sd_bus* bus) const {
    sd_bus_flush_close_unref(bus);
}

BusConnection openBus(const std::optional<std::string>& address, BusKind kind, std::string& whyNot) {
    sd_bus* bus = nullptr;
    int result = 0;
    const char* which = kind == BusKind::session ? "the session bus" : "the system bus";
    if (address) {
        result = sd_bus_new(&bus);
        if (result >= 0) result = sd_bus_set_address(bus, address->c_str());
        if (result >= 0) result = sd_bus_set_bus_client(bus, 1);
        if (result >= 0) result = sd_bus_start(bus);
    } else {
        result = kind == BusKind::session ? sd_bus_open_user(&bus) : sd_bus_open_system(&bus);
    }
    if (result < 0) {
        whyNot = std::string("cannot connect to ") +
                 (address ? "the bus at \"" + *address + "\"" : std::string(which)) + ": " +
                 std::strerror(-result);
        sd_bus_unref(bus);
        return nullptr;
    }
    sd_bus_set_method_call_timeout(
        bus, static_cast<std::uint64_t>(
                 std::chrono::duration_cast<std::chrono::microseconds>(kBusCallTimeout).count()));
    return BusConnection(bus);
}

std::optional<bool> nameHasOwner(sd_bus* bus, const char* name, std::string& whyNot) {
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    std::optional<bool> owned;
    int result = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                    "org.freedesktop.DBus", "NameHasOwner", &error, &reply, "s",
                                    name);
    int answer = 0;
    if (result >= 0) result = sd_bus_message_read(reply, "b", &answer);
    if (result >= 0)
        owned = answer != 0;
    else
        whyNot = std::string("the bus did not answer: ") +
                 (error.message ? error.message : std::strerror(-result));
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return owned;
}

BusConnection openServiceBus(const std::optional<std::string>& address, BusKind kind,
                             const char* service, std::string& whyNot) {
    auto bus = openBus(address, kind, whyNot);
    if (!bus) return nullptr;
    const auto present = nameHasOwner(bus.get(), service, whyNot);
    if (!present) return nullptr;
    if (!*present) {
        whyNot = std::string(service) + " is not on the " +
                 (kind == BusKind::session ? "session" : "system") + " bus";
        return nullptr;
    }
    return bus;
}

void waitForBus(sd_bus* bus, int wakeFd) {
    const int events = sd_bus_get_events(bus);
    std::uint64_t usec = UINT64_MAX;
    sd_bus_get_timeout(bus, &usec);
    int timeout = -1;
    if (usec != UINT64_MAX) {
        // sd-bus gives an absolute CLOCK_MONOTONIC time.
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const auto nowUsec = static_cast<std::uint64_t>(now.tv_sec) * 1000000u +
                             static_cast<std::uint64_t>(now.tv_nsec) / 1000u;
        timeout = usec > nowUsec ? static_cast<int>((usec - nowUsec + 999) / 1000) : 0;
    }
    pollfd fds[2] = {{sd_bus_get_fd(bus), static_cast<short>(events > 0 ? events : 0), 0},
                     {wakeFd, POLLIN, 0}};
    if (poll(fds, wakeFd >= 0 ? 2 : 1, timeout) > 0 && (fds[1].revents & POLLIN)) {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto got = read(wakeFd, &count, sizeof count);
    }
}

} // namespace pw::linuxdesktop
