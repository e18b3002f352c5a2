// Built against an installed SDK: a window with one self-fetching banner from the sandbox
// given on the command line. Exits 0 once the banner is on screen and has reported its
// impression, 1 when it reports an error or nothing happens within 20 seconds.
//   quick_consumer HOST:PORT CA_FILE
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QTimer>
#include <iostream>

#include "tavik/tavik.h"
#include "tavik/views/views.h"

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 3) {
    std::cerr << "usage: quick_consumer HOST:PORT CA_FILE\n";
    return 2;
  }
  tavik::TAVIK::Builder()
      .clientId("consumer-client")
      .productAdsHost(argv[1])
      .displayAdsHost(argv[1])
      .eventTrackingHost(argv[1])
      .trustedCaBundle(argv[2])
      .buildGlobalInstance();

  QQmlApplicationEngine engine;
  engine.addImportPath(TAVIK_QML_IMPORT_DIR);
  engine.loadData(R"(
    import QtQuick
    import Tavik

    Window {
      width: 360
      height: 120
      visible: true

      TavikBanner {
        pageType: "HOME"
        adUnit: "au_home_banner"
        cliUbid: "consumer-shopper"
        onImpressionReportedChanged: {
          if (!impressionReported) return;
          console.info("quick consumer: banner " + width + "x" + height
                       + " on screen, impression reported");
          Qt.exit(0);
        }
        onError: (code, message) => {
          console.error("quick consumer: " + code + ": " + message);
          Qt.exit(1);
        }
      }
    })");
  if (engine.rootObjects().isEmpty()) return 1;
  QTimer::singleShot(20'000, &app, [] {
    std::cerr << "quick consumer: no impression within 20 s\n";
    QCoreApplication::exit(1);
  });
  return app.exec();
}
