import QtQuick

// Stands in for the application's popover model: the same properties and operations, a
// ListModel for the displays, and a record of every call. Like the real view model it
// stores what the user set at once (`echoes` false turns that off).
QtObject {
    id: fake

    property bool echoes: true
    property var calls: []

    property ListModel displays: ListModel {}

    property var inputs: [
        { value: 0x11, label: "HDMI 1", symbol: "tv" },
        { value: 0x12, label: "HDMI 2", symbol: "tv" },
        { value: 0x0F, label: "DP 1", symbol: "display" },
        { value: 0x10, label: "DP 2", symbol: "display" },
        { value: 0x13, label: "USB-C", symbol: "cable.connector" }
    ]

    function addDisplay(overrides) {
        const row = {
            displayId: 1 + displays.count, title: "Display " + (1 + displays.count),
            ddcStatus: "verified", brightness: 50, brightnessMax: 100,
            volume: 50, volumeMax: 100, isMuted: false, activeInput: 0,
            dimmingAvailable: true, volumeSupported: true, muteSupported: true,
            inputSupported: true, answered: true, notice: ""
        }
        for (const key in overrides) row[key] = overrides[key]
        displays.append(row)
    }

    function rowOf(displayId) {
        for (let i = 0; i < displays.count; ++i)
            if (displays.get(i).displayId === displayId) return i
        return -1
    }

    function record(name, args) {
        calls = calls.concat([{ name: name, args: args }])
    }

    function callsNamed(name) {
        return calls.filter(c => c.name === name)
    }

    function store(displayId, role, value) {
        if (echoes && rowOf(displayId) >= 0) displays.setProperty(rowOf(displayId), role, value)
    }

    function changeBrightness(displayId, value) {
        record("changeBrightness", [displayId, value])
        store(displayId, "brightness", value)
    }
    function changeVolume(displayId, value) {
        record("changeVolume", [displayId, value])
        store(displayId, "volume", value)
    }
    function toggleMute(displayId) {
        record("toggleMute", [displayId])
        const row = rowOf(displayId)
        if (row >= 0) store(displayId, "isMuted", !displays.get(row).isMuted)
    }
    function selectInput(displayId, value) {
        record("selectInput", [displayId, value])
        store(displayId, "activeInput", value)
    }
    function showAbout() { record("showAbout", []) }
    function showSettings() { record("showSettings", []) }
    function quit() { record("quit", []) }
}
