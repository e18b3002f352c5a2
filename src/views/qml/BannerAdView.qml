import Tavik

// One image or video banner. The C++ base is the whole banner: it decides (frame, kind,
// label place, events), draws the picture itself, takes taps (and Enter, Return and Space
// on the focused banner) and makes the parts it needs only when it needs them: the video,
// the label while there is label text, the focus ring once the banner has keyboard focus.
//
//   BannerAdView {
//       ad: bannerAdFetchedByTheApp          // a bannerAd; TavikAds.decodeBannerAd(json)
//       adLabelText: "Ad"
//       adLabelAlignment: Qt.AlignTop | Qt.AlignRight
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
BannerAdViewBase {
}
