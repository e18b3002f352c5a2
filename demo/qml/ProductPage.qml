import QtQuick
import TavikShop

// A product: picture, details, add to cart, the product's video (picture in picture),
// and sponsored listings for the page (fetchPlaProductPageAds).
Item {
    id: root

    property Shop shop
    readonly property var product: shop.product
    signal back
    signal productOpened(var listing)

    Flickable {
        anchors.fill: parent
        contentHeight: content.height + 24
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: content
            width: parent.width
            spacing: 12
            topPadding: 8

            Text {
                objectName: "backButton"
                x: 16
                text: "‹ " + qsTr("Back")
                color: Theme.brand
                font.pixelSize: 15
                font.weight: Font.DemiBold
                TapHandler {
                    onTapped: root.back()
                }
            }

            Rectangle {
                x: 16
                width: parent.width - 32
                height: 210
                radius: Theme.radius
                color: "white"
                border.color: Theme.line
                Image {
                    objectName: "productImage"
                    anchors.fill: parent
                    anchors.margins: 12
                    source: root.product.image ?? ""
                    fillMode: Image.PreserveAspectFit
                    asynchronous: true
                    sourceSize.width: 600
                }
            }

            Column {
                x: 16
                width: parent.width - 32
                spacing: 4
                Text {
                    text: (root.product.brand ?? "").toUpperCase()
                    color: Theme.muted
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                    font.letterSpacing: 0.8
                }
                Text {
                    width: parent.width
                    text: root.product.name ?? ""
                    color: Theme.ink
                    font.pixelSize: 22
                    font.weight: Font.Bold
                    wrapMode: Text.WordWrap
                }
                Text {
                    text: root.product.price !== undefined ? Theme.price(root.product.price) : ""
                    color: Theme.ink
                    font.pixelSize: 20
                    font.weight: Font.DemiBold
                }
            }

            Row {
                x: 16
                spacing: 10
                Rectangle {
                    objectName: "addToCart"
                    width: content.width - 32 - 10 - video.width
                    height: 48
                    radius: 24
                    color: Theme.accent
                    Accessible.role: Accessible.Button
                    Accessible.name: qsTr("Add to cart")
                    Text {
                        anchors.centerIn: parent
                        text: qsTr("Add to cart")
                        color: "white"
                        font.pixelSize: 16
                        font.weight: Font.Bold
                    }
                    TapHandler {
                        onTapped: root.shop.addToCart(root.product.sku)
                    }
                }
                Rectangle {
                    id: video
                    objectName: "watchVideo"
                    width: 120
                    height: 48
                    radius: 24
                    color: "white"
                    border.color: Theme.brand
                    Accessible.role: Accessible.Button
                    Accessible.name: qsTr("Watch the video")
                    Text {
                        anchors.centerIn: parent
                        text: "▶  " + qsTr("Video")
                        color: Theme.brand
                        font.pixelSize: 15
                        font.weight: Font.DemiBold
                    }
                    TapHandler {
                        onTapped: root.shop.showVideo()
                    }
                }
            }

            SectionTitle {
                visible: root.shop.productAds.length > 0
                text: qsTr("You may also like")
                note: qsTr("Sponsored")
            }
            Row {
                x: 16
                spacing: 10
                Repeater {
                    model: root.shop.productAds
                    ProductTile {
                        required property var modelData
                        required property int index
                        objectName: "productAd-" + index
                        compact: true
                        width: (content.width - 52) / 3
                        height: implicitHeight
                        item: modelData
                        onOpened: root.productOpened(modelData)
                    }
                }
            }
        }
    }
}
