import QtQuick
import QtQuick.Layouts

// The popover: one section per controllable display (or the empty state), then the footer
// with About, Settings and Quit. 360 wide; as tall as its content.
Rectangle {
    id: root

    // The popover model: `displays` (a list model, one row per display), `inputs` and the
    // operations the controls call.
    required property var model

    readonly property int displayCount: sections.count

    width: 360
    implicitWidth: 360
    implicitHeight: column.implicitHeight
    color: Theme.window

    Column {
        id: column
        width: root.width

        EmptyStateView {
            objectName: "emptyState"
            visible: sections.count === 0
        }

        Repeater {
            id: sections
            model: root.model ? root.model.displays : null

            Column {
                id: entry
                required property int index
                required property int displayId
                required property string title
                required property string ddcStatus
                required property real brightness
                required property real brightnessMax
                required property real volume
                required property real volumeMax
                required property bool isMuted
                required property int activeInput
                required property bool dimmingAvailable
                required property bool volumeSupported
                required property bool muteSupported
                required property bool inputSupported
                required property bool answered
                required property string notice

                width: root.width

                DisplaySectionView {
                    objectName: "section"
                    width: root.width
                    popoverModel: root.model
                    displayId: entry.displayId
                    title: entry.title
                    ddcStatus: entry.ddcStatus
                    brightness: entry.brightness
                    brightnessMax: entry.brightnessMax
                    volume: entry.volume
                    volumeMax: entry.volumeMax
                    isMuted: entry.isMuted
                    activeInput: entry.activeInput
                    dimmingAvailable: entry.dimmingAvailable
                    volumeSupported: entry.volumeSupported
                    muteSupported: entry.muteSupported
                    inputSupported: entry.inputSupported
                    answered: entry.answered
                    notice: entry.notice
                }
                Divider {
                    objectName: "sectionDivider"
                    inset: 20
                    visible: entry.index < sections.count - 1
                }
            }
        }

        Divider {
            objectName: "footerDivider"
            inset: 12
        }

        Item {
            objectName: "footer"
            width: root.width
            height: footer.implicitHeight + 16

            RowLayout {
                id: footer
                x: 12
                y: 8
                width: parent.width - 24
                spacing: 0

                FooterButton {
                    objectName: "aboutButton"
                    title: qsTr("About")
                    icon: "info.circle"
                    onAction: root.model.showAbout()
                }
                FooterButton {
                    objectName: "settingsButton"
                    title: qsTr("Settings")
                    icon: "gearshape"
                    onAction: root.model.showSettings()
                }
                Item { Layout.fillWidth: true }
                FooterButton {
                    objectName: "quitButton"
                    title: qsTr("Quit")
                    icon: "power"
                    onAction: root.model.quit()
                }
            }
        }
    }

    // A hairline edge, so the popover stands apart from a window or desktop of the same
    // colour beneath it.
    Rectangle {
        objectName: "edge"
        anchors.fill: parent
        z: 1
        color: "transparent"
        border.width: 1
        border.color: Theme.controlBorder
    }
}
