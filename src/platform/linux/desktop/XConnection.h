#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// Xlib's types, without pulling its macros (None, Bool, Status...) into every includer.
struct _XDisplay;

namespace pw::linuxdesktop {

// One connection to an X server, owned by one user at a time (the caller serialises).
//
// X errors arrive asynchronously and Xlib's default handler ends the process; this class
// installs, once per process, a handler that records an error against the connection it
// came from, so a refused request becomes a value: `checked` runs requests, waits for the
// server with XSync and gives the first error code they caused. Errors on connections that
// are not ours go to whichever handler was installed before.
class XConnection {
public:
    // `name` is an X display name (":1"); nothing means $DISPLAY. Null when no server
    // answers; `whyNot` then says so in words.
    static std::unique_ptr<XConnection> open(const std::optional<std::string>& name,
                                             std::string& whyNot);
    ~XConnection();
    XConnection(const XConnection&) = delete;
    XConnection& operator=(const XConnection&) = delete;

    _XDisplay* display() const { return display_; }
    unsigned long root() const;
    std::string name() const;

    // Runs `requests`, waits until the server has handled them and returns the first X
    // error code they caused, 0 when none.
    template <typename F>
    int checked(F&& requests) {
        takeError();
        requests();
        sync();
        const int error = takeError();
        return error ? error : lost() ? kLostConnection : 0;
    }
    // What `checked` answers once the server has gone away (no X error code is this high).
    static constexpr int kLostConnection = 1000;

    // The first error recorded since the last call, then forgotten.
    int takeError();
    void sync();

    // The server went away (session end, crash). Xlib would end the program; ours only
    // fail from then on, and their users report the feature gone.
    bool lost() const { return lost_; }
    void markLost() { lost_ = true; }

    // The X error code a grab of a key someone else holds gets.
    static int badAccess();

private:
    explicit XConnection(_XDisplay* display) : display_(display) {}
    _XDisplay* display_;
    std::atomic<bool> lost_{false};
};

} // namespace pw::linuxdesktop
