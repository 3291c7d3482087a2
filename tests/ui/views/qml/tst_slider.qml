import QtQuick
import QtTest
import Panelwright.Views

TestCase {
    id: testCase
    name: "PanelwrightSlider"
    when: windowShown
    // A TestCase is invisible by default, and an invisible item gets no pointer events.
    visible: true
    width: 400
    height: 200

    Component {
        id: sliderComponent
        // 108 of the width go to paddings, symbol and read-out: the track is 200 wide.
        PanelwrightSlider { width: 308; icon: "sun.max.fill"; tint: Theme.yellow }
    }

    SignalSpy { id: changedSpy; signalName: "changed" }

    function makeSlider(properties) {
        const slider = createTemporaryObject(sliderComponent, testCase, properties)
        verify(slider)
        changedSpy.clear()
        changedSpy.target = slider
        compare(findChild(slider, "track").width, 200)
        return slider
    }

    function reported() {
        return changedSpy.signalArguments.map(a => a[0])
    }

    function test_clickMapsOverTheFullTrackWidth() {
        const slider = makeSlider({ value: 10, maxValue: 100 })
        const track = findChild(slider, "track")
        mouseClick(track, 101, track.height / 2)
        // 100 x 101 / 200 = 50.5, rounded away from zero.
        compare(reported(), [51])
        // The bound value is the model's: the drag shows 51 only while it runs.
        compare(slider.isDragging, false)
        compare(slider.value, 10)
    }

    function test_dragPinsAtBothEndsAndReportsEveryMove() {
        const slider = makeSlider({ value: 40, maxValue: 250 })
        const track = findChild(slider, "track")
        mousePress(track, 100, 5)
        compare(slider.isDragging, true)
        tryCompare(findChild(slider, "thumb"), "scale", 1.15)
        compare(findChild(slider, "readout").text, "50%")
        mouseMove(track, -40, 5, -1, Qt.LeftButton)
        compare(slider.shownValue, 0)
        compare(findChild(slider, "thumb").x, 0)
        mouseMove(track, -10, 5, -1, Qt.LeftButton)
        mouseMove(track, 260, 5, -1, Qt.LeftButton)
        compare(slider.shownValue, 250)
        compare(findChild(slider, "readout").text, "100%")
        compare(findChild(slider, "thumb").x, 200 - slider.thumbSize)
        const beforeRelease = changedSpy.count
        mouseRelease(track, 260, 5)
        // Every change is reported, also one that did not move the value; the end is not.
        compare(reported(), [125, 0, 0, 250])
        compare(changedSpy.count, beforeRelease)
        compare(slider.isDragging, false)
    }

    function test_zeroMaximumReadsZeroWithAStub() {
        const slider = makeSlider({ value: 30, maxValue: 0 })
        compare(findChild(slider, "readout").text, "0%")
        compare(findChild(slider, "fill").width, slider.trackHeight)
        compare(findChild(slider, "thumb").x, 0)
        const track = findChild(slider, "track")
        mouseClick(track, 150, 5)
        compare(reported(), [0])
    }

    function test_fillGeometry_data() {
        return [
            { tag: "empty keeps a round stub", value: 0, max: 100, text: "0%", fill: 10, thumb: 0 },
            { tag: "middle", value: 50, max: 100, text: "50%", fill: 100, thumb: 91 },
            { tag: "above the maximum", value: 120, max: 100, text: "120%", fill: 240, thumb: 182 }
        ]
    }
    function test_fillGeometry(data) {
        const slider = makeSlider({ value: data.value, maxValue: data.max })
        compare(findChild(slider, "readout").text, data.text)
        compare(findChild(slider, "fill").width, data.fill)
        compare(findChild(slider, "thumb").x, data.thumb)
    }
}
