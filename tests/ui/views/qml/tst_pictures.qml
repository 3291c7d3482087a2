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

    function picture(popover, name) {
        waitForRendering(popover)
        const image = grabImage(popover)
        compare(image.width, 360)
        compare(image.height, Math.ceil(popover.implicitHeight))
        if (picturesFolder.length > 0)
            image.save(picturesFolder + "/" + name + (Theme.dark ? "-dark" : "") + ".png")
    }

    function test_twoDisplays() {
        const fake = createTemporaryObject(fakeComponent, testCase)
        fake.addDisplay({ title: "DELL U2723QE", brightness: 72, volume: 35, activeInput: 0x0F })
        fake.addDisplay({ title: "LG HDR 4K", ddcStatus: "unverified", brightness: 0,
                          volume: 60, isMuted: true, activeInput: 0x11 })
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        popover.height = Qt.binding(() => popover.implicitHeight)
        picture(popover, "popover-two-displays")
    }

    function test_softwareOnlyAndLongName() {
        const fake = createTemporaryObject(fakeComponent, testCase)
        fake.addDisplay({ title: "A monitor with a very long name that cannot fit on one line",
                          ddcStatus: "softwareOnly", brightness: 120, volume: 0, volumeMax: 0 })
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        popover.height = Qt.binding(() => popover.implicitHeight)
        // Hover the settings button and the second input for the picture.
        mouseMove(findChild(popover, "settingsButton"), 10, 10)
        wait(300)
        picture(popover, "popover-software-only")
    }

    function test_noDimming() {
        const fake = createTemporaryObject(fakeComponent, testCase)
        fake.addDisplay({ title: "DELL U2723QE", brightness: 40, volume: 35, activeInput: 0x0F,
                          dimmingAvailable: false })
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        popover.height = Qt.binding(() => popover.implicitHeight)
        picture(popover, "popover-no-dimming")
    }

    function test_empty() {
        const fake = createTemporaryObject(fakeComponent, testCase)
        const popover = createTemporaryObject(popoverComponent, testCase, { model: fake })
        popover.height = Qt.binding(() => popover.implicitHeight)
        picture(popover, "popover-empty")
    }
}
