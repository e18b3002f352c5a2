#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QColor>
#include <Qt>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"
#include "tavik/core/future.h"

class QQuickItem;

namespace tavik {

/// How the host wants a carousel ad shown. Absent sizes fall back to the first card's
/// creative and the screen limits; an absent background draws none.
struct CarouselAdSettings {
  /// Width of the whole carousel, in points.
  std::optional<float> width;
  /// Height of the whole carousel, in points.
  std::optional<float> height;
  /// Width of one card, in points.
  std::optional<float> elementWidth;
  /// Height of one card, in points.
  std::optional<float> elementHeight;
  /// Drawn behind every card.
  std::optional<QColor> cardBackground;
  /// Ad label text; absent or empty means no label.
  std::optional<std::string> adLabelText;
  /// Where the label sits inside each card.
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  /// Every appearance of the carousel (its one impression goes out on the first).
  std::function<void(const CarouselAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const CarouselAd&)> adViewable;
  /// Every card tap: the ad, the card, and the card's destination when it has one.
  std::function<void(const CarouselAd&, const CarouselCard&, const std::optional<std::string>&)>
      adClicked;
};

/// Shows carousel ads; `tavik::quick::views(sdk).carouselAdView()` hands one out.
class CarouselAdViewProtocol {
 public:
  virtual ~CarouselAdViewProtocol() = default;
  /// Makes a `CarouselAdView` item in `parent`'s QML engine, parented to `parent`, and
  /// returns it (nullptr only without a parent in a QML engine). UI thread only.
  virtual QQuickItem* showAd(const CarouselAd& ad, const CarouselAdSettings& adViewSettings,
                             QQuickItem* parent) = 0;
  /// Loads the creatives of every card of `ad` ahead of `showAd` (each as
  /// `tavik::quick::preloadCreative` in tavik/views/creatives.h does): the future completes
  /// with true once all of them are ready, false when no card has an image or video, or
  /// with the first download's error. Each stays wanted until a card shows it or
  /// `dropPreload`. Any thread.
  virtual Future<bool> preload(const CarouselAd& ad);
  /// Gives up the preloads of `ad`'s cards that no card has shown.
  virtual void dropPreload(const CarouselAd& ad);
};

/// The SDK's carousel manager; get one from `tavik::quick::views(sdk).carouselAdView()`.
class CarouselAdViewManager : public CarouselAdViewProtocol {
 public:
  /// Keeps `config`, which the views report their events with.
  explicit CarouselAdViewManager(Config config) : config(std::move(config)) {}
  QQuickItem* showAd(const CarouselAd& ad, const CarouselAdSettings& adViewSettings,
                     QQuickItem* parent) override;
  /// The configuration the views report their events with.
  Config config;
};

/// How the host wants a multi-ad strip shown; the label and callbacks go to every card.
struct MultiAdCarouselSettings {
  /// Width of the whole strip, in points.
  std::optional<float> width;
  /// Height of the whole strip, in points.
  std::optional<float> height;
  /// Width of one card, in points.
  std::optional<float> elementWidth;
  /// Height of one card, in points.
  std::optional<float> elementHeight;
  /// Ad label text on every card; absent or empty means no label.
  std::optional<std::string> adLabelText;
  /// Where the label sits inside each card.
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  /// Every appearance of a card, with that card's ad.
  std::function<void(const BannerAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const BannerAd&)> adViewable;
  /// Every tap on a card, with that card's ad. The SDK opens nothing.
  std::function<void(const BannerAd&)> adClicked;
};

/// Shows several banner ads as a horizontally paged strip, each card a full banner view.
class MultiAdCarouselViewProtocol {
 public:
  virtual ~MultiAdCarouselViewProtocol() = default;
  /// Makes a `MultiAdCarouselView` of `ads` (in the order given) in `parent`'s QML
  /// engine, parented to `parent`, and returns it. UI thread only.
  virtual QQuickItem* showAd(const std::vector<BannerAd>& ads,
                             const MultiAdCarouselSettings& adViewSettings, QQuickItem* parent) = 0;
  /// Loads the creatives of every ad in `ads` ahead of `showAd`, as the banner manager's
  /// `preload` does for one: true once all are ready, false when none has an image or
  /// video, or the first download's error. Any thread.
  virtual Future<bool> preload(const std::vector<BannerAd>& ads);
  /// Gives up the preloads of `ads` that no card has shown.
  virtual void dropPreload(const std::vector<BannerAd>& ads);
};

/// The SDK's multi-ad strip manager; get one from
/// `tavik::quick::views(sdk).multiAdCarouselView()`.
class MultiAdCarouselViewManager : public MultiAdCarouselViewProtocol {
 public:
  /// Keeps `config`, which the views report their events with.
  explicit MultiAdCarouselViewManager(Config config) : config(std::move(config)) {}
  QQuickItem* showAd(const std::vector<BannerAd>& ads,
                     const MultiAdCarouselSettings& adViewSettings, QQuickItem* parent) override;
  /// The configuration the views report their events with.
  Config config;
};

}  // namespace tavik
