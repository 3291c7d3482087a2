import QtQuick
import QtQuick.Layouts

// A row of a settings group: the label on the left, its control on the right (the row's
// child), an optional note under the label, and a hairline above unless it is the first.
Item {
    id: row

    property string label
    property string note
    property bool active: true
    property bool first: false
    default property alias control: slot.data

    width: parent ? parent.width : 0
    implicitHeight: Math.max(32, content.implicitHeight + 12)

    Rectangle {
        visible: !row.first
        x: 12
        width: row.width - 12
        height: 1
        color: Theme.primaryAt(0.08)
    }
    RowLayout {
        id: content
        x: 12
        width: row.width - 24
        anchors.verticalCenter: parent.verticalCenter
        spacing: 12

        Column {
            Layout.fillWidth: true
            spacing: 2
            Text {
                width: parent.width
                text: row.label
                elide: Text.ElideRight
                color: row.active ? Theme.primary : Theme.secondary
                font.family: Theme.fontFamily
                font.pixelSize: Theme.bodySize
            }
            Text {
                objectName: "note"
                visible: row.note.length > 0
                width: parent.width
                text: row.note
                elide: Text.ElideRight
                color: Theme.secondary
                font.family: Theme.fontFamily
                font.pixelSize: Theme.captionSize
            }
        }
        Item {
            id: slot
            implicitWidth: childrenRect.width
            implicitHeight: childrenRect.height
        }
    }
}
