import QtQuick
import Tavik

// Toggles full screen: a tap flips `isFullScreen`, then `fullScreenClicked(newState)`.
// The owner binds `isFullScreen` to its own state and follows the signal.
ControlButton {
    id: root

    property bool isFullScreen: false
    signal fullScreenClicked(bool isFullScreen)

    symbol: TavikMedia.fullScreenSymbol(isFullScreen)
    accessibleName: isFullScreen ? qsTr("Exit full screen") : qsTr("Full screen")
    onClicked: {
        isFullScreen = !isFullScreen;
        fullScreenClicked(isFullScreen);
    }
}
