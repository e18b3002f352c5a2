import QtQuick
import Tavik

// A video ad in the floating panel: tap for the ad, the ad label where asked, the full
// screen and close buttons, the sound switch in the bottom-right corner. Apps show it
// through the picture-in-picture manager (pipAdView().showAd), which makes the panel.
//
//   PIPAdView {
//       ad: videoAd                          // a bannerAd with a video element
//       adLabelText: "Ad"
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
PIPAdViewBase {
    id: root

    property string adLabelText
    // Qt.AlignTop | Qt.AlignLeft, written as a literal: a literal is set when the item is
    // made, so the value a manager sets before the item completes is kept (an expression
    // would be evaluated at completion and overwrite it).
    property int adLabelAlignment: 33

    anchors.fill: parent
    videoPlaying: video.playing
    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Sponsored video")

    VideoAdView {
        id: video
        objectName: "video"
        anchors.fill: parent
        config: root.config
        cliUbid: root.ad.cliUbid
        uclid: root.ad.uclid
        url: root.ad.elements.value
        progressTrackInterval: root.ad.elements.videoProgressSec ?? 3
    }

    TapHandler {
        onTapped: root.tap()
    }

    // The controls row, left to right: the label's column filling the room that is left,
    // the column of the full-screen and close buttons, then the sound switch, whose
    // column is as wide as the switch and its 8-point margins, the switch in its
    // bottom-trailing corner.
    Item {
        id: labelColumn
        objectName: "labelColumn"
        width: root.width - buttons.width - muteColumn.width
        height: root.height

        AdLabelTag {
            id: tag
            visible: root.adLabelText !== ""
            labelText: root.adLabelText
            x: TavikMedia.labelPosition(labelColumn.width, labelColumn.height, width, height,
                                        root.adLabelAlignment).x
            y: TavikMedia.labelPosition(labelColumn.width, labelColumn.height, width, height,
                                        root.adLabelAlignment).y
        }
    }

    Column {
        id: buttons
        objectName: "buttonColumn"
        anchors.right: muteColumn.left
        anchors.top: parent.top
        z: 2

        FullScreenButton {
            objectName: "fullScreenButton"
            isFullScreen: root.customWindow ? root.customWindow.isFullScreen : false
            onFullScreenClicked: value => root.toggleFullScreen(value)
        }
        CloseButton {
            objectName: "closeButton"
            onCloseClicked: root.dismissAd()
        }
    }

    Item {
        id: muteColumn
        objectName: "muteColumn"
        anchors.right: parent.right
        width: 36
        height: root.height

        MuteButton {
            objectName: "muteButton"
            videoManager: video.videoManager
        }
    }
}
