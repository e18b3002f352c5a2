import QtQuick
import TavikShop

// The cart, its total and checkout; after checkout, the order confirmation (the
// interstitial comes over it).
Item {
    id: root

    property Shop shop
    property string placedOrder: ""
    signal browse

    Connections {
        target: root.shop
        function onOrderPlaced(orderId) {
            root.placedOrder = orderId;
        }
        function onCartChanged() {
            if (root.shop.cartCount > 0)
                root.placedOrder = "";
        }
    }

    Column {
        objectName: "orderDone"
        visible: root.placedOrder !== ""
        anchors.horizontalCenter: parent.horizontalCenter
        y: 48
        width: parent.width - 64
        spacing: 10

        Rectangle {
            anchors.horizontalCenter: parent.horizontalCenter
            width: 72
            height: 72
            radius: 36
            color: Theme.brandSoft
            Text {
                anchors.centerIn: parent
                text: "✓"
                color: Theme.brand
                font.pixelSize: 36
                font.weight: Font.Bold
            }
        }
        Text {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            text: qsTr("Thank you!")
            color: Theme.ink
            font.pixelSize: 24
            font.weight: Font.Bold
        }
        Text {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            text: qsTr("Order %1 is on its way.").arg(root.placedOrder)
            color: Theme.muted
            font.pixelSize: 15
            wrapMode: Text.WordWrap
        }
    }

    Text {
        visible: root.placedOrder === "" && root.shop.cartCount === 0
        anchors.centerIn: parent
        text: qsTr("Your cart is empty")
        color: Theme.muted
        font.pixelSize: 16
        TapHandler {
            onTapped: root.browse()
        }
    }

    Column {
        visible: root.shop.cartCount > 0
        width: parent.width
        spacing: 10
        topPadding: 16

        SectionTitle {
            text: qsTr("Your cart")
            note: qsTr("%n item(s)", "", root.shop.cartCount)
        }

        Repeater {
            model: root.shop.cart
            Rectangle {
                id: line
                required property var modelData
                x: 16
                width: root.width - 32
                height: 88
                radius: Theme.radius
                color: "white"
                border.color: Theme.line

                Rectangle {
                    id: thumb
                    x: 8
                    y: 8
                    width: 72
                    height: 72
                    radius: 8
                    color: "#eef0ec"
                    Image {
                        objectName: "tileImage"
                        anchors.fill: parent
                        anchors.margins: 4
                        source: line.modelData.image
                        fillMode: Image.PreserveAspectFit
                        asynchronous: true
                        sourceSize.width: 200
                    }
                }
                Column {
                    anchors.left: thumb.right
                    anchors.leftMargin: 12
                    anchors.right: amount.left
                    anchors.rightMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 2
                    Text {
                        text: line.modelData.brand.toUpperCase()
                        color: Theme.muted
                        font.pixelSize: 10
                        font.weight: Font.DemiBold
                    }
                    Text {
                        width: parent.width
                        text: line.modelData.name
                        color: Theme.ink
                        font.pixelSize: 15
                        font.weight: Font.Medium
                        elide: Text.ElideRight
                    }
                    Text {
                        text: qsTr("Qty %1 · %2").arg(line.modelData.quantity).arg(Theme.price(line.modelData.price))
                        color: Theme.muted
                        font.pixelSize: 13
                    }
                }
                Text {
                    id: amount
                    anchors.right: parent.right
                    anchors.rightMargin: 14
                    anchors.verticalCenter: parent.verticalCenter
                    text: Theme.price(line.modelData.price * line.modelData.quantity)
                    color: Theme.ink
                    font.pixelSize: 15
                    font.weight: Font.Bold
                }
            }
        }

        Rectangle {
            x: 16
            width: root.width - 32
            height: 1
            color: Theme.line
        }
        Item {
            x: 16
            width: root.width - 32
            height: 28
            Text {
                text: qsTr("Total")
                color: Theme.ink
                font.pixelSize: 17
                font.weight: Font.DemiBold
            }
            Text {
                anchors.right: parent.right
                text: Theme.price(root.shop.cartTotal)
                color: Theme.ink
                font.pixelSize: 19
                font.weight: Font.Bold
            }
        }
        Rectangle {
            objectName: "checkoutButton"
            x: 16
            width: root.width - 32
            height: 52
            radius: 26
            color: Theme.brand
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Checkout")
            Text {
                anchors.centerIn: parent
                text: qsTr("Checkout · %1").arg(Theme.price(root.shop.cartTotal))
                color: "white"
                font.pixelSize: 17
                font.weight: Font.Bold
            }
            TapHandler {
                onTapped: root.shop.checkout()
            }
        }
    }
}
