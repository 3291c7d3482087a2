import QtQuick
import QtQuick.Controls.Fusion

// The Displays tab: one row per display the system reports (also those without DDC, which
// the popover leaves out), or a note that none is connected.
Item {
    id: view

    required property var settings

    ListView {
        id: list
        objectName: "displayList"
        anchors.fill: parent
        visible: count > 0
        clip: true
        spacing: 10
        boundsBehavior: Flickable.StopAtBounds
        model: view.settings.displays
        // Always shown while the cards do not fit, so a cut card reads as "more below".
        ScrollBar.vertical: ScrollBar {
            objectName: "scrollBar"
            policy: list.contentHeight > list.height ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
        }
        activeFocusOnTab: false
        delegate: DisplaySettingsRow {
            required property var modelData
            // Room for the scroll bar beside the cards while it shows.
            width: list.width - (list.contentHeight > list.height ? 14 : 0)
            settings: view.settings
            row: modelData
        }
    }

    Column {
        objectName: "emptyState"
        visible: list.count === 0
        anchors.centerIn: parent
        spacing: 10

        SymbolImage {
            anchors.horizontalCenter: parent.horizontalCenter
            size: Theme.symbolSize(32)
            name: "display.trianglebadge.exclamationmark"
            color: Theme.secondary
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: qsTr("No external displays connected")
            color: Theme.secondary
            font.family: Theme.fontFamily
            font.pixelSize: Theme.bodySize
        }
    }
}
