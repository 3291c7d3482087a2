#include "platform/linux/desktop/WlrGamma.h"

#include "platform/linux/desktop/GammaChoice.h"

#include "platform/sim/MemorySystemLog.h"
#include "wlr-gamma-control-unstable-v1-server-protocol.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <wayland-server.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace pw::linuxdesktop {
namespace {

// A runtime directory of the test's own, as XDG_RUNTIME_DIR while it lives, so that no
// socket of the real session is ever reached.
class RuntimeDirectory {
public:
    RuntimeDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pw-wayland-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? pattern : "";
        if (const char* old = std::getenv("XDG_RUNTIME_DIR")) old_ = old;
        setenv("XDG_RUNTIME_DIR", path_.c_str(), 1);
    }
    ~RuntimeDirectory() {
        if (old_) setenv("XDG_RUNTIME_DIR", old_->c_str(), 1);
        else unsetenv("XDG_RUNTIME_DIR");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    std::optional<std::string> old_;
};

// A wlroots-like compositor on a thread of its own: outputs with names (wl_output 4) and
// the gamma control manager. It records every table set on an output and notices when a
// control goes away. The test talks to it only through `run` (on its thread) and the
// recorded state (under the lock).
struct OutputSpec {
    std::string name;
    std::uint32_t gammaSize;
};
struct CompositorOptions {
    std::vector<OutputSpec> outputs{{"DP-1", 1024}, {"HDMI-A-1", 4096}};
    bool gammaControl = true;
    int outputVersion = 4;
};

class FakeCompositor {
public:
    using Options = CompositorOptions;

    explicit FakeCompositor(Options options = {}) : options_(std::move(options)) {
        display_ = wl_display_create();
        static std::atomic<int> made{0};
        const std::string name = "wayland-test-" + std::to_string(++made);
        if (wl_display_add_socket(display_, name.c_str()) == 0) socket_ = name;
        wakeUp_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        wakeUpSource_ = wl_event_loop_add_fd(wl_display_get_event_loop(display_), wakeUp_,
                                             WL_EVENT_READABLE, &FakeCompositor::onWakeUp, this);
        for (const auto& spec : options_.outputs)
            addOutput(spec);
        if (options_.gammaControl)
            wl_global_create(display_, &zwlr_gamma_control_manager_v1_interface, 1, this,
                             &bindManager);
        thread_ = std::thread([this] {
            while (!stop_) {
                wl_event_loop_dispatch(wl_display_get_event_loop(display_), -1);
                wl_display_flush_clients(display_);
            }
        });
    }
    ~FakeCompositor() {
        run([this] { stop_ = true; });
        thread_.join();
        wl_event_source_remove(wakeUpSource_);
        wl_display_destroy_clients(display_);
        wl_display_destroy(display_);
        close(wakeUp_);
    }

    const std::string& socket() const { return socket_; }

    // Runs `work` on the compositor's thread and sends what it queued before returning.
    void run(std::function<void()> work) {
        std::unique_lock lock(mutex_);
        const auto ticket = ++submitted_;
        commands_.push_back(std::move(work));
        const std::uint64_t one = 1;
        [[maybe_unused]] auto written = write(wakeUp_, &one, sizeof one);
        changed_.wait(lock, [&] { return executed_ >= ticket; });
    }
    // Another program takes (or gives up) the output's gamma: new controls fail.
    void holdElsewhere(const std::string& name, bool held) {
        run([&] { output(name).heldElsewhere = held; });
    }
    // The output's control stops working, as when another program took over.
    void failControl(const std::string& name) {
        run([&] {
            if (auto* control = output(name).control) zwlr_gamma_control_v1_send_failed(control);
        });
    }

    // A monitor unplugged (its control fails, as a compositor does) and plugged in again.
    void unplug(const std::string& name) {
        run([&] {
            auto& gone = output(name);
            if (gone.control) zwlr_gamma_control_v1_send_failed(gone.control);
            wl_global_destroy(gone.global);
            gone.global = nullptr;
        });
    }
    void plug(const OutputSpec& spec) {
        run([&] { addOutput(spec); });
    }
    // The compositor stops answering until `resume`, as one busy at start does.
    void pause() {
        std::unique_lock lock(mutex_);
        paused_ = true;
        ++submitted_;
        commands_.push_back([this] {
            std::unique_lock held(mutex_);
            holding_ = true;
            changed_.notify_all();
            changed_.wait(held, [this] { return !paused_; });
            holding_ = false;
        });
        const std::uint64_t one = 1;
        [[maybe_unused]] auto written = write(wakeUp_, &one, sizeof one);
        changed_.wait(lock, [this] { return holding_; });
    }
    void resume() {
        {
            std::lock_guard lock(mutex_);
            paused_ = false;
        }
        changed_.notify_all();
    }

    struct Record {
        std::vector<std::vector<std::uint16_t>> tables; // each as set: red, green, blue
        int controlsMade = 0, controlsGone = 0;
        bool controlled = false;
    };
    Record record(const std::string& name) {
        std::lock_guard lock(mutex_);
        return records_[name];
    }
    // Waits (10 s at most) until the record of `name` satisfies `ready`.
    bool waitFor(const std::string& name, const std::function<bool(const Record&)>& ready) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return ready(records_[name]); });
    }

private:
    struct Output {
        FakeCompositor* owner = nullptr;
        std::string name;
        std::uint32_t size = 0;
        wl_global* global = nullptr;
        wl_resource* control = nullptr;
        bool heldElsewhere = false;
    };

    void addOutput(const OutputSpec& spec) {
        auto output = std::make_unique<Output>();
        output->owner = this;
        output->name = spec.name;
        output->size = spec.gammaSize;
        output->global = wl_global_create(display_, &wl_output_interface, options_.outputVersion,
                                          output.get(), &bindOutput);
        outputs_.push_back(std::move(output));
    }
    Output& output(const std::string& name) {
        for (auto& candidate : outputs_)
            if (candidate->name == name && candidate->global) return *candidate;
        throw std::logic_error("no output " + name);
    }
    template <typename Change>
    void note(const std::string& name, Change change) {
        std::lock_guard lock(mutex_);
        change(records_[name]);
        changed_.notify_all();
    }

    static int onWakeUp(int fd, std::uint32_t, void* data) {
        auto* self = static_cast<FakeCompositor*>(data);
        std::uint64_t count = 0;
        [[maybe_unused]] auto drained = read(fd, &count, sizeof count);
        for (;;) {
            std::function<void()> work;
            {
                std::lock_guard lock(self->mutex_);
                if (self->commands_.empty()) break;
                work = std::move(self->commands_.front());
                self->commands_.pop_front();
            }
            work();
            wl_display_flush_clients(self->display_);
            std::lock_guard lock(self->mutex_);
            ++self->executed_;
            self->changed_.notify_all();
        }
        return 0;
    }

    static void bindOutput(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        static const struct wl_output_interface implementation{
            [](wl_client*, wl_resource* resource) { wl_resource_destroy(resource); }};
        auto* resource = wl_resource_create(client, &wl_output_interface, static_cast<int>(version), id);
        wl_resource_set_implementation(resource, &implementation, data, nullptr);
        if (version >= 4) wl_output_send_name(resource, static_cast<Output*>(data)->name.c_str());
        if (version >= 2) wl_output_send_done(resource);
    }

    static void bindManager(wl_client* client, void* data, std::uint32_t, std::uint32_t id) {
        static const struct zwlr_gamma_control_manager_v1_interface implementation{
            &getGammaControl, [](wl_client*, wl_resource* resource) { wl_resource_destroy(resource); }};
        auto* resource = wl_resource_create(client, &zwlr_gamma_control_manager_v1_interface, 1, id);
        wl_resource_set_implementation(resource, &implementation, data, nullptr);
    }

    static void getGammaControl(wl_client* client, wl_resource*, std::uint32_t id,
                                wl_resource* outputResource) {
        static const struct zwlr_gamma_control_v1_interface implementation{
            &setGamma, [](wl_client*, wl_resource* resource) { wl_resource_destroy(resource); }};
        auto* output = static_cast<Output*>(wl_resource_get_user_data(outputResource));
        auto* control = wl_resource_create(client, &zwlr_gamma_control_v1_interface, 1, id);
        output->owner->note(output->name, [](Record& r) { ++r.controlsMade; });
        if (output->heldElsewhere || output->control) {
            // An inert control: it takes nothing and changes nothing.
            wl_resource_set_implementation(control, &implementation, nullptr, nullptr);
            zwlr_gamma_control_v1_send_failed(control);
            return;
        }
        output->control = control;
        wl_resource_set_implementation(control, &implementation, output, &controlGone);
        output->owner->note(output->name, [](Record& r) { r.controlled = true; });
        zwlr_gamma_control_v1_send_gamma_size(control, output->size);
    }

    static void setGamma(wl_client*, wl_resource* control, std::int32_t fd) {
        auto* output = static_cast<Output*>(wl_resource_get_user_data(control));
        if (!output || output->control != control) return (void)close(fd);
        // Read from where the file stands, as a compositor does.
        std::vector<std::uint16_t> table(std::size_t{output->size} * 3);
        const std::size_t want = table.size() * sizeof(std::uint16_t);
        std::size_t got = 0;
        while (got < want) {
            const auto n = read(fd, reinterpret_cast<char*>(table.data()) + got, want - got);
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        close(fd);
        if (got != want) return zwlr_gamma_control_v1_send_failed(control);
        output->owner->note(output->name, [&](Record& r) { r.tables.push_back(std::move(table)); });
    }

    static void controlGone(wl_resource* control) {
        auto* output = static_cast<Output*>(wl_resource_get_user_data(control));
        output->control = nullptr;
        output->owner->note(output->name, [](Record& r) {
            ++r.controlsGone;
            r.controlled = false;
        });
    }

    Options options_;
    wl_display* display_ = nullptr;
    std::string socket_;
    int wakeUp_ = -1;
    wl_event_source* wakeUpSource_ = nullptr;
    std::vector<std::unique_ptr<Output>> outputs_;
    std::thread thread_;
    bool stop_ = false; // touched on the compositor's thread only

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> commands_;
    std::uint64_t submitted_ = 0, executed_ = 0;
    bool paused_ = false, holding_ = false;
    std::map<std::string, Record> records_;
};

// Display 10 is on the kernel's HDMI-A-1, display 20 on DP-1 (listed in the other order).
DisplaySource twoMonitors() {
    DisplaySource source;
    source.displays = [] { return std::vector<platform::DisplayID>{10, 20}; };
    source.connectorName = [](platform::DisplayID id) -> std::optional<std::string> {
        if (id == 10) return "card0-HDMI-A-1";
        if (id == 20) return "card0-DP-1";
        return std::nullopt;
    };
    return source;
}

// The table's `channel` (0 red, 1 green, 2 blue) at `index`.
std::uint16_t sample(const std::vector<std::uint16_t>& table, int channel, std::size_t index) {
    return table[static_cast<std::size_t>(channel) * (table.size() / 3) + index];
}

class WlrGammaTest : public ::testing::Test {
protected:
    void SetUp() override {
        compositor = std::make_unique<FakeCompositor>(options);
        ASSERT_FALSE(compositor->socket().empty());
        tables = WlrGammaTables::create(compositor->socket(), twoMonitors(), DesktopLog{log});
        ASSERT_TRUE(tables);
    }
    bool set(platform::DisplayID display, std::vector<float> r, std::vector<float> g,
             std::vector<float> b) {
        return tables->apply(display, platform::GammaRamp{r, g, b});
    }
    bool setHalf(platform::DisplayID display) {
        return set(display, {0.0f, 0.5f}, {0.0f, 0.5f}, {0.0f, 0.5f});
    }
    bool read(platform::DisplayID display) { return tables->read(display).has_value(); }

    RuntimeDirectory runtime;
    FakeCompositor::Options options;
    std::unique_ptr<FakeCompositor> compositor;
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
    std::shared_ptr<WlrGammaTables> tables;
};

TEST_F(WlrGammaTest, DimsTheOutputOfTheSameConnectorReadsItBackAndLetsGoAtRestore) {
    // Before any change: the identity ramp of HDMI-A-1's 4096 samples.
    auto ramp = tables->read(10);
    ASSERT_TRUE(ramp);
    ASSERT_EQ(ramp->size(), 4096u);
    EXPECT_FLOAT_EQ(ramp->red[0], 0.0f);
    EXPECT_FLOAT_EQ(ramp->blue[4095], 1.0f);
    EXPECT_NEAR(ramp->green[2048], 2048.0f / 4095, 1e-3);

    for (auto* channel : {&ramp->red, &ramp->green, &ramp->blue})
        for (auto& value : *channel)
            value *= 0.5f;
    ASSERT_TRUE(tables->apply(10, *ramp));
    auto hdmi = compositor->record("HDMI-A-1");
    ASSERT_EQ(hdmi.tables.size(), 1u);
    ASSERT_EQ(hdmi.tables[0].size(), 3u * 4096);
    EXPECT_NEAR(sample(hdmi.tables[0], 2, 4095), 32768, 1);
    EXPECT_TRUE(compositor->record("DP-1").tables.empty());
    EXPECT_FALSE(compositor->record("DP-1").controlled);

    // Read back: what was installed, not the identity.
    auto back = tables->read(10);
    ASSERT_TRUE(back);
    EXPECT_NEAR(back->red.back(), 0.5f, 1e-4);

    tables->restoreAll();
    EXPECT_TRUE(compositor->waitFor("HDMI-A-1", [](const auto& rec) { return !rec.controlled; }));
    EXPECT_FALSE(tables->holdsControl(10));
    back = tables->read(10);
    ASSERT_TRUE(back);
    EXPECT_FLOAT_EQ(back->red.back(), 1.0f);
    // Dimming again after a restore takes a new control.
    ASSERT_TRUE(setHalf(10));
    EXPECT_EQ(compositor->record("HDMI-A-1").controlsMade, 2);
    EXPECT_TRUE(log->messages("Display").empty());
}

TEST_F(WlrGammaTest, AnyTableIsStretchedOverTheOutputClampedChannelByChannel) {
    ASSERT_TRUE(set(20, {0.0f, 0.5f, 1.0f}, {2.0f, 2.0f, -1.0f}, {1.0f, 0.0f, 0.25f}));
    const auto dp = compositor->record("DP-1");
    ASSERT_EQ(dp.tables.size(), 1u);
    const auto& table = dp.tables[0];
    ASSERT_EQ(table.size(), 3u * 1024); // DP-1's own length, whatever we were given
    EXPECT_EQ(sample(table, 0, 0), 0);
    EXPECT_NEAR(sample(table, 0, 512), 32768, 64);
    EXPECT_EQ(sample(table, 0, 1023), 65535);
    EXPECT_EQ(sample(table, 1, 0), 65535); // clamped from 2
    EXPECT_EQ(sample(table, 1, 1023), 0);  // clamped from -1
    EXPECT_EQ(sample(table, 2, 0), 65535);
    EXPECT_NEAR(sample(table, 2, 1023), 16384, 1);
    EXPECT_TRUE(compositor->record("HDMI-A-1").tables.empty());

    // Nothing for an empty table or a display the compositor does not show.
    float none = 0;
    EXPECT_FALSE(tables->apply(20, platform::GammaRamp{}));
    EXPECT_FALSE(setHalf(30));
    EXPECT_EQ(compositor->record("DP-1").tables.size(), 1u);
}

TEST_F(WlrGammaTest, AnOutputWhoseGammaIsHeldElsewhereIsNeverTouched) {
    compositor->holdElsewhere("DP-1", true);
    EXPECT_FALSE(setHalf(20));
    EXPECT_FALSE(read(20));
    EXPECT_FALSE(setHalf(20));
    EXPECT_TRUE(compositor->record("DP-1").tables.empty());
    EXPECT_EQ(compositor->record("DP-1").controlsMade, 1); // not asked again and again
    EXPECT_EQ(log->messages("Display"),
              std::vector<std::string>{"Output \"DP-1\" cannot be dimmed: the compositor refused "
                                       "its gamma control (the output has no gamma, or another "
                                       "program, such as a night-light tool, holds it)"});
    // The other output is not concerned.
    EXPECT_TRUE(setHalf(10));

    // The other program lets go; after a restore we try again, without another line.
    compositor->holdElsewhere("DP-1", false);
    tables->restoreAll();
    EXPECT_TRUE(setHalf(20));
    EXPECT_EQ(compositor->record("DP-1").tables.size(), 1u);
    EXPECT_EQ(log->messages("Display").size(), 1u);
}

TEST_F(WlrGammaTest, AControlThatFailsLaterAnswersFailureAndIsGivenUp) {
    ASSERT_TRUE(setHalf(10));
    compositor->failControl("HDMI-A-1");
    EXPECT_FALSE(setHalf(10));
    EXPECT_TRUE(compositor->waitFor("HDMI-A-1", [](const auto& rec) { return !rec.controlled; }));
    EXPECT_EQ(compositor->record("HDMI-A-1").tables.size(), 1u);
    const auto lines = log->messages("Display");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "Output \"HDMI-A-1\" cannot be dimmed: the compositor took back its "
                        "gamma control (the output lost its gamma, or another program, such as "
                        "a night-light tool, holds it now)");
}

TEST_F(WlrGammaTest, MonitorsFollowUnplugAndReplug) {
    ASSERT_TRUE(setHalf(10));
    compositor->unplug("HDMI-A-1");
    EXPECT_FALSE(setHalf(10));
    EXPECT_TRUE(compositor->waitFor("HDMI-A-1", [](const auto& rec) { return !rec.controlled; }));
    EXPECT_TRUE(setHalf(20));

    compositor->plug({"HDMI-A-1", 256});
    ASSERT_TRUE(setHalf(10));
    const auto hdmi = compositor->record("HDMI-A-1");
    ASSERT_EQ(hdmi.tables.size(), 2u);
    EXPECT_EQ(hdmi.tables[1].size(), 3u * 256); // the new output's own length
}

TEST_F(WlrGammaTest, EndingWithoutRestoreLeavesTheCompositorToResetEveryOutput) {
    ASSERT_TRUE(setHalf(10));
    ASSERT_TRUE(setHalf(20));
    tables.reset(); // as if the program died: no restore, the connection just closes
    EXPECT_TRUE(compositor->waitFor("HDMI-A-1", [](const auto& rec) { return rec.controlsGone == 1; }));
    EXPECT_TRUE(compositor->waitFor("DP-1", [](const auto& rec) { return rec.controlsGone == 1; }));
}

TEST_F(WlrGammaTest, TheCompositorGoingAwayStopsDimmingWithOneLine) {
    ASSERT_TRUE(setHalf(10));
    compositor.reset();
    EXPECT_FALSE(setHalf(10));
    EXPECT_FALSE(read(10));
    tables->restoreAll();
    EXPECT_EQ(log->messages("Display"),
              std::vector<std::string>{"The Wayland compositor went away: software dimming stops"});
}

// Opening and choosing the tables, each test with compositors of its own making; the
// session bus is one where GNOME is never found.
class WlrGammaStart : public ::testing::Test {
protected:
    // The display lines, less GNOME's (which chooseGamma asks first) being unavailable.
    std::vector<std::string> linesAfterGnome() const {
        auto lines = log->messages("Display");
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("Dimming through GNOME's display configuration unavailable");
        });
        return lines;
    }

    RuntimeDirectory runtime;
    const std::optional<std::string> noBus = "unix:path=/nonexistent/bus";
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
    static constexpr float half[] = {0.0f, 0.5f};
};

TEST_F(WlrGammaStart, AnOutputWithoutANameIsTheLoneDisplay) {
    FakeCompositor compositor({{{"DP-1", 256}}, true, 3});
    DisplaySource one;
    one.displays = [] { return std::vector<platform::DisplayID>{7}; };
    auto tables = WlrGammaTables::create(compositor.socket(), one, DesktopLog{log});
    ASSERT_TRUE(tables);
    EXPECT_TRUE(tables->apply(7, platform::GammaRamp{{half[0], half[1]}, {half[0], half[1]}, {half[0], half[1]}}));
    EXPECT_EQ(compositor.record("DP-1").tables.size(), 1u);
}

TEST_F(WlrGammaStart, NoCompositorNoGammaControlOrNoAnswerIsOneLineAndNoTables) {
    EXPECT_FALSE(WlrGammaTables::create("wayland-none", twoMonitors(), DesktopLog{log}));

    FakeCompositor plain({{{"DP-1", 256}}, false, 4});
    EXPECT_FALSE(WlrGammaTables::create(plain.socket(), twoMonitors(), DesktopLog{log}));

    // A socket that takes connections but never answers: given up after the timeout.
    const std::string silentPath = runtime.path() + "/wayland-silent";
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    silentPath.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(silent, 4), 0);
    // A compositor that is there but does not answer is asked again at each dim, each
    // time for no longer than the timeout.
    const auto hung = WlrGammaTables::create("wayland-silent", twoMonitors(), DesktopLog{log});
    ASSERT_TRUE(hung);
    EXPECT_FALSE(hung->apply(20, platform::GammaRamp{{half[0], half[1]}, {half[0], half[1]}, {half[0], half[1]}}));
    close(silent);

    const std::string prefix = "Dimming through the compositor's gamma control unavailable: ";
    EXPECT_EQ(log->messages("Display"),
              (std::vector<std::string>{
                  prefix + "no Wayland compositor at \"wayland-none\"",
                  prefix + "the compositor at \"" + plain.socket() +
                      "\" offers no gamma control (zwlr_gamma_control_manager_v1)",
                  "The Wayland compositor at \"wayland-silent\" did not answer within 500 ms; "
                  "dimming through its gamma control is tried again at the next dim"}));
}

// One slow answer at start does not turn dimming off for the run, nor blame the desktop.
TEST_F(WlrGammaStart, ACompositorSlowAtStartIsAskedAgainAtTheNextDim) {
    FakeCompositor sway;
    sway.pause();
    const auto tables = chooseGamma(SessionFacts{"wayland", true, std::nullopt, sway.socket()},
                                    noBus, twoMonitors(), DesktopLog{log});
    sway.resume();
    ASSERT_TRUE(std::dynamic_pointer_cast<WlrGammaTables>(tables));
    EXPECT_TRUE(tables->apply(20, platform::GammaRamp{{half[0], half[1]}, {half[0], half[1]}, {half[0], half[1]}}));
    EXPECT_EQ(sway.record("DP-1").tables.size(), 1u);
    EXPECT_EQ(linesAfterGnome(),
              (std::vector<std::string>{
                  "The Wayland compositor at \"" + sway.socket() +
                      "\" did not answer within 500 ms; dimming through its gamma "
                      "control is tried again at the next dim",
                  "The Wayland compositor answered: dimming through its gamma control "
                  "(wlroots)"}));
}

TEST_F(WlrGammaStart, AWaylandSessionOutsideGnomeUsesTheCompositorsGammaControl) {
    FakeCompositor wlroots;
    const SessionFacts sway{"wayland", true, std::nullopt, wlroots.socket()};
    EXPECT_TRUE(std::dynamic_pointer_cast<WlrGammaTables>(
        chooseGamma(sway, noBus, twoMonitors(), DesktopLog{log})));
    // Started from a text console, with Xwayland: the session type stays "tty".
    const SessionFacts swayFromConsole{"tty", true, ":4093", wlroots.socket()};
    EXPECT_TRUE(std::dynamic_pointer_cast<WlrGammaTables>(
        chooseGamma(swayFromConsole, noBus, twoMonitors(), DesktopLog{log})));

    FakeCompositor other({{{"DP-1", 256}}, false, 4});
    const SessionFacts elsewhere{"wayland", true, std::nullopt, other.socket()};
    EXPECT_FALSE(chooseGamma(elsewhere, noBus, twoMonitors(), DesktopLog{log}));
    EXPECT_EQ(linesAfterGnome(),
              (std::vector<std::string>{
                  "Dimming through the compositor's gamma control (wlroots)",
                  "Dimming through the compositor's gamma control (wlroots)",
                  "Dimming through the compositor's gamma control unavailable: the "
                  "compositor at \"" + other.socket() +
                      "\" offers no gamma control (zwlr_gamma_control_manager_v1)",
                  "Dimming unavailable: this Wayland session gives programs no gamma "
                  "tables; brightness stays within each monitor's own range"}));
}

} // namespace
} // namespace pw::linuxdesktop
