#include <QQuickItem>

#include "tavik/views/banner_ad_view.h"
#include "tavik/views/views.h"
#include "views/banner_ad_item.h"
#include "views/media_support.h"
#include "views/view_factory.h"

namespace tavik {

QQuickItem* BannerAdViewManager::showAd(const BannerAd& ad, const BannerAdSettings& settings,
                                        QQuickItem* parent) {
  return quick::detail::createViewItem(
      QStringLiteral("BannerAdView"), config.debug, parent, [&](QObject* object) {
        auto* view = qobject_cast<quick::BannerAdViewBase*>(object);
        if (!view) return;
        // showAd returns the banner at its size at once; its picture and label are built
        // over the next frames (a preloaded picture at once, for the first frame).
        view->setAsynchronousContent(true);
        view->setConfig(quick::sharedConfig(config));
        view->setAd(quick::QmlBannerAd(ad));
        view->setAdWidth(quick::hostLength(settings.width));
        view->setAdHeight(quick::hostLength(settings.height));
        view->setAdLabelText(QString::fromStdString(settings.adLabelText.value_or("")));
        view->setAdLabelAlignment(settings.adLabelAlignment);
        if (settings.adViewable) {
          QObject::connect(view, &quick::BannerAdViewBase::viewable, view,
                           [callback = settings.adViewable](const quick::QmlBannerAd& seen) {
                             if (seen.ad()) callback(*seen.ad());
                           });
        }
        if (settings.adAppear) {
          QObject::connect(view, &quick::BannerAdViewBase::adAppear, view,
                           [callback = settings.adAppear](const quick::QmlBannerAd& shown) {
                             if (shown.ad()) callback(*shown.ad());
                           });
        }
        if (settings.adClicked) {
          QObject::connect(view, &quick::BannerAdViewBase::adClicked, view,
                           [callback = settings.adClicked](const quick::QmlBannerAd& tapped) {
                             if (tapped.ad()) callback(*tapped.ad());
                           });
        }
      });
}

}  // namespace tavik

namespace tavik::quick {

std::unique_ptr<BannerAdViewProtocol> Views::bannerAdView() const {
  if (!configured()) return nullptr;
  return std::make_unique<BannerAdViewManager>(*config_);
}

}  // namespace tavik::quick
