#pragma once

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QQmlParserStatus>
#include <QString>

#include "tavik/views/qml_records.h"

namespace tavik::quick {

/// Fetches the banner ad of one ad unit through the installed SDK's `adRenderer()` and
/// publishes it, with a status: `TavikBanner` is a banner with one of these inside.
/// Changing a property fetches again (once, after the current event). The result
/// reaches QML on the UI thread, and never after the request object is gone.
///
/// Errors: `error(code, message)` is emitted once per fetch with the first error the
/// SDK reported (a failed request also reports the renderer's `badResponse` after it;
/// that follow-up is not repeated). Without an installed SDK with a client id the
/// status is Error with code "ERROR_CONFIGURATION", and nothing is sent.
///
///   BannerAdRequest {
///       id: request
///       pageType: "HOME"; adUnit: "au_home_banner"; cliUbid: shopperId
///   }
///   BannerAdView { ad: request.ad; visible: request.status === BannerAdRequest.Ready }
class BannerAdRequest : public QObject, public QQmlParserStatus {
  Q_OBJECT
  QML_ELEMENT
  Q_INTERFACES(QQmlParserStatus)
  Q_PROPERTY(QString pageType READ pageType WRITE setPageType NOTIFY requestChanged)
  Q_PROPERTY(QString adUnit READ adUnit WRITE setAdUnit NOTIFY requestChanged)
  Q_PROPERTY(QString cliUbid READ cliUbid WRITE setCliUbid NOTIFY requestChanged)
  Q_PROPERTY(Status status READ status NOTIFY statusChanged)
  Q_PROPERTY(tavik::quick::QmlBannerAd ad READ ad NOTIFY adChanged)
  Q_PROPERTY(QString errorCode READ errorCode NOTIFY statusChanged)
  Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY statusChanged)

 public:
  enum Status { Idle, Loading, Ready, Empty, Error };
  Q_ENUM(Status)

  explicit BannerAdRequest(QObject* parent = nullptr) : QObject(parent) {}

  QString pageType() const { return pageType_; }
  void setPageType(const QString& value);
  QString adUnit() const { return adUnit_; }
  void setAdUnit(const QString& value);
  QString cliUbid() const { return cliUbid_; }
  void setCliUbid(const QString& value);
  Status status() const { return status_; }
  QmlBannerAd ad() const { return ad_; }
  QString errorCode() const { return errorCode_; }
  QString errorMessage() const { return errorMessage_; }

  /// Fetches again with the current properties.
  Q_INVOKABLE void reload();

  void classBegin() override {}
  void componentComplete() override;

 Q_SIGNALS:
  void requestChanged();
  void statusChanged();
  void adChanged();
  void error(const QString& code, const QString& message);

 private:
  void scheduleReload();
  void setStatus(Status status, QString code = {}, QString message = {});

  QString pageType_ = QStringLiteral("HOME");
  QString adUnit_;
  QString cliUbid_;
  Status status_ = Idle;
  QmlBannerAd ad_;
  QString errorCode_;
  QString errorMessage_;
  bool complete_ = false;
  bool reloadPending_ = false;
  quint64 generation_ = 0;  // answers of an older fetch are dropped
};

/// The result of `TavikAds.preload(ad)`: `status` Loading until the creative is ready
/// (Ready), or the ad had none (Empty), or its download failed (Error, `errorString`
/// says why); `finished` is emitted once with the outcome.
class CreativePreload : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("Made by TavikAds.preload")
  Q_PROPERTY(Status status READ status NOTIFY finished)
  Q_PROPERTY(QString errorString READ errorString NOTIFY finished)

 public:
  enum Status { Loading, Ready, Empty, Error };
  Q_ENUM(Status)

  explicit CreativePreload(QObject* parent = nullptr) : QObject(parent) {}
  Status status() const { return status_; }
  QString errorString() const { return error_; }
  void finish(Status status, QString error = {});

 Q_SIGNALS:
  void finished(tavik::quick::CreativePreload::Status status);

 private:
  Status status_ = Loading;
  QString error_;
};

/// Record helpers for QML: `TavikAds.decodeBannerAd(jsonText)` gives a `bannerAd` from
/// an ad's JSON (for hosts that keep ads as JSON, and for tests); text that does not
/// decode gives an invalid value (`valid` false) and a warning naming the problem.
///
///   BannerAdView { ad: TavikAds.decodeBannerAd(savedAdJson) }
class TavikAds : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON

 public:
  explicit TavikAds(QObject* parent = nullptr) : QObject(parent) {}
  Q_INVOKABLE tavik::quick::QmlBannerAd decodeBannerAd(const QString& jsonText) const;
  /// The same for a carousel ad (`carouselAd`).
  Q_INVOKABLE tavik::quick::QmlCarouselAd decodeCarouselAd(const QString& jsonText) const;
  /// Loads `ad`'s creative ahead of showing it (see `tavik::quick::preloadCreative`); the
  /// result is owned by the caller's JavaScript. The creative stays wanted until a view
  /// shows it or `dropPreload(ad)`.
  Q_INVOKABLE tavik::quick::CreativePreload* preload(const tavik::quick::QmlBannerAd& ad);
  Q_INVOKABLE void dropPreload(const tavik::quick::QmlBannerAd& ad);
};

}  // namespace tavik::quick
