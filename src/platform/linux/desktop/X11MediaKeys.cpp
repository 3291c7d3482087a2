#include "platform/linux/desktop/X11MediaKeys.h"

#include "platform/linux/desktop/XConnection.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Keyboard";

platform::KeyModifiers modifiersOf(unsigned state) {
    platform::KeyModifiers m;
    m.shift = (state & ShiftMask) != 0;
    m.control = (state & ControlMask) != 0;
    m.option = (state & Mod1Mask) != 0; // Alt
    m.command = (state & Mod4Mask) != 0; // Super
    return m;
}

struct Grab {
    KeyCode keycode = 0;
    MediaKeySpec spec;
    bool held = false;
};

} // namespace

// The connection, the grabs and the thread that reads them. The thread is the reader's:
// `stop` asks it to end and joins it.
struct X11MediaKeys::Reader {
    std::unique_ptr<XConnection> connection; // the reader thread's once it runs
    std::shared_ptr<KeyDelivery> delivery;
    DesktopLog log;
    bool nameRefusals = true;
    std::vector<Grab> grabs;
    int wakeFd = -1;
    std::thread thread;

    mutable std::mutex mutex; // guards what follows, and `held` of the grabs
    bool stopping = false;
    std::deque<std::function<void()>> commands; // run on the reader thread

    // Reader thread only.
    std::set<KeyCode> down;

    ~Reader() {
        if (wakeFd >= 0) close(wakeFd);
    }

    void wake() {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(wakeFd, &one, sizeof one);
    }

    void post(std::function<void()> command) {
        {
            std::lock_guard lock(mutex);
            if (stopping) return;
            commands.push_back(std::move(command));
        }
        wake();
    }

    // Holds exactly the wanted keys; refused ones are named (once, at the start) and left
    // to whoever holds them.
    void grabWanted(const platform::KeySet& wanted, bool logRefusals) {
        if (connection->lost()) return;
        Display* x = connection->display();
        for (auto& grab : grabs) {
            if (grab.keycode == 0) continue;
            const bool want = wanted.contains(grab.spec.key);
            if (want == grab.held) continue;
            if (!want) {
                connection->checked(
                    [&] { XUngrabKey(x, grab.keycode, AnyModifier, connection->root()); });
                down.erase(grab.keycode);
                std::lock_guard lock(mutex);
                grab.held = false;
                continue;
            }
            const int error = connection->checked([&] {
                XGrabKey(x, grab.keycode, AnyModifier, connection->root(), False, GrabModeAsync,
                         GrabModeAsync);
            });
            {
                std::lock_guard lock(mutex);
                grab.held = error == 0;
            }
            if (error && logRefusals && nameRefusals) log.error(kCategory, keyTakenLine(grab.spec));
        }
        XFlush(x);
    }

    void handleKey(const XKeyEvent& key, bool press) {
        const Grab* grab = nullptr;
        {
            std::lock_guard lock(mutex);
            for (const auto& candidate : grabs)
                if (candidate.held && candidate.keycode == key.keycode) grab = &candidate;
        }
        if (!grab) return;
        const auto code = static_cast<KeyCode>(key.keycode);
        // Held keys repeat as presses without releases between them (detectable auto-repeat).
        const bool repeat = press && down.contains(code);
        if (press)
            down.insert(code);
        else if (!down.erase(code))
            return; // the release of a press made before the grab
        delivery->deliver(grab->spec.key, {press, repeat}, modifiersOf(key.state));
    }

    void run() {
        Display* x = connection->display();
        const int xFd = ConnectionNumber(x);
        while (true) {
            std::deque<std::function<void()>> pending;
            {
                std::lock_guard lock(mutex);
                if (stopping) break;
                pending.swap(commands);
            }
            for (auto& command : pending)
                command();
            while (!connection->lost() && XPending(x) > 0) {
                XEvent event;
                XNextEvent(x, &event);
                if (event.type == KeyPress || event.type == KeyRelease)
                    handleKey(event.xkey, event.type == KeyPress);
            }
            if (connection->lost()) return serverGone();
            pollfd fds[2] = {{xFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
            if (poll(fds, 2, -1) > 0 && (fds[1].revents & POLLIN)) {
                std::uint64_t count = 0;
                [[maybe_unused]] const auto got = read(wakeFd, &count, sizeof count);
            }
        }
        grabWanted({}, false); // every key back to the desktop
        // A server that went away while we were asked to stop is still said.
        if (connection->lost()) serverGone();
    }

    void serverGone() {
        log.error(kCategory, "The X server went away: media keys stop");
        std::lock_guard lock(mutex);
        for (auto& grab : grabs)
            grab.held = false;
    }

    void end() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake();
        if (thread.joinable()) thread.join();
    }
};

X11MediaKeys::X11MediaKeys(std::optional<std::string> displayName, DesktopLog log)
    : displayName_(std::move(displayName)), log_(std::move(log)) {}

X11MediaKeys::~X11MediaKeys() {
    stop();
}

void X11MediaKeys::want(const platform::KeyWish& wish) {
    delivery_->want(wish);
    if (!reader_) return;
    reader_->post([reader = reader_.get(), keys = wish.keys] { reader->grabWanted(keys, false); });
}

std::optional<platform::KeysError> X11MediaKeys::start(OnKey onKey) {
    stop();
    std::string whyNot;
    auto connection = XConnection::open(displayName_, whyNot);
    if (!connection) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return platform::KeysError::refused;
    }
    auto reader = std::make_unique<Reader>();
    reader->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (reader->wakeFd < 0) {
        log_.error(kCategory, "Media keys unavailable: no event descriptor for the key thread");
        return platform::KeysError::noDelivery;
    }
    reader->connection = std::move(connection);
    reader->delivery = delivery_;
    reader->log = log_;
    reader->nameRefusals = nameRefusals_;

    Display* x = reader->connection->display();
    // Held keys then repeat as presses without releases between them, so a repeat can be
    // told from a new press.
    Bool supported = False;
    XkbSetDetectableAutoRepeat(x, True, &supported);
    for (const auto& spec : mediaKeySpecs()) {
        const KeySym sym = XStringToKeysym(spec.keysym);
        const KeyCode code = sym == NoSymbol ? 0 : XKeysymToKeycode(x, sym);
        if (code == 0) log_.info(kCategory, std::string("No ") + spec.keysym + " key on this keyboard");
        reader->grabs.push_back(Grab{code, spec, false});
    }
    delivery_->open(std::move(onKey));
    reader->grabWanted(delivery_->wish().keys, true);
    reader->thread = std::thread([r = reader.get()] { r->run(); });
    reader_ = std::move(reader);
    return std::nullopt;
}

void X11MediaKeys::stop() {
    if (reader_) reader_->end();
    reader_.reset();
    delivery_->close();
}

std::vector<std::string> X11MediaKeys::heldKeys() const {
    std::vector<std::string> keys;
    if (!reader_) return keys;
    std::lock_guard lock(reader_->mutex);
    for (const auto& grab : reader_->grabs)
        if (grab.held) keys.emplace_back(grab.spec.keysym);
    return keys;
}

} // namespace pw::linuxdesktop
