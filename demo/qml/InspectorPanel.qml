import QtQuick
import TavikShop

// The event inspector: every request the SDK sent, newest first, with when, which
// service, the path, the query items and the outcome; chips filter by kind.
Rectangle {
    id: root

    property RequestLogModel model
    signal closed

    color: "#151a18"
    radius: 14

    // Square the bottom corners.
    Rectangle {
        anchors.bottom: parent.bottom
        width: parent.width
        height: parent.radius
        color: parent.color
    }

    // Taps and scrolling stay in the panel.
    MouseArea {
        anchors.fill: parent
        onWheel: wheel => wheel.accepted = true
    }

    Item {
        id: top
        width: parent.width
        height: 44
        Text {
            x: 16
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("Inspector · %n request(s)", "", root.model ? root.model.total : 0)
            color: "white"
            font.pixelSize: 15
            font.weight: Font.Bold
        }
        Text {
            objectName: "inspectorClose"
            anchors.right: parent.right
            anchors.rightMargin: 16
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("Close")
            color: "#9fd3b8"
            font.pixelSize: 14
            TapHandler {
                onTapped: root.closed()
            }
        }
    }

    Row {
        id: kinds
        anchors.top: top.bottom
        x: 12
        spacing: 6
        Repeater {
            model: ["", "ads", "products", "events", "media"]
            Rectangle {
                required property string modelData
                readonly property bool active: root.model && root.model.kind === modelData
                objectName: "kind-" + (modelData === "" ? "all" : modelData)
                width: kindText.implicitWidth + 18
                height: 26
                radius: 13
                color: active ? "#9fd3b8" : "transparent"
                border.color: "#3b4a43"
                Text {
                    id: kindText
                    anchors.centerIn: parent
                    text: parent.modelData === "" ? qsTr("all") : parent.modelData
                    color: parent.active ? "#151a18" : "#c9d4ce"
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                }
                TapHandler {
                    onTapped: root.model.kind = parent.modelData
                }
            }
        }
    }

    ListView {
        anchors.top: kinds.bottom
        anchors.topMargin: 8
        anchors.bottom: parent.bottom
        width: parent.width
        clip: true
        model: root.model
        spacing: 1
        delegate: Rectangle {
            required property string time
            required property string service
            required property string method
            required property string path
            required property string query
            required property string outcome
            required property bool ok
            required property int elapsed
            required property string subject
            objectName: "inspectorRow"
            width: ListView.view.width
            height: entry.implicitHeight + 12
            color: "#1c2220"

            Column {
                id: entry
                x: 12
                y: 6
                width: parent.width - 24
                spacing: 2
                Flow {
                    width: parent.width
                    spacing: 8
                    Text {
                        text: time
                        color: "#7d8a84"
                        font.family: "DejaVu Sans Mono"
                        font.pixelSize: 11
                    }
                    Text {
                        text: service
                        color: service === "events" ? "#f3b27a" : service === "media" ? "#9ab6e8" : "#9fd3b8"
                        font.pixelSize: 11
                        font.weight: Font.Bold
                    }
                    Text {
                        text: method + " " + path
                        color: "white"
                        font.family: "DejaVu Sans Mono"
                        font.pixelSize: 11
                    }
                    Text {
                        visible: subject !== ""
                        text: subject
                        color: "white"
                        font.pixelSize: 11
                        font.weight: Font.Bold
                    }
                    Text {
                        text: outcome + " · " + elapsed + " ms"
                        color: ok ? "#7fd19b" : "#ff8a80"
                        font.pixelSize: 11
                        font.weight: Font.DemiBold
                    }
                }
                Text {
                    visible: query !== ""
                    width: parent.width
                    text: query
                    color: "#b5c0bb"
                    font.family: "DejaVu Sans Mono"
                    font.pixelSize: 10
                    wrapMode: Text.WrapAnywhere
                    maximumLineCount: 3
                    elide: Text.ElideRight
                }
            }
        }
    }
}
