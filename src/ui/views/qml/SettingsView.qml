import QtQuick
import QtQuick.Layouts

// The settings window's content: the tab strip ("General", "Displays") over the chosen
// tab, 20 from every edge. `selectedTab` survives closing and reopening the window.
Rectangle {
    id: root

    // The settings model (SettingsModel): the values shown and the setters the controls call.
    required property var settings
    property int selectedTab: 0

    implicitWidth: 480
    implicitHeight: 400
    color: Theme.window

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 20
        spacing: 14

        Row {
            objectName: "tabs"
            Layout.alignment: Qt.AlignHCenter
            spacing: 6
            SettingsTab {
                objectName: "generalTab"
                label: qsTr("General")
                symbol: "gearshape"
                selected: root.selectedTab === 0
                onChosen: root.selectedTab = 0
            }
            SettingsTab {
                objectName: "displaysTab"
                label: qsTr("Displays")
                symbol: "display"
                selected: root.selectedTab === 1
                onChosen: root.selectedTab = 1
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: root.selectedTab

            GeneralSettingsView {
                settings: root.settings
            }
            DisplaySettingsView {
                settings: root.settings
            }
        }
    }
}
