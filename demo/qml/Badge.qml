import QtQuick

// A count in an orange disc; hidden at 0.
Rectangle {
    property int count
    visible: count > 0
    width: Math.max(18, label.implicitWidth + 8)
    height: 18
    radius: 9
    color: Theme.accent
    border.color: "white"
    border.width: 1.5
    Text {
        id: label
        anchors.centerIn: parent
        text: parent.count
        color: "white"
        font.pixelSize: 11
        font.weight: Font.Bold
    }
}
