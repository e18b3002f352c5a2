import QtQuick

// A filter chip: outlined, filled in the brand colour when on.
Rectangle {
    id: root

    property alias text: label.text
    property bool checked
    signal toggled

    width: label.implicitWidth + 24
    height: 32
    radius: 16
    color: checked ? Theme.brand : "white"
    border.color: checked ? Theme.brand : Theme.line
    Accessible.role: Accessible.CheckBox
    Accessible.name: label.text
    Accessible.checked: checked

    Text {
        id: label
        anchors.centerIn: parent
        color: root.checked ? "white" : Theme.ink
        font.pixelSize: 13
        font.weight: Font.Medium
    }
    TapHandler {
        onTapped: root.toggled()
    }
}
