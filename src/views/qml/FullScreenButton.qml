import QtQuick
import Tavik

// Toggles full screen. `isFullScreen` is the owner's state, bound in (the overlay's
// `isFullScreen`): a tap asks for the other state through `fullScreenClicked(newState)`
// and the owner's change flows back through the binding. The button never writes the
// property itself, which would cut that binding and leave the icon deaf to the owner's
// later changes (a host calling `setFullScreen`).
ControlButton {
    id: root

    property bool isFullScreen: false
    signal fullScreenClicked(bool isFullScreen)

    symbol: TavikMedia.fullScreenSymbol(isFullScreen)
    accessibleName: isFullScreen ? qsTr("Exit full screen") : qsTr("Full screen")
    onClicked: fullScreenClicked(!isFullScreen)
}
