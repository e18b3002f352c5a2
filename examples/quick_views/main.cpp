// A Qt Quick host with every kind of inline ad from a local sandbox, each through a
// different integration style: TavikBanner fetching its own image ad; a BannerAdView and
// a MultiAdCarouselView given ads the app fetched with adRenderer(); a carousel put on
// the page by a manager's showAd.
//
//   quick_views                    opens the window
//   quick_views --screenshot F     saves the window as F once the ads are drawn
//   quick_views --screenshot F --show interstitial|pip
//                                  the same with an interstitial or a picture-in-picture
//                                  video over the page
//   quick_views --tour             appear, scroll away and back, two taps, a mute
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
#include "tavik/views/views.h"

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
  view.resize(400, 1100);
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

  // The multi-ad strip: a list the app fetched.
  auto* multi = page->findChild<QQuickItem*>("multi");
  quick::continueOn(
      multi,
      TAVIK::shared().adRenderer()->fetchMultiAdCarouselWithAu("shopper-42", "HOME", "au_multi", 4),
      [multi](const Future<std::optional<std::vector<BannerAd>>>& ready) {
        QVariantList list;
        if (auto ads = ready.get()) {
          for (const BannerAd& ad : *ads) {
            list.append(QVariant::fromValue(quick::QmlBannerAd(ad)));
          }
        }
        multi->setProperty("ads", list);
      });

  // The carousel: the manager makes the view and parents it to the slot.
  auto* slot = page->findChild<QQuickItem*>("carouselSlot");
  quick::continueOn(
      slot,
      TAVIK::shared().adRenderer()->fetchCarouselAdWithAu("shopper-42", "HOME", "au_carousel"),
      [slot](const Future<std::optional<CarouselAd>>& ready) {
        auto ad = ready.get();
        auto carousels = quick::views(TAVIK::shared()).carouselAdView();
        if (!ad || !carousels) return;
        CarouselAdSettings settings;
        settings.width = 320;
        settings.cardBackground = QColor("#ffffff");
        settings.adLabelText = "Sponsored";
        settings.adClicked = [](const CarouselAd&, const CarouselCard&,
                                const std::optional<std::string>& destination) {
          std::cout << "open " << destination.value_or("(no destination)") << "\n";
        };
        carousels->showAd(*ad, settings, slot);
      });

  // Overlays: an interstitial or a picture-in-picture video over the whole page.
  const int showAt = args.indexOf("--show");
  const QString overlayKind = showAt > 0 && showAt + 1 < args.size() ? args[showAt + 1] : QString();
  auto interstitials = quick::views(TAVIK::shared()).interstitialAdView();
  auto pips = quick::views(TAVIK::shared()).pipAdView();
  auto showOverlay = [&](const QString& kind) {
    const bool pip = kind == "pip";
    quick::continueOn(
        &view,
        TAVIK::shared().adRenderer()->fetchBannerAdsWithAu(
            "shopper-42", pip ? "PRODUCT" : "PURCHASE", pip ? "au_pip" : "au_interstitial"),
        [&, pip](const Future<std::optional<BannerAd>>& ready) {
          auto ad = ready.get();
          if (!ad) return;
          if (pip) {
            PIPAdSettings settings{};
            settings.width = 240;
            settings.height = 135;
            settings.adLabelText.emplace("Ad");
            pips->showAd(*ad, settings);
          } else {
            InterstitialAdSettings settings;
            settings.adLabelText = "Sponsored";
            interstitials->showAd(*ad, settings);
          }
        });
  };
  if (!overlayKind.isEmpty()) QTimer::singleShot(200, [&] { showOverlay(overlayKind); });

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
