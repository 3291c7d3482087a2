import QtQuick
import QtQuick.Window

// A symbol (see Symbols.h) in one colour, `size` points square on every screen: the
// picture is rendered at the screen's pixel density, but the item, and so any layout it
// sits in, only ever sees the size in points.
Item {
    id: symbol

    property string name
    property color color: Theme.secondary
    property real size: 16
    readonly property alias status: image.status

    width: size
    height: size
    implicitWidth: size
    implicitHeight: size

    Image {
        id: image
        anchors.fill: parent
        sourceSize.width: Math.ceil(symbol.size * Math.max(1, Screen.devicePixelRatio))
        sourceSize.height: Math.ceil(symbol.size * Math.max(1, Screen.devicePixelRatio))
        fillMode: Image.PreserveAspectFit
        smooth: true
        source: Theme.symbolUrl(symbol.name, symbol.color)
        opacity: symbol.color.a
    }
}
