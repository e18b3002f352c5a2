#pragma once

#include <QtQml/qqmlregistration.h>
#include <QPointF>
#include <QPointer>
#include <QQuickItem>
#include <QTimer>

#include "tavik/views/custom_window.h"
#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

namespace tavik::quick {

class OnScreenWatcher;

/// The logic of `InterstitialAdView`: where the ad block goes, and the two timers. Both
/// start together when the view first appears: the close button shows after
/// `closeButtonSec` (5 s when absent), the view asks to be dismissed after
/// `autoCloseSec` (10 s when absent). Dismissal (close button, automatic close, Escape
/// once the button shows) happens once. Timers stop when the view goes.
class InterstitialAdViewBase : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tavik::quick::QmlConfig config READ config WRITE setConfig NOTIFY configChanged)
  Q_PROPERTY(tavik::quick::QmlBannerAd ad READ ad WRITE setAd NOTIFY adChanged)
  Q_PROPERTY(QVariant position READ position WRITE setPosition NOTIFY layoutChanged)
  Q_PROPERTY(Qt::Alignment alignment READ alignment WRITE setAlignment NOTIFY layoutChanged)
  Q_PROPERTY(bool showCloseButton READ showCloseButton NOTIFY showCloseButtonChanged)
  Q_PROPERTY(bool isDismissed READ isDismissed NOTIFY dismissedChanged)
  Q_PROPERTY(qreal closeButtonDelay READ closeButtonDelay NOTIFY adChanged)
  Q_PROPERTY(qreal autoCloseDelay READ autoCloseDelay NOTIFY adChanged)

 public:
  explicit InterstitialAdViewBase(QQuickItem* parent = nullptr);
  ~InterstitialAdViewBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  QmlBannerAd ad() const { return ad_; }
  void setAd(const QmlBannerAd& ad);
  /// A point (the centre of the ad block) or undefined (laid out by `alignment`).
  QVariant position() const { return position_; }
  void setPosition(const QVariant& position);
  Qt::Alignment alignment() const { return alignment_; }
  void setAlignment(Qt::Alignment alignment);
  bool showCloseButton() const { return showCloseButton_; }
  bool isDismissed() const { return dismissal_.isDismissed(); }
  qreal closeButtonDelay() const { return times().closeButton; }
  qreal autoCloseDelay() const { return times().autoClose; }

  /// The ad block's top-left corner for a block of this size.
  Q_INVOKABLE QPointF blockPosition(qreal width, qreal height) const;
  /// Takes the interstitial down, once.
  Q_INVOKABLE void dismiss();

 Q_SIGNALS:
  void configChanged();
  void adChanged();
  void layoutChanged();
  void showCloseButtonChanged();
  void dismissedChanged();
  /// The manager answers by removing the overlay.
  void dismissRequested();
  /// The banner inside reports these (its QML forwards them).
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;

 private:
  InterstitialTimes times() const;
  void startTimers(bool onScreen);

  QmlConfig config_;
  QmlBannerAd ad_;
  QVariant position_;
  Qt::Alignment alignment_ = Qt::AlignCenter;
  bool showCloseButton_ = false;
  bool started_ = false;
  DismissOnce dismissal_;
  QTimer closeButtonTimer_;
  QTimer autoCloseTimer_;
  OnScreenWatcher* watcher_ = nullptr;
};

/// The logic of `PIPAdView`: the video ad in a floating panel. One impression per view
/// instance (also across hide and show), `adAppear` on every appearance, a click per
/// tap; the full-screen and close buttons drive its `CustomWindow`.
class PIPAdViewBase : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tavik::quick::QmlConfig config READ config WRITE setConfig NOTIFY configChanged)
  Q_PROPERTY(tavik::quick::QmlBannerAd ad READ ad WRITE setAd NOTIFY adChanged)
  Q_PROPERTY(tavik::CustomWindow* customWindow READ customWindow WRITE setCustomWindow NOTIFY
                 customWindowChanged)
  Q_PROPERTY(bool impressionReported READ impressionReported NOTIFY onScreenChanged)
  Q_PROPERTY(bool onScreen READ onScreen NOTIFY onScreenChanged)

 public:
  explicit PIPAdViewBase(QQuickItem* parent = nullptr);
  ~PIPAdViewBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  QmlBannerAd ad() const { return ad_; }
  void setAd(const QmlBannerAd& ad);
  CustomWindow* customWindow() const { return customWindow_; }
  void setCustomWindow(CustomWindow* window);
  bool impressionReported() const { return tracker_.isAppear(); }
  bool onScreen() const { return tracker_.onScreen(); }

  Q_INVOKABLE void tap();
  Q_INVOKABLE void toggleFullScreen(bool isFullScreen);
  Q_INVOKABLE void dismissAd();

 Q_SIGNALS:
  void configChanged();
  void adChanged();
  void customWindowChanged();
  void onScreenChanged();
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;

 private:
  void onScreenNow(bool onScreen);

  QmlConfig config_;
  QmlBannerAd ad_;
  QPointer<CustomWindow> customWindow_;
  AppearanceTracker tracker_;
  OnScreenWatcher* watcher_ = nullptr;
};

}  // namespace tavik::quick
