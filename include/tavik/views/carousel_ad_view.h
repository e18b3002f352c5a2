#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QColor>
#include <Qt>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"

class QQuickItem;

namespace tavik {

/// How the host wants a carousel ad shown. Absent sizes fall back to the first card's
/// creative and the screen limits; an absent background draws none.
struct CarouselAdSettings {
  std::optional<float> width;
  std::optional<float> height;
  std::optional<float> elementWidth;
  std::optional<float> elementHeight;
  std::optional<QColor> cardBackground;
  std::optional<std::string> adLabelText;
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

class CarouselAdViewProtocol {
 public:
  virtual ~CarouselAdViewProtocol() = default;
  /// Makes a `CarouselAdView` item in `parent`'s QML engine, parented to `parent`, and
  /// returns it (nullptr only without a parent in a QML engine). UI thread only.
  virtual QQuickItem* showAd(const CarouselAd& ad, const CarouselAdSettings& adViewSettings,
                             QQuickItem* parent) = 0;
};

class CarouselAdViewManager : public CarouselAdViewProtocol {
 public:
  explicit CarouselAdViewManager(Config config) : config(std::move(config)) {}
  QQuickItem* showAd(const CarouselAd& ad, const CarouselAdSettings& adViewSettings,
                     QQuickItem* parent) override;
  Config config;
};

/// How the host wants a multi-ad strip shown; the label and callbacks go to every card.
struct MultiAdCarouselSettings {
  std::optional<float> width;
  std::optional<float> height;
  std::optional<float> elementWidth;
  std::optional<float> elementHeight;
  std::optional<std::string> adLabelText;
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  std::function<void(const BannerAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const BannerAd&)> adViewable;
  std::function<void(const BannerAd&)> adClicked;
};

class MultiAdCarouselViewProtocol {
 public:
  virtual ~MultiAdCarouselViewProtocol() = default;
  /// Makes a `MultiAdCarouselView` of `ads` (in the order given) in `parent`'s QML
  /// engine, parented to `parent`, and returns it. UI thread only.
  virtual QQuickItem* showAd(const std::vector<BannerAd>& ads,
                             const MultiAdCarouselSettings& adViewSettings, QQuickItem* parent) = 0;
};

class MultiAdCarouselViewManager : public MultiAdCarouselViewProtocol {
 public:
  explicit MultiAdCarouselViewManager(Config config) : config(std::move(config)) {}
  QQuickItem* showAd(const std::vector<BannerAd>& ads,
                     const MultiAdCarouselSettings& adViewSettings, QQuickItem* parent) override;
  Config config;
};

}  // namespace tavik
