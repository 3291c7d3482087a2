import QtQuick

// One input source: its symbol over its label on a rounded tile, filled with the accent
// colour when it is the display's input, a paler accent under the pointer.
Item {
    id: button

    property string label
    property string icon
    property bool isActive: false
    readonly property bool isHovering: hover.hovered
    property bool isPressed: false

    signal action()

    // Tab reaches every tile; Space or Return chooses it, as a click does.
    activeFocusOnTab: true
    Keys.onPressed: event => {
        if (event.key === Qt.Key_Space || event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
            button.action()
            event.accepted = true
        }
    }
    Accessible.role: Accessible.RadioButton
    Accessible.name: label
    Accessible.checkable: true
    Accessible.checked: isActive
    Accessible.focusable: true
    Accessible.onPressAction: button.action()

    readonly property color foreground: isActive || isHovering ? "white" : Theme.secondary

    implicitWidth: Math.max(content.implicitWidth + 8, 48)
    implicitHeight: content.implicitHeight + 14
    scale: isPressed ? 0.95 : 1
    Behavior on scale { NumberAnimation { duration: 100; easing.type: Easing.InOutQuad } }

    Rectangle {
        id: tile
        objectName: "tile"
        anchors.fill: parent
        radius: 7
        color: button.isHovering ? Theme.withAlpha(Theme.accent, 0.6) : Theme.primaryAt(0.06)
        Behavior on color { ColorAnimation { duration: 150; easing.type: Easing.InOutQuad } }
    }

    // The active fill is not animated: a chosen input lights up at once.
    Rectangle {
        objectName: "activeTile"
        anchors.fill: parent
        radius: 7
        color: Theme.accent
        visible: button.isActive
    }

    Column {
        id: content
        anchors.centerIn: parent
        spacing: 3

        SymbolImage {
            anchors.horizontalCenter: parent.horizontalCenter
            size: Theme.symbolSize(12)
            name: button.icon
            color: button.foreground
        }
        Text {
            objectName: "label"
            anchors.horizontalCenter: parent.horizontalCenter
            text: button.label
            color: button.foreground
            font.family: Theme.fontFamily
            font.pixelSize: 9
            font.weight: Font.DemiBold
        }
    }

    FocusRing { controlRadius: 7 }

    HoverHandler { id: hover }
    TapHandler { onTapped: button.action() }
    PressActionModifier {
        onPress: button.isPressed = true
        onRelease: button.isPressed = false
    }
}
