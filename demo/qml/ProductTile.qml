import QtQuick

// A product card: picture, brand, name, price; a "Sponsored" tag on an ad listing.
Rectangle {
    id: root

    property var item: ({})
    property bool compact: false
    signal opened

    implicitHeight: picture.height + details.implicitHeight + 20
    radius: Theme.radius
    color: Theme.card
    border.color: Theme.line
    Accessible.role: Accessible.Button
    Accessible.name: (item.sponsored ? qsTr("Sponsored: ") : "") + (item.name ?? "")

    Rectangle {
        id: picture
        x: 8
        y: 8
        width: parent.width - 16
        height: Math.round(width * (root.compact ? 0.85 : 0.8))
        radius: Theme.radius - 4
        color: "#eef0ec"

        Image {
            objectName: "tileImage"
            anchors.fill: parent
            anchors.margins: 4
            source: root.item.image ?? ""
            fillMode: Image.PreserveAspectFit
            asynchronous: true
            sourceSize.width: 400
            onStatusChanged: if (status === Image.Error) console.warn("image failed", source)
        }

        Rectangle {
            visible: root.item.sponsored === true
            x: 6
            y: 6
            width: tag.implicitWidth + 12
            height: 20
            radius: 10
            color: Theme.sponsoredBack
            border.color: "#f0d58f"
            Text {
                id: tag
                anchors.centerIn: parent
                text: qsTr("Sponsored")
                color: Theme.sponsored
                font.pixelSize: 11
                font.weight: Font.DemiBold
            }
        }
    }

    Column {
        id: details
        anchors.top: picture.bottom
        anchors.topMargin: 8
        x: 10
        width: parent.width - 20
        spacing: 2

        Text {
            width: parent.width
            text: (root.item.brand ?? "").toUpperCase()
            color: Theme.muted
            font.pixelSize: 10
            font.weight: Font.DemiBold
            font.letterSpacing: 0.6
            elide: Text.ElideRight
        }
        Text {
            width: parent.width
            text: root.item.name ?? ""
            color: Theme.ink
            font.pixelSize: root.compact ? 12 : 14
            font.weight: Font.Medium
            wrapMode: Text.WordWrap
            maximumLineCount: 2
            elide: Text.ElideRight
            height: root.compact ? 30 : 36
        }
        Text {
            text: root.item.price !== undefined ? Theme.price(root.item.price) : ""
            color: Theme.ink
            font.pixelSize: root.compact ? 13 : 15
            font.weight: Font.Bold
        }
    }

    TapHandler {
        onTapped: root.opened()
    }
}
