import QtQuick
import QtMultimedia
import Tavik

// One video ad. The C++ base owns the player and decides when it plays; this file only
// gives it somewhere to draw: the frames centred, fitted without distortion.
VideoAdViewBase {
    id: root

    videoOutput: output

    VideoOutput {
        id: output
        objectName: "videoOutput"
        anchors.centerIn: parent
        width: parent.width
        height: parent.height
        fillMode: VideoOutput.PreserveAspectFit
    }
}
