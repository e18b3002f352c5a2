import QtQuick

// A shopping bag drawn with two rectangles: body and handle.
Item {
    property color color: "white"
    width: 22
    height: 22

    Rectangle {
        x: 6
        y: 1
        width: 10
        height: 10
        radius: 5
        color: "transparent"
        border.color: parent.color
        border.width: 2
    }
    Rectangle {
        y: 7
        width: 22
        height: 15
        radius: 3
        color: parent.color
    }
}
