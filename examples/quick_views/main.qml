import QtQuick
import Tavik

// Two ways to put an ad on screen with `import Tavik`:
//  - TavikBanner fetches its own ad (one element);
//  - BannerAdView shows an ad the app already has (here, one the app fetched itself).
Rectangle {
    id: page
    width: 400
    height: 1100
    color: "#f4f5f7"

    // A real shop opens the product page; the SDK itself opens nothing.
    function open(destination) { console.log("open", destination); }

    Flickable {
        id: scroller
        objectName: "scroller"
        anchors.fill: parent
        contentHeight: column.height + 600
        clip: true

        Column {
            id: column
            width: parent.width
            spacing: 16
            topPadding: 16

            Text {
                x: 16
                text: "Today's deals"
                font.pixelSize: 22
                font.weight: Font.DemiBold
                color: "#1d2330"
            }

            TavikBanner {
                id: imageBanner
                objectName: "imageBanner"
                anchors.horizontalCenter: parent.horizontalCenter
                pageType: "HOME"
                adUnit: "au_home_banner"
                cliUbid: "shopper-42"
                adLabelText: "Ad"
                adLabelAlignment: Qt.AlignTop | Qt.AlignRight
                onAdClicked: ad => page.open(ad.elements.destinationUrl)
            }

            Text {
                x: 16
                text: "Watch"
                font.pixelSize: 18
                font.weight: Font.DemiBold
                color: "#1d2330"
            }

            BannerAdView {
                id: videoBanner
                objectName: "videoBanner"
                anchors.horizontalCenter: parent.horizontalCenter
                // `ad` is set from C++ with the ad the app fetched through adRenderer().
                adLabelText: "Sponsored"
                adLabelAlignment: Qt.AlignBottom | Qt.AlignLeft
                onAdClicked: ad => page.open(ad.elements.destinationUrl)
            }

            Text {
                x: 16
                text: "Picked for you"
                font.pixelSize: 18
                font.weight: Font.DemiBold
                color: "#1d2330"
            }

            // A manager's showAd (C++) puts the carousel ad in here.
            Item {
                id: carouselSlot
                objectName: "carouselSlot"
                anchors.horizontalCenter: parent.horizontalCenter
                width: childrenRect.width
                height: childrenRect.height
            }

            Text {
                x: 16
                text: "More from our partners"
                font.pixelSize: 18
                font.weight: Font.DemiBold
                color: "#1d2330"
            }

            MultiAdCarouselView {
                id: multi
                objectName: "multi"
                anchors.horizontalCenter: parent.horizontalCenter
                adWidth: 320
                elementWidth: 300
                adLabelText: "Ad"
                adLabelAlignment: Qt.AlignTop | Qt.AlignRight
                // `ads` is set from C++ with the list the app fetched.
                onAdClicked: ad => page.open(ad.elements.destinationUrl)
            }

            Repeater {
                model: 2
                Rectangle {
                    x: 16
                    width: column.width - 32
                    height: 64
                    radius: 8
                    color: "white"
                    Text {
                        anchors.verticalCenter: parent.verticalCenter
                        x: 16
                        text: "Product " + (index + 1)
                        color: "#4a5060"
                    }
                }
            }
        }
    }
}
