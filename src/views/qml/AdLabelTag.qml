import QtQuick

// The small tag that marks content as an ad: caption text in white on a translucent
// grey box, standing 2 points in from whatever it is aligned to.
Item {
    id: root

    property string labelText

    implicitWidth: box.width + 4
    implicitHeight: box.height + 4
    width: implicitWidth
    height: implicitHeight
    Accessible.ignored: true

    Rectangle {
        id: box
        x: 2
        y: 2
        width: text.implicitWidth + 4
        height: text.implicitHeight + 4
        color: Qt.rgba(0.5, 0.5, 0.5, 0.4)

        Text {
            id: text
            x: 2
            y: 2
            text: root.labelText
            color: "white"
            font.pixelSize: 12
            font.weight: Font.Normal
        }
    }
}
