import QtQuick
import QtQuick.Window

// A symbol (see Symbols.h) in one colour, `size` points square.
Image {
    id: image

    property string name
    property color color: Theme.secondary
    property real size: 16

    width: size
    height: size
    sourceSize.width: Math.ceil(size * Math.max(1, Screen.devicePixelRatio))
    sourceSize.height: Math.ceil(size * Math.max(1, Screen.devicePixelRatio))
    fillMode: Image.PreserveAspectFit
    smooth: true
    source: Theme.symbolUrl(name, color)
    opacity: color.a
}
