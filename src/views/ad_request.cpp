#include "views/ad_request.h"

#include <QJSEngine>
#include <QTimer>
#include <memory>
#include <mutex>

#include "tavik/ads/ad_renderer.h"
#include "tavik/core/tavik.h"
#include "tavik/views/creatives.h"
#include "tavik/views/qt_bridge.h"
#include "views/logging.h"

namespace tavik::quick {

void BannerAdRequest::setPageType(const QString& value) {
  if (value == pageType_) return;
  pageType_ = value;
  Q_EMIT requestChanged();
  scheduleReload();
}

void BannerAdRequest::setAdUnit(const QString& value) {
  if (value == adUnit_) return;
  adUnit_ = value;
  Q_EMIT requestChanged();
  scheduleReload();
}

void BannerAdRequest::setCliUbid(const QString& value) {
  if (value == cliUbid_) return;
  cliUbid_ = value;
  Q_EMIT requestChanged();
  scheduleReload();
}

void BannerAdRequest::componentComplete() {
  complete_ = true;
  reload();
}

// Several properties set together fetch once.
void BannerAdRequest::scheduleReload() {
  if (!complete_ || reloadPending_) return;
  reloadPending_ = true;
  QTimer::singleShot(0, this, [this] {
    reloadPending_ = false;
    reload();
  });
}

void BannerAdRequest::setStatus(Status status, QString code, QString message) {
  status_ = status;
  errorCode_ = std::move(code);
  errorMessage_ = std::move(message);
  Q_EMIT statusChanged();
  if (status == Error) Q_EMIT error(errorCode_, errorMessage_);
}

void BannerAdRequest::reload() {
  const quint64 generation = ++generation_;
  if (adUnit_.isEmpty()) {
    setStatus(Idle);
    return;
  }
  const TAVIK* sdk = TAVIK::installed();
  std::unique_ptr<AdRendererProtocol> renderer = sdk ? sdk->adRenderer() : nullptr;
  if (!renderer) {
    const TavikError missing = TavikError::missingConfiguration();
    setStatus(Error, QString::fromStdString(missing.code()),
              QStringLiteral("the SDK is not set up: build it with "
                             "TAVIK::Builder().clientId(...).buildGlobalInstance() first"));
    return;
  }
  setStatus(Loading);
  // The first error of this fetch; written on the transport thread, read on ours once
  // the future is ready.
  struct FirstError {
    std::mutex mutex;
    std::optional<TavikError> error;
  };
  auto first = std::make_shared<FirstError>();
  auto future = renderer->fetchBannerAdsWithAu(cliUbid_.toStdString(), pageType_.toStdString(),
                                               adUnit_.toStdString(), std::nullopt,
                                               [first](const TavikError& e) {
                                                 std::lock_guard lock(first->mutex);
                                                 if (!first->error) first->error = e;
                                               });
  continueOn(this, future, [this, generation, first](const Future<std::optional<BannerAd>>& ready) {
    if (generation != generation_) return;
    std::optional<BannerAd> ad;
    try {
      ad = ready.get();
    } catch (...) {
      // The public operation never fails its future; an abandoned one (exit) lands here.
    }
    if (ad) {
      ad_ = QmlBannerAd(std::move(*ad));
      Q_EMIT adChanged();
      setStatus(Ready);
      return;
    }
    std::lock_guard lock(first->mutex);
    if (first->error) {
      setStatus(Error, QString::fromStdString(first->error->code()),
                QString::fromStdString(first->error->description()));
    } else {
      setStatus(Empty);
    }
  });
}

QmlBannerAd TavikAds::decodeBannerAd(const QString& jsonText) const {
  try {
    return QmlBannerAd(tavik::decodeBannerAd(jsonText.toStdString()));
  } catch (const std::exception& e) {
    qCWarning(lcViews, "TavikAds.decodeBannerAd: %s", e.what());
    return {};
  }
}

QmlCarouselAd TavikAds::decodeCarouselAd(const QString& jsonText) const {
  try {
    return QmlCarouselAd(tavik::decodeCarouselAd(jsonText.toStdString()));
  } catch (const std::exception& e) {
    qCWarning(lcViews, "TavikAds.decodeCarouselAd: %s", e.what());
    return {};
  }
}

void CreativePreload::finish(Status status, QString error) {
  if (status_ != Loading) return;
  status_ = status;
  error_ = std::move(error);
  Q_EMIT finished(status_);
}

CreativePreload* TavikAds::preload(const QmlBannerAd& ad) {
  auto* result = new CreativePreload();
  QJSEngine::setObjectOwnership(result, QJSEngine::JavaScriptOwnership);
  if (!ad.ad()) {
    result->finish(CreativePreload::Empty);
    return result;
  }
  continueOn(result, preloadCreative(*ad.ad()), [result](const Future<bool>& ready) {
    try {
      result->finish(ready.get() ? CreativePreload::Ready : CreativePreload::Empty);
    } catch (const std::exception& e) {
      result->finish(CreativePreload::Error, QString::fromUtf8(e.what()));
    } catch (...) {
      result->finish(CreativePreload::Error, QStringLiteral("the creative could not be loaded"));
    }
  });
  return result;
}

void TavikAds::dropPreload(const QmlBannerAd& ad) {
  if (ad.ad()) dropPreloadedCreative(*ad.ad());
}

}  // namespace tavik::quick
