// The Mac's media keys through the code a Mac runs: the event tap on the simulated Mac's
// keyboard, decided on the tap's own thread.
#include "MacKeysTestBed.h"

#include <map>
#include <tuple>

namespace pw::test {
namespace {

using Outcome = sim::InjectedEvent::Outcome;
using macos::InputEvent;
using platform::KeyPressMode;
using platform::KeyWish;
using sim::SimEventTaps;

TEST(MacKeyWords, DecodeData1AndMapCodes) {
    const std::pair<std::uint32_t, macos::KeyEvent> words[] = {
        {0x00020A00, {2, 0x0A00, true, false}},
        {0x00020B00, {2, 0x0B00, false, false}},
        {0x00020A01, {2, 0x0A01, true, true}},
        {0xFFFF0A00, {0xFFFF, 0x0A00, true, false}}}; // the code's field is not sign-extended
    for (const auto& [word, event] : words)
        EXPECT_EQ(macos::KeyEvent::fromData1(static_cast<std::int32_t>(word)), event)
            << std::hex << word;

    const std::map<int, MediaKey> system = {
        {0, MediaKey::volumeUp},       {1, MediaKey::volumeDown}, {2, MediaKey::brightnessUp},
        {3, MediaKey::brightnessDown}, {7, MediaKey::mute},       {16, MediaKey::playPause},
        {17, MediaKey::next},          {18, MediaKey::previous},  {19, MediaKey::fastForward},
        {20, MediaKey::rewind}};
    for (int code = -2; code <= 40; ++code) {
        const auto expected = system.contains(code) ? std::optional(system.at(code)) : std::nullopt;
        EXPECT_EQ(macos::keycodeToMediaKey(code), expected) << code;
    }

    // 107 and 113 count as brightness keys only while the alternate keys are on.
    const std::tuple<std::int32_t, bool, std::optional<MediaKey>> function[] = {
        {144, true, MediaKey::brightnessUp},   {145, true, MediaKey::brightnessDown},
        {107, true, MediaKey::brightnessDown}, {113, true, MediaKey::brightnessUp},
        {2, true, std::nullopt},               {107, false, std::nullopt},
        {113, false, std::nullopt},            {144, false, MediaKey::brightnessUp}};
    for (const auto& [code, alternate, expected] : function)
        EXPECT_EQ(macos::functionKeyCodeToMediaKey(code, alternate), expected) << code << alternate;
}

// Every decision a tap makes, from the event and what the source holds.
TEST(MacKeyDecision, WishPressModeInterceptionAndPointerDecideEachEvent) {
    const auto system = [](std::uint32_t data1, std::int16_t subtype = 8) {
        auto e = SimEventTaps::systemDefined(static_cast<std::int32_t>(data1), subtype);
        e.modifierFlags = 0x100000 | 0x20000; // command + shift
        return e;
    };
    auto unconvertible = system(0x00020A00);
    unconvertible.convertible = false;
    auto f15 = SimEventTaps::keyDown(107);
    f15.modifierFlags = 0x40000;
    auto f15Unconvertible = SimEventTaps::keyDown(145);
    f15Unconvertible.convertible = false;
    platform::KeyModifiers commandShift;
    commandShift.command = commandShift.shift = true;
    platform::KeyModifiers control;
    control.control = true;

    const KeyWish down{kDisplayKeys, KeyPressMode::keyDown, true};
    const KeyWish up{platform::KeySet::all(), KeyPressMode::keyUp, true};
    const KeyWish both{platform::KeySet::all(), KeyPressMode::keyDownAndUp, true};
    const KeyWish notOnPanel{kDisplayKeys, KeyPressMode::keyDown, false};
    using E = platform::MediaKeyEvent;
    struct Case {
        const char* what;
        InputEvent event;
        KeyWish wish;
        bool intercepting;
        bool pointerOnPanel;
        bool swallow;
        std::optional<E> deliver;
    };
    const Case cases[] = {
        {"press", system(0x00020A00), down, true, false, true,
         E{MediaKey::brightnessUp, {true, false}, commandShift}},
        {"release: swallowed, unheard", system(0x00020B00), down, true, false, true, {}},
        {"repeat", system(0x00020A01), down, true, false, true,
         E{MediaKey::brightnessUp, {true, true}, commandShift}},
        {"key-up mode hears releases", system(0x00070B00), up, true, false, true,
         E{MediaKey::mute, {false, false}, commandShift}},
        {"key-up mode swallows presses", system(0x00070A00), up, true, false, true, {}},
        {"both", system(0x00100A00), both, true, false, true,
         E{MediaKey::playPause, {true, false}, commandShift}},
        {"playback key not wanted", system(0x00100A00), down, true, false, false, {}},
        {"wrong subtype", system(0x00020A00, 7), down, true, false, false, {}},
        {"no such key", system(0x00040A00), down, true, false, false, {}},
        {"code out of range", system(0xFFFF0A00), down, true, false, false, {}},
        {"not convertible", unconvertible, down, true, false, false, {}},
        {"not intercepting", system(0x00020A00), down, false, false, false, {}},
        {"over the built-in panel", system(0x00020A00), notOnPanel, true, true, false, {}},
        {"elsewhere", system(0x00020A00), notOnPanel, true, false, true,
         E{MediaKey::brightnessUp, {true, false}, commandShift}},
        {"function key", f15, down, false, false, true,
         E{MediaKey::brightnessDown, {true, false}, control}},
        {"function key, no modifiers", f15Unconvertible, down, true, false, true,
         E{MediaKey::brightnessDown, {true, false}, std::nullopt}},
        {"function key, key-up mode", f15, up, true, false, true, {}},
        {"function key over the panel", f15, notOnPanel, true, true, false, {}},
        {"code beyond 32 bits", SimEventTaps::keyDown((1LL << 32) + 144), down, true, false,
         false, {}},
        {"other function key", SimEventTaps::keyDown(50), down, true, false, false, {}},
    };
    for (const auto& c : cases) {
        const auto decision = macos::decide(c.event.type, c.event, c.wish, c.intercepting,
                                            [&] { return c.pointerOnPanel; });
        EXPECT_EQ(decision.swallow, c.swallow) << c.what;
        EXPECT_EQ(decision.deliver, c.deliver) << c.what;
    }
    // Types outside the two paths pass untouched.
    auto mouse = system(0x00020A00);
    mouse.type = 5;
    EXPECT_FALSE(macos::decide(5, mouse, both, true, {}).swallow);
}

TEST_F(MacKeysBed, KeysAreTakenOnTheTapsThreadWithoutWaitingForTheMainThread) {
    ASSERT_FALSE(startKeys({kDisplayKeys, KeyPressMode::keyDown, true}));
    EXPECT_TRUE(keys->intercepting());
    ASSERT_EQ(taps().liveTapCount(), 1u);

    // Nothing runs the main queue here: the decision is the tap thread's alone.
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020B00))));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00100A00))));
    const auto h = heard();
    ASSERT_EQ(h.size(), 1u);
    EXPECT_EQ(h[0].event.key, MediaKey::brightnessUp);
    EXPECT_TRUE(h[0].onTapThread);
    EXPECT_EQ(main().pendingCount(), 0u);

    // A new wish applies to the next key.
    keys->want({{MediaKey::playPause}, KeyPressMode::keyDown, true});
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00100A00))));
    EXPECT_EQ(heard().size(), 2u);
}

TEST_F(MacKeysBed, BuiltInPanelKeysGoToTheSystemWhenNotWanted) {
    auto& screens = machine.displayServices();
    ASSERT_FALSE(startKeys({kDisplayKeys, KeyPressMode::keyDown, false}));

    ASSERT_TRUE(screens.movePointerTo(kBuiltin));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00000A00))));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::keyDown(144))));
    ASSERT_TRUE(screens.movePointerTo(kExternal));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00000A00))));
    screens.setPointer({-5000, -5000}); // on no screen at all
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(145))));

    // The pointer on the panel's top edge belongs to it, its bottom edge not.
    const auto panel = screens.screens().front().frame;
    screens.setPointer({panel.x + 10, panel.y + panel.height});
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::keyDown(144))));
    screens.setPointer({panel.x + 10, panel.y});
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(144))));
    EXPECT_EQ(heard().size(), 3u);
}

TEST_F(MacKeysBed, ATimedOutTapIsTakenBackOnItsThreadAndUserInputLeavesItOff) {
    ASSERT_FALSE(startKeys({platform::KeySet::all(), KeyPressMode::keyDown, true}));
    const auto tap = ourTap();

    auto notice = taps().sendTimeoutNotice(tap);
    ASSERT_TRUE(notice->wait());
    EXPECT_EQ(notice->outcome(), Outcome::noticeDelivered);
    EXPECT_TRUE(taps().isEnabled(tap));
    ASSERT_EQ(taps().enableCalls(tap).size(), 1u);
    EXPECT_TRUE(taps().enableCalls(tap)[0].enabled);
    EXPECT_TRUE(taps().enableCalls(tap)[0].onTapThread);

    notice = taps().sendUserInputNotice(tap);
    ASSERT_TRUE(notice->wait());
    EXPECT_FALSE(taps().isEnabled(tap));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_EQ(taps().enableCalls(tap).size(), 1u);

    // Interception off, then on, is carried to the tap's thread in order.
    keys->setInterceptMediaKeys(true); // unchanged: nothing scheduled
    keys->setInterceptMediaKeys(false);
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
    keys->setInterceptMediaKeys(true);
    flushTapThread();
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    const auto calls = taps().enableCalls(tap);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_FALSE(calls[1].enabled);
    EXPECT_TRUE(calls[2].enabled);
    EXPECT_TRUE(calls[1].onTapThread && calls[2].onTapThread);
}

TEST_F(MacKeysBed, ARefusedTapOrSourceIsAnErrorAndKeysReachTheSystem) {
    for (const auto expected : {platform::KeysError::refused, platform::KeysError::noDelivery}) {
        if (expected == platform::KeysError::refused)
            taps().refuseTaps(1);
        else
            taps().failRunLoopSources(1);
        EXPECT_EQ(startKeys({kDisplayKeys, KeyPressMode::keyDown, true}), expected);
        EXPECT_EQ(machine.workspace().observerCount(), 0u); // stopped following the workspace
        EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
        keys->stop();
    }
    EXPECT_EQ(taps().liveTapCount(), 0u);
    EXPECT_TRUE(heard().empty());
}

TEST_F(MacKeysBed, StopAndDestructionLeaveNoTapAndNoThread) {
    const auto before = threadCount("MediaKeyHook");
    ASSERT_FALSE(startKeys({kDisplayKeys, KeyPressMode::keyDown, true}));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_EQ(threadCount("MediaKeyHook"), before + 1);
    const auto tap = ourTap();
    keys->stop(); // joins the tap's thread
    EXPECT_TRUE(taps().isInvalidated(tap));
    EXPECT_EQ(threadCount("MediaKeyHook"), before);
    EXPECT_EQ(machine.workspace().observerCount(), 0u);
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));

    // Let go without stop: the tap goes, and so does the thread.
    auto ownTaps = std::make_shared<sim::SimEventTaps>();
    auto own = macos::TapMediaKeys::create({ownTaps, nullptr, nullptr, {}, {}, true});
    own->want({kDisplayKeys, KeyPressMode::keyDown, true});
    ASSERT_FALSE(own->start([](const platform::MediaKeyEvent&) {}));
    auto ticket = ownTaps->inject(SimEventTaps::keyDown(144));
    ASSERT_TRUE(ticket->wait());
    EXPECT_EQ(ticket->outcome(), Outcome::swallowed);
    own.reset();
    EXPECT_EQ(ownTaps->liveTapCount(), 0u);
    EXPECT_EQ(threadCount("MediaKeyHook"), before);
}

// A tap of some application whose callback runs on a run loop of a thread of its own and
// passes everything on.
class AppTap {
public:
    explicit AppTap(sim::SimEventTaps& taps) {
        tap = taps.createTap(macos::TapLocation::session, macos::TapPlacement::headInsert,
                             macos::TapOptions::defaultFilter, macos::kKeyDownAndSystemDefinedMask,
                             [this](std::int32_t, const InputEvent& event) -> std::optional<InputEvent> {
                                 ++seen;
                                 return event;
                             });
        source = tap->createRunLoopSource();
        std::promise<std::shared_ptr<RunLoop>> made;
        thread_ = std::thread([&made] {
            auto own = RunLoop::current();
            made.set_value(own);
            own->run();
        });
        loop = made.get_future().get();
        std::promise<void> done;
        loop->perform([&] {
            source->addToRunLoop(loop);
            done.set_value();
        });
        loop->wakeUp();
        done.get_future().get();
    }
    ~AppTap() {
        tap->invalidate();
        loop->stop();
        thread_.join();
    }
    std::shared_ptr<macos::EventTap> tap;
    std::shared_ptr<macos::TapRunLoopSource> source;
    std::shared_ptr<RunLoop> loop;
    std::atomic<int> seen{0};

private:
    std::thread thread_;
};

TEST_F(MacKeysBed, AKnownPlayerLaunchingPutsOurTapBackAtTheHead) {
    ASSERT_FALSE(startKeys({platform::KeySet::all(), KeyPressMode::keyDown, true}));
    const auto first = ourTap();
    AppTap player(taps()); // the player's own tap now sees keys first
    EXPECT_NE(ourTap(), first);
    EXPECT_EQ(send(SimEventTaps::systemDefined(0x00020A00))->swallowedBy(), first);
    EXPECT_EQ(player.seen, 1);

    machine.workspace().launch(std::string("org.videolan.vlc"));
    main().runPending();
    const auto live = taps().liveTaps();
    ASSERT_EQ(live.size(), 2u);
    EXPECT_TRUE(taps().isInvalidated(first));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_EQ(player.seen, 1); // swallowed before it got there
    EXPECT_TRUE(keys->intercepting());

    // Not a known player, or only known by announcement: no restart.
    const auto current = ourTap();
    machine.distributedNotifications().post("MediaKeyHookDidStart",
                                            std::string("com.example.announcer"));
    main().runPending();
    machine.workspace().launch(std::string("com.example.announcer"));
    machine.workspace().launch(std::string("com.example.editor"));
    machine.workspace().launch(std::nullopt);
    main().runPending();
    EXPECT_EQ(ourTap(), current);
    EXPECT_EQ(heard().size(), 2u);
    keys->stop();
}

TEST_F(MacKeysBed, AnotherPlayerInFrontTakesThePlaybackKeysUntilWeAreActivated) {
    ASSERT_FALSE(startKeys({platform::KeySet::all(), KeyPressMode::keyDown, true}));
    auto spotify = machine.workspace().launch(std::string("com.spotify.client"));
    machine.workspace().activate(spotify);
    main().runPending();
    EXPECT_FALSE(keys->intercepting());
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00100A00))));

    keys->activate();
    EXPECT_TRUE(keys->intercepting());
    flushTapThread();
    EXPECT_EQ(keys->watcher().mediaApps().front(), machine.workspace().currentApplication());
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00100A00))));

    // Stopped: the workspace no longer moves anything.
    keys->stop();
    machine.workspace().activate(spotify);
    main().runPending();
    EXPECT_TRUE(keys->intercepting());
    EXPECT_EQ(machine.workspace().observerCount(), 0u);
}

} // namespace
} // namespace pw::test
