import QtQuick

// Home, Search and Cart at the bottom, the current one underlined in the brand colour.
Rectangle {
    id: root

    property string current
    property int cartCount
    signal selected(string name)

    height: 60
    color: "white"

    Rectangle {
        width: parent.width
        height: 1
        color: Theme.line
    }

    Row {
        anchors.fill: parent
        Repeater {
            model: [{
                    "name": "home",
                    "label": qsTr("Home")
                }, {
                    "name": "search",
                    "label": qsTr("Search")
                }, {
                    "name": "cart",
                    "label": qsTr("Cart")
                }]
            Item {
                id: tab
                required property var modelData
                readonly property bool active: root.current === modelData.name
                objectName: "nav" + modelData.name.charAt(0).toUpperCase() + modelData.name.slice(1)
                width: root.width / 3
                height: root.height
                Accessible.role: Accessible.PageTab
                Accessible.name: modelData.label

                Rectangle {
                    anchors.horizontalCenter: parent.horizontalCenter
                    y: 6
                    width: 36
                    height: 3
                    radius: 1.5
                    color: tab.active ? Theme.brand : "transparent"
                }
                Text {
                    anchors.centerIn: parent
                    text: tab.modelData.label
                    color: tab.active ? Theme.brand : Theme.muted
                    font.pixelSize: 15
                    font.weight: tab.active ? Font.Bold : Font.Medium
                }
                Badge {
                    visible: tab.modelData.name === "cart" && root.cartCount > 0
                    count: root.cartCount
                    x: parent.width / 2 + 18
                    y: 12
                }
                TapHandler {
                    onTapped: root.selected(tab.modelData.name)
                }
            }
        }
    }
}
