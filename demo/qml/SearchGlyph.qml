import QtQuick

// A magnifying glass: a ring and a handle.
Item {
    property color color: Theme.muted
    width: 18
    height: 18

    Rectangle {
        width: 13
        height: 13
        radius: 6.5
        color: "transparent"
        border.color: parent.color
        border.width: 2
    }
    Rectangle {
        x: 10
        y: 13
        width: 7
        height: 2.4
        radius: 1.2
        rotation: 45
        color: parent.color
    }
}
