#include "platform/linux/desktop/XConnection.h"

#include "platform/linux/CallbackGuard.h"
#include "platform/linux/desktop/DesktopLog.h"

#include <X11/Xlib.h>

#include <unistd.h>

#include <map>
#include <mutex>
#include <vector>

namespace pw::linuxdesktop {

namespace {

// The errors recorded per connection of ours. Xlib calls the handler on the thread that
// reads the reply, which is the thread using that connection; the map is shared.
struct ErrorBook {
    std::mutex mutex;
    std::map<Display*, int> firstError; // present = ours; 0 = no error since last taken
    XErrorHandler previous = nullptr;
    XIOErrorHandler previousIO = nullptr;
    std::vector<Display*> lost; // records of dead connections Xlib cannot free
};

ErrorBook& book() {
    static ErrorBook* const instance = new ErrorBook; // outlives every connection
    return *instance;
}

// Xlib's handlers are C callbacks: nothing may be thrown through them (CallbackGuard.h).
// They have no log of their own; a failure goes to stderr.
int recordErrorUnguarded(Display* display, XErrorEvent* event) {
    XErrorHandler previous = nullptr;
    {
        auto& errors = book();
        std::lock_guard lock(errors.mutex);
        const auto found = errors.firstError.find(display);
        if (found != errors.firstError.end()) {
            if (found->second == 0) found->second = event->error_code;
            return 0;
        }
        previous = errors.previous;
    }
    return previous ? previous(display, event) : 0;
}

int recordError(Display* display, XErrorEvent* event) {
    return platform::guardCallback(
        "The X error handler", 0, [&] { return recordErrorUnguarded(display, event); },
        DesktopLog{}.errorsIn("App"));
}

// A server that goes away (the session ends, the server crashes) must not end the
// program: Xlib would call exit() after these handlers. Ours are marked dead instead, and
// every later request on them fails at once.
int onConnectionLostUnguarded(Display* display) {
    XIOErrorHandler previous = nullptr;
    {
        auto& errors = book();
        std::lock_guard lock(errors.mutex);
        if (errors.firstError.contains(display)) return 0;
        previous = errors.previousIO;
    }
    return previous ? previous(display) : 0;
}

int onConnectionLost(Display* display) {
    return platform::guardCallback(
        "The X connection-lost handler", 0, [&] { return onConnectionLostUnguarded(display); },
        DesktopLog{}.errorsIn("App"));
}

void connectionLost(Display*, void* connection) {
    platform::guardCallback(
        "The X connection-lost handler", [&] { static_cast<XConnection*>(connection)->markLost(); },
        DesktopLog{}.errorsIn("App"));
}

void installHandlerOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Connections may live on several threads (the key tap has its own).
        XInitThreads();
        auto& errors = book();
        std::lock_guard lock(errors.mutex);
        errors.previous = XSetErrorHandler(recordError);
        errors.previousIO = XSetIOErrorHandler(onConnectionLost);
    });
}

} // namespace

std::unique_ptr<XConnection> XConnection::open(const std::optional<std::string>& name,
                                               std::string& whyNot) {
    installHandlerOnce();
    Display* display = XOpenDisplay(name ? name->c_str() : nullptr);
    if (!display) {
        const char* shown = name ? name->c_str() : XDisplayName(nullptr);
        whyNot = std::string("no X server at \"") + (shown ? shown : "") + "\"";
        return nullptr;
    }
    {
        auto& errors = book();
        std::lock_guard lock(errors.mutex);
        errors.firstError[display] = 0;
    }
    std::unique_ptr<XConnection> connection(new XConnection(display));
    XSetIOErrorExitHandler(display, connectionLost, connection.get());
    return connection;
}

XConnection::~XConnection() {
    // Errors still on the way are collected first; once the entry is gone the address may
    // be handed to a new connection.
    if (!lost()) XSync(display_, False);
    {
        auto& errors = book();
        std::lock_guard lock(errors.mutex);
        errors.firstError.erase(display_);
        // Xlib cannot close a connection whose server went away (it waits for locks the
        // failed request left behind): its socket is closed and the small record kept.
        if (lost()) errors.lost.push_back(display_);
    }
    if (lost())
        close(ConnectionNumber(display_));
    else
        XCloseDisplay(display_);
}

unsigned long XConnection::root() const {
    return DefaultRootWindow(display_);
}

std::string XConnection::name() const {
    const char* shown = DisplayString(display_);
    return shown ? shown : "";
}

int XConnection::takeError() {
    auto& errors = book();
    std::lock_guard lock(errors.mutex);
    auto& slot = errors.firstError[display_];
    const int error = slot;
    slot = 0;
    return error;
}

void XConnection::sync() {
    if (!lost()) XSync(display_, False);
}

int XConnection::badAccess() {
    return BadAccess;
}

} // namespace pw::linuxdesktop
