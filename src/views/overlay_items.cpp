#include "views/overlay_items.h"

#include "tavik/core/log.h"
#include "tavik/core/tavik.h"
#include "views/appearance.h"
#include "views/banner_ad_item.h"
#include "views/view_events.h"

namespace tavik::quick {

namespace {
QmlConfig installedConfig() {
  const TAVIK* sdk = TAVIK::installed();
  return sdk ? QmlConfig(sdk->config()) : QmlConfig();
}
int milliseconds(double seconds) {
  return static_cast<int>(std::min(seconds * 1000.0, 2147483647.0));
}
}  // namespace

// Interstitial ----------------------------------------------------------------------

InterstitialAdViewBase::InterstitialAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), config_(installedConfig()) {
  closeButtonTimer_.setSingleShot(true);
  autoCloseTimer_.setSingleShot(true);
  connect(&closeButtonTimer_, &QTimer::timeout, this, [this] {
    if (showCloseButton_ || isDismissed()) return;
    showCloseButton_ = true;
    Q_EMIT showCloseButtonChanged();
  });
  connect(&autoCloseTimer_, &QTimer::timeout, this, &InterstitialAdViewBase::dismiss);
}

InterstitialAdViewBase::~InterstitialAdViewBase() {
  delete watcher_;
}

void InterstitialAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  watcher_ = new OnScreenWatcher(this);
  connect(watcher_, &OnScreenWatcher::onScreenChanged, this, &InterstitialAdViewBase::startTimers);
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

// Both timers start together, the first time the view is on screen; they stop when it
// goes off screen or away.
void InterstitialAdViewBase::startTimers(bool onScreen) {
  if (!onScreen) {
    closeButtonTimer_.stop();
    autoCloseTimer_.stop();
    return;
  }
  if (started_ || isDismissed()) return;
  started_ = true;
  const InterstitialTimes t = times();
  if (t.negativeDelay && config_.debug()) {
    tavik::detail::debugLine("interstitial: a negative close delay is treated as 0");
  }
  closeButtonTimer_.start(milliseconds(t.closeButton));
  autoCloseTimer_.start(milliseconds(t.autoClose));
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

PIPAdViewBase::PIPAdViewBase(QQuickItem* parent) : QQuickItem(parent), config_(installedConfig()) {}

PIPAdViewBase::~PIPAdViewBase() {
  delete watcher_;
}

void PIPAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  watcher_ = new OnScreenWatcher(this);
  connect(watcher_, &OnScreenWatcher::onScreenChanged, this, &PIPAdViewBase::onScreenNow);
}

void PIPAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  Q_EMIT configChanged();
}

void PIPAdViewBase::setAd(const QmlBannerAd& ad) {
  if (ad == ad_) return;
  ad_ = ad;
  Q_EMIT adChanged();
}

void PIPAdViewBase::setCustomWindow(CustomWindow* window) {
  if (window == customWindow_) return;
  customWindow_ = window;
  Q_EMIT customWindowChanged();
}

void PIPAdViewBase::onScreenNow(bool onScreen) {
  const auto change = tracker_.update(onScreen && ad_.ad());
  Q_EMIT onScreenChanged();
  if (!change.appeared) return;
  const BannerAd& ad = *ad_.ad();
  if (change.reportImpression && config_.valid()) {
    detail::reportImpression(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  }
  Q_EMIT adAppear(ad_);
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
