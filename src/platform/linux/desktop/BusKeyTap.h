#pragma once

#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/MediaKeyEvents.h"
#include "platform/linux/desktop/SessionBus.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pw::linuxdesktop {

class BusKeyTap;

// One desktop service's side of a key tap fed over D-Bus: how keys are asked for, given
// back, and how the service's signals become presses and releases.
class KeyService {
public:
    virtual ~KeyService() = default;
    // On the tap's bus thread: take the keys again (true) or give them to the desktop.
    virtual void setActive(BusKeyTap& tap, bool active) = 0;
    // As the tap stops, on its bus thread (or the caller's, when the thread never ran):
    // give every key back, without waiting for an answer.
    virtual void stop(BusKeyTap& tap) = 0;
};

// The keys of a desktop service that sends them as signals. A thread of its own, which the
// tap owns and joins, reads the bus; each press and release goes to the delivery (without
// modifiers: these services do not tell them), and from there to the program.
//
// Such a service gives a key to one program only and refuses a key another program holds,
// so a key the program's wish does not name has no other taker: it is dropped.
class BusKeyTap final {
public:
    BusKeyTap(BusConnection bus, std::shared_ptr<KeyDelivery> delivery, DesktopLog log);
    ~BusKeyTap();
    BusKeyTap(const BusKeyTap&) = delete;
    BusKeyTap& operator=(const BusKeyTap&) = delete;

    // Starts the bus thread; false (and `whyNot`) when it cannot.
    bool start(std::unique_ptr<KeyService> service, std::string& whyNot);

    // Takes the keys again (true) or gives them to the desktop, on the bus thread.
    void enable(bool enabled);
    // Ends the bus thread (joined unless asked on the bus thread itself); keys go back.
    void invalidate();
    std::vector<std::string> heldKeys() const;

    // For the service. The bus belongs to the bus thread once it runs.
    sd_bus* bus() const { return bus_.get(); }
    const DesktopLog& log() const { return log_; }
    void setHeldKeys(std::vector<std::string> keys);
    void pressed(const MediaKeySpec& key);
    void released(const MediaKeySpec& key);
    // Whether releases come at all; until one has, a press is delivered as a press and a
    // release at once, so a hook that acts on releases still gets one.
    void expectReleases() { releasesSeen_ = true; }

private:
    void run();
    void post(std::function<void()> command);
    void wake();
    void deliver(const MediaKeySpec& key, platform::KeyState state);

    BusConnection bus_;
    std::unique_ptr<KeyService> service_;
    std::shared_ptr<KeyDelivery> delivery_;
    DesktopLog log_;
    int wakeFd_ = -1;
    std::thread thread_;

    mutable std::mutex mutex_; // guards what follows
    bool enabled_ = true;
    bool stopping_ = false;
    std::deque<std::function<void()>> commands_;
    std::vector<std::string> held_;

    // Bus thread only.
    KeyTransitions transitions_;
    bool releasesSeen_ = false;
};

} // namespace pw::linuxdesktop
