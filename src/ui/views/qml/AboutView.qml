import QtQuick

// The About panel's content, exactly 340 × 320: the program's icon, name and version, two
// taglines, the copyright line and the build it was made from.
Rectangle {
    id: root

    required property string appVersion
    required property string gitHash
    required property string copyright

    width: 340
    height: 320
    color: Theme.window

    Column {
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 0

        Item { width: 1; height: 24 }
        // The program's icon: the display symbol of the tray item on a blue tile.
        Rectangle {
            objectName: "appIcon"
            anchors.horizontalCenter: parent.horizontalCenter
            width: 96
            height: 96
            radius: 22
            gradient: Gradient {
                GradientStop { position: 0.0; color: "#3b9bff" }
                GradientStop { position: 1.0; color: "#0a62d6" }
            }
            SymbolImage {
                anchors.centerIn: parent
                size: 58
                name: "display"
                color: "white"
            }
        }
        Item { width: 1; height: 14 }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Panelwright"
            color: Theme.primary
            font.family: Theme.fontFamily
            font.pixelSize: 20
            font.bold: true
        }
        Text {
            objectName: "version"
            anchors.horizontalCenter: parent.horizontalCenter
            topPadding: 2
            text: qsTr("Version ") + root.appVersion
            color: Theme.secondary
            font.family: Theme.fontFamily
            font.pixelSize: 12
        }
        Item { width: 1; height: 24 }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: qsTr("Every monitor, one click away.")
            color: Theme.primary
            font.family: Theme.fontFamily
            font.pixelSize: 14
            font.weight: Font.Medium
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            topPadding: 4
            horizontalAlignment: Text.AlignHCenter
            text: qsTr("Brightness, volume, and input control\nfor your external monitors")
            color: Theme.secondary
            font.family: Theme.fontFamily
            font.pixelSize: 12
        }
        Item { width: 1; height: 24 }
        Text {
            objectName: "copyright"
            anchors.horizontalCenter: parent.horizontalCenter
            text: root.copyright
            color: Theme.tertiary
            font.family: Theme.fontFamily
            font.pixelSize: 11
        }
        Text {
            objectName: "build"
            anchors.horizontalCenter: parent.horizontalCenter
            topPadding: 2
            text: qsTr("Build ") + root.gitHash
            color: Theme.tertiary
            font.family: Theme.fontFamily
            font.pixelSize: 11
        }
        Item { width: 1; height: 16 }
    }
}
