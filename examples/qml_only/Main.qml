import QtQuick
import Tavik

// A Qt Quick app that sets the SDK up in QML: a TavikConfiguration with the client id and
// the service hosts, and the ads inside it, made once the SDK is set up.
//
//   qml_only HOST:PORT CA_FILE    against tavik-sandbox: the address it prints (without
//                                 https://) and the certificate it wrote (--cert-out)
Window {
    id: window

    readonly property string host: Qt.application.arguments[1] ?? ""
    readonly property string caFile: Qt.application.arguments[2] ?? ""

    width: 400
    height: 200
    visible: true
    title: qsTr("Tavik from QML")

    TavikConfiguration {
        anchors.fill: parent
        clientId: "qml-only-example"
        productAdsHost: window.host
        displayAdsHost: window.host
        eventTrackingHost: window.host
        trustedCaBundle: window.caFile

        TavikBanner {
            objectName: "banner"
            anchors.centerIn: parent
            pageType: "HOME"
            adUnit: "au_home_banner"
            cliUbid: "qml-only-shopper"
            onImpressionReportedChanged: {
                if (impressionReported)
                    console.info("qml_only: banner " + ad.uclid + " on screen, impression reported");
            }
            onError: (code, message) => console.warn("qml_only: " + code + ": " + message)
        }
    }
}
