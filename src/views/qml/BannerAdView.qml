import QtQuick
import Tavik

// One image or video banner. The C++ base decides (frame, kind, label place, events) and
// makes the parts it draws when they are needed: the creative, the label while there is
// label text, the focus ring once the banner has keyboard focus (Enter, Return and Space
// tap it). This file gives the frame its tap and the banner its accessible name.
//
//   BannerAdView {
//       ad: bannerAdFetchedByTheApp          // a bannerAd; TavikAds.decodeBannerAd(json)
//       adLabelText: "Ad"
//       adLabelAlignment: Qt.AlignTop | Qt.AlignRight
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
BannerAdViewBase {
    id: root

    Accessible.role: Accessible.Button
    Accessible.name: qsTr("Sponsored")
    Accessible.description: root.adLabelText
    Accessible.focusable: true
    Accessible.onPressAction: root.tap()

    // Placed and sized by the base: centred, the frame's size, shown only with an ad it
    // can draw. The creative, the label and the focus ring go inside it.
    Item {
        objectName: "bannerFrame"

        TapHandler {
            onTapped: root.tap()
        }
    }
}
