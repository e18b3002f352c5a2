#pragma once

// The SDK's records as QML value types, so QML reads `ad.uclid` and
// `ad.elements.destinationUrl` in an `onAdClicked` handler. Each wraps the C++ record
// unchanged; absent optional numbers read as `undefined` in QML, absent texts as "".
// The configuration and the ads are held as shared immutable records: a copy of the
// value (a view's property, a binding, a signal argument) shares the one record instead
// of copying its strings.

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QString>
#include <QVariant>
#include <memory>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"

namespace tavik::quick {

/// `text` (UTF-8) as a QString.
inline QString qs(const std::string& text) {
  return QString::fromStdString(text);
}

/// The SDK configuration a view reports its events with. A view made in QML takes the
/// installed SDK's (`TAVIK::installed()`); a manager hands its own copy to the views
/// it makes.
class QmlConfig {
  Q_GADGET
  QML_VALUE_TYPE(tavikConfig)
  Q_PROPERTY(bool valid READ valid)
  Q_PROPERTY(QString clientId READ clientId)
  Q_PROPERTY(bool debug READ debug)

 public:
  QmlConfig() = default;
  /// Wraps `config`; absent gives an invalid value.
  explicit QmlConfig(std::optional<Config> config)
      : config_(config ? std::make_shared<const Config>(std::move(*config)) : nullptr) {}

  /// True when there is a configuration with a client id.
  bool valid() const { return config_ && !config_->clientId.empty(); }
  /// The client id; "" without a configuration.
  QString clientId() const { return config_ ? qs(config_->clientId) : QString(); }
  /// Whether debug lines are on; false without a configuration.
  bool debug() const { return config_ && config_->debug; }
  /// Whether impressions wait for viewability; false without a configuration.
  bool impressionOnViewable() const { return config_ && config_->impressionOnViewable; }
  /// The wrapped configuration; null for the empty value.
  const Config* config() const { return config_.get(); }

  /// Same wrapped configuration (the same record, or equal ones).
  friend bool operator==(const QmlConfig& a, const QmlConfig& b) {
    return a.config_ == b.config_ || (a.config_ && b.config_ && *a.config_ == *b.config_);
  }

 private:
  std::shared_ptr<const Config> config_;
};

/// The creative of a `BannerAd` in QML (`bannerAdElements`).
class QmlBannerAdElements {
  Q_GADGET
  QML_VALUE_TYPE(bannerAdElements)
  Q_PROPERTY(QString value READ value)
  Q_PROPERTY(int width READ width)
  Q_PROPERTY(int height READ height)
  Q_PROPERTY(QString type READ type)
  Q_PROPERTY(QString destinationUrl READ destinationUrl)
  Q_PROPERTY(QVariant videoProgressSec READ videoProgressSec)
  Q_PROPERTY(QVariant closeButtonSec READ closeButtonSec)
  Q_PROPERTY(QVariant autoCloseSec READ autoCloseSec)

 public:
  QmlBannerAdElements() = default;
  /// Wraps `elements`.
  explicit QmlBannerAdElements(BannerAdElements elements) : e_(std::move(elements)) {}

  /// Address of the image or video.
  QString value() const { return qs(e_.value); }
  /// Creative width in points.
  int width() const { return static_cast<int>(e_.width); }
  /// Creative height in points.
  int height() const { return static_cast<int>(e_.height); }
  /// Media type of `value`.
  QString type() const { return qs(e_.type); }
  /// Where a click leads; "" when absent.
  QString destinationUrl() const { return qs(e_.destinationUrl.value_or("")); }
  /// Seconds between video progress events; `undefined` when absent.
  QVariant videoProgressSec() const { return optional(e_.videoProgressSec); }
  /// Seconds before the close button shows; `undefined` when absent.
  QVariant closeButtonSec() const { return optional(e_.closeButtonSec); }
  /// Seconds before the ad closes itself; `undefined` when absent.
  QVariant autoCloseSec() const { return optional(e_.autoCloseSec); }

 private:
  static QVariant optional(const std::optional<std::int64_t>& value) {
    return value ? QVariant::fromValue(static_cast<qlonglong>(*value)) : QVariant();
  }
  BannerAdElements e_;
};

/// A `BannerAd` in QML (`bannerAd`). `valid` is false for the empty value a view starts
/// with.
class QmlBannerAd {
  Q_GADGET
  QML_VALUE_TYPE(bannerAd)
  Q_PROPERTY(bool valid READ valid)
  Q_PROPERTY(QString uclid READ uclid)
  Q_PROPERTY(QString au READ au)
  Q_PROPERTY(QString crt READ crt)
  Q_PROPERTY(qlonglong clientId READ clientId)
  Q_PROPERTY(tavik::quick::QmlBannerAdElements elements READ elements)
  Q_PROPERTY(qlonglong rank READ rank)
  Q_PROPERTY(QString clickTrackingUrl READ clickTrackingUrl)
  Q_PROPERTY(QString impressionTrackingUrl READ impressionTrackingUrl)
  Q_PROPERTY(QString cliUbid READ cliUbid)

 public:
  QmlBannerAd() = default;
  /// Wraps `ad`.
  explicit QmlBannerAd(BannerAd ad) : ad_(std::make_shared<const BannerAd>(std::move(ad))) {}

  /// False for the empty value a view starts with.
  bool valid() const { return ad_ != nullptr; }
  /// The ad's identifier; "" for the empty value.
  QString uclid() const { return ad_ ? qs(ad_->uclid) : QString(); }
  /// The ad unit that served it; "" for the empty value.
  QString au() const { return ad_ ? qs(ad_->au) : QString(); }
  /// Creative template; "" for the empty value.
  QString crt() const { return ad_ ? qs(ad_->crt) : QString(); }
  /// "client_id"; 0 for the empty value.
  qlonglong clientId() const { return ad_ ? ad_->clientId : 0; }
  /// The creative; empty for the empty value.
  QmlBannerAdElements elements() const {
    return ad_ ? QmlBannerAdElements(ad_->elements) : QmlBannerAdElements();
  }
  /// As sent by the server; 0 for the empty value.
  qlonglong rank() const { return ad_ ? ad_->rank : 0; }
  /// Click-tracking address; "" for the empty value.
  QString clickTrackingUrl() const { return ad_ ? qs(ad_->clickTrackingUrl) : QString(); }
  /// Impression-tracking address; "" for the empty value.
  QString impressionTrackingUrl() const { return ad_ ? qs(ad_->impressionTrackingUrl) : QString(); }
  /// The shopper id stamped on the ad; "" when absent.
  QString cliUbid() const { return ad_ ? qs(ad_->cliUbid.value_or("")) : QString(); }

  /// The wrapped ad; null for the empty value.
  const BannerAd* ad() const { return ad_.get(); }

  /// Same wrapped ad (the same record, or equal ones).
  friend bool operator==(const QmlBannerAd& a, const QmlBannerAd& b) {
    return a.ad_ == b.ad_ || (a.ad_ && b.ad_ && *a.ad_ == *b.ad_);
  }

 private:
  std::shared_ptr<const BannerAd> ad_;
};

/// The media of one carousel card in QML (`carouselMedia`).
class QmlCarouselMedia {
  Q_GADGET
  QML_VALUE_TYPE(carouselMedia)
  Q_PROPERTY(QString value READ value)
  Q_PROPERTY(int width READ width)
  Q_PROPERTY(int height READ height)
  Q_PROPERTY(QString type READ type)
  Q_PROPERTY(QVariant videoProgressSec READ videoProgressSec)

 public:
  QmlCarouselMedia() = default;
  /// Wraps `media`.
  explicit QmlCarouselMedia(CarouselMedia media) : m_(std::move(media)) {}

  /// Address of the image or video.
  QString value() const { return qs(m_.value); }
  /// Media width in points.
  int width() const { return static_cast<int>(m_.width); }
  /// Media height in points.
  int height() const { return static_cast<int>(m_.height); }
  /// Media type of `value`.
  QString type() const { return qs(m_.type); }
  /// Seconds between video progress events; `undefined` when absent.
  QVariant videoProgressSec() const {
    return m_.videoProgressSec ? QVariant::fromValue(static_cast<qlonglong>(*m_.videoProgressSec))
                               : QVariant();
  }

 private:
  CarouselMedia m_;
};

/// One card of a carousel ad (`carouselCard`); `destinationUrl` is "" when absent.
class QmlCarouselCard {
  Q_GADGET
  QML_VALUE_TYPE(carouselCard)
  Q_PROPERTY(tavik::quick::QmlCarouselMedia media READ media)
  Q_PROPERTY(QString destinationUrl READ destinationUrl)

 public:
  QmlCarouselCard() = default;
  /// Wraps `card`.
  explicit QmlCarouselCard(CarouselCard card) : c_(std::move(card)) {}

  /// What the card shows.
  QmlCarouselMedia media() const { return QmlCarouselMedia(c_.media); }
  /// Where a click leads; "" when absent.
  QString destinationUrl() const { return qs(c_.destinationUrl.value_or("")); }
  /// The wrapped card.
  const CarouselCard& card() const { return c_; }

 private:
  CarouselCard c_;
};

/// The creative of a `CarouselAd` in QML (`carouselAdElements`).
class QmlCarouselAdElements {
  Q_GADGET
  QML_VALUE_TYPE(carouselAdElements)
  Q_PROPERTY(QVariantList carouselCards READ carouselCards)

 public:
  QmlCarouselAdElements() = default;
  /// Wraps `elements`.
  explicit QmlCarouselAdElements(CarouselAdElements elements) : e_(std::move(elements)) {}

  /// The cards as `carouselCard` values.
  QVariantList carouselCards() const {
    QVariantList list;
    for (const auto& card : e_.carouselCards)
      list.append(QVariant::fromValue(QmlCarouselCard(card)));
    return list;
  }

 private:
  CarouselAdElements e_;
};

/// A `CarouselAd` in QML (`carouselAd`): `ad.elements.carouselCards` is the list of cards.
class QmlCarouselAd {
  Q_GADGET
  QML_VALUE_TYPE(carouselAd)
  Q_PROPERTY(bool valid READ valid)
  Q_PROPERTY(QString uclid READ uclid)
  Q_PROPERTY(QString au READ au)
  Q_PROPERTY(QString crt READ crt)
  Q_PROPERTY(qlonglong clientId READ clientId)
  Q_PROPERTY(tavik::quick::QmlCarouselAdElements elements READ elements)
  Q_PROPERTY(qlonglong rank READ rank)
  Q_PROPERTY(QString clickTrackingUrl READ clickTrackingUrl)
  Q_PROPERTY(QString impressionTrackingUrl READ impressionTrackingUrl)
  Q_PROPERTY(QString cliUbid READ cliUbid)

 public:
  QmlCarouselAd() = default;
  /// Wraps `ad`.
  explicit QmlCarouselAd(CarouselAd ad) : ad_(std::make_shared<const CarouselAd>(std::move(ad))) {}

  /// False for the empty value a view starts with.
  bool valid() const { return ad_ != nullptr; }
  /// The ad's identifier; "" for the empty value.
  QString uclid() const { return ad_ ? qs(ad_->uclid) : QString(); }
  /// The ad unit that served it; "" for the empty value.
  QString au() const { return ad_ ? qs(ad_->au) : QString(); }
  /// Creative template; "" for the empty value.
  QString crt() const { return ad_ ? qs(ad_->crt) : QString(); }
  /// "client_id"; 0 for the empty value.
  qlonglong clientId() const { return ad_ ? ad_->clientId : 0; }
  /// The cards; empty for the empty value.
  QmlCarouselAdElements elements() const {
    return ad_ ? QmlCarouselAdElements(ad_->elements) : QmlCarouselAdElements();
  }
  /// As sent by the server; 0 for the empty value.
  qlonglong rank() const { return ad_ ? ad_->rank : 0; }
  /// Click-tracking address; "" for the empty value.
  QString clickTrackingUrl() const { return ad_ ? qs(ad_->clickTrackingUrl) : QString(); }
  /// Impression-tracking address; "" for the empty value.
  QString impressionTrackingUrl() const { return ad_ ? qs(ad_->impressionTrackingUrl) : QString(); }
  /// The shopper id stamped on the ad; "" when absent.
  QString cliUbid() const { return ad_ ? qs(ad_->cliUbid.value_or("")) : QString(); }

  /// The wrapped ad; null for the empty value.
  const CarouselAd* ad() const { return ad_.get(); }

  /// Same wrapped ad (the same record, or equal ones).
  friend bool operator==(const QmlCarouselAd& a, const QmlCarouselAd& b) {
    return a.ad_ == b.ad_ || (a.ad_ && b.ad_ && *a.ad_ == *b.ad_);
  }

 private:
  std::shared_ptr<const CarouselAd> ad_;
};

}  // namespace tavik::quick

Q_DECLARE_METATYPE(tavik::quick::QmlCarouselAd)
Q_DECLARE_METATYPE(tavik::quick::QmlCarouselCard)
Q_DECLARE_METATYPE(tavik::quick::QmlCarouselAdElements)
Q_DECLARE_METATYPE(tavik::quick::QmlCarouselMedia)
Q_DECLARE_METATYPE(tavik::quick::QmlConfig)
Q_DECLARE_METATYPE(tavik::quick::QmlBannerAd)
Q_DECLARE_METATYPE(tavik::quick::QmlBannerAdElements)
