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
        // Paler than the line above, but still 4.5:1 on the window.
        color: Theme.tertiary
        font.family: Theme.fontFamily
        font.pixelSize: 11
    }
}
