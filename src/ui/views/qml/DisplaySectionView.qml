import QtQuick
import QtQuick.Layouts

// The controls of one display: a header with its name and status, brightness, volume with
// a mute button, and the input sources. Every control is shown whatever the status, except
// one for a feature the monitor said it does not have.
Column {
    id: section

    // The popover's model: the section calls its operations with `displayId`.
    required property var popoverModel
    property int displayId: 0
    property string title
    property string ddcStatus: "verified"
    property real brightness: 50
    property real brightnessMax: 100
    property real volume: 50
    property real volumeMax: 100
    property bool isMuted: false
    property int activeInput: 0
    // False where the desktop gives no gamma tables: the bottom of the slider then only
    // reaches the monitor's own lowest brightness, and a note says so.
    property bool dimmingAvailable: true
    // False once the monitor answered that it lacks the feature: its control is left out.
    property bool volumeSupported: true
    property bool muteSupported: true
    property bool inputSupported: true
    // False for a monitor that never answered over DDC/CI: its values would be made up, so
    // its controls are shown disabled, with a line saying why.
    property bool answered: true
    // A write the monitor did not take, said for a few seconds.
    property string notice

    readonly property string shownTitle: title.length > 0 ? title : qsTr("Display %1").arg(displayId)
    readonly property string volumeSymbol: isMuted ? "speaker.slash.fill" : "speaker.wave.2.fill"

    width: 360
    spacing: 6
    bottomPadding: 14

    Item {
        objectName: "header"
        width: section.width
        height: header.implicitHeight + 14 + 4

        RowLayout {
            id: header
            x: 16
            y: 14
            width: parent.width - 32
            spacing: 7

            SymbolImage {
                size: Theme.symbolSize(14)
                name: "display"
                color: Theme.blue
            }
            Text {
                objectName: "title"
                Layout.fillWidth: true
                // The model names every display; an empty name still gets a title.
                text: section.shownTitle
                elide: Text.ElideRight
                maximumLineCount: 1
                color: Theme.primary
                font.family: Theme.fontFamily
                font.pixelSize: 13
                font.weight: Font.DemiBold
            }
            StatusBadge {
                objectName: "badge"
                status: section.ddcStatus
            }
        }
    }

    PanelwrightSlider {
        objectName: "brightnessSlider"
        width: section.width
        icon: "sun.max.fill"
        tint: Theme.yellow
        value: section.brightness
        maxValue: section.brightnessMax
        interactive: section.answered
        accessibleName: qsTr("Brightness, %1").arg(section.shownTitle)
        onChanged: newValue => section.popoverModel.changeBrightness(section.displayId, newValue)
    }

    Text {
        objectName: "silentNote"
        visible: !section.answered
        x: 16
        width: section.width - 32
        text: qsTr("This monitor did not answer over DDC/CI. Turn DDC/CI on in its own menu, then open this again.")
        wrapMode: Text.WordWrap
        color: Theme.tertiary
        font.family: Theme.fontFamily
        font.pixelSize: 11
    }

    Text {
        objectName: "failureNote"
        visible: section.notice.length > 0
        x: 16
        width: section.width - 32
        text: section.notice
        wrapMode: Text.WordWrap
        color: Theme.redText
        font.family: Theme.fontFamily
        font.pixelSize: 11
        Accessible.role: Accessible.AlertMessage
        Accessible.name: text
    }

    Text {
        objectName: "dimmingNote"
        visible: !section.dimmingAvailable && section.answered
        x: 16
        width: section.width - 32
        text: qsTr("This desktop lets no program dim below the monitor's own lowest brightness.")
        wrapMode: Text.WordWrap
        color: Theme.tertiary
        font.family: Theme.fontFamily
        font.pixelSize: 11
    }

    RowLayout {
        objectName: "volumeRow"
        visible: section.volumeSupported || section.muteSupported
        width: section.width
        spacing: 4

        PanelwrightSlider {
            objectName: "volumeSlider"
            visible: section.volumeSupported
            Layout.fillWidth: true
            icon: section.volumeSymbol
            tint: section.isMuted ? Theme.red : Theme.green
            value: section.volume
            maxValue: section.volumeMax
            interactive: section.answered
            accessibleName: qsTr("Volume, %1").arg(section.shownTitle)
            // Monitors take whole 16-bit values.
            onChanged: newValue => section.popoverModel.changeVolume(
                           section.displayId, Math.min(65535, Math.max(0, Math.trunc(newValue))))
        }

        Item {
            objectName: "muteButton"
            visible: section.muteSupported
            // Alone in its row, the button keeps to the right edge.
            Layout.alignment: Qt.AlignRight
            Layout.fillWidth: !section.volumeSupported
            Layout.maximumWidth: 24
            Layout.preferredWidth: 24
            Layout.preferredHeight: 24
            Layout.rightMargin: 16

            SymbolImage {
                objectName: "muteSymbol"
                anchors.centerIn: parent
                size: Theme.symbolSize(10)
                name: section.volumeSymbol
                color: section.isMuted ? Theme.red : Theme.secondary
            }
            enabled: section.answered
            opacity: enabled ? 1 : 0.45
            activeFocusOnTab: enabled
            Keys.onPressed: event => {
                if (event.key === Qt.Key_Space || event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
                    section.popoverModel.toggleMute(section.displayId)
                    event.accepted = true
                }
            }
            Accessible.role: Accessible.CheckBox
            Accessible.name: qsTr("Mute, %1").arg(section.shownTitle)
            Accessible.checkable: true
            Accessible.checked: section.isMuted
            Accessible.focusable: true
            Accessible.onPressAction: section.popoverModel.toggleMute(section.displayId)
            Accessible.onToggleAction: section.popoverModel.toggleMute(section.displayId)

            FocusRing { controlRadius: 12 }
            TapHandler { onTapped: section.popoverModel.toggleMute(section.displayId) }
        }
    }

    Item {
        visible: section.inputSupported
        enabled: section.answered
        opacity: enabled ? 1 : 0.45
        width: section.width
        height: inputs.height + 6

        InputSelectorView {
            id: inputs
            objectName: "inputSelector"
            y: 6
            width: section.width
            inputs: section.popoverModel ? section.popoverModel.inputs : []
            activeInput: section.activeInput
            onInputSelected: value => section.popoverModel.selectInput(section.displayId, value)
        }
    }
}
