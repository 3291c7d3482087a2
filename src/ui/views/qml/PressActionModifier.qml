import QtQuick

// Tells its item when a pointer goes down on it (again on each move while held) and when
// it comes up. It only watches: taps and hovers of the same item still work.
PointHandler {
    signal press()
    signal release()

    acceptedButtons: Qt.LeftButton
    onActiveChanged: active ? press() : release()
    onPointChanged: if (active) press()
}
