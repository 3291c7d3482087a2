import QtQuick

// How the display is driven: over DDC/CI, over DDC/CI not yet confirmed, or by software
// dimming alone. A small capsule in the status colour.
Rectangle {
    id: badge

    property string status: "verified"

    readonly property string text: status === "verified" ? qsTr("DDC")
                                 : status === "unverified" ? qsTr("DDC (unverified)")
                                 : status === "softwareOnly" ? qsTr("Software") : ""
    readonly property color badgeColor: status === "verified" ? Theme.green : Theme.orange
    readonly property color textColor: status === "verified" ? Theme.greenText : Theme.orangeText

    visible: text.length > 0
    implicitWidth: label.implicitWidth + 12
    implicitHeight: label.implicitHeight + 4
    radius: height / 2
    color: Theme.withAlpha(badgeColor, 0.15)

    Accessible.role: Accessible.StaticText
    Accessible.name: text

    Text {
        id: label
        objectName: "badgeText"
        anchors.centerIn: parent
        text: badge.text
        color: badge.textColor
        font.family: Theme.fontFamily
        font.pixelSize: 9
        font.weight: Font.Medium
    }
}
