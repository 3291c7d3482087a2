import QtQuick

// A hairline across the parent's width, `inset` in from both sides.
Item {
    id: divider

    property real inset: 0

    width: parent ? parent.width : 0
    implicitHeight: 1

    Rectangle {
        x: divider.inset
        width: Math.max(0, divider.width - 2 * divider.inset)
        height: 1
        color: Theme.primaryAt(0.12)
    }
}
