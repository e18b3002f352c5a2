import QtQuick
import Tavik

// An image creative, fitted inside the frame its parent gives it, aspect kept. While it
// loads, and when it fails, nothing is drawn. Views of the same creative share one decoded
// picture and one texture through Qt's pixmap cache.
//
//   ImageAdView {
//       width: 320; height: 50
//       imageUrl: ad.elements.value          // downloaded through the SDK's transport
//   }
Item {
    id: root

    property string imageUrl

    Image {
        objectName: "creativeImage"
        anchors.fill: parent
        source: TavikMedia.imageSource(root.imageUrl)
        fillMode: Image.PreserveAspectFit
        // A preloaded picture (image://tavikready/) is taken at once, for the first frame.
        asynchronous: !String(source).startsWith("image://tavikready/")
        smooth: true
        mipmap: true
    }
}
