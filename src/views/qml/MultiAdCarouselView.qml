import QtQuick
import Tavik

// Several banner ads in one strip: every card is a whole BannerAdView with its own
// impression (once per card for the life of the strip) and clicks.
//
//   MultiAdCarouselView {
//       ads: bannerAdsFetchedByTheApp        // a list of bannerAd
//       adWidth: 320
//       adLabelText: "Ad"
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
MultiAdCarouselViewBase {
    id: root

    activeFocusOnTab: root.count > 0
    Accessible.role: Accessible.List
    Accessible.name: qsTr("Sponsored")
    Keys.onLeftPressed: root.step(-1)
    Keys.onRightPressed: root.step(1)

    CarouselStrip {
        carousel: root
        model: root.ads
        // A delegate reads this file's ids from its context, which Qt 6.4's qmllint cannot
        // follow across a component (it reports every such access as unqualified).
        // qmllint disable unqualified
        delegate: Item {
            id: card
            required property int index
            required property var modelData

            // A card that cannot be drawn takes no room (it still has its dot).
            width: root.pitch > 0 && root.cardTakesRoom(card.index) ? root.pitch : 0
            height: root.stripHeight

            BannerAdView {
                objectName: "card" + card.index
                // Never over the card before it, also while its size settles.
                x: Math.max(0, (root.cardWidth - width) / 2)
                anchors.verticalCenter: parent.verticalCenter
                config: root.config
                ad: card.modelData
                adWidth: root.cardWidth
                adHeight: root.cardHeight
                adLabelText: root.adLabelText
                adLabelAlignment: root.adLabelAlignment
                impressionReported: root.cardReported(card.index)
                Accessible.name: qsTr("Sponsored, %1 of %2").arg(card.index + 1).arg(root.count)
                viewableReported: root.cardViewable(card.index)
                onImpressionReportedChanged: if (impressionReported) root.markCardReported(card.index)
                onViewable: ad => {
                    root.markCardViewable(card.index);
                    root.viewable(ad);
                }
                onAdAppear: ad => root.adAppear(ad)
                onAdClicked: ad => root.adClicked(ad)
            }
        }
        // qmllint enable unqualified
    }
}
