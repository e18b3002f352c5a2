import QtQuick
import Tavik

// The item a CustomWindow puts over the host's window. A floating panel gets its dark
// rounded background and follows a drag as a whole (the window moves it when the drag
// ends); full-window content fills it. It takes input only where it is.
Item {
    id: frame

    property CustomWindow customWindow
    readonly property bool floating: customWindow !== null && customWindow.isDraggable
                                     && !customWindow.isFullScreen

    // The whole panel (background, corners and content) follows the finger while a drag
    // lasts; the window moves the frame itself when it ends.
    Item {
        id: panel
        objectName: "panel"
        x: drag.active ? drag.translation.x : 0
        y: drag.active ? drag.translation.y : 0
        width: frame.width
        height: frame.height

        Rectangle {
            anchors.fill: parent
            visible: frame.customWindow !== null && frame.customWindow.isDraggable
            color: Qt.rgba(0, 0, 0, 0.7)
            radius: frame.floating ? 8 : 0
            antialiasing: true
        }

        Item {
            id: slot
            objectName: "contentSlot"
            y: frame.customWindow && frame.customWindow.isFullScreen ? frame.customWindow.safeAreaTop : 0
            width: frame.width
            height: frame.height - (frame.customWindow && frame.customWindow.isFullScreen
                                    ? frame.customWindow.safeAreaTop + frame.customWindow.safeAreaBottom : 0)
        }
    }

    DragHandler {
        id: drag
        target: null
        enabled: frame.floating
        dragThreshold: 10
        property point last
        onTranslationChanged: if (active) last = Qt.point(translation.x, translation.y)
        onActiveChanged: {
            if (active) {
                last = Qt.point(0, 0);
            } else if (frame.floating) {
                frame.customWindow.handleDragEnded(last);
            }
        }
    }
}
