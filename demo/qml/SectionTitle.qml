import QtQuick

// A page section's heading with an optional note on the right.
Item {
    property alias text: title.text
    property alias note: noteText.text
    width: parent ? parent.width : 0
    height: 28

    Text {
        id: title
        x: 16
        anchors.bottom: parent.bottom
        color: Theme.ink
        font.pixelSize: 18
        font.weight: Font.Bold
    }
    Text {
        id: noteText
        anchors.right: parent.right
        anchors.rightMargin: 16
        anchors.baseline: title.baseline
        color: Theme.muted
        font.pixelSize: 12
    }
}
