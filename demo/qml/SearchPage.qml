import QtQuick
import TavikShop

// Search: a query, brand and price filters, then sponsored listings (the ad fetcher's
// fetchPlaSearchPageAds with the same filter) ahead of the shop's own matches.
Item {
    id: root

    property Shop shop
    property var brands: []
    property string priceRange: ""
    property bool searched: false
    readonly property var ranges: ({
            "under25": ["", "25"],
            "under100": ["", "100"],
            "over100": ["100", ""]
        })
    signal productOpened(var listing)

    function run() {
        if (field.text.trim() === "")
            return;
        searched = true;
        const range = ranges[priceRange] ?? ["", ""];
        shop.search(field.text.trim(), brands, range[0], range[1]);
    }
    function toggleBrand(brand) {
        const at = brands.indexOf(brand);
        const next = brands.slice();
        if (at < 0)
            next.push(brand);
        else
            next.splice(at, 1);
        brands = next;
        if (searched)
            run();
    }
    function choosePrice(range) {
        priceRange = priceRange === range ? "" : range;
        if (searched)
            run();
    }

    Flickable {
        anchors.fill: parent
        contentHeight: content.height + 24
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: content
            width: parent.width
            spacing: 12
            topPadding: 16

            Rectangle {
                x: 16
                width: parent.width - 32
                height: 44
                radius: 22
                color: "white"
                border.color: field.activeFocus ? Theme.brand : Theme.line
                border.width: field.activeFocus ? 2 : 1

                SearchGlyph {
                    x: 16
                    anchors.verticalCenter: parent.verticalCenter
                }
                TextInput {
                    id: field
                    objectName: "searchField"
                    x: 44
                    width: parent.width - 60
                    anchors.verticalCenter: parent.verticalCenter
                    font.pixelSize: 16
                    color: Theme.ink
                    clip: true
                    onAccepted: root.run()
                    Accessible.role: Accessible.EditableText
                    Accessible.name: qsTr("Search the shop")
                    Text {
                        visible: field.text === ""
                        text: qsTr("Search the shop")
                        color: Theme.muted
                        font: field.font
                    }
                }
            }

            Flow {
                x: 16
                width: parent.width - 32
                spacing: 8
                Repeater {
                    model: ["Northpeak", "Aquora", "Stormline"]
                    Chip {
                        required property string modelData
                        objectName: "brand-" + modelData
                        text: modelData
                        checked: root.brands.indexOf(modelData) >= 0
                        onToggled: root.toggleBrand(modelData)
                    }
                }
                Repeater {
                    model: [{
                            "key": "under25",
                            "label": qsTr("Under €25")
                        }, {
                            "key": "under100",
                            "label": qsTr("Under €100")
                        }, {
                            "key": "over100",
                            "label": qsTr("€100 and up")
                        }]
                    Chip {
                        required property var modelData
                        objectName: "price-" + modelData.key
                        text: modelData.label
                        checked: root.priceRange === modelData.key
                        onToggled: root.choosePrice(modelData.key)
                    }
                }
            }

            Text {
                objectName: "resultCount"
                x: 16
                visible: root.searched
                text: {
                    const n = root.shop.results.length;
                    if (root.shop.searching)
                        return qsTr("Searching…");
                    return n === 1 ? qsTr("1 result") : qsTr("%1 results").arg(n);
                }
                color: Theme.muted
                font.pixelSize: 13
            }

            Text {
                x: 16
                width: parent.width - 32
                visible: !root.searched
                text: qsTr("Try “outdoor”, “running” or a brand.")
                color: Theme.muted
                font.pixelSize: 14
                wrapMode: Text.WordWrap
            }

            Grid {
                x: 16
                columns: 2
                spacing: 12
                visible: root.searched
                Repeater {
                    model: root.shop.results
                    ProductTile {
                        required property var modelData
                        required property int index
                        objectName: "result-" + index
                        width: (content.width - 44) / 2
                        height: implicitHeight
                        item: modelData
                        onOpened: root.productOpened(modelData)
                    }
                }
            }
        }
    }
}
