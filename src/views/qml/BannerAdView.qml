import QtQuick
import Tavik

// One image or video banner. The C++ base decides (frame, kind, label place, events);
// this file draws the creative and the label and forwards taps and keys.
//
//   BannerAdView {
//       ad: bannerAdFetchedByTheApp          // a bannerAd; TavikAds.decodeBannerAd(json)
//       adLabelText: "Ad"
//       adLabelAlignment: Qt.AlignTop | Qt.AlignRight
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
BannerAdViewBase {
    id: root

    activeFocusOnTab: creativeKind !== BannerAdViewBase.None
    Accessible.role: Accessible.Button
    Accessible.name: qsTr("Sponsored")
    Accessible.description: root.adLabelText
    Accessible.focusable: true
    Accessible.onPressAction: root.tap()
    Keys.onReturnPressed: root.tap()
    Keys.onEnterPressed: root.tap()
    Keys.onSpacePressed: root.tap()
    labelSize: Qt.size(tag.width, tag.height)
    // A video banner's viewability counts playing time only.
    videoPlaying: video.item ? (video.item as VideoAdView).playing : false

    Item {
        id: frame
        objectName: "bannerFrame"
        width: root.frameWidth
        height: root.frameHeight
        anchors.centerIn: parent
        visible: root.creativeKind !== BannerAdViewBase.None

        // The creatives below are components: they read this file's ids from its context,
        // which Qt 6.4's qmllint cannot follow across a component (it reports every such
        // access as unqualified), so that one check is off for them.
        // qmllint disable unqualified
        Loader {
            anchors.fill: parent
            active: root.creativeKind === BannerAdViewBase.Image
            sourceComponent: ImageAdView {
                imageUrl: root.ad.elements.value
            }
        }

        Loader {
            id: video
            objectName: "videoLoader"
            anchors.fill: parent
            active: root.creativeKind === BannerAdViewBase.Video
            sourceComponent: VideoAdView {
                config: root.config
                cliUbid: root.adCliUbid
                uclid: root.ad.uclid
                url: root.ad.elements.value
                progressTrackInterval: root.ad.elements.videoProgressSec ?? 3
            }
        }
        // qmllint enable unqualified

        AdLabelTag {
            id: tag
            visible: root.adLabelText !== ""
            labelText: root.adLabelText
            x: root.labelPosition.x
            y: root.labelPosition.y
        }

        TapHandler {
            onTapped: root.tap()
        }

        // Keyboard focus: a thin ring, drawn only while the banner has it.
        Rectangle {
            anchors.fill: parent
            color: "transparent"
            border.width: 2
            border.color: "#3d7eff"
            visible: root.activeFocus
        }
    }
}
