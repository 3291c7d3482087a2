import QtQuick
import QtQuick.Controls.Fusion

// A picker of the settings window in the window's own colours and text size; its list
// follows them too.
ComboBox {
    id: control
    font.family: Theme.fontFamily
    font.pixelSize: Theme.bodySize
    palette.button: Theme.controlFace
    palette.buttonText: Theme.primary
    palette.base: Theme.fieldFace
    palette.text: Theme.primary
    palette.window: Theme.window
    palette.windowText: Theme.primary
    palette.highlight: Theme.accent
    palette.highlightedText: "white"
    palette.mid: Theme.controlBorder
    palette.dark: Theme.controlBorder
    palette.shadow: Theme.controlBorder
    palette.light: Theme.controlFace
}
