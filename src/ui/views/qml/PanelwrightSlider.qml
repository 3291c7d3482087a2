import QtQuick

// A level slider: the symbol, a capsule track filled in the tint up to the value, a white
// thumb, and the value as a percentage. A press anywhere on the track jumps there; the
// position maps over the track's full width, so both ends are reachable with the thumb
// still drawn inside the track.
Item {
    id: slider

    property string icon
    property color tint: Theme.blue
    // The value shown when not dragging, in the monitor's own units (0 ... maxValue).
    property real value: 0
    property real maxValue: 100
    property real trackHeight: 10
    property real thumbSize: 18
    property bool isDragging: false
    // What a screen reader calls it ("Brightness, DELL U2723QE"); the percentage follows.
    property string accessibleName: icon
    // A control the monitor cannot take right now: drawn faded, deaf to pointer and keys.
    property bool interactive: true

    // Every pointer change of a drag, also when the value did not change; never at its end.
    signal changed(real newValue)

    // The value of the running drag; the bound `value` again once the drag ends.
    property real dragValue: 0
    readonly property real shownValue: isDragging ? dragValue : value
    readonly property int percentage: maxValue > 0 ? Theme.roundAway(shownValue * 100 / maxValue) : 0
    readonly property real trackWidth: track.width
    readonly property real fillWidth: interactive && track.width > 0 && maxValue > 0 ? track.width * shownValue / maxValue : 0

    readonly property real horizontalPadding: 16
    readonly property real spacing: 10

    implicitWidth: 360
    implicitHeight: track.height + 2

    // The value for a pointer at x in the track: pinned to the ends, rounded to whole units.
    function valueAt(x) {
        const w = track.width
        if (w <= 0 || !(x > 0)) return 0
        if (x >= w) return maxValue
        return Theme.roundAway(maxValue * x / w)
    }

    // A key moves the value by `step` units from what is shown, within 0 ... maxValue. The
    // model stores each value at once and writes after a quiet time, so a burst of keys
    // becomes one write, as a drag does.
    function stepBy(step) {
        if (!(maxValue > 0)) return
        const next = Math.max(0, Math.min(maxValue, Theme.roundAway(shownValue + step)))
        changed(next)
    }
    readonly property real keyStep: Math.max(1, Theme.roundAway(maxValue / 100))
    readonly property real pageStep: Math.max(1, Theme.roundAway(maxValue / 10))

    activeFocusOnTab: interactive
    opacity: interactive ? 1 : 0.45
    Keys.onPressed: event => {
        if (!interactive) return
        switch (event.key) {
        case Qt.Key_Right: case Qt.Key_Up: stepBy(keyStep); break
        case Qt.Key_Left: case Qt.Key_Down: stepBy(-keyStep); break
        case Qt.Key_PageUp: stepBy(pageStep); break
        case Qt.Key_PageDown: stepBy(-pageStep); break
        case Qt.Key_Home: stepBy(-maxValue - shownValue); break
        case Qt.Key_End: stepBy(maxValue); break
        default: return
        }
        event.accepted = true
    }

    Accessible.role: Accessible.Slider
    Accessible.name: accessibleName + (interactive ? ", " + percentage + " %" : "")
    Accessible.focusable: true
    Accessible.onIncreaseAction: stepBy(keyStep)
    Accessible.onDecreaseAction: stepBy(-keyStep)

    function dragTo(x) {
        isDragging = true
        dragValue = valueAt(x)
        changed(dragValue)
    }

    SymbolImage {
        id: symbol
        objectName: "icon"
        x: slider.horizontalPadding + (20 - width) / 2
        anchors.verticalCenter: parent.verticalCenter
        size: Theme.symbolSize(13)
        name: slider.icon
        color: slider.tint
    }

    Item {
        id: track
        objectName: "track"
        x: slider.horizontalPadding + 20 + slider.spacing
        width: Math.max(0, slider.width - x - slider.spacing - readout.width - slider.horizontalPadding)
        height: Math.max(slider.trackHeight, slider.thumbSize) + 4
        anchors.verticalCenter: parent.verticalCenter

        FocusRing {
            shown: slider.activeFocus
            controlRadius: height / 2
        }

        Rectangle {
            id: background
            objectName: "background"
            width: parent.width
            height: slider.trackHeight
            radius: height / 2
            anchors.verticalCenter: parent.verticalCenter
            color: Theme.primaryAt(0.1)
        }

        // A reading above the monitor's maximum makes the fill longer than the track; it is
        // cut at the track's end instead of running under the percentage.
        Item {
            width: parent.width
            height: parent.height
            clip: slider.fillWidth > parent.width

            Rectangle {
                id: fill
                objectName: "fill"
                width: Math.max(slider.fillWidth, slider.trackHeight)
                height: slider.trackHeight
                radius: height / 2
                anchors.verticalCenter: parent.verticalCenter
                gradient: Gradient {
                    orientation: Gradient.Horizontal
                    GradientStop { position: 0; color: Theme.withAlpha(slider.tint, 0.7) }
                    GradientStop { position: 1; color: slider.tint }
                }
            }
        }

        Item {
            id: thumb
            objectName: "thumb"
            // No value known, no position to show.
            visible: slider.interactive
            width: slider.thumbSize
            height: slider.thumbSize
            x: Math.max(0, Math.min(track.width - width, slider.fillWidth - width / 2))
            anchors.verticalCenter: parent.verticalCenter
            scale: slider.isDragging ? 1.15 : 1
            Behavior on scale { NumberAnimation { duration: 120; easing.type: Easing.OutQuad } }

            // A soft shadow, one point down, from stacked translucent discs (the software
            // renderer draws no blur).
            Rectangle {
                x: -1.5; y: -0.5
                width: parent.width + 3; height: parent.height + 3
                radius: width / 2
                color: Qt.rgba(0, 0, 0, 0.06)
            }
            Rectangle {
                x: -0.5; y: 0.5
                width: parent.width + 1; height: parent.height + 1
                radius: width / 2
                color: Qt.rgba(0, 0, 0, 0.12)
            }
            Rectangle {
                anchors.fill: parent
                radius: width / 2
                color: "white"
            }
        }

        MouseArea {
            anchors.fill: parent
            enabled: slider.interactive
            preventStealing: true
            onPressed: mouse => slider.dragTo(mouse.x)
            onPositionChanged: mouse => slider.dragTo(mouse.x)
            onReleased: slider.isDragging = false
            onCanceled: slider.isDragging = false
        }
    }

    Text {
        id: readout
        objectName: "readout"
        x: slider.width - slider.horizontalPadding - width
        width: 36
        anchors.verticalCenter: parent.verticalCenter
        horizontalAlignment: Text.AlignRight
        // A monitor that never answered has no value to show.
        text: slider.interactive ? slider.percentage + "%" : "\u2013"
        color: Theme.secondary
        font.family: Theme.monospaceFamily
        font.pixelSize: 11
        font.weight: Font.Medium
    }
}
