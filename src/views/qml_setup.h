#pragma once

#include <QtQml/qqmlregistration.h>
#include <QPointer>
#include <QQmlComponent>
#include <QQuickItem>
#include <QString>
#include <optional>

namespace tavik::quick {

/// Sets the SDK up from QML, for apps that do everything in QML:
///
///   TavikConfiguration {
///       anchors.fill: parent
///       clientId: "your-client-id"
///       displayAdsHost: "display.ads.example.com"
///       TavikBanner { pageType: "HOME"; adUnit: "au_home_banner"; cliUbid: shopperId }
///   }
///
/// Once its properties are set it runs `TAVIK::Builder` with them and installs the
/// process-wide SDK (`buildGlobalInstance()`), then makes its content: the item declared
/// inside it, which therefore finds the SDK set up (views read the configuration when
/// they are made, and a `TavikBanner` fetches as soon as it is complete). Properties left
/// unset keep the builder's defaults. Validation and errors are the builder's: without a
/// `clientId` (or with the SDK already built, from C++ or by another
/// `TavikConfiguration`) the process stops with the builder's message; a CA bundle that
/// cannot be read is reported once on the log. The SDK is set up once: a property changed
/// afterwards changes nothing and says so in the log (tavik.views).
class TavikConfiguration : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_CLASSINFO("DefaultProperty", "content")
  Q_PROPERTY(QString clientId READ clientId WRITE setClientId NOTIFY configurationChanged)
  Q_PROPERTY(QString productAdsHost READ productAdsHost WRITE setProductAdsHost NOTIFY
                 configurationChanged)
  Q_PROPERTY(QString displayAdsHost READ displayAdsHost WRITE setDisplayAdsHost NOTIFY
                 configurationChanged)
  Q_PROPERTY(QString eventTrackingHost READ eventTrackingHost WRITE setEventTrackingHost NOTIFY
                 configurationChanged)
  Q_PROPERTY(bool debug READ debug WRITE setDebug NOTIFY configurationChanged)
  Q_PROPERTY(bool impressionOnViewable READ impressionOnViewable WRITE setImpressionOnViewable
                 NOTIFY configurationChanged)
  Q_PROPERTY(QString trustedCaBundle READ trustedCaBundle WRITE setTrustedCaBundle NOTIFY
                 configurationChanged)
  Q_PROPERTY(bool ready READ ready NOTIFY readyChanged)
  Q_PROPERTY(QQmlComponent* content READ content WRITE setContent NOTIFY contentChanged)
  Q_PROPERTY(QQuickItem* contentItem READ contentItem NOTIFY readyChanged)

 public:
  explicit TavikConfiguration(QQuickItem* parent = nullptr) : QQuickItem(parent) {}

  QString clientId() const { return clientId_.value_or(QString()); }
  void setClientId(const QString& value) { set(clientId_, value, "clientId"); }
  QString productAdsHost() const { return productAdsHost_.value_or(QString()); }
  void setProductAdsHost(const QString& value) { set(productAdsHost_, value, "productAdsHost"); }
  QString displayAdsHost() const { return displayAdsHost_.value_or(QString()); }
  void setDisplayAdsHost(const QString& value) { set(displayAdsHost_, value, "displayAdsHost"); }
  QString eventTrackingHost() const { return eventTrackingHost_.value_or(QString()); }
  void setEventTrackingHost(const QString& value) {
    set(eventTrackingHost_, value, "eventTrackingHost");
  }
  bool debug() const { return debug_.value_or(false); }
  void setDebug(bool value) { set(debug_, value, "debug"); }
  bool impressionOnViewable() const { return impressionOnViewable_.value_or(false); }
  void setImpressionOnViewable(bool value) {
    set(impressionOnViewable_, value, "impressionOnViewable");
  }
  /// A PEM file (a path, or a file: URL such as Qt.resolvedUrl gives).
  QString trustedCaBundle() const { return trustedCaBundle_.value_or(QString()); }
  void setTrustedCaBundle(const QString& value) { set(trustedCaBundle_, value, "trustedCaBundle"); }

  /// Whether the SDK is set up (and the content made).
  bool ready() const { return ready_; }
  QQmlComponent* content() const { return content_; }
  void setContent(QQmlComponent* component);
  QQuickItem* contentItem() const { return contentItem_; }

  void componentComplete() override;

 Q_SIGNALS:
  void configurationChanged();
  void readyChanged();
  void contentChanged();

 private:
  template <typename T>
  void set(std::optional<T>& field, const T& value, const char* name);
  void makeContent();
  void followContentSize();

  std::optional<QString> clientId_;
  std::optional<QString> productAdsHost_;
  std::optional<QString> displayAdsHost_;
  std::optional<QString> eventTrackingHost_;
  std::optional<bool> debug_;
  std::optional<bool> impressionOnViewable_;
  std::optional<QString> trustedCaBundle_;
  bool ready_ = false;
  QPointer<QQmlComponent> content_;
  QPointer<QQuickItem> contentItem_;
};

}  // namespace tavik::quick
