#include "MediaKeyTestBed.h"

#include "app/DiagnosticLog.h"
#include "common/TestSupport.h"

#include <map>
#include <tuple>

namespace pw::test {
namespace {

using Outcome = sim::InjectedEvent::Outcome;
using sim::SimEventTaps;

TEST(MediaKeyTables, DecodeData1AndMapCodes) {
    const std::pair<std::uint32_t, KeyEvent> words[] = {
        {0x00020A00, {2, 0x0A00, true, false}},
        {0x00020B00, {2, 0x0B00, false, false}},
        {0x00020A01, {2, 0x0A01, true, true}},
        {0xFFFF0A00, {0xFFFF, 0x0A00, true, false}}}; // the code's field is not sign-extended
    for (const auto& [word, event] : words)
        EXPECT_EQ(KeyEvent::fromData1(static_cast<std::int32_t>(word)), event) << std::hex << word;

    const std::map<int, MediaKey> system = {
        {0, MediaKey::volumeUp},       {1, MediaKey::volumeDown}, {2, MediaKey::brightnessUp},
        {3, MediaKey::brightnessDown}, {7, MediaKey::mute},       {16, MediaKey::playPause},
        {17, MediaKey::next},          {18, MediaKey::previous},  {19, MediaKey::fastForward},
        {20, MediaKey::rewind}};
    for (int code = -2; code <= 40; ++code) {
        const auto expected = system.contains(code) ? std::optional(system.at(code)) : std::nullopt;
        EXPECT_EQ(MediaKeyHook::keycodeToMediaKey(code), expected) << code;
    }

    // 107 and 113 count as brightness keys only while the alternate keys are on.
    const std::tuple<std::int32_t, bool, std::optional<MediaKey>> function[] = {
        {144, true, MediaKey::brightnessUp},  {145, true, MediaKey::brightnessDown},
        {107, true, MediaKey::brightnessDown}, {113, true, MediaKey::brightnessUp},
        {2, true, std::nullopt},              {107, false, std::nullopt},
        {113, false, std::nullopt},           {144, false, MediaKey::brightnessUp}};
    for (const auto& [code, alternate, expected] : function) {
        MediaKeyHook::useAlternateBrightnessKeys = alternate;
        EXPECT_EQ(MediaKeyHook::functionKeyCodeToMediaKey(code), expected) << code << alternate;
    }
    MediaKeyHook::useAlternateBrightnessKeys = true;
}

TEST_F(MediaKeyHookBed, StartInstallsOneEnabledTapAndAnEmptyListWatchesEveryKey) {
    startHook(KeyPressMode::keyDown, kDisplayKeys);
    EXPECT_TRUE(hook->interceptMediaKeys());
    ASSERT_EQ(taps().liveTapCount(), 1u);
    EXPECT_TRUE(taps().tap(ourTap())->enabled);
    auto all = MediaKeyHook::create(machine.platform(), keys_, KeyPressMode::keyDown, {}, true);
    EXPECT_EQ(all->keysToWatch().size(), 10u);
    EXPECT_FALSE(all->interceptMediaKeys()); // nothing runs before start
}

TEST_F(MediaKeyHookBed, SystemDefinedKeysAreDecidedOnTheMainThread) {
    startHook(KeyPressMode::keyDown, kDisplayKeys);

    auto press = SimEventTaps::systemDefined(0x00020A00);
    press.modifierFlags = 0x100000;
    EXPECT_TRUE(swallowedByUs(send(press)));
    ASSERT_EQ(keys_->calls.size(), 1u);
    EXPECT_EQ(keys_->calls[0].key, MediaKey::brightnessUp);
    EXPECT_EQ(keys_->calls[0].event, (KeyEvent{2, 0x0A00, true, false}));
    EXPECT_EQ(keys_->calls[0].modifiers, platform::ModifierFlags{0x100000});
    EXPECT_TRUE(keys_->calls[0].onMainThread);

    // Its release is swallowed too, but a key-down hook does not hear of it.
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020B00))));
    EXPECT_EQ(keys_->calls.size(), 1u);

    auto repeat = send(SimEventTaps::systemDefined(0x00020A01));
    EXPECT_TRUE(swallowedByUs(repeat));
    ASSERT_EQ(keys_->calls.size(), 2u);
    EXPECT_TRUE(keys_->calls[1].event.keyRepeat);

    // Left to the system: a playback key we do not watch, the wrong subtype, codes with
    // no key or outside the accepted list, events the platform cannot convert.
    auto notConvertible = SimEventTaps::systemDefined(0x00000A00);
    notConvertible.convertible = false;
    for (const auto& event :
         {SimEventTaps::systemDefined(0x00100A00), SimEventTaps::systemDefined(0x00020A00, 7),
          SimEventTaps::systemDefined(0x00040A00), SimEventTaps::systemDefined(0x00150A00),
          SimEventTaps::systemDefined(static_cast<std::int32_t>(0xFFFF0A00u)), notConvertible}) {
        auto ticket = send(event);
        EXPECT_TRUE(reachedSystem(ticket)) << std::hex << event.data1;
        ASSERT_TRUE(ticket->systemEvent());
        EXPECT_EQ(ticket->systemEvent()->data1, event.data1); // untouched
    }
    EXPECT_EQ(keys_->calls.size(), 2u);

    // Types outside the two paths pass untouched, whether the mask keeps them away from
    // the tap or they reach the decision anyway.
    platform::InputEvent mouse;
    mouse.type = 5;
    mouse.data1 = 0x00020A00;
    mouse.subtype = 8;
    EXPECT_TRUE(reachedSystem(send(mouse)));
    const auto decided = hook->internals().handleTapEvent(mouse, 5);
    ASSERT_TRUE(decided);
    EXPECT_EQ(decided->data1, mouse.data1);
    EXPECT_EQ(keys_->calls.size(), 2u);
}

TEST_F(MediaKeyHookBed, PressModesChooseWhichTransitionsAreDelivered) {
    for (auto mode : {KeyPressMode::keyUp, KeyPressMode::keyDownAndUp}) {
        keys_->calls.clear();
        startHook(mode, {});
        EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00070A00)))); // mute down
        EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00070B00)))); // mute up
        EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00100A00)))); // play down
        EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(144))));              // always down
        std::vector<bool> pressed;
        for (const auto& call : keys_->calls)
            pressed.push_back(call.event.keyPressed);
        if (mode == KeyPressMode::keyUp) {
            EXPECT_EQ(pressed, (std::vector<bool>{false}));
            EXPECT_EQ(keys_->calls[0].key, MediaKey::mute);
        } else {
            EXPECT_EQ(pressed, (std::vector<bool>{true, false, true, true}));
            EXPECT_EQ(keys_->calls[2].key, MediaKey::playPause);
        }
        hook.reset();
    }
}

TEST_F(MediaKeyHookBed, FunctionKeysOnTheKeyDownPath) {
    startHook(KeyPressMode::keyDown, {MediaKey::brightnessDown, MediaKey::volumeUp});
    auto f15 = SimEventTaps::keyDown(107);
    f15.modifierFlags = 0x40000;
    EXPECT_TRUE(swallowedByUs(send(f15)));
    auto unconvertible = SimEventTaps::keyDown(145);
    unconvertible.convertible = false;
    EXPECT_TRUE(swallowedByUs(send(unconvertible)));
    ASSERT_EQ(keys_->calls.size(), 2u);
    EXPECT_EQ(keys_->calls[0].key, MediaKey::brightnessDown);
    EXPECT_EQ(keys_->calls[0].event, (KeyEvent{107, 0, true, false}));
    EXPECT_EQ(keys_->calls[0].modifiers, platform::ModifierFlags{0x40000});
    EXPECT_EQ(keys_->calls[1].event.keycode, 145);
    EXPECT_EQ(keys_->calls[1].modifiers, std::nullopt);

    // brightnessUp is not watched (113, 144); 50 is no media key; a code beyond 32 bits
    // must not wrap onto 144.
    for (std::int64_t code : {113LL, 144LL, 50LL, (1LL << 32) + 144}) {
        EXPECT_TRUE(reachedSystem(send(SimEventTaps::keyDown(code)))) << code;
    }
    EXPECT_EQ(keys_->calls.size(), 2u);

    // Not intercepting does not matter on this path.
    hook->setInterceptMediaKeys(false);
    EXPECT_FALSE(
        hook->internals().handleTapEvent(SimEventTaps::keyDown(145), platform::kEventTypeKeyDown));
    EXPECT_EQ(keys_->calls.size(), 3u);
}

TEST_F(MediaKeyHookBed, BuiltInScreenKeysGoToTheSystemWhenNotObserved) {
    auto& screens = machine.displayServices();
    startHook(KeyPressMode::keyDown, kDisplayKeys, /*observeBuiltIn=*/false);

    ASSERT_TRUE(screens.movePointerTo(kBuiltin));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00000A00))));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::keyDown(144))));
    EXPECT_TRUE(keys_->calls.empty());

    ASSERT_TRUE(screens.movePointerTo(kExternal));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00000A00))));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(144))));
    screens.setPointer({-5000, -5000}); // on no screen at all
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(145))));
    EXPECT_EQ(keys_->calls.size(), 3u);

    // The pointer on the built-in panel's top edge belongs to it, its bottom edge not.
    const auto panel = screens.screens().front().frame;
    screens.setPointer({panel.x + 10, panel.y + panel.height});
    EXPECT_TRUE(hook->pointerOnBuiltInScreen());
    screens.setPointer({panel.x + 10, panel.y});
    EXPECT_FALSE(hook->pointerOnBuiltInScreen());

    // Observing the built-in screen, its keys are ours.
    hook.reset();
    keys_->calls.clear();
    startHook(KeyPressMode::keyDown, kDisplayKeys, /*observeBuiltIn=*/true);
    ASSERT_TRUE(screens.movePointerTo(kBuiltin));
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00000A00))));
    EXPECT_EQ(keys_->calls.size(), 1u);
}

TEST_F(MediaKeyHookBed, DisableNoticesAndInterceptionRunOnTheTapsThread) {
    startHook(KeyPressMode::keyDown, {});
    const auto tap = ourTap();

    // Timeout: the callback takes the tap back at once, on its own thread.
    auto notice = taps().sendTimeoutNotice(tap);
    ASSERT_TRUE(notice->wait());
    EXPECT_EQ(notice->outcome(), Outcome::noticeDelivered);
    EXPECT_TRUE(taps().isEnabled(tap));
    ASSERT_EQ(taps().enableCalls(tap).size(), 1u);
    EXPECT_TRUE(taps().enableCalls(tap)[0].enabled);
    EXPECT_TRUE(taps().enableCalls(tap)[0].onTapThread);

    // User input: it stays off and keys reach the system.
    notice = taps().sendUserInputNotice(tap);
    ASSERT_TRUE(notice->wait());
    EXPECT_FALSE(taps().isEnabled(tap));
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_EQ(taps().enableCalls(tap).size(), 1u);

    // Turning interception on again (it was never turned off) changes nothing...
    hook->setInterceptMediaKeys(true);
    // ... and off, then on, is carried to the tap's thread in order. An event injected
    // afterwards runs behind the scheduled change on the same run loop.
    hook->setInterceptMediaKeys(false);
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
    hook->setInterceptMediaKeys(false); // same value: nothing scheduled
    hook->setInterceptMediaKeys(true);
    flushTapThread(); // turning on, unlike off, must land before the next key is typed
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    const auto calls = taps().enableCalls(tap);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_FALSE(calls[1].enabled);
    EXPECT_TRUE(calls[2].enabled);
    EXPECT_TRUE(calls[1].onTapThread && calls[2].onTapThread);
    EXPECT_EQ(keys_->calls.size(), 1u);
}

TEST_F(MediaKeyHookBed, RefusedTapOrSourceIsLoggedAndTheProgramRunsOn) {
    ScopedPlatform scoped(machine.platform());
    TempDir dir;
    DiagnosticLog::start(dir / "Panelwright.log", machine.host(), *machine.virtualClock());
    for (const std::string text :
         {"Event tap creation failed: is your application sandboxed?",
          "Runloop source creation failed"}) {
        if (text.starts_with("Event tap"))
            taps().refuseTaps(1);
        else
            taps().failRunLoopSources(1);
        {
            CapturedStdout out;
            startHook(KeyPressMode::keyDown, kDisplayKeys);
            EXPECT_EQ(out.text(), "") << "nobody reads a desktop program's standard output";
        }
        EXPECT_TRUE(machine.systemLog().contains("Keyboard", platform::LogLevel::error, text));
        EXPECT_NE(readFile(dir / "Panelwright.log").find("[Keyboard] " + text + "\n"),
                  std::string::npos);
        EXPECT_TRUE(hook->interceptMediaKeys());
        EXPECT_EQ(machine.workspace().observerCount(), 0u); // stopped following the workspace
        // Keys go on to the system; nothing waits for a thread that is not there.
        EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));
        EXPECT_TRUE(keys_->calls.empty());
        hook->stop();
        hook.reset();
    }
    EXPECT_EQ(taps().liveTapCount(), 0u);
    DiagnosticLog::resetForTesting();
}

TEST_F(MediaKeyHookBed, StopAndDestructionLeaveNoTapAndNoThread) {
    const auto before = threadCount();
    startHook(KeyPressMode::keyDown, kDisplayKeys);
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
    EXPECT_EQ(threadCount(), before + 1); // the tap's thread, by its name
    std::weak_ptr<RunLoop> loop = hook->internals().runLoop();
    ASSERT_FALSE(loop.expired());
    const auto tap = ourTap();

    hook->stop();
    EXPECT_TRUE(taps().isInvalidated(tap));
    EXPECT_EQ(taps().liveTapCount(), 0u);
    hook->internals().runLoopQueue()->sync([] {}); // the run-loop work item has ended
    EXPECT_FALSE(loop.lock() && loop.lock()->isRunning());
    EXPECT_EQ(machine.workspace().observerCount(), 0u);
    EXPECT_TRUE(reachedSystem(send(SimEventTaps::systemDefined(0x00020A00))));

    // Dropped without stop: the tap goes, and so does the thread.
    hook.reset();
    startHook(KeyPressMode::keyDown, kDisplayKeys);
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::keyDown(144))));
    loop = hook->internals().runLoop();
    const auto second = ourTap();
    hook.reset();
    EXPECT_TRUE(taps().isInvalidated(second));
    EXPECT_TRUE(loop.expired()); // its thread ended, taking its run loop with it
    EXPECT_EQ(threadCount(), before);
}

TEST_F(MediaKeyHookBed, TearingDownWhileAKeyWaitsForTheMainThreadDoesNotDeadlock) {
    const auto before = threadCount();
    startHook(KeyPressMode::keyDown, kDisplayKeys);

    // Dropped while its tap thread waits for the main thread: the key goes to the system.
    auto ticket = taps().inject(SimEventTaps::systemDefined(0x00020A00));
    ASSERT_TRUE(waitForMainTask());
    hook.reset();
    ASSERT_TRUE(ticket->wait());
    EXPECT_TRUE(reachedSystem(ticket));
    main().runPending(); // the abandoned decision runs on nothing
    EXPECT_TRUE(keys_->calls.empty());
    EXPECT_EQ(threadCount(), before);

    // Restarted while waiting: the old tap lets the key go, the new one takes the next.
    startHook(KeyPressMode::keyDown, kDisplayKeys);
    const auto first = ourTap();
    ticket = taps().inject(SimEventTaps::systemDefined(0x00030A00));
    ASSERT_TRUE(waitForMainTask());
    hook->restartTap();
    ASSERT_TRUE(ticket->wait());
    EXPECT_TRUE(reachedSystem(ticket));
    main().runPending();
    EXPECT_TRUE(taps().isInvalidated(first));
    EXPECT_NE(ourTap(), first);
    EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00030A00))));
    ASSERT_EQ(keys_->calls.size(), 1u);
    EXPECT_EQ(keys_->calls[0].key, MediaKey::brightnessDown);

    // Stopped from inside the decision itself (the delegate stops the hook).
    struct Stopper final : MediaKeyHookDelegate {
        std::shared_ptr<MediaKeyHook> hook;
        int calls = 0;
        void handle(MediaKey, const KeyEvent&, std::optional<platform::ModifierFlags>) override {
            ++calls;
            hook->stop();
        }
    };
    auto stopper = std::make_shared<Stopper>();
    hook = MediaKeyHook::create(machine.platform(), stopper, KeyPressMode::keyDown, {}, true);
    stopper->hook = hook;
    hook->start();
    ticket = taps().inject(SimEventTaps::keyDown(144));
    ASSERT_TRUE(ticket->runMainUntilReady(main()));
    EXPECT_EQ(stopper->calls, 1);
    EXPECT_EQ(taps().liveTapCount(), 0u);
    stopper->hook.reset();
}

TEST_F(MediaKeyHookBed, AKnownPlayerLaunchingPutsOurTapBackAtTheHead) {
    startHook(KeyPressMode::keyDown, {});
    const auto first = ourTap();
    {
        AppTap player(taps(), /*swallow=*/-1); // the player's own tap now sees keys first
        EXPECT_NE(ourTap(), first);
        EXPECT_TRUE(send(SimEventTaps::systemDefined(0x00020A00))->swallowedBy() == first);
        EXPECT_EQ(player.seen.size(), 1u);

        machine.workspace().launch(std::string("org.videolan.vlc"));
        main().runPending();
        const auto live = taps().liveTaps();
        ASSERT_EQ(live.size(), 2u);
        EXPECT_NE(live.front(), first);
        EXPECT_TRUE(taps().isInvalidated(first));
        EXPECT_TRUE(swallowedByUs(send(SimEventTaps::systemDefined(0x00020A00))));
        EXPECT_EQ(player.seen.size(), 1u); // swallowed before it got there
        EXPECT_TRUE(hook->interceptMediaKeys());

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
    }
    EXPECT_EQ(keys_->calls.size(), 2u);
}

} // namespace
} // namespace pw::test
