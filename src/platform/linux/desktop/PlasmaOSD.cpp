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

int percent(std::uint32_t filled, std::uint32_t total) {
    if (total == 0) return 0;
    const double share = static_cast<double>(std::min(filled, total)) / total;
    return static_cast<int>(std::lround(share * 100));
}

} // namespace

struct PlasmaOSDFramework::Connection {
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

namespace {

class PlasmaOSDObject final : public platform::NativeOSDObject {
public:
    explicit PlasmaOSDObject(std::shared_ptr<PlasmaOSDFramework::Connection> connection)
        : connection_(std::move(connection)) {}

    bool respondsToSelector(std::string_view selector) override {
        return selector == PlasmaOSDFramework::kShowSelector;
    }

    void showImage(std::int64_t image, std::uint32_t, std::uint32_t, std::uint32_t,
                   std::uint32_t filledChiclets, std::uint32_t totalChiclets, bool) override {
        const int level = percent(filledChiclets, totalChiclets);
        if (image == platform::kOSDBrightnessImage)
            connection_->send("brightnessChanged", level);
        else if (image == platform::kOSDVolumeImage)
            connection_->send("volumeChanged", level);
        else if (image == platform::kOSDMuteImage)
            connection_->send("volumeChanged", 0);
    }

private:
    std::shared_ptr<PlasmaOSDFramework::Connection> connection_;
};

class PlasmaOSDBundle final : public platform::OSDBundle {
public:
    explicit PlasmaOSDBundle(std::shared_ptr<PlasmaOSDFramework::Connection> connection)
        : connection_(std::move(connection)) {}

    bool loadExecutable() override { return true; }
    bool hasObjectClass(std::string_view className) override {
        return className == PlasmaOSDFramework::kClassName;
    }
    std::shared_ptr<platform::NativeOSDObject> sendClassSelector(std::string_view className,
                                                                 std::string_view selector) override {
        if (className != PlasmaOSDFramework::kClassName ||
            selector != PlasmaOSDFramework::kSharedSelector)
            return nullptr;
        return std::make_shared<PlasmaOSDObject>(connection_);
    }

private:
    std::shared_ptr<PlasmaOSDFramework::Connection> connection_;
};

} // namespace

std::shared_ptr<PlasmaOSDFramework> PlasmaOSDFramework::create(const std::optional<std::string>& busAddress,
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
    return std::shared_ptr<PlasmaOSDFramework>(new PlasmaOSDFramework(std::move(connection)));
}

PlasmaOSDFramework::PlasmaOSDFramework(std::shared_ptr<Connection> connection)
    : connection_(std::move(connection)) {}

PlasmaOSDFramework::~PlasmaOSDFramework() = default;

std::shared_ptr<platform::OSDBundle> PlasmaOSDFramework::createBundle(std::string_view path) {
    if (path != kPath) return nullptr;
    return std::make_shared<PlasmaOSDBundle>(connection_);
}

} // namespace pw::linuxdesktop
