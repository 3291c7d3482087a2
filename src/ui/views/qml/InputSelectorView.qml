import QtQuick

// The input sources of one display, in a row of equal tiles under an "Input" heading.
Column {
    id: selector

    // [{ value, label, symbol }] in the order shown.
    property var inputs: []
    // The display's current input (MCCS value), 0 when unknown.
    property int activeInput: 0

    signal inputSelected(int value)

    // The input clicked last, shown as current until the display's reported input changes:
    // the choice lights up at once, not when the monitor has answered.
    property int chosenInput: -1
    readonly property int shownInput: chosenInput >= 0 ? chosenInput : activeInput
    onActiveInputChanged: chosenInput = -1

    spacing: 8

    Row {
        x: 16
        spacing: 5

        SymbolImage {
            anchors.verticalCenter: parent.verticalCenter
            size: Theme.symbolSize(10)
            name: "arrow.right.arrow.left"
            color: Theme.purple
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("Input")
            color: Theme.secondary
            font.family: Theme.fontFamily
            font.pixelSize: 11
            font.weight: Font.DemiBold
        }
    }

    Row {
        id: buttons
        x: 16
        width: selector.width - 32
        spacing: 5

        Repeater {
            id: repeater
            model: selector.inputs

            InputButton {
                required property var modelData
                width: repeater.count > 0 ? (buttons.width - buttons.spacing * (repeater.count - 1)) / repeater.count : 0
                label: modelData.label
                icon: modelData.symbol
                isActive: modelData.value === selector.shownInput
                onAction: {
                    selector.chosenInput = modelData.value
                    selector.inputSelected(modelData.value)
                }
            }
        }
    }
}
