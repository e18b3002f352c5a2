// Tavik Outfitters, the sample shop: a small store app that shows every ad format of the
// SDK against a sandbox it starts itself, with an inspector of every request the SDK
// sends. Each page uses a different integration style, so it doubles as the
// integration guide (README: "The sample shop").
//
//   tavik_shop                    opens the shop
//   tavik_shop --tour [--out DIR] walks through every page with scripted input, saves a
//                                 screenshot of each into DIR (default: tour-screenshots
//                                 next to the program), prints the inspector's log and a
//                                 summary; exits non-zero when a format did not draw or
//                                 the sandbox's event log is not the expected one
#include <QDir>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickImageProvider>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <iostream>

#include "event_store_status.h"
#include "request_log.h"
#include "shop.h"
#include "tavik/network/request_observer.h"
#include "tavik/sandbox/sandbox.h"
#include "tavik/tavik.h"
#include "tour.h"

using namespace tavik;

namespace {

shop::RequestEntry entryOf(const transport::ObservedRequest& request) {
  shop::RequestEntry entry;
  entry.sentAt = QDateTime::fromMSecsSinceEpoch(
      std::chrono::duration_cast<std::chrono::milliseconds>(request.sentAt.time_since_epoch())
          .count());
  entry.elapsedMs = request.elapsed.count() / 1000;
  entry.service = QString::fromStdString(request.service);
  entry.method = QString::fromStdString(request.method);
  entry.url = QString::fromStdString(request.url);
  entry.path = QString::fromStdString(request.path);
  for (const auto& [name, value] : request.query) {
    entry.query.emplace_back(QString::fromStdString(name), QString::fromStdString(value));
  }
  entry.status = request.status;
  entry.error = QString::fromStdString(request.error);
  return entry;
}

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  app.setApplicationName(QStringLiteral("Tavik Outfitters"));
  const QStringList args = app.arguments();
  const bool tour = args.contains(QStringLiteral("--tour"));
  const qsizetype outAt = args.indexOf(QStringLiteral("--out"));
  const QString outDir = outAt > 0 && outAt + 1 < args.size()
                             ? args[outAt + 1]
                             : QDir(app.applicationDirPath()).filePath("tour-screenshots");

  // The shop's back end and the SDK's three services, on a free loopback port.
  sandbox::Sandbox server;
  try {
    server.start();
  } catch (const std::exception& e) {
    std::cerr << e.what() << std::endl;
    return 1;
  }
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  // The shop keeps its events in the SDK's event store until the service took them. Its
  // sandbox lives for one run, so the store does too.
  QTemporaryDir storeDir;
  TAVIK::Builder()
      .clientId("tavik-outfitters")
      .productAdsHost(host)
      .displayAdsHost(host)
      .eventTrackingHost(host)
      .trustedCaBundle(server.certPath())
      .eventStore(storeDir.filePath(QStringLiteral("events.db")).toStdString())
      .buildGlobalInstance();
  shop::EventStoreStatus eventStore(server);

  // The inspector sees every request the SDK sends. The observer runs on the SDK's
  // transport thread and only hands the record over; the model batches it to the UI.
  shop::RequestLogModel inspector;
  transport::RequestObservation observation =
      transport::observeRequests([&inspector](const transport::ObservedRequest& request) {
        inspector.post(entryOf(request));
      });

  shop::Shop shop(QStringLiteral("shopper-42"), QString::fromStdString(server.baseUrl()),
                  QString::fromStdString(server.certPath()));

  QQmlApplicationEngine engine;
  engine.addImageProvider(QStringLiteral("shop"), shop.pictureProvider());
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
  engine.setInitialProperties({{"shop", QVariant::fromValue(&shop)},
                               {"inspector", QVariant::fromValue(&inspector)},
                               {"eventStore", QVariant::fromValue(&eventStore)}});
  engine.load(QUrl(QStringLiteral("qrc:/qt/qml/TavikShop/Main.qml")));
  if (engine.rootObjects().isEmpty()) return 1;
  auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
  if (!window) return 1;

  std::unique_ptr<shop::Tour> driver;
  if (tour) {
    driver = std::make_unique<shop::Tour>(window, &shop, &inspector, server, outDir);
    QObject::connect(driver.get(), &shop::Tour::finished, &app,
                     [](int code) { QCoreApplication::exit(code); });
    // The tour starts once the window is on screen.
    if (window->isExposed()) {
      driver->start();
    } else {
      QObject::connect(
          window, &QQuickWindow::frameSwapped, driver.get(),
          [starting = driver.get()] { starting->start(); }, Qt::SingleShotConnection);
    }
  }
  const int code = app.exec();
  observation.reset();  // no request reaches the inspector once it is going
  return code;
}
