import QtQuick

// One tab of the settings window's tab strip: a symbol over its label; the selected one
// sits on a soft backdrop and takes the accent colour.
Rectangle {
    id: tab

    property string label
    property string symbol
    property bool selected: false
    signal chosen()

    implicitWidth: Math.max(72, labelText.implicitWidth + 24)
    implicitHeight: 46
    radius: 6
    color: selected ? Theme.primaryAt(0.10) : (mouse.containsMouse ? Theme.primaryAt(0.05) : "transparent")

    Column {
        anchors.centerIn: parent
        spacing: 3
        SymbolImage {
            anchors.horizontalCenter: parent.horizontalCenter
            size: 20
            name: tab.symbol
            color: tab.selected ? Theme.blue : Theme.secondary
        }
        Text {
            id: labelText
            anchors.horizontalCenter: parent.horizontalCenter
            text: tab.label
            color: tab.selected ? Theme.primary : Theme.secondary
            font.family: Theme.fontFamily
            font.pixelSize: 11
            font.weight: tab.selected ? Font.DemiBold : Font.Normal
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: tab.chosen()
    }
}
