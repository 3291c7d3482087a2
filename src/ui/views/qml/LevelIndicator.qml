import QtQuick
import QtQuick.Window

// The level indicator drawn by the program itself when the desktop has none: a dark,
// translucent rounded panel with the symbol and a track filled continuously to the level.
Window {
    id: indicator

    property string symbol: "sun.max.fill"
    property real level: 0
    // Width of the fill on the 132-point track.
    property real fillWidth: 0

    readonly property real trackWidth: 132
    // The fill as drawn: the level continuously, within the track.
    readonly property real shownFill: Math.max(0, Math.min(trackWidth, fillWidth))

    width: 200
    height: 70
    minimumWidth: 200
    maximumWidth: 200
    minimumHeight: 70
    maximumHeight: 70
    flags: Qt.ToolTip | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
           | Qt.WindowDoesNotAcceptFocus | Qt.WindowTransparentForInput
    color: "transparent"
    visible: false

    Rectangle {
        objectName: "panel"
        anchors.fill: parent
        radius: 14
        color: Qt.rgba(0, 0, 0, 0.85)
        // A hairline keeps the edge visible on a dark desktop.
        border.width: 1
        border.color: Qt.rgba(1, 1, 1, 0.14)

        SymbolImage {
            objectName: "symbol"
            x: 16
            y: 22
            size: 26
            name: indicator.symbol
            color: "white"
        }

        Rectangle {
            objectName: "track"
            x: 52
            y: 31
            width: indicator.trackWidth
            height: 8
            radius: 4
            color: Qt.rgba(1, 1, 1, 0.2)

            Rectangle {
                objectName: "fill"
                width: indicator.shownFill
                height: 8
                radius: 4
                color: "white"
                visible: width > 0
            }
        }
    }
}
