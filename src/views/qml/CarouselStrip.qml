import QtQuick
import Tavik

// The strip both carousels draw: a horizontal list of cards whose scroll position the
// C++ base decides (the current card centred, shifted by the drag while it lasts), the
// page dots over its bottom edge, and the input that pages it: a drag, a horizontal
// wheel or a sideways touchpad swipe. Arrow keys are handled by the carousel itself.
Item {
    id: strip

    required property CarouselStripBase carousel
    property alias model: list.model
    property alias delegate: list.delegate
    readonly property bool dragging: drag.active

    width: carousel.stripWidth
    height: carousel.stripHeight

    ListView {
        id: list
        objectName: "cardList"
        anchors.fill: parent
        orientation: ListView.Horizontal
        // Each delegate is one pitch wide (its card and the 8-point gap after it), so a
        // card that takes no room closes the row up around it.
        spacing: 0
        interactive: false
        clip: true
        cacheBuffer: Math.max(0, Math.round(strip.carousel.pitch * 2))
        contentX: strip.carousel.scrollPosition - strip.carousel.dragOffset

        Behavior on contentX {
            enabled: !drag.active
            NumberAnimation {
                duration: 250
                easing.type: Easing.OutCubic
            }
        }
    }

    Row {
        objectName: "pageDots"
        anchors.bottom: parent.bottom
        anchors.horizontalCenter: parent.horizontalCenter
        topPadding: 6
        spacing: 6
        Accessible.ignored: true

        Repeater {
            model: strip.carousel.count
            // The dot reads `strip` from this file's context, which Qt 6.4's qmllint cannot
            // follow across the delegate's component.
            // qmllint disable unqualified
            Rectangle {
                required property int index
                width: 8
                height: 8
                radius: 4
                color: "grey"
                opacity: index === strip.carousel.currentIndex ? 1 : 0.4
            }
            // qmllint enable unqualified
        }
    }

    DragHandler {
        id: drag
        target: null
        yAxis.enabled: false
        dragThreshold: 10
        property real last: 0
        onTranslationChanged: {
            if (active) {
                last = translation.x;
                strip.carousel.dragTo(translation.x);
            }
        }
        onActiveChanged: {
            if (active) {
                last = 0;
            } else {
                strip.carousel.endDrag(last);
            }
        }
    }

    // One page per horizontal wheel notch (120) or per 120 pixels of a sideways touchpad
    // swipe. A vertical wheel is never taken: it scrolls the host's page past the strip.
    WheelHandler {
        property real pending: 0
        orientation: Qt.Horizontal
        onWheel: event => {
            const delta = event.pixelDelta.x !== 0 ? event.pixelDelta.x : event.angleDelta.x;
            if (delta === 0) {
                event.accepted = false;
                return;
            }
            pending += delta;
            while (Math.abs(pending) >= 120) {
                strip.carousel.step(pending > 0 ? -1 : 1);
                pending -= pending > 0 ? 120 : -120;
            }
            event.accepted = true;
        }
    }
}
