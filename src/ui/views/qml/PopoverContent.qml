import QtQuick
import QtQuick.Layouts

// The popover: one section per controllable display (or the empty state), then the footer
// with About, Settings and Quit, on a panel 360 wide and as tall as its content.
//
// Where the window system composites, the window is transparent and the panel is drawn
// rounded with a soft shadow in a margin around it; elsewhere a transparent pixel would
// show as black, so the panel is square and fills the window, its edge a hairline.
Item {
    id: root

    // The popover model: `displays` (a list model, one row per display), `inputs` and the
    // operations the controls call.
    required property var model
    // Whether the window's transparent pixels show what lies beneath it.
    property bool composited: false

    readonly property int displayCount: sections.count
    readonly property int panelWidth: 360
    // Room around the panel for its shadow, which falls a little downwards.
    readonly property int shadowMargin: composited ? 16 : 0
    readonly property int shadowSpread: 12
    readonly property int shadowDrop: 3
    // The same rounding as the level indicator's panel.
    readonly property int panelRadius: composited ? 14 : 0

    width: implicitWidth
    implicitWidth: panelWidth + 2 * shadowMargin
    implicitHeight: column.implicitHeight + 2 * shadowMargin

    // The shadow: rings of faint black, each a pixel smaller than the last, so the
    // darkness builds up towards the panel's edge. Plain rectangles, so that every scene
    // graph backend draws it (the software one draws no shader effects).
    Repeater {
        model: root.composited ? root.shadowSpread : 0
        Rectangle {
            required property int index
            readonly property int spread: root.shadowSpread - index
            objectName: "shadow"
            x: root.shadowMargin - spread
            y: root.shadowMargin - spread + root.shadowDrop
            width: root.panelWidth + 2 * spread
            height: column.implicitHeight + 2 * spread
            radius: root.panelRadius + spread
            color: Qt.rgba(0, 0, 0, Theme.dark ? 0.03 : 0.014)
        }
    }

    Rectangle {
        objectName: "panel"
        x: root.shadowMargin
        y: root.shadowMargin
        width: root.panelWidth
        height: column.implicitHeight
        radius: root.panelRadius
        color: Theme.window
    }

    Column {
        id: column
        x: root.shadowMargin
        y: root.shadowMargin
        width: root.panelWidth

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

                width: root.panelWidth

                DisplaySectionView {
                    objectName: "section"
                    width: root.panelWidth
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
            width: root.panelWidth
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
        x: root.shadowMargin
        y: root.shadowMargin
        width: root.panelWidth
        height: column.implicitHeight
        radius: root.panelRadius
        z: 1
        color: "transparent"
        border.width: 1
        border.color: Theme.controlBorder
    }
}
