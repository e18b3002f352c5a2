import QtQuick

// The round look every overlay button shares: a white symbol on a black circle at half
// opacity, 20 x 20, with the given padding around it; the whole button takes the tap.
Item {
    id: root

    property string symbol
    property real padding: 4
    property string accessibleName
    signal clicked

    implicitWidth: 20 + 2 * padding
    implicitHeight: 20 + 2 * padding
    width: implicitWidth
    height: implicitHeight

    Accessible.role: Accessible.Button
    Accessible.name: root.accessibleName
    Accessible.onPressAction: root.clicked()

    Rectangle {
        anchors.centerIn: parent
        width: 20
        height: 20
        radius: 10
        color: Qt.rgba(0, 0, 0, 0.5)

        Image {
            objectName: "symbol"
            anchors.centerIn: parent
            width: 20
            height: 20
            sourceSize.width: 40
            sourceSize.height: 40
            source: root.symbol === "" ? "" : "icons/" + root.symbol + ".svg"
        }
    }

    // Exclusive from the press on: a tap on a control is not also a tap on the ad
    // beneath it (the picture-in-picture view's own TapHandler reports a click).
    TapHandler {
        gesturePolicy: TapHandler.ReleaseWithinBounds
        onTapped: root.clicked()
    }
}
