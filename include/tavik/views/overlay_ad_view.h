#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <QPointF>
#include <Qt>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"
#include "tavik/core/future.h"
#include "tavik/views/custom_window.h"

namespace tavik {

/// How the host wants an interstitial shown.
struct InterstitialAdSettings {
  std::optional<float> width;  ///< of the ad inside the layer (as a banner's)
  /// Of the ad inside the layer, as a banner's; absent means the creative's own.
  std::optional<float> height;
  /// Where the centre of the ad block goes in the window; absent: by `alignment`.
  std::optional<QPointF> position;
  /// Where the ad block sits; absent: the centre.
  std::optional<Qt::Alignment> alignment;
  /// Ad label text; absent or empty means no label.
  std::optional<std::string> adLabelText;
  /// Where the label sits on the ad.
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  /// Every appearance of the ad (the impression goes out on the first only).
  std::function<void(const BannerAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const BannerAd&)> adViewable;
  /// Every tap. The SDK opens nothing: the destination is `ad.elements.destinationUrl`.
  std::function<void(const BannerAd&)> adClicked;
};

/// Shows interstitial ads over the key window; `tavik::quick::views(sdk).interstitialAdView()`
/// hands one out.
class InterstitialAdViewProtocol {
 public:
  virtual ~InterstitialAdViewProtocol() = default;
  /// Puts the ad over the key window (image and video templates only; others, or no
  /// key window, show nothing). The manager takes it down itself. UI thread only.
  virtual void showAd(const BannerAd& ad, const InterstitialAdSettings& adViewSettings) = 0;
  /// Loads `ad`'s creative ahead of `showAd` (see `tavik::quick::preloadCreative` in
  /// tavik/views/creatives.h): the future completes with true once it is ready, false
  /// when the ad has no image or video creative, or with the download's error. The
  /// creative stays wanted until a view shows it or `dropPreload`. Any thread.
  virtual Future<bool> preload(const BannerAd& ad);
  /// Gives up a preload of `ad` that no view has shown.
  virtual void dropPreload(const BannerAd& ad);
};

/// Get one from `tavik::quick::views(sdk).interstitialAdView()`. Its `customWindow` is
/// its own and serves every interstitial it shows.
class InterstitialAdViewManager : public InterstitialAdViewProtocol {
 public:
  /// Keeps `config` and makes the manager's own `CustomWindow`.
  explicit InterstitialAdViewManager(Config config)
      : config(std::move(config)), customWindow(std::make_unique<CustomWindow>()) {}
  void showAd(const BannerAd& ad, const InterstitialAdSettings& adViewSettings) override;

  /// The configuration the views report their events with.
  Config config;
  /// The overlay every interstitial of this manager is shown in; never null.
  std::unique_ptr<CustomWindow> customWindow;
};

/// How the host wants a picture-in-picture video shown.
struct PIPAdSettings {
  /// Panel width in points; absent means the creative's own, capped by the screen limit.
  std::optional<float> width;
  /// Panel height in points; absent means the creative's own, capped by the screen limit.
  std::optional<float> height;
  /// Where the panel starts (clamped into the window); absent: the bottom-right corner.
  std::optional<QPointF> position;
  /// Ad label text; absent or empty means no label.
  std::optional<std::string> adLabelText;
  /// Where the label sits on the ad.
  Qt::Alignment adLabelAlignment = Qt::AlignTop | Qt::AlignLeft;
  /// Every appearance of the ad (the impression goes out on the first only).
  std::function<void(const BannerAd&)> adAppear;
  /// Called once when the ad becomes viewable (at least half of it on screen for a
  /// continuous second; two seconds of playback for a video; 30% for an ad over 242,500
  /// square pixels).
  std::function<void(const BannerAd&)> adViewable;
  /// Every tap. The SDK opens nothing: the destination is `ad.elements.destinationUrl`.
  std::function<void(const BannerAd&)> adClicked;
};

/// Shows picture-in-picture video ads; `tavik::quick::views(sdk).pipAdView()` hands one out.
class PIPAdViewProtocol {
 public:
  virtual ~PIPAdViewProtocol() = default;
  /// Shows a video ad in a draggable panel over the key window (video templates only;
  /// other ads are dropped silently). UI thread only.
  virtual void showAd(const BannerAd& ad, const PIPAdSettings& adViewSettings) = 0;
  /// Loads `ad`'s creative ahead of `showAd` (see `tavik::quick::preloadCreative` in
  /// tavik/views/creatives.h): the future completes with true once it is ready, false
  /// when the ad has no image or video creative, or with the download's error. The
  /// creative stays wanted until a view shows it or `dropPreload`. Any thread.
  virtual Future<bool> preload(const BannerAd& ad);
  /// Gives up a preload of `ad` that no view has shown.
  virtual void dropPreload(const BannerAd& ad);
};

/// Get one from `tavik::quick::views(sdk).pipAdView()`.
class PIPAdViewManager : public PIPAdViewProtocol {
 public:
  /// Height of the panel as placed by `show` (the height asked for, for full-window content).
  explicit PIPAdViewManager(Config config)
      : config(std::move(config)), customWindow(std::make_unique<CustomWindow>()) {}
  void showAd(const BannerAd& ad, const PIPAdSettings& adViewSettings) override;

  /// The configuration the views report their events with.
  Config config;
  /// The overlay the panel is shown in; never null.
  std::unique_ptr<CustomWindow> customWindow;
};

}  // namespace tavik
