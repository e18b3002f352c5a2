import QtQuick
import TavikShop

// Tavik Outfitters: header, pages, tab bar, the event inspector and a toast. The pages
// are kept alive and shown one at a time, so their ads keep their state.
Window {
    id: app

    required property Shop shop
    required property RequestLogModel inspector
    required property EventStoreStatus eventStore
    property string page: "home"
    property string returnPage: "home"
    property bool inspectorOpen: false

    function go(name) {
        if (name === page)
            return;
        if (name === "product")
            returnPage = page;
        page = name;
    }

    // The product page opens when the shop has the product (onProductChanged).
    function openProduct(listing) {
        shop.openListing(listing);
    }

    // A phone-sized window, shorter on a screen that has less room.
    width: 420
    height: Screen.desktopAvailableHeight > 0 ? Math.min(860, Screen.desktopAvailableHeight - 48) : 860
    minimumWidth: 360
    minimumHeight: 600
    visible: true
    color: Theme.page
    title: "Tavik Outfitters"

    Connections {
        target: app.shop
        function onProductChanged() {
            app.go("product");
        }
    }

    ShopHeader {
        id: header
        anchors.left: parent.left
        anchors.right: parent.right
        shop: app.shop
        inspectorOpen: app.inspectorOpen
        showSearch: app.page !== "search"
        onSearchRequested: app.go("search")
        onCartRequested: app.go("cart")
        onInspectorToggled: app.inspectorOpen = !app.inspectorOpen
    }

    Item {
        id: pages
        anchors.top: header.bottom
        anchors.bottom: tabs.top
        anchors.left: parent.left
        anchors.right: parent.right
        clip: true

        HomePage {
            id: homePage
            objectName: "homePage"
            anchors.fill: parent
            visible: app.page === "home"
            shop: app.shop
            onProductOpened: listing => app.openProduct(listing)
        }
        SearchPage {
            objectName: "searchPage"
            anchors.fill: parent
            visible: app.page === "search"
            shop: app.shop
            onProductOpened: listing => app.openProduct(listing)
        }
        ProductPage {
            objectName: "productPage"
            anchors.fill: parent
            visible: app.page === "product"
            shop: app.shop
            onBack: app.go(app.returnPage)
            onProductOpened: listing => app.openProduct(listing)
        }
        CartPage {
            objectName: "cartPage"
            anchors.fill: parent
            visible: app.page === "cart"
            shop: app.shop
            onBrowse: app.go("home")
        }
    }

    TabBar {
        id: tabs
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        current: app.page === "product" ? app.returnPage : app.page
        cartCount: app.shop.cartCount
        onSelected: name => app.go(name)
    }

    InspectorPanel {
        objectName: "inspectorPanel"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: tabs.top
        height: Math.round(parent.height * 0.5)
        visible: app.inspectorOpen
        model: app.inspector
        store: app.eventStore
        adViews: homePage.adViews
        onClosed: app.inspectorOpen = false
    }

    // A message belongs to the page it was said on.
    onPageChanged: shop.dismissMessage()

    Toast {
        text: app.shop.message
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: tabs.top
        anchors.bottomMargin: 16
    }
}
