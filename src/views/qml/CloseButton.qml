import QtQuick
import Tavik

// Closes what it sits on: `closeClicked` on a tap.
ControlButton {
    signal closeClicked

    symbol: TavikMedia.closeSymbol()
    accessibleName: qsTr("Close ad")
    onClicked: closeClicked()
}
