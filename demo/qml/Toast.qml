import QtQuick

// A short message that fades out by itself.
Rectangle {
    id: root

    function show(text) {
        label.text = text;
        visible = true;
        hide.restart();
    }

    width: Math.min(label.implicitWidth + 32, 380)
    height: label.implicitHeight + 20
    radius: height / 2
    color: Qt.rgba(0.1, 0.12, 0.11, 0.9)
    visible: false

    Timer {
        id: hide
        interval: 2200
        onTriggered: root.visible = false
    }
    Text {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, 348)
        elide: Text.ElideMiddle
        color: "white"
        font.pixelSize: 13
    }
}
