import QtQuick
import QtQuick.Controls.Fusion

// The General tab: what happens at launch, launch at login, updates and the on-screen
// indicator. Each control hands its new value to the model, which stores it at once.
Flickable {
    id: view

    required property var settings

    clip: true
    contentWidth: width
    contentHeight: form.implicitHeight
    boundsBehavior: Flickable.StopAtBounds

    Column {
        id: form
        width: view.width
        spacing: 14

        SettingsGroup {
            width: form.width
            title: qsTr("Startup")

            SettingsRow {
                first: true
                label: qsTr("On launch:")
                SettingsPicker {
                    objectName: "startupPicker"
                    implicitWidth: 190
                    Accessible.name: qsTr("On launch")
                    model: [qsTr("Do nothing"), qsTr("Restore last values"), qsTr("Read from displays")]
                    currentIndex: view.settings.startupAction
                    onActivated: index => view.settings.setStartupAction(index)
                }
            }
            SettingsRow {
                label: qsTr("Launch at login")
                note: view.settings.launchAtLoginNote
                active: view.settings.launchAtLoginAvailable
                SettingsToggle {
                    objectName: "launchAtLoginToggle"
                    Accessible.name: qsTr("Launch at login")
                    enabled: view.settings.launchAtLoginAvailable
                    on: view.settings.launchAtLogin
                    onFlipped: wanted => view.settings.setLaunchAtLogin(wanted)
                }
            }
        }

        SettingsGroup {
            width: form.width
            title: qsTr("Updates")

            SettingsRow {
                first: true
                label: qsTr("Automatically check for updates")
                note: view.settings.automaticUpdatesAvailable ? "" : view.settings.automaticUpdatesNote
                active: view.settings.automaticUpdatesAvailable
                SettingsToggle {
                    objectName: "automaticUpdatesToggle"
                    Accessible.name: qsTr("Automatically check for updates")
                    enabled: view.settings.automaticUpdatesAvailable
                    on: view.settings.automaticUpdates
                    onFlipped: wanted => view.settings.setAutomaticUpdates(wanted)
                }
            }
            SettingsRow {
                label: ""
                SettingsButton {
                    objectName: "checkForUpdatesButton"
                    text: qsTr("Check for Updates\u2026")
                    onClicked: view.settings.checkForUpdates()
                }
            }
        }

        SettingsGroup {
            width: form.width
            title: qsTr("Appearance")

            SettingsRow {
                first: true
                label: qsTr("Show OSD overlay on value change")
                SettingsToggle {
                    objectName: "showOSDToggle"
                    Accessible.name: qsTr("Show OSD overlay on value change")
                    on: view.settings.showOSD
                    onFlipped: wanted => view.settings.setShowOSD(wanted)
                }
            }
        }
    }
}
