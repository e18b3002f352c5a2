import QtQuick
import TavikShop

// The event inspector: how much of each ad on the page is on screen and when it became
// viewable, then every request the SDK sent, newest first, with when, which service,
// the path, the query items and the outcome; chips filter by kind.
Rectangle {
    id: root

    property RequestLogModel model
    // The SDK's event store and the sandbox's event-service switch.
    property EventStoreStatus store
    // The ad views to watch: [{name, item}], each item with `visibleFraction` and a
    // `viewable` signal.
    property var adViews: []
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
            text: {
                const n = root.model ? root.model.total : 0;
                return n === 1 ? qsTr("Inspector · 1 request") : qsTr("Inspector · %1 requests").arg(n);
            }
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

    // The event store: what waits for the event service, what went, and a switch that
    // takes the service offline so events wait here and drain when it is back.
    Flow {
        id: storeRow
        objectName: "eventStoreRow"
        anchors.top: kinds.bottom
        anchors.topMargin: 8
        x: 12
        width: parent.width - 24
        spacing: 8
        visible: root.store !== null
        Text {
            objectName: "eventStorePending"
            height: 24
            verticalAlignment: Text.AlignVCenter
            text: !root.store ? "" : !root.store.active ? qsTr("Event store off")
                  : qsTr("Event store · %1 waiting · %2 delivered · %3 retried")
                        .arg(root.store.pending).arg(root.store.delivered).arg(root.store.retried)
            color: root.store && root.store.pending > 0 ? "#f3b27a" : "#c9d4ce"
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
        Rectangle {
            objectName: "eventServiceSwitch"
            readonly property bool online: root.store ? root.store.serviceOnline : true
            width: switchText.implicitWidth + 18
            height: 24
            radius: 12
            color: online ? "transparent" : "#5a2a26"
            border.color: online ? "#3b4a43" : "#ff8a80"
            Text {
                id: switchText
                anchors.centerIn: parent
                text: parent.online ? qsTr("event service online") : qsTr("event service offline")
                color: parent.online ? "#9fd3b8" : "#ff8a80"
                font.pixelSize: 11
                font.weight: Font.DemiBold
            }
            TapHandler {
                onTapped: root.store.serviceOnline = !root.store.serviceOnline
            }
        }
    }

    // Live visibility of the page's ads: the share on screen now, and since when each is
    // viewable (half of it for a continuous second; two seconds of playback for video).
    Flow {
        id: ads
        objectName: "adVisibility"
        anchors.top: storeRow.visible ? storeRow.bottom : kinds.bottom
        anchors.topMargin: 8
        x: 12
        width: parent.width - 24
        spacing: 6
        Repeater {
            model: root.adViews
            Rectangle {
                id: chip
                required property var modelData
                readonly property var view: modelData.item
                readonly property real fraction: view ? view.visibleFraction : 0
                property string viewableAt: ""
                objectName: "adVisibility-" + modelData.name
                width: chipText.implicitWidth + 16
                height: 24
                radius: 6
                color: viewableAt !== "" ? "#234236" : "#222a27"
                border.color: fraction > 0 ? "#9fd3b8" : "#3b4a43"
                Connections {
                    target: chip.view
                    ignoreUnknownSignals: true
                    function onViewable() {
                        chip.viewableAt = Qt.formatTime(new Date(), "hh:mm:ss");
                    }
                }
                Component.onCompleted: if (view && view.viewableReported) viewableAt = qsTr("earlier")
                Text {
                    id: chipText
                    anchors.centerIn: parent
                    text: chip.modelData.name + " " + Math.round(chip.fraction * 100) + "%"
                          + (chip.viewableAt !== "" ? " · viewable " + chip.viewableAt : "")
                    color: chip.fraction > 0 ? "white" : "#7d8a84"
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
            }
        }
    }

    ListView {
        anchors.top: ads.bottom
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
