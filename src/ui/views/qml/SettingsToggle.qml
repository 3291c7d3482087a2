import QtQuick
import QtQuick.Controls.Fusion

// A switch that shows `checked` as the model has it. A click reports `flipped(wanted)` and
// does not keep a state of its own: the model answers and the binding shows its answer.
// Drawn in the window's colours: the accent when on, a soft track when off, and the focus
// ring outside the track so that it shows in both states.
Switch {
    id: toggle

    property bool on: false

    checked: on
    padding: 0
    text: ""
    implicitWidth: implicitIndicatorWidth + leftPadding + rightPadding
    implicitHeight: implicitIndicatorHeight + topPadding + bottomPadding
    onToggled: {
        const wanted = checked
        checked = Qt.binding(() => toggle.on)
        toggle.flipped(wanted)
    }

    signal flipped(bool wanted)

    indicator: Rectangle {
        objectName: "track"
        implicitWidth: 38
        implicitHeight: 22
        x: toggle.leftPadding
        y: toggle.topPadding + (toggle.availableHeight - height) / 2
        radius: height / 2
        color: toggle.checked ? Theme.accent : Theme.primaryAt(Theme.dark ? 0.28 : 0.2)
        opacity: toggle.enabled ? 1 : 0.45
        Behavior on color { ColorAnimation { duration: 120 } }

        Rectangle {
            x: toggle.checked ? parent.width - width - 2 : 2
            anchors.verticalCenter: parent.verticalCenter
            width: 18
            height: 18
            radius: 9
            color: "white"
            border.width: 1
            border.color: Qt.rgba(0, 0, 0, 0.12)
            Behavior on x { NumberAnimation { duration: 120; easing.type: Easing.OutQuad } }
        }
        FocusRing {
            shown: toggle.visualFocus
            controlRadius: 11
        }
    }
    contentItem: Item {}
}
