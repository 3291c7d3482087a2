import QtQuick
import QtQuick.Window

// The level indicator drawn by the program itself when the desktop has none: a dark
// rounded panel with the symbol and sixteen segments lit up to the level.
Window {
    id: indicator

    property string symbol: "sun.max.fill"
    property real level: 0
    // Width of the fill on the 132-point track.
    property real fillWidth: 0

    readonly property int segmentCount: 16
    readonly property real trackWidth: 132
    readonly property int litSegments: Math.max(0, Math.min(segmentCount,
                                           Theme.roundAway(fillWidth / trackWidth * segmentCount)))

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

        SymbolImage {
            objectName: "symbol"
            x: 16
            y: 22
            size: 26
            name: indicator.symbol
            color: "white"
        }

        Item {
            objectName: "track"
            x: 52
            y: 31
            width: indicator.trackWidth
            height: 8

            Repeater {
                model: indicator.segmentCount

                Rectangle {
                    required property int index
                    readonly property real gap: 2
                    readonly property real segmentWidth:
                        (indicator.trackWidth - gap * (indicator.segmentCount - 1)) / indicator.segmentCount
                    x: index * (segmentWidth + gap)
                    width: segmentWidth
                    height: 8
                    radius: 2
                    color: index < indicator.litSegments ? "white" : Qt.rgba(1, 1, 1, 0.2)
                }
            }
        }
    }
}
