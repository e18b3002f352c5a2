#include "views/carousel_items.h"

#include "tavik/core/tavik.h"
#include "video/video_ad_view.h"
#include "views/appearance.h"
#include "views/banner_ad_item.h"
#include "views/media_support.h"
#include "views/view_events.h"

namespace tavik::quick {

CarouselStripBase::~CarouselStripBase() {
  // The video cards give their players up while the strip is still in its window (see
  // BannerAdViewBase's destructor).
  VideoAdViewBase::releasePlayersIn(this);
}

CarouselStripBase::CarouselStripBase(QQuickItem* parent) : QQuickItem(parent) {
  config_ = installedConfig();
}

void CarouselStripBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  Q_EMIT configChanged();
}

void CarouselStripBase::setWanted(int which, qreal value) {
  if (qFuzzyCompare(wanted_[which], value)) return;
  wanted_[which] = value;
  relayoutFromContent();
}

void CarouselStripBase::setAdLabelText(const QString& text) {
  if (text == adLabelText_) return;
  adLabelText_ = text;
  Q_EMIT labelChanged();
}

void CarouselStripBase::setAdLabelAlignment(Qt::Alignment alignment) {
  if (alignment == adLabelAlignment_) return;
  adLabelAlignment_ = alignment;
  Q_EMIT labelChanged();
}

void CarouselStripBase::relayout(std::optional<SizeF> firstCard, int count, QList<bool> drawn) {
  const CarouselLayout layout = carouselLayout(firstCard,
                                               {lengthIfSet(wanted_[0]), lengthIfSet(wanted_[1]),
                                                lengthIfSet(wanted_[2]), lengthIfSet(wanted_[3])},
                                               screenLimits());
  const bool changed = !(layout == layout_) || count != count_ || drawn != drawn_;
  layout_ = layout;
  count_ = count;
  drawn_ = std::move(drawn);
  setImplicitSize(layout.width, layout.height);
  if (currentIndex_ >= std::max(1, count)) setCurrentIndex(std::max(0, count - 1));
  if (changed) {
    Q_EMIT layoutChanged();
    Q_EMIT currentIndexChanged();  // the scroll position depends on the layout too
  }
}

qreal CarouselStripBase::scrollPosition() const {
  if (drawn_.isEmpty()) return centredScrollPosition(currentIndex_, count_, layout_);
  return centredScrollPosition(currentIndex_,
                               std::span<const bool>(drawn_.constData(), drawn_.size()), layout_);
}

bool CarouselStripBase::cardTakesRoom(int index) const {
  if (index < 0 || index >= count_) return false;
  return drawn_.isEmpty() || drawn_[index];
}

void CarouselStripBase::setCurrentIndex(int index) {
  if (index == currentIndex_) return;
  currentIndex_ = index;
  Q_EMIT currentIndexChanged();
}

void CarouselStripBase::dragTo(qreal translation) {
  if (qFuzzyCompare(translation, dragOffset_)) return;
  dragOffset_ = translation;
  Q_EMIT dragOffsetChanged();
}

int CarouselStripBase::endDrag(qreal translation) {
  dragTo(0);
  setCurrentIndex(pageAfterDrag(currentIndex_, count_, translation, layout_.pitch));
  return currentIndex_;
}

int CarouselStripBase::step(int direction) {
  setCurrentIndex(pageAfterStep(currentIndex_, count_, direction < 0 ? -1 : 1));
  return currentIndex_;
}

QPointF CarouselStripBase::labelPosition(qreal cardWidth, qreal cardHeight, qreal width,
                                         qreal height) const {
  const RectF r =
      placeLabel({cardWidth, cardHeight}, {width, height}, labelAlignmentFrom(adLabelAlignment_));
  return {r.x, r.y};
}

// Carousel ad -----------------------------------------------------------------------

CarouselAdViewBase::CarouselAdViewBase(QQuickItem* parent)
    : CarouselStripBase(parent), appearance_(new AdAppearance(this)) {
  appearance_->setImpressionOnViewable(config().impressionOnViewable());
  appearance_->setDrawable(false);  // until it has a carousel ad
  connect(this, &CarouselStripBase::configChanged, this,
          [this] { appearance_->setImpressionOnViewable(config().impressionOnViewable()); });
  connect(appearance_, &AdAppearance::impressionDue, this, &CarouselAdViewBase::reportImpression);
  connect(appearance_, &AdAppearance::appeared, this, [this] {
    Q_EMIT onScreenChanged();
    Q_EMIT adAppear(ad_);
  });
  connect(appearance_, &AdAppearance::disappeared, this, &CarouselAdViewBase::onScreenChanged);
  connect(appearance_, &AdAppearance::visibleFractionChanged, this,
          &CarouselAdViewBase::visibleFractionChanged);
  connect(appearance_, &AdAppearance::becameViewable, this, [this] {
    Q_EMIT viewableReportedChanged();
    Q_EMIT viewable(ad_);
  });
}

CarouselAdViewBase::~CarouselAdViewBase() {
  delete appearance_;
}

void CarouselAdViewBase::componentComplete() {
  CarouselStripBase::componentComplete();
  relayoutFromContent();
  appearance_->setReady();
}

bool CarouselAdViewBase::onScreen() const {
  return appearance_->onScreen();
}
bool CarouselAdViewBase::impressionReported() const {
  return appearance_->impressionReported();
}
qreal CarouselAdViewBase::visibleFraction() const {
  return appearance_->visibleFraction();
}
bool CarouselAdViewBase::viewableReported() const {
  return appearance_->viewableReported();
}

bool CarouselAdViewBase::drawable() const {
  return ad_.ad() && isCarouselCreative(ad_.ad()->crt);
}

void CarouselAdViewBase::setAd(const QmlCarouselAd& ad) {
  if (ad == ad_) return;
  const bool otherAd = ad_.valid() && ad.uclid() != ad_.uclid();
  ad_ = ad;
  if (otherAd) appearance_->reset();
  Q_EMIT adChanged();
  relayoutFromContent();
  appearance_->setDrawable(drawable());
  appearance_->requestCheck();
}

void CarouselAdViewBase::setCardBackground(const QColor& color) {
  if (color == cardBackground_) return;
  cardBackground_ = color;
  Q_EMIT cardBackgroundChanged();
}

void CarouselAdViewBase::relayoutFromContent() {
  if (!drawable()) {
    relayout(std::nullopt, 0);
    setImplicitSize(0, 0);  // a carousel of another template draws nothing
    return;
  }
  const auto& cards = ad_.ad()->elements.carouselCards;
  std::optional<SizeF> first;
  if (!cards.empty()) {
    first = SizeF{static_cast<double>(cards[0].media.width),
                  static_cast<double>(cards[0].media.height)};
  }
  relayout(first, static_cast<int>(cards.size()));
}

int CarouselAdViewBase::cardKind(int index) const {
  if (!drawable() || index < 0 || index >= count()) return 0;
  const std::string& type = ad_.ad()->elements.carouselCards[static_cast<size_t>(index)].media.type;
  return type == "IMAGE" ? 1 : type == "VIDEO" ? 2 : 0;
}

void CarouselAdViewBase::reportImpression() {
  if (!drawable()) return;
  const CarouselAd& ad = *ad_.ad();
  if (config().valid()) {
    detail::reportImpression(*config().config(), ad.cliUbid.value_or(""), ad.uclid);
  }
  Q_EMIT onScreenChanged();  // impressionReported
}

void CarouselAdViewBase::tapCard(int index) {
  if (!drawable() || index < 0 || index >= count()) return;
  const CarouselAd& ad = *ad_.ad();
  if (config().valid()) detail::reportClick(*config().config(), ad.cliUbid.value_or(""), ad.uclid);
  const CarouselCard& card = ad.elements.carouselCards[static_cast<size_t>(index)];
  Q_EMIT adClicked(
      ad_, QmlCarouselCard(card),
      card.destinationUrl ? QVariant(QString::fromStdString(*card.destinationUrl)) : QVariant());
}

// Multi-ad carousel -------------------------------------------------------------------

void MultiAdCarouselViewBase::componentComplete() {
  CarouselStripBase::componentComplete();
  relayoutFromContent();
}

void MultiAdCarouselViewBase::setAds(const QVariantList& ads) {
  ads_ = ads;
  reported_.clear();  // new cards: each reports its own first appearance
  viewed_.clear();
  Q_EMIT adsChanged();
  relayoutFromContent();
}

void MultiAdCarouselViewBase::relayoutFromContent() {
  std::optional<SizeF> first;
  QList<bool> drawn;
  drawn.reserve(ads_.size());
  for (const QVariant& entry : ads_) {
    const QmlBannerAd ad = entry.value<QmlBannerAd>();
    drawn.append(ad.ad() && creativeKind(*ad.ad()) != CreativeKind::none);
  }
  if (!ads_.isEmpty()) {
    const QmlBannerAd ad = ads_.first().value<QmlBannerAd>();
    if (ad.ad()) {
      first = SizeF{static_cast<double>(ad.ad()->elements.width),
                    static_cast<double>(ad.ad()->elements.height)};
    } else {
      first = SizeF{};
    }
  }
  relayout(first, static_cast<int>(ads_.size()), std::move(drawn));
}

}  // namespace tavik::quick
