import QtQuick
import QtTest
import Panelwright.Views

TestCase {
    id: testCase
    name: "PopoverContent"
    when: windowShown
    // A TestCase is invisible by default, and an invisible item gets no pointer events.
    visible: true
    width: 400
    height: 900

    Component { id: fakeComponent; FakePopoverModel {} }
    Component { id: popoverComponent; PopoverContent {} }

    // Items named `name` under `item`, in visual order, visible or not.
    function allNamed(item, name) {
        let found = []
        for (let i = 0; i < item.children.length; ++i) {
            const child = item.children[i]
            if (child.objectName === name) found.push(child)
            found = found.concat(allNamed(child, name))
        }
        return found
    }

    function makePopover(displayCount, overrides) {
        const fake = createTemporaryObject(fakeComponent, testCase)
        for (let i = 0; i < displayCount; ++i) fake.addDisplay(overrides || {})
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        verify(popover)
        waitForRendering(popover)
        return popover
    }

    // Equal to 8 bits a channel: computed colours carry more precision than a drawn one.
    function sameColour(a, b) {
        const c = Qt.color(a), d = Qt.color(b)
        return [c.r, c.g, c.b, c.a].every((v, i) => Math.round(v * 255) === Math.round([d.r, d.g, d.b, d.a][i] * 255))
    }

    function visibleCount(items) {
        return items.filter(item => item.visible).length
    }

    function test_sectionsDividersAndEmptyState_data() {
        return [
            { tag: "none", displays: 0, dividers: 0, empty: true },
            { tag: "one", displays: 1, dividers: 0, empty: false },
            { tag: "three", displays: 3, dividers: 2, empty: false }
        ]
    }
    function test_sectionsDividersAndEmptyState(data) {
        const popover = makePopover(data.displays)
        compare(allNamed(popover, "section").length, data.displays)
        compare(visibleCount(allNamed(popover, "sectionDivider")), data.dividers)
        compare(findChild(popover, "emptyState").visible, data.empty)
        // The popover is exactly as tall as what it shows.
        compare(popover.implicitHeight, findChild(popover, "footer").y + findChild(popover, "footer").height)
    }

    // Rounded with a shadow only where the window system composites: elsewhere the
    // window's transparent pixels would show black, so the panel is square and fills it.
    function test_panelRoundedWithShadowOnlyWhereComposited_data() {
        return [
            { tag: "composited", composited: true, margin: 16, radius: 14, shadows: 12 },
            { tag: "not composited", composited: false, margin: 0, radius: 0, shadows: 0 }
        ]
    }
    function test_panelRoundedWithShadowOnlyWhereComposited(data) {
        const popover = makePopover(1)
        // Switched on a live popover, as the window's property sets it.
        popover.composited = !data.composited
        popover.composited = data.composited
        waitForRendering(popover)
        const panel = findChild(popover, "panel"), edge = findChild(popover, "edge")
        const footer = findChild(popover, "footer")
        compare(popover.implicitWidth, 360 + 2 * data.margin)
        compare(popover.implicitHeight, footer.y + footer.height + 2 * data.margin)
        for (const item of [panel, edge]) {
            compare(Qt.rect(item.x, item.y, item.width, item.height),
                    Qt.rect(data.margin, data.margin, 360, footer.y + footer.height))
            compare(item.radius, data.radius)
        }
        compare(edge.border.width, 1)
        compare(allNamed(popover, "shadow").length, data.shadows)
        // The panel's corner pixel: cut away by the rounding, or the edge's colour as
        // halfway down its left side.
        const image = grabImage(testCase)
        const x = popover.x + data.margin, y = popover.y + data.margin
        compare(sameColour(image.pixel(x, y), image.pixel(x, y + panel.height / 2)), !data.composited)
    }

    function test_displaysComingAndGoing() {
        const popover = makePopover(0)
        const startHeight = popover.implicitHeight
        popover.model.addDisplay({})
        compare(findChild(popover, "emptyState").visible, false)
        tryVerify(() => popover.implicitHeight > startHeight)
        popover.model.addDisplay({})
        compare(visibleCount(allNamed(popover, "sectionDivider")), 1)
        popover.model.displays.remove(0, 2)
        compare(findChild(popover, "emptyState").visible, true)
        tryCompare(popover, "implicitHeight", startHeight)
    }

    function test_badgeByStatus_data() {
        return [
            { tag: "verified", status: "verified", text: "DDC", color: Theme.green, textColor: Theme.greenText },
            { tag: "unverified", status: "unverified", text: "DDC (unverified)", color: Theme.orange, textColor: Theme.orangeText },
            { tag: "softwareOnly", status: "softwareOnly", text: "Software", color: Theme.orange, textColor: Theme.orangeText }
        ]
    }
    function test_badgeByStatus(data) {
        const popover = makePopover(1, { ddcStatus: data.status })
        const badge = findChild(popover, "badge")
        const text = findChild(badge, "badgeText")
        compare(text.text, data.text)
        verify(sameColour(text.color, data.textColor))
        verify(sameColour(badge.color, Theme.withAlpha(data.color, 0.15)))
        // 9-point text must still read: 4.5:1 on the capsule as drawn over the window.
        const ratio = Theme.contrast(text.color, Qt.tint(Theme.window, badge.color))
        verify(ratio >= 4.5, "badge contrast " + ratio.toFixed(2))
        // The status changes the badge only: every control is there.
        verify(findChild(popover, "brightnessSlider").visible)
        verify(findChild(popover, "volumeSlider").visible)
        verify(findChild(popover, "muteButton").visible)
        compare(allNamed(findChild(popover, "inputSelector"), "tile").length, 5)
    }

    // A feature the monitor said it lacks has no control; the section closes up over a row
// left empty.
    function test_controlsOfFeaturesTheMonitorLacksAreLeftOut() {
        const full = makePopover(1)
        const cases = [
            { lacks: { volumeSupported: false }, gone: ["volumeSlider"], kept: ["muteButton", "inputSelector"], shorter: false },
            { lacks: { volumeSupported: false, muteSupported: false }, gone: ["volumeRow"], kept: ["inputSelector"], shorter: true },
            { lacks: { inputSupported: false }, gone: ["inputSelector"], kept: ["volumeSlider", "muteButton"], shorter: true },
        ]
        for (const c of cases) {
            const popover = makePopover(1, c.lacks)
            for (const name of c.gone) {
                const item = findChild(popover, name)
                verify(!item.visible, name)
            }
            for (const name of c.kept) verify(findChild(popover, name).visible, name)
            verify(findChild(popover, "brightnessSlider").visible)
            compare(popover.implicitHeight < full.implicitHeight, c.shorter, JSON.stringify(c.lacks))
        }
    }

    // Small secondary and tertiary text (notes, identifiers, read-outs) reads at 4.5:1.
    function test_smallTextContrast_data() {
        return [
            { tag: "secondary", color: Theme.secondary },
            { tag: "tertiary", color: Theme.tertiary },
        ]
    }
    function test_smallTextContrast(data) {
        const ratio = Theme.contrast(data.color, Theme.window)
        verify(ratio >= 4.5, data.tag + " " + ratio.toFixed(2))
    }

    // A monitor that never answered shows no made-up values and takes no input; a write
    // that failed is said under the sliders.
    function test_aSilentMonitorIsDisabledAndAFailedWriteIsSaid() {
        const popover = makePopover(1, { answered: false, dimmingAvailable: false })
        popover.model.addDisplay({})
        waitForRendering(popover) // the new section is laid out below the first
        const first = allNamed(popover, "section")[0]
        verify(findChild(first, "silentNote").visible)
        verify(!findChild(first, "dimmingNote").visible) // one reason at a time
        const slider = findChild(first, "brightnessSlider")
        compare(findChild(slider, "readout").text, "\u2013")
        mouseClick(findChild(slider, "track"), 10, 5)
        mouseClick(findChild(first, "muteButton"))
        mouseClick(allNamed(first, "tile")[1].parent)
        compare(popover.model.calls.map(c => c.name), [])
        // Tab passes over it to the next display's first slider.
        popover.forceActiveFocus()
        keyClick(Qt.Key_Tab)
        compare(popover.Window.activeFocusItem, findChild(allNamed(popover, "section")[1], "brightnessSlider"))

        const second = allNamed(popover, "section")[1]
        verify(!findChild(second, "failureNote").visible)
        popover.model.displays.setProperty(1, "notice", "The monitor did not take the new volume; it is back where it was.")
        verify(findChild(second, "failureNote").visible)
        verify(Theme.contrast(findChild(second, "failureNote").color, Theme.window) >= 4.5)
    }

    function test_aDisplayThatCannotBeDimmedSaysSoUnderItsSlider() {
        const dimmable = makePopover(1)
        verify(!findChild(dimmable, "dimmingNote").visible)
        const plain = dimmable.implicitHeight

        const popover = makePopover(1, { dimmingAvailable: false })
        const note = findChild(popover, "dimmingNote")
        verify(note.visible)
        verify(note.text.length > 0)
        // The note takes room of its own, between the brightness and volume sliders.
        verify(popover.implicitHeight > plain)
        const slider = findChild(popover, "brightnessSlider")
        const volume = findChild(popover, "volumeSlider")
        verify(note.mapToItem(popover, 0, 0).y >= slider.mapToItem(popover, 0, slider.height).y)
        verify(note.mapToItem(popover, 0, note.height).y <= volume.mapToItem(popover, 0, 0).y)
    }

    function test_slidersCallTheModelAndSurviveUpdates() {
        const popover = makePopover(2)
        const second = allNamed(popover, "section")[1]
        const brightness = findChild(second, "brightnessSlider")
        const track = findChild(brightness, "track")
        mousePress(track, track.width / 4, 5)
        // An update from elsewhere while the drag runs changes the row in place: the
        // slider under the pointer is the same object afterwards.
        popover.model.displays.setProperty(1, "volume", 80)
        compare(findChild(allNamed(popover, "section")[1], "brightnessSlider"), brightness)
        mouseRelease(track, track.width / 4, 5)
        compare(popover.model.callsNamed("changeBrightness")[0].args, [2, 25])
        compare(popover.model.displays.get(1).brightness, 25)
        compare(brightness.value, 25)

        const volume = findChild(second, "volumeSlider")
        const volumeTrack = findChild(volume, "track")
        mouseClick(volumeTrack, volumeTrack.width - 1, 5)
        compare(popover.model.callsNamed("changeVolume")[0].args, [2, 100])
    }

    function test_muteSwitchesSymbolAndTintTogether() {
        const popover = makePopover(1)
        const volume = findChild(popover, "volumeSlider")
        const muteSymbol = findChild(popover, "muteSymbol")
        compare(volume.icon, "speaker.wave.2.fill")
        verify(sameColour(volume.tint, Theme.green))
        compare(muteSymbol.name, "speaker.wave.2.fill")
        verify(sameColour(muteSymbol.color, Theme.secondary))

        mouseClick(findChild(popover, "muteButton"))
        compare(popover.model.callsNamed("toggleMute")[0].args, [1])
        compare(volume.icon, "speaker.slash.fill")
        verify(sameColour(volume.tint, Theme.red))
        compare(muteSymbol.name, "speaker.slash.fill")
        verify(sameColour(muteSymbol.color, Theme.red))

        mouseClick(findChild(popover, "muteButton"))
        compare(volume.icon, "speaker.wave.2.fill")
        compare(muteSymbol.name, "speaker.wave.2.fill")
    }

    function activeLabels(popover) {
        return allNamed(popover, "activeTile").filter(t => t.visible)
            .map(t => findChild(t.parent, "label").text)
    }

    function test_clickedInputLightsUpAtOnce() {
        const popover = makePopover(1, { activeInput: 0 })
        compare(activeLabels(popover), [])
        popover.model.displays.setProperty(0, "activeInput", 0x11)
        compare(activeLabels(popover), ["HDMI 1"])
        // A model that has not recorded the choice yet: the click shows at once anyway.
        popover.model.echoes = false
        const tiles = allNamed(popover, "tile")
        mouseClick(tiles[2].parent)
        compare(popover.model.callsNamed("selectInput")[0].args, [1, 0x0F])
        compare(activeLabels(popover), ["DP 1"])
        // The display reports another input later: that one is shown.
        popover.model.displays.setProperty(0, "activeInput", 0x13)
        compare(activeLabels(popover), ["USB-C"])
    }

    // Hovering an input tile changes its look, never the choice; a press does not stick.
    function test_inputTileHoverAndPress() {
        const popover = makePopover(1, { activeInput: 0x11 })
        mouseMove(popover, 350, 5)
        const tile = allNamed(popover, "tile")[1]
        const button = tile.parent
        tryVerify(() => sameColour(tile.color, Theme.primaryAt(0.06)))
        mouseMove(button, 10, 10)
        tryVerify(() => !sameColour(tile.color, Theme.primaryAt(0.06)))
        compare(activeLabels(popover), ["HDMI 1"])
        mousePress(button, 10, 10)
        compare(button.isPressed, true)
        mouseRelease(button, 10, 10)
        compare(button.isPressed, false)
    }

    function test_untitledDisplayIsNamedByItsId() {
        const popover = makePopover(1, { displayId: 7, title: "" })
        compare(allNamed(findChild(popover, "section"), "title")[0].text, "Display 7")
    }

    function test_footerHoverAndActions() {
        const popover = makePopover(1)
        const about = findChild(popover, "aboutButton")
        // Away from the button first: the pointer may still rest where an earlier test left it.
        mouseMove(popover, 350, 5)
        tryVerify(() => !about.isHovering)
        mouseMove(about, about.width / 2, about.height / 2)
        tryVerify(() => about.isHovering)
        mouseMove(popover, 5, 5)
        tryVerify(() => !about.isHovering)

        mouseClick(about)
        mouseClick(findChild(popover, "settingsButton"))
        mouseClick(findChild(popover, "quitButton"))
        compare(popover.model.calls.map(c => c.name), ["showAbout", "showSettings", "quit"])
    }

    function test_symbolsReachTheProviderWithTheirColour() {
        const popover = makePopover(1, { isMuted: true })
        const muteSymbol = findChild(popover, "muteSymbol")
        tryCompare(muteSymbol, "status", Image.Ready)
        // Somewhere in the drawn symbol is the red of the tint.
        const image = grabImage(popover)
        const origin = muteSymbol.mapToItem(popover, 0, 0)
        let red = 0
        for (let y = 0; y < muteSymbol.height; ++y)
            for (let x = 0; x < muteSymbol.width; ++x) {
                const pixel = image.pixel(Math.floor(origin.x) + x, Math.floor(origin.y) + y)
                if (pixel.r > 0.9 && pixel.g < 0.4 && pixel.b < 0.4) ++red
            }
        verify(red > 5, "red pixels: " + red)
    }

    // The item that has the keyboard focus after `count` presses of Tab (Shift+Tab when
    // `back`), named by objectName or, for an input tile, by its label.
    function focusAfterTabs(popover, count, back) {
        for (let i = 0; i < count; ++i)
            keyClick(Qt.Key_Tab, back ? Qt.ShiftModifier : Qt.NoModifier)
        const item = popover.Window.activeFocusItem
        if (!item) return ""
        const label = findChild(item, "label")
        return label ? label.text : item.objectName
    }

    // Every control in visual order with Tab, backwards with Shift+Tab, each with a ring.
    function test_tabReachesEveryControlInVisualOrder() {
        const popover = makePopover(2)
        popover.forceActiveFocus()
        const order = ["brightnessSlider", "volumeSlider", "muteButton",
                       "HDMI 1", "HDMI 2", "DP 1", "DP 2", "USB-C"]
        const expected = order.concat(order, ["aboutButton", "settingsButton", "quitButton"])
        const seen = []
        for (let i = 0; i < expected.length; ++i) {
            seen.push(focusAfterTabs(popover, 1))
            const ring = findChild(popover.Window.activeFocusItem, "focusRing")
            verify(ring && ring.visible, seen[i] + " shows no focus ring")
        }
        compare(seen, expected)
        compare(focusAfterTabs(popover, 1, true), "settingsButton")
        compare(focusAfterTabs(popover, 1, true), "aboutButton")
    }

    // Arrows, Page Up/Down, Home and End move the focused slider within its range; Space
    // and Return press the mute button and an input tile.
    function test_keysMoveSlidersAndPressButtons() {
        const popover = makePopover(1, { brightness: 50, volume: 98, volumeMax: 100 })
        popover.forceActiveFocus()
        const keys = [
            { key: Qt.Key_Right, call: "changeBrightness", value: 51 },
            { key: Qt.Key_Up, call: "changeBrightness", value: 52 },
            { key: Qt.Key_Left, call: "changeBrightness", value: 51 },
            { key: Qt.Key_PageDown, call: "changeBrightness", value: 41 },
            { key: Qt.Key_PageUp, call: "changeBrightness", value: 51 },
            { key: Qt.Key_Home, call: "changeBrightness", value: 0 },
            { key: Qt.Key_End, call: "changeBrightness", value: 100 },
            { tab: true, key: Qt.Key_PageUp, call: "changeVolume", value: 100 },
            { key: Qt.Key_Right, call: "changeVolume", value: 100 },
        ]
        focusAfterTabs(popover, 1)
        for (const k of keys) {
            if (k.tab) focusAfterTabs(popover, 1)
            popover.model.calls = []
            keyClick(k.key)
            compare(popover.model.callsNamed(k.call).map(c => c.args), [[1, k.value]], "key " + k.key)
        }
        const slider = findChild(popover, "brightnessSlider")
        compare(slider.Accessible.name, "Brightness, Display 1, 100 %")

        compare(focusAfterTabs(popover, 1), "muteButton")
        keyClick(Qt.Key_Space)
        compare(popover.model.callsNamed("toggleMute").length, 1)
        compare(focusAfterTabs(popover, 2), "HDMI 2")
        keyClick(Qt.Key_Return)
        compare(popover.model.callsNamed("selectInput")[0].args, [1, 0x12])
        // The active tile keeps its ring: it lies outside the accent fill.
        verify(findChild(popover.Window.activeFocusItem, "focusRing").visible)
        compare(activeLabels(popover), ["HDMI 2"])
    }
}
