import QtQuick
import Tavik

// A video ad in the floating panel: tap for the ad, full screen and close buttons on
// the right, the sound switch in the bottom-right corner, the ad label where asked.
PIPAdViewBase {
    id: root

    property string adLabelText
    property int adLabelAlignment: Qt.AlignTop | Qt.AlignLeft

    anchors.fill: parent
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

    AdLabelTag {
        id: tag
        visible: root.adLabelText !== ""
        labelText: root.adLabelText
        x: TavikMedia.labelPosition(root.width - buttons.width, root.height, width, height,
                                    root.adLabelAlignment).x
        y: TavikMedia.labelPosition(root.width - buttons.width, root.height, width, height,
                                    root.adLabelAlignment).y
    }

    MuteButton {
        objectName: "muteButton"
        videoManager: video.videoManager
    }

    Column {
        id: buttons
        anchors.right: parent.right
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
}
