import QtQuick
import Tavik

// One carousel ad: its cards in a strip that pages by drag, wheel and arrow keys, page
// dots, one impression when the carousel first appears, a click per card tap.
//
//   CarouselAdView {
//       ad: carouselAdFetchedByTheApp        // a carouselAd; TavikAds.decodeCarouselAd(json)
//       adLabelText: "Sponsored"
//       onAdClicked: ad => shop.openCarousel(ad)
//   }
CarouselAdViewBase {
    id: root

    visible: drawable
    activeFocusOnTab: drawable
    Accessible.role: Accessible.List
    Accessible.name: qsTr("Sponsored")
    Keys.onLeftPressed: root.step(-1)
    Keys.onRightPressed: root.step(1)

    CarouselStrip {
        carousel: root
        model: root.cards
        // A delegate reads this file's ids from its context, which Qt 6.4's qmllint cannot
        // follow across a component (it reports every such access as unqualified).
        // qmllint disable unqualified
        delegate: Item {
            id: card
            required property int index
            required property var modelData

            width: root.pitch
            height: root.stripHeight
            Accessible.role: Accessible.ListItem
            Accessible.name: qsTr("Sponsored, %1 of %2").arg(index + 1).arg(root.count)

            Item {
                id: frame
                width: root.cardWidth
                height: root.cardHeight
                anchors.verticalCenter: parent.verticalCenter

                Rectangle {
                    anchors.fill: parent
                    visible: root.hasCardBackground
                    color: root.cardBackground
                }
                Loader {
                    anchors.fill: parent
                    active: root.cardKind(card.index) === 1
                    sourceComponent: ImageAdView {
                        imageUrl: card.modelData.media.value
                    }
                }
                Loader {
                    anchors.fill: parent
                    active: root.cardKind(card.index) === 2
                    sourceComponent: VideoAdView {
                        config: root.config
                        cliUbid: root.ad.cliUbid
                        uclid: root.ad.uclid
                        url: card.modelData.media.value
                        progressTrackInterval: card.modelData.media.videoProgressSec ?? 3
                    }
                }
                AdLabelTag {
                    id: tag
                    visible: root.adLabelText !== ""
                    labelText: root.adLabelText
                    x: root.labelPosition(frame.width, frame.height, width, height).x
                    y: root.labelPosition(frame.width, frame.height, width, height).y
                }
                TapHandler {
                    onTapped: root.tapCard(card.index)
                }
            }
        }
        // qmllint enable unqualified
    }
}
