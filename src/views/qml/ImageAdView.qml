import QtQuick
import Tavik

// An image creative, fitted inside the frame its parent gives it, aspect kept. While it
// loads, and when it fails, nothing is drawn. Each new instance asks the loader again.
Item {
    id: root

    property string imageUrl

    Image {
        objectName: "creativeImage"
        anchors.fill: parent
        source: TavikMedia.imageSource(root.imageUrl)
        fillMode: Image.PreserveAspectFit
        asynchronous: true
        cache: false
        smooth: true
        mipmap: true
    }
}
