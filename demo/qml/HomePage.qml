import QtQuick
import TavikShop
import Tavik

// The home page shows the three inline integration styles:
//  - TavikBanner: one element that fetches its own ad (the image banner);
//  - adRenderer() + a view type: the app fetches (Shop::loadHome) and hands the ad to
//    BannerAdView (the video) and the list to MultiAdCarouselView;
//  - a manager's showAd: the carousel is made by the SDK inside `carouselSlot`.
Item {
    id: root

    property Shop shop
    // The page's ad views, for the inspector's live visibility.
    readonly property var adViews: [
        {name: qsTr("Image banner"), item: homeBanner},
        {name: qsTr("Video banner"), item: videoBanner},
        {name: qsTr("Carousel"), item: carouselSlot.children.length > 0 ? carouselSlot.children[0] : null}
    ]
    signal productOpened(var listing)

    Component.onCompleted: shop.loadHome(carouselSlot)

    Flickable {
        id: scroller
        objectName: "homeScroller"
        anchors.fill: parent
        contentHeight: column.height + 24
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: column
            width: parent.width
            spacing: 14
            topPadding: 16

            TavikBanner {
                id: homeBanner
                objectName: "homeBanner"
                anchors.horizontalCenter: parent.horizontalCenter
                pageType: "HOME"
                adUnit: "au_home_banner"
                cliUbid: root.shop.shopperId
                adLabelText: "Ad"
                adLabelAlignment: Qt.AlignTop | Qt.AlignRight
                onAdClicked: ad => root.shop.openDestination(ad.elements.destinationUrl)
            }

            SectionTitle {
                text: qsTr("Watch: new season")
            }
            BannerAdView {
                id: videoBanner
                objectName: "videoBanner"
                anchors.horizontalCenter: parent.horizontalCenter
                ad: root.shop.videoBannerAd
                adLabelText: "Sponsored"
                adLabelAlignment: Qt.AlignBottom | Qt.AlignLeft
                onAdClicked: ad => root.shop.openDestination(ad.elements.destinationUrl)
            }

            SectionTitle {
                text: qsTr("Picked for you")
            }
            Item {
                id: carouselSlot
                objectName: "carouselSlot"
                width: 340
                height: childrenRect.height
                anchors.horizontalCenter: parent.horizontalCenter
            }

            SectionTitle {
                text: qsTr("From our partners")
            }
            MultiAdCarouselView {
                objectName: "multi"
                anchors.horizontalCenter: parent.horizontalCenter
                adWidth: 340
                elementWidth: 300
                ads: root.shop.multiAds
                adLabelText: "Ad"
                adLabelAlignment: Qt.AlignTop | Qt.AlignRight
                onAdClicked: ad => root.shop.openDestination(ad.elements.destinationUrl)
            }

            SectionTitle {
                text: qsTr("Popular right now")
            }
            Grid {
                x: 16
                columns: 2
                spacing: 12
                Repeater {
                    model: root.shop.catalogue
                    ProductTile {
                        required property var modelData
                        width: (column.width - 44) / 2
                        height: implicitHeight
                        item: modelData
                        onOpened: root.productOpened(item)
                    }
                }
            }
        }
    }
}
