#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

#include "tavik/views/overlay_ad_view.h"
#include "tavik/views/views.h"
#include "views/media_support.h"
#include "views/overlay_items.h"
#include "views/view_factory.h"

namespace tavik {

namespace {

// The host's callbacks on a view's signals; they die with the view.
template <class View>
void connectCallbacks(View* view, const std::function<void(const BannerAd&)>& adAppear,
                      const std::function<void(const BannerAd&)>& adClicked,
                      const std::function<void(const BannerAd&)>& adViewable) {
  auto forward = [](const std::function<void(const BannerAd&)>& callback) {
    return [callback](const quick::QmlBannerAd& ad) {
      if (ad.ad()) callback(*ad.ad());
    };
  };
  if (adAppear) QObject::connect(view, &View::adAppear, view, forward(adAppear));
  if (adClicked) QObject::connect(view, &View::adClicked, view, forward(adClicked));
  if (adViewable) QObject::connect(view, &View::viewable, view, forward(adViewable));
}

}  // namespace

// The overlay's layer is up, at its size, when showAd returns; the view inside it is built
// over the engine's idle time and completed at the latest as the window prepares its next
// frame, so that frame draws it whole (a preloaded creative included).
void InterstitialAdViewManager::showAd(const BannerAd& ad, const InterstitialAdSettings& settings) {
  if (!isImageCreative(ad.crt) && !isVideoCreative(ad.crt)) return;
  QQuickWindow* window = CustomWindow::keyWindow();
  if (!window) return;
  CustomWindow* overlay = customWindow.get();
  const bool debug = config.debug;
  overlay->show(
      [&](QQmlEngine* engine, QQuickItem* host) -> QQuickItem* {
        const bool started = quick::detail::startViewItem(
            QStringLiteral("InterstitialAdView"), debug, engine, host,
            [config = config, ad, settings, overlay](QObject* object) {
              auto* view = qobject_cast<quick::InterstitialAdViewBase*>(object);
              if (!view) return;
              view->setConfig(quick::sharedConfig(config));
              view->setAd(quick::QmlBannerAd(ad));
              if (settings.position) view->setPosition(*settings.position);
              view->setAlignment(settings.alignment.value_or(Qt::AlignCenter));
              view->setProperty("adWidth", quick::hostLength(settings.width));
              view->setProperty("adHeight", quick::hostLength(settings.height));
              view->setProperty("adLabelText",
                                QString::fromStdString(settings.adLabelText.value_or("")));
              view->setProperty("adLabelAlignment", int(settings.adLabelAlignment));
              QObject::connect(view, &quick::InterstitialAdViewBase::dismissRequested, overlay,
                               &CustomWindow::dismiss, Qt::QueuedConnection);
              connectCallbacks(view, settings.adAppear, settings.adClicked, settings.adViewable);
            },
            // Keys go to the interstitial while it is up (Escape closes it once it may).
            [](QQuickItem* view) { view->forceActiveFocus(); },
            /*beforeNextFrame=*/true);
        return started ? host : nullptr;
      },
      window->width(), window->height(), false, std::nullopt);
}

// The panel is up, at its size, when showAd returns; the video view inside it is built over
// the engine's idle time and completed at the latest for the window's next frame.
void PIPAdViewManager::showAd(const BannerAd& ad, const PIPAdSettings& settings) {
  if (!isVideoCreative(ad.crt)) return;
  const auto& limits = quick::screenLimits();
  const double width =
      std::min<double>(settings.width.value_or(float(ad.elements.width)), limits.maxAdWidth);
  const double height =
      std::min<double>(settings.height.value_or(float(ad.elements.height)), limits.maxAdHeight);
  CustomWindow* overlay = customWindow.get();
  const bool debug = config.debug;
  overlay->show(
      [&](QQmlEngine* engine, QQuickItem* host) -> QQuickItem* {
        const bool started = quick::detail::startViewItem(
            QStringLiteral("PIPAdView"), debug, engine, host,
            [config = config, ad, settings, overlay](QObject* object) {
              auto* view = qobject_cast<quick::PIPAdViewBase*>(object);
              if (!view) return;
              view->setConfig(quick::sharedConfig(config));
              view->setAd(quick::QmlBannerAd(ad));
              view->setCustomWindow(overlay);
              view->setProperty("adLabelText",
                                QString::fromStdString(settings.adLabelText.value_or("")));
              view->setProperty("adLabelAlignment", int(settings.adLabelAlignment));
              connectCallbacks(view, settings.adAppear, settings.adClicked, settings.adViewable);
            },
            nullptr, /*beforeNextFrame=*/true);
        return started ? host : nullptr;
      },
      width, height, true, settings.position);
}

}  // namespace tavik

namespace tavik::quick {

std::unique_ptr<InterstitialAdViewProtocol> Views::interstitialAdView() const {
  if (!configured()) return nullptr;
  return std::make_unique<InterstitialAdViewManager>(*config_);
}

std::unique_ptr<PIPAdViewProtocol> Views::pipAdView() const {
  if (!configured()) return nullptr;
  return std::make_unique<PIPAdViewManager>(*config_);
}

}  // namespace tavik::quick
