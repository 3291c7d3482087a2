import QtQuick

// Shown instead of the display sections when no monitor can be controlled.
Column {
    width: 360
    spacing: 10
    topPadding: 30
    bottomPadding: 30

    SymbolImage {
        anchors.horizontalCenter: parent.horizontalCenter
        size: Theme.symbolSize(32)
        name: "display.trianglebadge.exclamationmark"
        color: Theme.secondary
    }
    Text {
        anchors.horizontalCenter: parent.horizontalCenter
        text: qsTr("No external displays detected")
        color: Theme.secondary
        font.family: Theme.fontFamily
        font.pixelSize: 13
        font.weight: Font.Medium
    }
    Text {
        anchors.horizontalCenter: parent.horizontalCenter
        text: qsTr("Connect an external monitor")
        color: Theme.secondary
        opacity: 0.7
        font.family: Theme.fontFamily
        font.pixelSize: 11
    }
}
