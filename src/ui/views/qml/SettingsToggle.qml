import QtQuick
import QtQuick.Controls.Fusion

// A switch that shows `checked` as the model has it. A click reports `flipped(wanted)` and
// does not keep a state of its own: the model answers and the binding shows its answer.
Switch {
    id: toggle

    property bool on: false

    checked: on
    padding: 0
    text: ""
    onToggled: {
        const wanted = checked
        checked = Qt.binding(() => toggle.on)
        toggle.flipped(wanted)
    }

    signal flipped(bool wanted)
}
