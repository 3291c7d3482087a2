import QtQuick
import QtQuick.Controls.Fusion

// A text field of the settings window in the window's own colours and text size.
TextField {
    id: control
    font.family: Theme.fontFamily
    font.pixelSize: Theme.bodySize
    palette.base: Theme.fieldFace
    palette.text: Theme.primary
    palette.placeholderText: Theme.tertiary
    palette.window: Theme.window
    palette.windowText: Theme.primary
    palette.highlight: Theme.accent
    palette.highlightedText: "white"
    palette.mid: Theme.controlBorder
    palette.dark: Theme.controlBorder
    palette.shadow: Theme.controlBorder
    selectByMouse: true
    // A long name shows from its start, not its end, whenever it is not being typed in
    // (setting the text puts the cursor, and so the view, at its end).
    Component.onCompleted: cursorPosition = 0
    onTextChanged: if (!activeFocus) cursorPosition = 0
    onActiveFocusChanged: if (!activeFocus) cursorPosition = 0
}
