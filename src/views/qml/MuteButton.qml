import QtQuick
import Tavik

// The sound switch of a video: fills the area its container offers (nearly invisible,
// but hit-testable on purpose) and sits in the bottom-trailing corner, 8 points in.
Rectangle {
    id: root

    property VideoPlayerManager videoManager

    anchors.fill: parent
    color: Qt.rgba(1, 1, 1, 0.001)
    z: 1

    ControlButton {
        objectName: "muteControl"
        padding: 0
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 8
        symbol: TavikMedia.muteSymbol(root.videoManager ? root.videoManager.isMuted : true)
        accessibleName: root.videoManager && !root.videoManager.isMuted ? qsTr("Mute") : qsTr("Unmute")
        onClicked: if (root.videoManager) root.videoManager.toggleMute()
    }

    // The other state's symbol, decoded off the UI thread and held in the pixmap cache,
    // so that a tap swaps the picture without reading and rasterising an SVG file in the
    // tap (the same address and size as the button's own picture).
    Image {
        visible: false
        asynchronous: true
        sourceSize.width: 40
        sourceSize.height: 40
        source: "icons/" + TavikMedia.muteSymbol(root.videoManager ? !root.videoManager.isMuted : false) + ".svg"
    }
}
