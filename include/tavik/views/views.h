#pragma once

// The view managers of an SDK instance. They need Qt, so they live in tavik::quick
// beside the UI-free `TAVIK`:
//
//   auto banners = tavik::quick::views(TAVIK::shared()).bannerAdView();
//   if (banners) banners->showAd(ad, settings, parentItem);
//
// Each accessor makes a new manager holding a copy of the configuration, and returns
// nullptr when the SDK has no configuration or its client id is empty.

#include <memory>
#include <optional>

#include "tavik/core/tavik.h"
#include "tavik/views/banner_ad_view.h"
#include "tavik/views/carousel_ad_view.h"
#include "tavik/views/overlay_ad_view.h"

namespace tavik::quick {

class Views {
 public:
  explicit Views(const TAVIK& sdk) : config_(sdk.config()) {}

  std::unique_ptr<BannerAdViewProtocol> bannerAdView() const;
  std::unique_ptr<CarouselAdViewProtocol> carouselAdView() const;
  std::unique_ptr<MultiAdCarouselViewProtocol> multiAdCarouselView() const;
  /// Each with its own `CustomWindow`.
  std::unique_ptr<InterstitialAdViewProtocol> interstitialAdView() const;
  std::unique_ptr<PIPAdViewProtocol> pipAdView() const;

 private:
  bool configured() const { return config_ && !config_->clientId.empty(); }

  std::optional<Config> config_;
};

inline Views views(const TAVIK& sdk) {
  return Views(sdk);
}

}  // namespace tavik::quick
