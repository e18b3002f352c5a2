import QtQuick

// The shop's message of the moment, over the bottom of the page.
Rectangle {
    id: root

    property string text

    visible: text !== ""
    width: Math.min(label.implicitWidth + 32, 380)
    height: label.implicitHeight + 20
    radius: height / 2
    color: Qt.rgba(0.1, 0.12, 0.11, 0.9)

    Text {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, 348)
        text: root.text
        elide: Text.ElideMiddle
        color: "white"
        font.pixelSize: 13
    }
}
