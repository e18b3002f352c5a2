#include <QQuickItem>

#include "tavik/views/carousel_ad_view.h"
#include "tavik/views/views.h"
#include "views/carousel_items.h"
#include "views/media_support.h"
#include "views/view_factory.h"

namespace tavik {

namespace {

// The settings every strip shares.
template <class Settings>
void applyStripSettings(quick::CarouselStripBase* strip, const Config& config,
                        const Settings& settings) {
  strip->setConfig(quick::sharedConfig(config));
  strip->setAdWidth(quick::hostLength(settings.width));
  strip->setAdHeight(quick::hostLength(settings.height));
  strip->setElementWidth(quick::hostLength(settings.elementWidth));
  strip->setElementHeight(quick::hostLength(settings.elementHeight));
  strip->setAdLabelText(QString::fromStdString(settings.adLabelText.value_or("")));
  strip->setAdLabelAlignment(settings.adLabelAlignment);
}

}  // namespace

QQuickItem* CarouselAdViewManager::showAd(const CarouselAd& ad, const CarouselAdSettings& settings,
                                          QQuickItem* parent) {
  // Returned at its size at once; its strip and cards are built between the next frames.
  return quick::detail::incubateViewItem(
      QStringLiteral("CarouselAdView"), config.debug, parent, [&](QObject* object) {
        auto* view = qobject_cast<quick::CarouselAdViewBase*>(object);
        if (!view) return;
        applyStripSettings(view, config, settings);
        view->setAd(quick::QmlCarouselAd(ad));
        if (settings.cardBackground) view->setCardBackground(*settings.cardBackground);
        if (settings.adViewable) {
          QObject::connect(view, &quick::CarouselAdViewBase::viewable, view,
                           [callback = settings.adViewable](const quick::QmlCarouselAd& seen) {
                             if (seen.ad()) callback(*seen.ad());
                           });
        }
        if (settings.adAppear) {
          QObject::connect(view, &quick::CarouselAdViewBase::adAppear, view,
                           [callback = settings.adAppear](const quick::QmlCarouselAd& shown) {
                             if (shown.ad()) callback(*shown.ad());
                           });
        }
        if (settings.adClicked) {
          QObject::connect(
              view, &quick::CarouselAdViewBase::adClicked, view,
              [callback = settings.adClicked](const quick::QmlCarouselAd& tapped,
                                              const quick::QmlCarouselCard& card, const QVariant&) {
                if (tapped.ad()) callback(*tapped.ad(), card.card(), card.card().destinationUrl);
              });
        }
      });
}

QQuickItem* MultiAdCarouselViewManager::showAd(const std::vector<BannerAd>& ads,
                                               const MultiAdCarouselSettings& settings,
                                               QQuickItem* parent) {
  // Returned at its size at once; its strip and cards are built between the next frames.
  return quick::detail::incubateViewItem(
      QStringLiteral("MultiAdCarouselView"), config.debug, parent, [&](QObject* object) {
        auto* view = qobject_cast<quick::MultiAdCarouselViewBase*>(object);
        if (!view) return;
        applyStripSettings(view, config, settings);
        QVariantList list;
        for (const BannerAd& ad : ads) list.append(QVariant::fromValue(quick::QmlBannerAd(ad)));
        view->setAds(list);
        if (settings.adViewable) {
          QObject::connect(view, &quick::MultiAdCarouselViewBase::viewable, view,
                           [callback = settings.adViewable](const quick::QmlBannerAd& seen) {
                             if (seen.ad()) callback(*seen.ad());
                           });
        }
        if (settings.adAppear) {
          QObject::connect(view, &quick::MultiAdCarouselViewBase::adAppear, view,
                           [callback = settings.adAppear](const quick::QmlBannerAd& shown) {
                             if (shown.ad()) callback(*shown.ad());
                           });
        }
        if (settings.adClicked) {
          QObject::connect(view, &quick::MultiAdCarouselViewBase::adClicked, view,
                           [callback = settings.adClicked](const quick::QmlBannerAd& tapped) {
                             if (tapped.ad()) callback(*tapped.ad());
                           });
        }
      });
}

}  // namespace tavik

namespace tavik::quick {

std::unique_ptr<CarouselAdViewProtocol> Views::carouselAdView() const {
  if (!configured()) return nullptr;
  return std::make_unique<CarouselAdViewManager>(*config_);
}

std::unique_ptr<MultiAdCarouselViewProtocol> Views::multiAdCarouselView() const {
  if (!configured()) return nullptr;
  return std::make_unique<MultiAdCarouselViewManager>(*config_);
}

}  // namespace tavik::quick
