#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

struct sd_bus;

namespace pw::linuxdesktop {

struct BusCloser {
    void operator()(sd_bus* bus) const;
};
using BusConnection = std::unique_ptr<sd_bus, BusCloser>;

enum class BusKind { session, system };

// Method calls on the desktop's buses never wait longer than this: a service that does
// not answer must not hold up the program's start.
inline constexpr std::chrono::milliseconds kBusCallTimeout{500};

// A client connection to the bus at `address` ("unix:path=...", as a private daemon
// prints it), else to the user's session bus or the system bus. Null when there is none;
// `whyNot` then says why in words.
BusConnection openBus(const std::optional<std::string>& address, BusKind kind, std::string& whyNot);

// Whether a service owns `name` on the bus now; nothing (and `whyNot`) when the bus
// does not answer.
std::optional<bool> nameHasOwner(sd_bus* bus, const char* name, std::string& whyNot);

// A connection to the bus on which `service` is present now; null otherwise, with
// `whyNot` naming either the missing service or the bus that did not answer.
BusConnection openServiceBus(const std::optional<std::string>& address, BusKind kind,
                             const char* service, std::string& whyNot);

// Waits until the bus has something to read, its next timeout falls due, or `wakeFd` (an
// eventfd, may be -1) is written; a wake-up is consumed.
void waitForBus(sd_bus* bus, int wakeFd);

} // namespace pw::linuxdesktop
