pragma Singleton
import QtQuick

// Colours, fonts and symbol sizes of the views. Neutral colours follow the application
// palette, so the popover reads in a light and in a dark desktop alike; the accent colours
// have a light and a dark variant, picked by the lightness of the window colour.
QtObject {
    id: theme

    readonly property SystemPalette palette: SystemPalette { colorGroup: SystemPalette.Active }

    readonly property color window: palette.window
    readonly property color primary: palette.windowText
    // Secondary text: the primary colour 40 % of the way to the window colour, opaque so
    // that it can also tint symbols.
    readonly property color secondary: Qt.tint(primary, Qt.rgba(window.r, window.g, window.b, 0.40))
    // Tertiary text (notes, identifiers): 45 % of the way, the palest that still reads at
    // 4.5:1 on the window at the small sizes it is used at.
    readonly property color tertiary: Qt.tint(primary, Qt.rgba(window.r, window.g, window.b, 0.45))
    readonly property color accent: palette.highlight
    // The keyboard focus ring.
    readonly property color focus: palette.highlight
    readonly property bool dark: window.hslLightness < 0.5

    readonly property color green: dark ? "#30d158" : "#28b14c"
    readonly property color orange: dark ? "#ff9f0a" : "#f08a00"
    readonly property color yellow: dark ? "#ffd60a" : "#f5b800"
    readonly property color red: dark ? "#ff453a" : "#ff3b30"
    readonly property color blue: dark ? "#0a84ff" : "#007aff"
    // Status text (badges, the settings' DDC status): on a light window the accent tones
    // are too pale for small text, so deeper ones that read at 4.5:1.
    readonly property color greenText: dark ? green : "#16702f"
    readonly property color orangeText: dark ? orange : "#8f4a00"
    readonly property color redText: dark ? "#ff6961" : "#c4161c"
    readonly property color purple: dark ? "#bf5af2" : "#af52de"

    // Faces of the form controls (button, picker, field), mixed from the window colour so
    // they follow a light and a dark desktop alike.
    readonly property color controlFace: Qt.tint(window, primaryAt(dark ? 0.12 : 0.04))
    readonly property color fieldFace: dark ? Qt.tint(window, Qt.rgba(0, 0, 0, 0.25)) : Qt.tint(window, Qt.rgba(1, 1, 1, 0.8))
    readonly property color controlBorder: primaryAt(dark ? 0.25 : 0.22)

    // One scale for every text: body (labels and controls), caption (headings, notes),
    // small (identifiers, badges, read-outs).
    readonly property int bodySize: 13
    readonly property int captionSize: 11
    readonly property int smallSize: 10

    readonly property string fontFamily: "DejaVu Sans"
    readonly property string monospaceFamily: "DejaVu Sans Mono"

    // The primary colour at an opacity, for fills that lie on the window colour.
    function primaryAt(opacity) {
        return Qt.rgba(primary.r, primary.g, primary.b, opacity)
    }

    function withAlpha(c, opacity) {
        return Qt.rgba(c.r, c.g, c.b, opacity)
    }

    // A symbol beside text of a given font size is drawn a little taller than the letters,
    // as symbol fonts do.
    function symbolSize(fontSize) {
        return Math.round(fontSize * 1.25)
    }

    // WCAG contrast ratio of two opaque colours (1 ... 21).
    function contrast(a, b) {
        function channel(v) { return v <= 0.03928 ? v / 12.92 : Math.pow((v + 0.055) / 1.055, 2.4) }
        function luminance(c) { return 0.2126 * channel(c.r) + 0.7152 * channel(c.g) + 0.0722 * channel(c.b) }
        const la = luminance(a), lb = luminance(b)
        return (Math.max(la, lb) + 0.05) / (Math.min(la, lb) + 0.05)
    }

    // Nearest integer, halves away from zero.
    function roundAway(x) {
        return x < 0 ? -Math.round(-x) : Math.round(x)
    }

    // "#rrggbb" of a colour, ignoring its alpha (the symbol URLs carry opaque colours).
    function hex(c) {
        function part(v) {
            const s = Math.round(Math.max(0, Math.min(1, v)) * 255).toString(16)
            return s.length < 2 ? "0" + s : s
        }
        return "#" + part(c.r) + part(c.g) + part(c.b)
    }

    function symbolUrl(name, c) {
        return name.length > 0 ? "image://symbol/" + name + "?color=" + hex(c) : ""
    }
}
