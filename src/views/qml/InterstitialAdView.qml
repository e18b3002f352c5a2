import QtQuick
import Tavik

// A banner over the whole window on a dimmed layer that takes every input: the close
// button fades in after the ad's delay, the interstitial closes itself after the
// longer one. Escape closes it once the close button is there. Apps usually show it
// through the interstitial manager (interstitialAdView().showAd), which puts it over
// the focused window.
//
//   InterstitialAdView {
//       ad: interstitialAd                   // a bannerAd
//       adLabelText: "Sponsored"
//       onAdClicked: ad => shop.open(ad.elements.destinationUrl)
//   }
InterstitialAdViewBase {
    id: root

    property real adWidth: -1
    property real adHeight: -1
    property string adLabelText
    // How much of the ad is on screen (its banner's).
    readonly property real visibleFraction: banner.visibleFraction
    // Qt.AlignTop | Qt.AlignLeft, written as a literal: a literal is set when the item is
    // made, so the value a manager sets before the item completes is kept (an expression
    // would be evaluated at completion and overwrite it).
    property int adLabelAlignment: 33

    anchors.fill: parent
    focus: true
    Accessible.role: Accessible.Dialog
    Accessible.name: qsTr("Sponsored")
    Keys.onEscapePressed: if (root.showCloseButton) root.dismiss()

    Rectangle {
        anchors.fill: parent
        color: Qt.rgba(0, 0, 0, 0.4)
    }

    // The layer is modal: the host's UI underneath gets no taps, drags or wheel.
    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.AllButtons
        hoverEnabled: true
        onWheel: wheel => wheel.accepted = true
    }

    Column {
        id: block
        objectName: "adBlock"
        x: root.blockPosition(width, height).x
        y: root.blockPosition(width, height).y

        Item {
            id: close
            objectName: "closeButton"
            anchors.horizontalCenter: parent.horizontalCenter
            width: 28
            height: 28
            visible: opacity > 0
            opacity: root.showCloseButton ? 1 : 0
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Close ad")
            Accessible.onPressAction: root.dismiss()

            Behavior on opacity {
                NumberAnimation {
                    duration: 250
                }
            }

            // "xmark.circle.fill" in white: a white disc with the cross cut out.
            Rectangle {
                anchors.centerIn: parent
                width: 24
                height: 24
                radius: 12
                color: "white"
                Repeater {
                    model: [45, -45]
                    Rectangle {
                        required property int modelData
                        anchors.centerIn: parent
                        width: 12
                        height: 2.4
                        radius: 1.2
                        rotation: modelData
                        color: Qt.rgba(0, 0, 0, 0.55)
                    }
                }
            }

            TapHandler {
                enabled: root.showCloseButton
                onTapped: root.dismiss()
            }
        }

        BannerAdView {
            id: banner
            objectName: "banner"
            config: root.config
            ad: root.ad
            adWidth: root.adWidth
            adHeight: root.adHeight
            adLabelText: root.adLabelText
            adLabelAlignment: root.adLabelAlignment
            onAdAppear: ad => root.adAppear(ad)
            onAdClicked: ad => root.adClicked(ad)
            onViewable: ad => root.viewable(ad)
        }
    }
}
