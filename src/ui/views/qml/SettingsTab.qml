import QtQuick

// One tab of the settings window's tab strip: a symbol over its label; the selected one
// sits on a soft backdrop and takes the accent colour.
Rectangle {
    id: tab

    property string label
    property string symbol
    property bool selected: false
    signal chosen()

    // In the Tab order like every other control; Space or Return chooses it.
    activeFocusOnTab: true
    Keys.onPressed: event => {
        if (event.key === Qt.Key_Space || event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
            tab.chosen()
            event.accepted = true
        }
    }
    Accessible.role: Accessible.PageTab
    Accessible.name: label
    Accessible.selectable: true
    Accessible.selected: selected
    Accessible.focusable: true
    Accessible.onPressAction: tab.chosen()

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
            font.pixelSize: Theme.captionSize
            font.weight: tab.selected ? Font.DemiBold : Font.Normal
        }
    }
    FocusRing { controlRadius: 6 }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: tab.chosen()
    }
}
