import QtQuick
import Tavik

// The one-line integration: a banner that fetches its own ad.
//
//   TavikBanner { pageType: "HOME"; adUnit: "au_home_banner"; cliUbid: shopperId }
//
// `status` is BannerAdRequest.Loading, .Ready, .Empty or .Error; `error(code, message)`
// says why an ad did not come. Every property of BannerAdView applies.
BannerAdView {
    id: root

    property alias pageType: request.pageType
    property alias adUnit: request.adUnit
    property alias cliUbid: request.cliUbid
    readonly property int status: request.status
    signal error(string code, string message)

    function reload() { request.reload(); }

    ad: request.ad

    BannerAdRequest {
        id: request
        onError: (code, message) => root.error(code, message)
    }
}
