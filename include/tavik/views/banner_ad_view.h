#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <Qt>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"
#include "tavik/core/future.h"

class QQuickItem;

namespace tavik {

/// How the host wants a banner shown. Nothing has a default inside the SDK's logic:
/// an absent size means the creative's own, an absent or empty label means none.
struct BannerAdSettings {
  /// Wanted width in points; absent means the creative's own, capped by the screen limit.
  std::optional<float> width;
  /// Wanted height in points; absent means the creative's own, capped by the screen limit.
  std::optional<float> height;
  /// Ad label text; absent or empty means no label.
  std::optional<std::string> adLabelText;
  /// Where the label sits: Qt::AlignLeft/AlignHCenter/AlignRight with
  /// Qt::AlignTop/AlignVCenter/AlignBottom.
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  /// Every appearance of the ad on screen (the impression goes out on the first only).
  std::function<void(const BannerAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const BannerAd&)> adViewable;
  /// Every tap. The SDK opens nothing: the destination is `ad.elements.destinationUrl`.
  std::function<void(const BannerAd&)> adClicked;
};

/// Shows banner ads; `tavik::quick::views(sdk).bannerAdView()` hands one out.
class BannerAdViewProtocol {
 public:
  virtual ~BannerAdViewProtocol() = default;

  /// Makes a `BannerAdView` item for `ad` in `parent`'s QML engine, parents it to
  /// `parent` (which owns it, like any child item) and returns it. An ad that cannot be
  /// drawn gives an item that draws nothing. Returns nullptr only when `parent` is null
  /// or belongs to no QML engine. Call on the UI thread; the callbacks run there.
  virtual QQuickItem* showAd(const BannerAd& ad, const BannerAdSettings& adViewSettings,
                             QQuickItem* parent) = 0;
  /// Loads `ad`'s creative ahead of `showAd` (see `tavik::quick::preloadCreative` in
  /// tavik/views/creatives.h): the future completes with true once it is ready, false
  /// when the ad has no image or video creative, or with the download's error. The
  /// creative stays wanted until a view shows it or `dropPreload`. Any thread.
  virtual Future<bool> preload(const BannerAd& ad);
  /// Gives up a preload of `ad` that no view has shown.
  virtual void dropPreload(const BannerAd& ad);
};

/// The SDK's banner manager; get one from `tavik::quick::views(sdk).bannerAdView()`.
class BannerAdViewManager : public BannerAdViewProtocol {
 public:
  /// Keeps `config`, which the views report their events with.
  explicit BannerAdViewManager(Config config) : config(std::move(config)) {}

  QQuickItem* showAd(const BannerAd& ad, const BannerAdSettings& adViewSettings,
                     QQuickItem* parent) override;

  /// The configuration the views report their events with.
  Config config;
};

}  // namespace tavik
