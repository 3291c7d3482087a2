import QtQuick

// One section of a settings form: a small heading over a rounded box whose rows are
// separated by hairlines. Rows are the group's children, stacked top to bottom.
Column {
    id: group

    property string title
    default property alias rows: box.data

    spacing: 6

    Text {
        visible: group.title.length > 0
        leftPadding: 4
        text: group.title
        color: Theme.secondary
        font.family: Theme.fontFamily
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
    }
    Rectangle {
        width: group.width
        height: box.implicitHeight
        radius: 8
        color: Theme.primaryAt(0.04)
        border.width: 1
        border.color: Theme.primaryAt(0.10)

        Column {
            id: box
            width: parent.width
        }
    }
}
