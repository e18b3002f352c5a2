#include "views/overlay_items.h"

#include <algorithm>

#include <QQuickWindow>
#include "tavik/core/tavik.h"
#include "views/logging.h"

#include "views/appearance.h"
#include "views/banner_ad_item.h"
#include "views/media_support.h"
#include "views/view_events.h"

namespace tavik::quick {

// Deadline timer ----------------------------------------------------------------------

DeadlineTimer::DeadlineTimer(QObject* parent) : QObject(parent) {
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, &DeadlineTimer::fired);
}

void DeadlineTimer::start(double seconds) {
  // Whole nanoseconds, at most about 24 days (QTimer counts in int milliseconds).
  delayNs_ = static_cast<qint64>(std::clamp(seconds, 0.0, 2.0e6) * 1e9);
  clock_.start();
  timer_.start(static_cast<int>((delayNs_ + 999'999) / 1'000'000));
}

void DeadlineTimer::stop() {
  timer_.stop();
}

void DeadlineTimer::fired() {
  const qint64 left = delayNs_ - clock_.nsecsElapsed();
  if (left > 0) {
    timer_.start(static_cast<int>((left + 999'999) / 1'000'000));
    return;
  }
  Q_EMIT timeout();
}

// Interstitial ----------------------------------------------------------------------

InterstitialAdViewBase::InterstitialAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), config_(installedConfig()) {
  connect(&closeButtonTimer_, &DeadlineTimer::timeout, this, [this] {
    if (showCloseButton_ || isDismissed()) return;
    showCloseButton_ = true;
    Q_EMIT showCloseButtonChanged();
  });
  connect(&autoCloseTimer_, &DeadlineTimer::timeout, this, &InterstitialAdViewBase::dismiss);
}

InterstitialAdViewBase::~InterstitialAdViewBase() {
  delete appearance_;
  // Only a tracker that exists: the window may be going away itself.
  if (QQuickWindow* shownIn = window()) {
    if (auto* tracker =
            shownIn->findChild<VisibilityTracker*>(QString(), Qt::FindDirectChildrenOnly))
      tracker->removeCover(this);
  }
}

void InterstitialAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  appearance_ = new AdAppearance(this);
  appearance_->setReady();
  connect(appearance_, &AdAppearance::appeared, this, [this] { onScreenNow(true); });
  connect(appearance_, &AdAppearance::disappeared, this, [this] { onScreenNow(false); });
  // While it is up, the interstitial covers the rest of its window: views beneath it
  // are not seen.
  auto cover = [this](QQuickWindow* window) {
    if (auto* tracker = VisibilityTracker::of(window)) tracker->addCover(this);
  };
  connect(this, &QQuickItem::windowChanged, this, cover);
  cover(window());
}

void InterstitialAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  Q_EMIT configChanged();
}

void InterstitialAdViewBase::setAd(const QmlBannerAd& ad) {
  if (ad == ad_) return;
  ad_ = ad;
  Q_EMIT adChanged();
}

void InterstitialAdViewBase::setPosition(const QVariant& position) {
  position_ = position.canConvert<QPointF>() && position.isValid() ? position : QVariant();
  Q_EMIT layoutChanged();
}

void InterstitialAdViewBase::setAlignment(Qt::Alignment alignment) {
  if (alignment == alignment_) return;
  alignment_ = alignment;
  Q_EMIT layoutChanged();
}

InterstitialTimes InterstitialAdViewBase::times() const {
  if (!ad_.ad()) return {};
  return interstitialTimes(ad_.ad()->elements.closeButtonSec, ad_.ad()->elements.autoCloseSec);
}

// Both timers start together, with their full delays, each time the view appears, and
// stop when it disappears: an interstitial whose window was hidden and shown again gets
// its close button and its automatic close again.
void InterstitialAdViewBase::onScreenNow(bool onScreen) {
  if (onScreen == onScreen_) return;
  onScreen_ = onScreen;
  if (!onScreen) {
    closeButtonTimer_.stop();
    autoCloseTimer_.stop();
  } else if (!isDismissed()) {
    const InterstitialTimes t = times();
    if (t.negativeDelay && config_.debug()) {
      tavik::quick::viewDebugLine("interstitial: a negative close delay is treated as 0");
    }
    if (!showCloseButton_) closeButtonTimer_.start(t.closeButton);
    autoCloseTimer_.start(t.autoClose);
  }
  Q_EMIT onScreenChanged();
}

QPointF InterstitialAdViewBase::blockPosition(qreal width, qreal height) const {
  if (position_.isValid()) {
    const QPointF centre = position_.toPointF();
    return {centre.x() - width / 2, centre.y() - height / 2};
  }
  const RectF r =
      placeLabel({this->width(), this->height()}, {width, height}, labelAlignmentFrom(alignment_));
  return {r.x, r.y};
}

void InterstitialAdViewBase::dismiss() {
  if (!dismissal_.dismiss()) return;
  closeButtonTimer_.stop();
  autoCloseTimer_.stop();
  Q_EMIT dismissedChanged();
  Q_EMIT dismissRequested();
}

// Picture in picture -------------------------------------------------------------------

PIPAdViewBase::PIPAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), config_(installedConfig()), appearance_(new AdAppearance(this)) {
  appearance_->setVideo(true);
  appearance_->setDrawable(false);  // until it has an ad
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  connect(appearance_, &AdAppearance::impressionDue, this, &PIPAdViewBase::reportImpression);
  connect(appearance_, &AdAppearance::appeared, this, [this] {
    Q_EMIT onScreenChanged();
    Q_EMIT adAppear(ad_);
  });
  connect(appearance_, &AdAppearance::disappeared, this, &PIPAdViewBase::onScreenChanged);
  connect(appearance_, &AdAppearance::visibleFractionChanged, this,
          &PIPAdViewBase::visibleFractionChanged);
  connect(appearance_, &AdAppearance::becameViewable, this, [this] {
    Q_EMIT viewableReportedChanged();
    Q_EMIT viewable(ad_);
  });
}

PIPAdViewBase::~PIPAdViewBase() {
  delete appearance_;
}

void PIPAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  appearance_->setReady();
}

bool PIPAdViewBase::impressionReported() const {
  return appearance_->impressionReported();
}
bool PIPAdViewBase::onScreen() const {
  return appearance_->onScreen();
}
qreal PIPAdViewBase::visibleFraction() const {
  return appearance_->visibleFraction();
}
bool PIPAdViewBase::viewableReported() const {
  return appearance_->viewableReported();
}

void PIPAdViewBase::setVideoPlaying(bool playing) {
  if (playing == videoPlaying_) return;
  videoPlaying_ = playing;
  appearance_->setPlaying(playing);
  Q_EMIT videoPlayingChanged();
}

void PIPAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  Q_EMIT configChanged();
}

void PIPAdViewBase::setAd(const QmlBannerAd& ad) {
  if (ad == ad_) return;
  ad_ = ad;
  appearance_->setDrawable(static_cast<bool>(ad_.ad()));
  Q_EMIT adChanged();
}

void PIPAdViewBase::setCustomWindow(CustomWindow* window) {
  if (window == customWindow_) return;
  customWindow_ = window;
  Q_EMIT customWindowChanged();
}

void PIPAdViewBase::reportImpression() {
  if (!ad_.ad()) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid())
    detail::reportImpression(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT onScreenChanged();  // impressionReported
}

void PIPAdViewBase::tap() {
  if (!ad_.ad()) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid()) detail::reportClick(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT adClicked(ad_);
}

void PIPAdViewBase::toggleFullScreen(bool isFullScreen) {
  if (customWindow_) customWindow_->setFullScreen(isFullScreen);
}

void PIPAdViewBase::dismissAd() {
  if (customWindow_) customWindow_->dismiss();
}

}  // namespace tavik::quick
