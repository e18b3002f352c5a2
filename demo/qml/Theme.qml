pragma Singleton
import QtQuick

// The shop's colours and type sizes.
QtObject {
    readonly property color brand: "#1f4d3a"
    readonly property color brandSoft: "#e3efe8"
    readonly property color accent: "#e8692c"
    readonly property color page: "#f3f4f1"
    readonly property color card: "#ffffff"
    readonly property color ink: "#1b1f1d"
    readonly property color muted: "#6b736e"
    readonly property color line: "#e2e5e0"
    readonly property color sponsored: "#8a5a00"
    readonly property color sponsoredBack: "#fff3d6"
    readonly property int radius: 12

    function price(value) {
        return "€" + Number(value).toFixed(2);
    }
}
