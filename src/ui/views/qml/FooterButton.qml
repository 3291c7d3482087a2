import QtQuick

// A quiet footer button: symbol and title in the secondary colour, brightening to the
// primary colour on a faint rounded backdrop while the pointer is over it.
Item {
    id: button

    property string title
    property string icon
    readonly property bool isHovering: hover.hovered

    signal action()

    activeFocusOnTab: true
    Keys.onPressed: event => {
        if (event.key === Qt.Key_Space || event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
            button.action()
            event.accepted = true
        }
    }
    Accessible.role: Accessible.Button
    Accessible.name: title
    Accessible.focusable: true
    Accessible.onPressAction: button.action()

    property color foreground: isHovering ? Theme.primary : Theme.secondary
    Behavior on foreground { ColorAnimation { duration: 150; easing.type: Easing.InOutQuad } }

    implicitWidth: row.implicitWidth + 16
    implicitHeight: row.implicitHeight + 8

    Rectangle {
        id: backdrop
        objectName: "backdrop"
        anchors.fill: parent
        radius: 5
        color: Theme.primaryAt(button.isHovering ? 0.08 : 0)
        Behavior on color { ColorAnimation { duration: 150; easing.type: Easing.InOutQuad } }
    }

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 4

        SymbolImage {
            anchors.verticalCenter: parent.verticalCenter
            size: Theme.symbolSize(10)
            name: button.icon
            color: button.foreground
        }
        Text {
            objectName: "title"
            anchors.verticalCenter: parent.verticalCenter
            text: button.title
            color: button.foreground
            font.family: Theme.fontFamily
            font.pixelSize: 12
        }
    }

    FocusRing { controlRadius: 5 }

    HoverHandler { id: hover }
    TapHandler { onTapped: button.action() }
}
