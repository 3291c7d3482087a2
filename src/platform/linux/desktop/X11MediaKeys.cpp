#include "platform/linux/desktop/X11MediaKeys.h"

#include "platform/linux/desktop/MediaKeyEvents.h"
#include "platform/linux/desktop/TapDelivery.h"
#include "platform/linux/desktop/XConnection.h"
#include "support/RunLoop.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Keyboard";

platform::ModifierFlags modifierFlags(unsigned state) {
    platform::ModifierFlags flags = 0;
    if (state & ShiftMask) flags |= kShiftFlag;
    if (state & ControlMask) flags |= kControlFlag;
    if (state & Mod1Mask) flags |= kOptionFlag; // Alt
    if (state & Mod4Mask) flags |= kCommandFlag; // Super
    return flags;
}

struct Grab {
    KeyCode keycode = 0;
    MediaKeySpec spec;
    bool held = false;
};

// Everything the tap, its source and its reader thread share.
struct TapState : std::enable_shared_from_this<TapState> {
    std::unique_ptr<XConnection> connection; // used by the reader thread only, once started
    platform::TapCallback callback;
    DesktopLog log;
    std::chrono::milliseconds answerLimit{1000};
    std::vector<Grab> grabs;
    int wakeFd = -1;
    std::thread reader;

    TapDelivery delivery;

    std::mutex mutex; // guards what follows
    bool enabled = true;
    bool stopping = false;
    std::deque<std::function<void()>> commands; // run on the reader thread

    // Reader thread only.
    std::set<KeyCode> down;
    bool grabActive = false;      // a press of ours started an active grab
    std::uint64_t frozenSerial = 0; // the press the keyboard is frozen on, 0 = none
    KeyCode frozenKey = 0;
    std::chrono::steady_clock::time_point frozenSince;

    ~TapState() {
        if (wakeFd >= 0) close(wakeFd);
    }

    void post(std::function<void()> command) {
        {
            std::lock_guard lock(mutex);
            if (stopping) return;
            commands.push_back(std::move(command));
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(wakeFd, &one, sizeof one);
    }

    // Takes the keys; refused ones are named once and left to whoever holds them.
    void grabAll(bool logRefusals) {
        Display* x = connection->display();
        for (auto& grab : grabs) {
            if (grab.keycode == 0 || grab.held) continue;
            const int error = connection->checked([&] {
                XGrabKey(x, grab.keycode, AnyModifier, connection->root(), False, GrabModeAsync,
                         GrabModeSync);
            });
            {
                std::lock_guard lock(mutex);
                grab.held = error == 0;
            }
            if (error && logRefusals) log.error(kCategory, keyTakenLine(grab.spec));
        }
    }

    void ungrabAll() {
        Display* x = connection->display();
        connection->checked([&] {
            for (auto& grab : grabs)
                if (grab.held) XUngrabKey(x, grab.keycode, AnyModifier, connection->root());
        });
        {
            std::lock_guard lock(mutex);
            for (auto& grab : grabs)
                grab.held = false;
        }
        thaw(true);
    }

    // Lets a frozen keyboard go: the press to us, or replayed to the focused window.
    void thaw(bool replay) {
        if (!frozenSerial) return;
        frozenSerial = 0;
        XAllowEvents(connection->display(), replay ? ReplayKeyboard : AsyncKeyboard, CurrentTime);
        if (replay) {
            // The release goes where the press went; the next press is a new one.
            grabActive = false;
            down.erase(frozenKey);
        }
        XFlush(connection->display());
    }

    void answer(std::uint64_t serial, bool passOn) {
        post([weak = weak_from_this(), serial, passOn] {
            auto self = weak.lock();
            if (self && self->frozenSerial == serial) self->thaw(passOn);
        });
    }

    void handleKey(const XKeyEvent& key, bool press);
    void run();
};

// One key transition on its way to the callback. Whatever becomes of the block that
// carries it (performed, or dropped by a stopped run loop), the frozen keyboard is let go.
struct Decision {
    std::weak_ptr<TapState> state;
    std::uint64_t serial = 0;
    bool answered = false;
    void answer(bool passOn) {
        if (answered) return;
        answered = true;
        if (auto owner = state.lock()) owner->answer(serial, passOn);
    }
    ~Decision() { answer(true); }
};

void TapState::handleKey(const XKeyEvent& key, bool press) {
    const Grab* grab = nullptr;
    for (const auto& candidate : grabs)
        if (candidate.held && candidate.keycode == key.keycode) grab = &candidate;

    // Only the press that started the grab freezes the keyboard; repeats and releases
    // arrive through the grab already running.
    std::uint64_t serial = 0;
    if (press && !grabActive) {
        grabActive = true;
        static std::atomic<std::uint64_t> counter{0};
        serial = ++counter;
        frozenSerial = serial;
        frozenKey = static_cast<KeyCode>(key.keycode);
        frozenSince = std::chrono::steady_clock::now();
    }
    const bool repeat = press && down.contains(static_cast<KeyCode>(key.keycode));
    if (press)
        down.insert(static_cast<KeyCode>(key.keycode));
    else
        down.erase(static_cast<KeyCode>(key.keycode));
    if (!press && grab) grabActive = false;

    // Other keys typed while one of ours is held come to the grab: nothing to do for them.
    if (!grab) {
        if (serial) thaw(true);
        return;
    }

    const auto event = mediaKeyEvent(grab->spec, press, repeat, modifierFlags(key.state));

    auto decision = std::make_shared<Decision>();
    decision->state = weak_from_this();
    decision->serial = serial;
    RunLoop::Block block = [decision, callback = callback, event] {
        const auto result = callback(platform::kEventTypeSystemDefined, event);
        decision->answer(result.has_value());
    };

    {
        std::lock_guard lock(mutex);
        // Disabled, the block is dropped here and its decision passes the key on.
        if (!enabled) return;
    }
    // A source not attached yet holds its keys until it is (the answer limit still
    // applies), so a key typed right at start is not lost to the desktop.
    delivery.deliver(std::move(block));
}

void TapState::run() {
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
        if (connection->lost()) {
            log.error(kCategory, "The X server went away: media keys stop");
            return;
        }

        int timeout = -1;
        if (frozenSerial) {
            const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - frozenSince);
            if (waited >= answerLimit) {
                // Nobody answered in time: the keyboard must not stay frozen.
                thaw(true);
                continue;
            }
            timeout = static_cast<int>((answerLimit - waited).count()) + 1;
        }
        pollfd fds[2] = {{xFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        if (poll(fds, 2, timeout) > 0 && (fds[1].revents & POLLIN)) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto got = read(wakeFd, &count, sizeof count);
        }
    }
    ungrabAll();
}

class X11KeyTapImpl final : public X11KeyTap {
public:
    explicit X11KeyTapImpl(std::shared_ptr<TapState> state) : state_(std::move(state)) {}
    ~X11KeyTapImpl() override { invalidate(); }

    void enable(bool enabled) override {
        {
            std::lock_guard lock(state_->mutex);
            if (state_->enabled == enabled) return;
            state_->enabled = enabled;
        }
        // Disabled, the keys go back to the desktop; enabled again, they are taken again
        // where nobody else took them meanwhile.
        state_->post([weak = std::weak_ptr<TapState>(state_), enabled] {
            if (auto state = weak.lock()) enabled ? state->grabAll(false) : state->ungrabAll();
        });
    }

    void invalidate() override {
        {
            std::lock_guard lock(state_->mutex);
            if (state_->stopping) return;
            state_->stopping = true;
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(state_->wakeFd, &one, sizeof one);
        if (state_->reader.joinable()) {
            if (state_->reader.get_id() == std::this_thread::get_id())
                state_->reader.detach();
            else
                state_->reader.join();
        }
    }

    std::shared_ptr<platform::TapRunLoopSource> createRunLoopSource() override {
        return TapDelivery::source(std::shared_ptr<TapDelivery>(state_, &state_->delivery));
    }

    std::vector<std::string> heldKeys() const override {
        std::lock_guard lock(state_->mutex);
        std::vector<std::string> keys;
        for (const auto& grab : state_->grabs)
            if (grab.held) keys.emplace_back(grab.spec.keysym);
        return keys;
    }

private:
    std::shared_ptr<TapState> state_;
};

} // namespace

X11EventTaps::X11EventTaps(std::optional<std::string> displayName, DesktopLog log,
                           std::chrono::milliseconds answerLimit)
    : displayName_(std::move(displayName)), log_(std::move(log)), answerLimit_(answerLimit) {}

X11EventTaps::~X11EventTaps() = default;

std::shared_ptr<platform::EventTap> X11EventTaps::createTap(platform::TapLocation,
                                                            platform::TapPlacement,
                                                            platform::TapOptions,
                                                            std::uint64_t eventMask,
                                                            platform::TapCallback callback) {
    std::string whyNot;
    auto connection = XConnection::open(displayName_, whyNot);
    if (!connection) {
        log_.error(kCategory, "Media keys unavailable: " + whyNot);
        return nullptr;
    }
    auto state = std::make_shared<TapState>();
    state->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (state->wakeFd < 0) {
        log_.error(kCategory, "Media keys unavailable: no event descriptor for the key thread");
        return nullptr;
    }
    state->connection = std::move(connection);
    state->callback = std::move(callback);
    state->log = log_;
    state->answerLimit = answerLimit_;

    Display* x = state->connection->display();
    // Held keys then repeat as presses without releases between them, so a repeat can be
    // told from a new press.
    Bool supported = False;
    XkbSetDetectableAutoRepeat(x, True, &supported);
    const std::uint64_t systemDefinedBit = std::uint64_t{1} << platform::kEventTypeSystemDefined;
    if (eventMask & systemDefinedBit)
        for (const auto& spec : mediaKeySpecs()) {
            const KeySym sym = XStringToKeysym(spec.keysym);
            const KeyCode code = sym == NoSymbol ? 0 : XKeysymToKeycode(x, sym);
            if (code == 0)
                log_.info(kCategory, std::string("No ") + spec.keysym + " key on this keyboard");
            state->grabs.push_back(Grab{code, spec, false});
        }
    state->grabAll(nameRefusals_);

    state->reader = std::thread([state] { state->run(); });
    return std::make_shared<X11KeyTapImpl>(state);
}

} // namespace pw::linuxdesktop
