import QtQuick
import QtTest
import Panelwright.Views

// Pictures of the popover for review (saved only when a folder is given), and a check that
// what is drawn is the popover and not an empty frame.
TestCase {
    id: testCase
    name: "PopoverPictures"
    when: windowShown
    // A TestCase is invisible by default, and an invisible item gets no pointer events.
    visible: true
    width: 360
    height: 900

    Component { id: fakeComponent; FakePopoverModel {} }
    Component { id: popoverComponent; PopoverContent {} }

    function test_picture_data() {
        return [
            { tag: "popover-two-displays", displays: [
                { title: "DELL U2723QE", brightness: 72, volume: 35, activeInput: 0x0F },
                { title: "LG HDR 4K", ddcStatus: "unverified", brightness: 0, volume: 60,
                  isMuted: true, activeInput: 0x11 }] },
            // The settings button hovered for the picture.
            { tag: "popover-software-only", hover: true, displays: [
                { title: "A monitor with a very long name that cannot fit on one line",
                  ddcStatus: "softwareOnly", brightness: 120, volume: 0, volumeMax: 0 }] },
            { tag: "popover-no-dimming", displays: [
                { title: "DELL U2723QE", brightness: 40, volume: 35, activeInput: 0x0F,
                  dimmingAvailable: false }] },
            { tag: "popover-empty", displays: [] }
        ]
    }
    function test_picture(data) {
        const fake = createTemporaryObject(fakeComponent, testCase)
        for (const display of data.displays) fake.addDisplay(display)
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        popover.height = Qt.binding(() => popover.implicitHeight)
        if (data.hover) {
            mouseMove(findChild(popover, "settingsButton"), 10, 10)
            wait(300)
        }
        waitForRendering(popover)
        const image = grabImage(popover)
        compare(image.width, 360)
        compare(image.height, Math.ceil(popover.implicitHeight))
        if (picturesFolder.length > 0)
            image.save(picturesFolder + "/" + data.tag + (Theme.dark ? "-dark" : "") + ".png")
    }
}
