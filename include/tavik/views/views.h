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

/// Hands out the view managers of one SDK instance; see `views()`.
class Views {
 public:
  /// Takes a copy of `sdk`'s configuration.
  explicit Views(const TAVIK& sdk) : config_(sdk.config()) {}

  /// A new banner manager, or nullptr when not configured.
  std::unique_ptr<BannerAdViewProtocol> bannerAdView() const;
  /// A new carousel manager, or nullptr when not configured.
  std::unique_ptr<CarouselAdViewProtocol> carouselAdView() const;
  /// A new multi-ad strip manager, or nullptr when not configured.
  std::unique_ptr<MultiAdCarouselViewProtocol> multiAdCarouselView() const;
  /// Each with its own `CustomWindow`.
  std::unique_ptr<InterstitialAdViewProtocol> interstitialAdView() const;
  /// A new picture-in-picture manager with its own `CustomWindow`, or nullptr when not
  /// configured.
  std::unique_ptr<PIPAdViewProtocol> pipAdView() const;

 private:
  bool configured() const { return config_ && !config_->clientId.empty(); }

  std::optional<Config> config_;
};

/// The view managers of `sdk`.
inline Views views(const TAVIK& sdk) {
  return Views(sdk);
}

}  // namespace tavik::quick
