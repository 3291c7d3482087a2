#include "platform/linux/desktop/PlasmaOSD.h"

#include "platform/linux/desktop/SessionBus.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "OSD";
constexpr const char* kService = "org.kde.plasmashell";
constexpr const char* kObject = "/org/kde/osdService";
constexpr const char* kInterface = "org.kde.osdService";

int percent(float level) {
    if (!(level > 0)) return 0; // also a level that is not a number
    return static_cast<int>(std::lround(std::min(level, 1.0f) * 100));
}

} // namespace

struct PlasmaIndicator::Connection {
    std::mutex mutex;
    BusConnection bus;
    DesktopLog log;
    bool reportedFailure = false;

    void send(const char* member, int value) {
        std::lock_guard lock(mutex);
        // No callback: sent as a call that expects no reply, so nothing ever waits on it.
        int result = sd_bus_call_method_async(bus.get(), nullptr, kService, kObject, kInterface,
                                              member, nullptr, nullptr, "i", value);
        if (result >= 0) result = sd_bus_flush(bus.get());
        // Whatever the bus sent us (name notices) is read and dropped, so it never piles up.
        while (result >= 0 && sd_bus_process(bus.get(), nullptr) > 0) {
        }
        if (result < 0 && !reportedFailure) {
            reportedFailure = true;
            log.error(kCategory, std::string("KDE Plasma's level indicator could not be reached: ") +
                                     std::strerror(-result));
        }
    }
};

std::shared_ptr<PlasmaIndicator> PlasmaIndicator::create(const std::optional<std::string>& busAddress,
                                                               DesktopLog log) {
    std::string whyNot;
    auto bus = openServiceBus(busAddress, BusKind::session, kService, whyNot);
    if (!bus) {
        log.info(kCategory, "KDE Plasma's level indicator unavailable (" + whyNot +
                                "), using the program's own");
        return nullptr;
    }
    log.info(kCategory, "Using KDE Plasma's level indicator");
    auto connection = std::make_shared<Connection>();
    connection->bus = std::move(bus);
    connection->log = std::move(log);
    return std::shared_ptr<PlasmaIndicator>(new PlasmaIndicator(std::move(connection)));
}

PlasmaIndicator::PlasmaIndicator(std::shared_ptr<Connection> connection)
    : connection_(std::move(connection)) {}

PlasmaIndicator::~PlasmaIndicator() = default;

void PlasmaIndicator::show(platform::IndicatorKind kind, float level, platform::DisplayID) {
    switch (kind) {
    case platform::IndicatorKind::brightness:
        return connection_->send("brightnessChanged", percent(level));
    case platform::IndicatorKind::volume: return connection_->send("volumeChanged", percent(level));
    case platform::IndicatorKind::mute: return connection_->send("volumeChanged", 0);
    }
}

} // namespace pw::linuxdesktop
