import QtQuick
import TavikShop

// The shop's name, a search field that opens the search page (hidden on that page, which
// has its own), the inspector switch and the cart with its badge.
Rectangle {
    id: root

    property Shop shop
    property bool inspectorOpen
    property bool showSearch: true
    signal searchRequested
    signal cartRequested
    signal inspectorToggled

    height: showSearch ? 112 : 58
    color: Theme.brand

    Text {
        x: 16
        y: 14
        text: "Tavik Outfitters"
        color: "white"
        font.pixelSize: 22
        font.weight: Font.Bold
        font.letterSpacing: -0.3
    }

    Row {
        anchors.right: parent.right
        anchors.rightMargin: 12
        y: 10
        spacing: 8

        Rectangle {
            objectName: "inspectorButton"
            width: inspectorText.implicitWidth + 20
            height: 32
            radius: 16
            color: root.inspectorOpen ? "white" : Qt.rgba(1, 1, 1, 0.14)
            border.color: Qt.rgba(1, 1, 1, 0.35)
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Event inspector")
            Text {
                id: inspectorText
                anchors.centerIn: parent
                text: "{ } Inspector"
                color: root.inspectorOpen ? Theme.brand : "white"
                font.pixelSize: 13
                font.weight: Font.DemiBold
            }
            TapHandler {
                onTapped: root.inspectorToggled()
            }
        }

        Item {
            objectName: "cartButton"
            width: 40
            height: 32
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Cart, %1 items").arg(root.shop ? root.shop.cartCount : 0)
            BagIcon {
                anchors.centerIn: parent
                color: "white"
            }
            Badge {
                objectName: "cartBadge"
                anchors.right: parent.right
                anchors.top: parent.top
                count: root.shop ? root.shop.cartCount : 0
            }
            TapHandler {
                onTapped: root.cartRequested()
            }
        }
    }

    Rectangle {
        objectName: "headerSearch"
        visible: root.showSearch
        x: 16
        width: parent.width - 32
        y: 58
        height: 40
        radius: 20
        color: "white"
        Accessible.role: Accessible.Button
        Accessible.name: qsTr("Search")
        SearchGlyph {
            x: 14
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            x: 42
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("Search shoes, jackets, bottles…")
            color: Theme.muted
            font.pixelSize: 15
        }
        TapHandler {
            onTapped: root.searchRequested()
        }
    }
}
