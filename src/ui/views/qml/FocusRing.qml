import QtQuick

// The ring around the control that has the keyboard focus: drawn just outside its parent,
// in the accent colour, so it shows on any fill the control has (an active input tile, a
// switch that is on).
Rectangle {
    id: ring

    // The corner radius of the control it surrounds.
    property real controlRadius: 4
    property bool shown: parent ? parent.activeFocus : false

    readonly property real gap: 2

    objectName: "focusRing"
    visible: shown
    x: -gap - 1
    y: -gap - 1
    width: parent ? parent.width + 2 * (gap + 1) : 0
    height: parent ? parent.height + 2 * (gap + 1) : 0
    radius: controlRadius + gap + 1
    color: "transparent"
    border.width: 2
    border.color: Theme.focus
}
