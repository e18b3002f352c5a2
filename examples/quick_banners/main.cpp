// A Qt Quick host with two banners from a local sandbox: TavikBanner fetching its own
// image ad, and a BannerAdView given a video ad the app fetched with adRenderer().
//
//   quick_banners                    opens the window
//   quick_banners --screenshot F     saves the window as F once both ads are drawn
//   quick_banners --tour             appear, scroll away and back, two taps, a mute
//                                    toggle; then prints the sandbox's event log
#include <QGuiApplication>
#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QTimer>
#include <cstdio>
#include <functional>
#include <iostream>

#include "tavik/sandbox/sandbox.h"
#include "tavik/tavik.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/qt_bridge.h"

using namespace tavik;

namespace {

// Runs `steps` one after the other, `gapMs` apart, then `done`.
void runSteps(std::vector<std::function<void()>> steps, int gapMs, std::function<void()> done) {
  auto queue = std::make_shared<std::vector<std::function<void()>>>(std::move(steps));
  auto index = std::make_shared<std::size_t>(0);
  auto next = std::make_shared<std::function<void()>>();
  *next = [=] {
    if (*index == queue->size()) return done();
    (*queue)[(*index)++]();
    QTimer::singleShot(gapMs, *next);
  };
  QTimer::singleShot(gapMs, *next);
}

QObject* findWithProperty(QObject* root, const char* name) {
  for (QObject* child : root->findChildren<QObject*>()) {
    if (child->property(name).value<QObject*>()) return child;
  }
  return nullptr;
}

void printEventLog(const sandbox::Sandbox& server) {
  for (const auto& event : server.eventLog()) {
    const auto& p = event["params"];
    std::cout << event["path"].get<std::string>();
    for (const char* key : {"event_name", "uclid", "cli_ubid", "video_view_sec",
                            "video_duration_sec", "action_type"}) {
      if (p.contains(key)) std::cout << "  " << key << "=" << p[key].get<std::string>();
    }
    std::cout << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  const QStringList args = app.arguments();
  const bool tour = args.contains("--tour");
  const int shotAt = args.indexOf("--screenshot");
  const QString screenshot = shotAt > 0 && shotAt + 1 < args.size() ? args[shotAt + 1] : QString();

  sandbox::Sandbox server;
  server.start();
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  TAVIK::Builder()
      .clientId("quick-banners")
      .productAdsHost(host)
      .displayAdsHost(host)
      .eventTrackingHost(host)
      .trustedCaBundle(server.certPath())
      .buildGlobalInstance();

  QQuickView view;
  view.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
  view.setResizeMode(QQuickView::SizeRootObjectToView);
  view.setSource(QUrl::fromLocalFile(QStringLiteral(TAVIK_EXAMPLE_QML)));
  if (view.status() != QQuickView::Ready) return 1;
  view.resize(400, 720);
  view.show();

  QObject* page = view.rootObject();
  auto* videoBanner = page->findChild<QQuickItem*>("videoBanner");
  auto* imageBanner = page->findChild<QQuickItem*>("imageBanner");
  auto* scroller = page->findChild<QQuickItem*>("scroller");

  // The app fetches the video ad itself and hands it to the view on the UI thread.
  quick::continueOn(
      videoBanner,
      TAVIK::shared().adRenderer()->fetchBannerAdsWithAu("shopper-42", "HOME", "au_video_banner"),
      [videoBanner](const Future<std::optional<BannerAd>>& ready) {
        if (auto ad = ready.get()) {
          videoBanner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd(*ad)));
        }
      });

  if (!screenshot.isEmpty()) {
    // Both creatives need a moment: the image download and the first video frames.
    QTimer::singleShot(3000, [&] {
      view.grabWindow().save(screenshot);
      std::cout << "saved " << screenshot.toStdString() << "\n";
      app.quit();
    });
  } else if (tour) {
    runSteps({
                 [&] { std::cout << "-- both banners appear\n"; },
                 [&] { std::cout << "-- scroll away\n", scroller->setProperty("contentY", 900); },
                 [&] { std::cout << "-- scroll back\n", scroller->setProperty("contentY", 0); },
                 [&] {
                   std::cout << "-- two taps on the image banner\n";
                   QMetaObject::invokeMethod(imageBanner, "tap");
                   QMetaObject::invokeMethod(imageBanner, "tap");
                 },
                 [&] {
                   std::cout << "-- mute toggle on the video banner\n";
                   if (QObject* video = findWithProperty(videoBanner, "videoManager")) {
                     QMetaObject::invokeMethod(video->property("videoManager").value<QObject*>(),
                                               "toggleMute");
                   }
                 },
             },
             1500, [&] {
               QTimer::singleShot(1000, [&] {
                 std::cout << "-- sandbox event log\n";
                 printEventLog(server);
                 app.quit();
               });
             });
  }
  return app.exec();
}
