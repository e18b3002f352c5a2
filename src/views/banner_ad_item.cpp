#include "views/banner_ad_item.h"

#include "tavik/core/tavik.h"
#include "video/video_ad_view.h"
#include "views/appearance.h"
#include "views/media_support.h"
#include "views/view_events.h"

namespace tavik::quick {

LabelAlignment labelAlignmentFrom(Qt::Alignment alignment) {
  LabelAlignment result{HorizontalAlignment::center, VerticalAlignment::center};
  if (alignment & (Qt::AlignLeft | Qt::AlignLeading))
    result.horizontal = HorizontalAlignment::leading;
  if (alignment & (Qt::AlignRight | Qt::AlignTrailing)) {
    result.horizontal = HorizontalAlignment::trailing;
  }
  if (alignment & Qt::AlignTop) result.vertical = VerticalAlignment::top;
  if (alignment & Qt::AlignBottom) result.vertical = VerticalAlignment::bottom;
  return result;
}

BannerAdViewBase::BannerAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), appearance_(new AdAppearance(this)) {
  if (const TAVIK* sdk = TAVIK::installed()) config_ = QmlConfig(sdk->config());
  setFlag(ItemHasContents, false);
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  appearance_->setDrawable(false);  // until it has an ad it can draw
  connect(appearance_, &AdAppearance::impressionDue, this, &BannerAdViewBase::reportImpression);
  connect(appearance_, &AdAppearance::appeared, this, [this] {
    Q_EMIT onScreenChanged();
    Q_EMIT adAppear(ad_);
  });
  connect(appearance_, &AdAppearance::disappeared, this, &BannerAdViewBase::onScreenChanged);
  connect(appearance_, &AdAppearance::visibleFractionChanged, this,
          &BannerAdViewBase::visibleFractionChanged);
  connect(appearance_, &AdAppearance::becameViewable, this, [this] {
    Q_EMIT viewableReportedChanged();
    Q_EMIT viewable(ad_);
  });
}

BannerAdViewBase::~BannerAdViewBase() {
  // The appearance would otherwise outlive this part of the object while the item tears
  // down its window.
  delete appearance_;
  // A video inside gives its player up while the banner is still in its window: the item
  // leaves the window next, and a video output leaving it with its pipeline still up
  // makes Qt's sink switch renderers mid-stream.
  VideoAdViewBase::releasePlayersIn(this);
}

void BannerAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  relayout();
  appearance_->setReady();
}

bool BannerAdViewBase::onScreen() const {
  return appearance_->onScreen();
}
bool BannerAdViewBase::impressionReported() const {
  return appearance_->impressionReported();
}
qreal BannerAdViewBase::visibleFraction() const {
  return appearance_->visibleFraction();
}
bool BannerAdViewBase::viewableReported() const {
  return appearance_->viewableReported();
}

void BannerAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  Q_EMIT configChanged();
}

void BannerAdViewBase::setAd(const QmlBannerAd& ad) {
  if (ad == ad_) return;
  // Only a change from one ad to another starts over; the first ad keeps what was set
  // before it (a rebuilt card told that its impression went out already).
  const bool otherAd = ad_.valid() && ad.uclid() != ad_.uclid();
  ad_ = ad;
  if (otherAd) {
    // A different ad is a new view of it: its own first appearance and impression.
    const bool reported = appearance_->impressionReported();
    appearance_->reset();
    if (reported) Q_EMIT impressionReportedChanged();
  }
  Q_EMIT adChanged();
  relayout();
}

void BannerAdViewBase::setImpressionReported(bool reported) {
  if (!reported || appearance_->impressionReported()) return;
  appearance_->markImpressionReported();
  Q_EMIT impressionReportedChanged();
}

void BannerAdViewBase::setViewableReported(bool reported) {
  if (!reported || viewableReported()) return;
  appearance_->markViewableReported();
  Q_EMIT viewableReportedChanged();
}

void BannerAdViewBase::setVideoPlaying(bool playing) {
  if (playing == videoPlaying_) return;
  videoPlaying_ = playing;
  appearance_->setPlaying(playing);
  Q_EMIT videoPlayingChanged();
}

void BannerAdViewBase::setAdWidth(qreal width) {
  if (qFuzzyCompare(width, adWidth_)) return;
  adWidth_ = width;
  relayout();
}

void BannerAdViewBase::setAdHeight(qreal height) {
  if (qFuzzyCompare(height, adHeight_)) return;
  adHeight_ = height;
  relayout();
}

void BannerAdViewBase::setAdLabelText(const QString& text) {
  if (text == adLabelText_) return;
  adLabelText_ = text;
  Q_EMIT labelChanged();
}

void BannerAdViewBase::setAdLabelAlignment(Qt::Alignment alignment) {
  if (alignment == adLabelAlignment_) return;
  adLabelAlignment_ = alignment;
  Q_EMIT labelChanged();
  Q_EMIT labelPositionChanged();
}

void BannerAdViewBase::setLabelSize(const QSizeF& size) {
  if (size == labelSize_) return;
  labelSize_ = size;
  Q_EMIT labelChanged();
  Q_EMIT labelPositionChanged();
}

BannerAdViewBase::CreativeKind BannerAdViewBase::creativeKindProperty() const {
  if (!ad_.ad()) return None;
  switch (creativeKind(*ad_.ad())) {
    case quick::CreativeKind::image:
      return Image;
    case quick::CreativeKind::video:
      return Video;
    case quick::CreativeKind::none:
      break;
  }
  return None;
}

void BannerAdViewBase::relayout() {
  SizeF frame;
  if (ad_.ad()) {
    frame = bannerFrame(*ad_.ad(), lengthIfSet(adWidth_), lengthIfSet(adHeight_), screenLimits());
  }
  const bool changed = !(frame == frame_);
  frame_ = frame;
  setImplicitSize(frame.width, frame.height);
  if (changed) {
    Q_EMIT layoutChanged();
    Q_EMIT labelPositionChanged();
  }
  const CreativeKind kind = creativeKindProperty();
  appearance_->setVideo(kind == Video);
  appearance_->setDrawable(kind != None);
  appearance_->requestCheck();
}

void BannerAdViewBase::reportImpression() {
  if (!ad_.ad()) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid())
    detail::reportImpression(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT impressionReportedChanged();
}

void BannerAdViewBase::tap() {
  if (!ad_.ad() || creativeKindProperty() == None) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid()) detail::reportClick(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT adClicked(ad_);
}

QRectF BannerAdViewBase::labelRect(qreal width, qreal height) const {
  const RectF r = placeLabel(frame_, {width, height}, labelAlignmentFrom(adLabelAlignment_));
  return {r.x, r.y, r.width, r.height};
}

}  // namespace tavik::quick
