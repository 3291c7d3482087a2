import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

// The options of one display: its header (symbol, title, DDC status), the friendly name,
// the longer DDC delay, forced software brightness, and the key its options are stored
// under. The fields start from the stored values and write every change at once.
Column {
    id: card

    required property var settings
    // displayId, title, ddcStatus, preferenceKey, friendlyName, longerDelay, forceSoftware
    required property var row

    property bool longerDelay: card.row.longerDelay
    property bool forceSoftware: card.row.forceSoftware

    readonly property string statusText: card.row.ddcStatus === "verified" ? qsTr("DDC")
                                        : card.row.ddcStatus === "softwareOnly" ? qsTr("Software")
                                        : qsTr("DDC (unverified)")

    objectName: "displayRow"
    spacing: 8
    topPadding: 4
    bottomPadding: 4

    RowLayout {
        width: card.width
        spacing: 7
        SymbolImage {
            size: Theme.symbolSize(13)
            name: "display"
            color: Theme.blue
        }
        Text {
            objectName: "title"
            Layout.fillWidth: true
            // The friendly name, as it is typed, else the display's own title.
            text: nameField.text.length > 0 ? nameField.text : card.row.title
            elide: Text.ElideRight
            color: Theme.primary
            font.family: Theme.fontFamily
            font.pixelSize: Theme.bodySize
            font.weight: Font.DemiBold
        }
        Text {
            objectName: "status"
            text: card.statusText
            color: card.row.ddcStatus === "verified" ? Theme.greenText : Theme.orangeText
            font.family: Theme.fontFamily
            font.pixelSize: Theme.captionSize
        }
    }

    SettingsGroup {
        width: card.width

        SettingsRow {
            first: true
            label: qsTr("Friendly name")
            SettingsField {
                id: nameField
                objectName: "friendlyNameField"
                implicitWidth: 200
                placeholderText: qsTr("Custom name")
                text: card.row.friendlyName
                Accessible.name: qsTr("Friendly name, %1").arg(card.row.title)
                onTextEdited: card.settings.setFriendlyName(card.row.preferenceKey, text)
            }
        }
        SettingsRow {
            label: qsTr("Use longer DDC delay")
            SettingsToggle {
                objectName: "longerDelayToggle"
                Accessible.name: qsTr("Use longer DDC delay, %1").arg(card.row.title)
                on: card.longerDelay
                onFlipped: wanted => {
                    card.settings.setLongerDelay(card.row.preferenceKey, wanted)
                    card.longerDelay = wanted
                }
            }
        }
        SettingsRow {
            label: qsTr("Force software brightness")
            SettingsToggle {
                objectName: "forceSoftwareToggle"
                Accessible.name: qsTr("Force software brightness, %1").arg(card.row.title)
                on: card.forceSoftware
                onFlipped: wanted => {
                    card.settings.setForceSoftwareBrightness(card.row.preferenceKey, wanted)
                    card.forceSoftware = wanted
                }
            }
        }
    }

    Text {
        objectName: "identifier"
        width: card.width
        leftPadding: 4
        text: qsTr("ID: ") + card.row.preferenceKey
        elide: Text.ElideMiddle
        color: Theme.tertiary
        font.family: Theme.fontFamily
        font.pixelSize: Theme.smallSize
    }
}
