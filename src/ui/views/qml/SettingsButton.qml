import QtQuick
import QtQuick.Controls.Fusion

// A push button of the settings window in the window's own colours and text size.
Button {
    id: control
    font.family: Theme.fontFamily
    font.pixelSize: Theme.bodySize
    palette.button: Theme.controlFace
    palette.buttonText: Theme.primary
    palette.window: Theme.window
    palette.windowText: Theme.primary
    palette.highlight: Theme.focus
    palette.highlightedText: "white"
    palette.mid: Theme.controlBorder
    palette.dark: Theme.controlBorder
    palette.shadow: Theme.controlBorder
    palette.light: Theme.controlFace
    Accessible.name: text
}
