#pragma once

#include <QtQml/qqmlregistration.h>
#include <QElapsedTimer>
#include <QPointF>
#include <QPointer>
#include <QQuickItem>
#include <QTimer>

#include "tavik/views/custom_window.h"
#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

namespace tavik::quick {

class AdAppearance;

/// A single-shot timer that never fires before its delay: Qt's default coarse timers
/// may fire up to 5% early, and these delays are promises (an ad stays up at least so
/// long). It runs as a precise timer and, should the event loop still wake it early,
/// checks a monotonic clock and waits for the rest.
class DeadlineTimer : public QObject {
  Q_OBJECT

 public:
  explicit DeadlineTimer(QObject* parent = nullptr);

  /// (Re)starts it: `timeout` after `seconds` (0 or less: on the next turn of the loop).
  void start(double seconds);
  void stop();
  bool isActive() const { return timer_.isActive(); }

 Q_SIGNALS:
  void timeout();

 private:
  void fired();

  QTimer timer_;
  QElapsedTimer clock_;
  qint64 delayNs_ = 0;
};

/// The logic of `InterstitialAdView`: where the ad block goes, and the two timers. Both
/// start together each time the view appears (its window shown again, for instance)
/// with their full delays: the close button shows after `closeButtonSec` (5 s when
/// absent), the view asks to be dismissed after `autoCloseSec` (10 s when absent). They
/// stop when the view disappears; a close button already shown stays. Neither fires
/// before its delay (precise timers, checked against a monotonic clock). Dismissal
/// (close button, automatic close, Escape once the button shows) happens once.
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
  Q_PROPERTY(bool onScreen READ onScreen NOTIFY onScreenChanged)

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
  bool onScreen() const { return onScreen_; }

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
  /// Emitted after the timers were started (on screen) or stopped (off screen).
  void onScreenChanged();
  /// The manager answers by removing the overlay.
  void dismissRequested();
  /// The banner inside reports these (its QML forwards them).
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);
  void viewable(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;

 private:
  InterstitialTimes times() const;
  void onScreenNow(bool onScreen);

  QmlConfig config_;
  QmlBannerAd ad_;
  QVariant position_;
  Qt::Alignment alignment_ = Qt::AlignCenter;
  bool showCloseButton_ = false;
  bool onScreen_ = false;
  DismissOnce dismissal_;
  DeadlineTimer closeButtonTimer_;
  DeadlineTimer autoCloseTimer_;
  AdAppearance* appearance_ = nullptr;
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
  Q_PROPERTY(qreal visibleFraction READ visibleFraction NOTIFY visibleFractionChanged)
  Q_PROPERTY(bool viewableReported READ viewableReported NOTIFY viewableReportedChanged)
  Q_PROPERTY(bool videoPlaying READ videoPlaying WRITE setVideoPlaying NOTIFY videoPlayingChanged)

 public:
  explicit PIPAdViewBase(QQuickItem* parent = nullptr);
  ~PIPAdViewBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  QmlBannerAd ad() const { return ad_; }
  void setAd(const QmlBannerAd& ad);
  CustomWindow* customWindow() const { return customWindow_; }
  void setCustomWindow(CustomWindow* window);
  bool impressionReported() const;
  bool onScreen() const;
  /// How much of the panel's video is on screen now, 0..1.
  qreal visibleFraction() const;
  bool viewableReported() const;
  /// The viewability clock runs only while the video plays (the QML binds this).
  bool videoPlaying() const { return videoPlaying_; }
  void setVideoPlaying(bool playing);

  Q_INVOKABLE void tap();
  Q_INVOKABLE void toggleFullScreen(bool isFullScreen);
  Q_INVOKABLE void dismissAd();

 Q_SIGNALS:
  void configChanged();
  void adChanged();
  void customWindowChanged();
  void onScreenChanged();
  void visibleFractionChanged();
  void viewableReportedChanged();
  void videoPlayingChanged();
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);
  /// Two seconds of playback with at least half of the video on screen; once.
  void viewable(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;

 private:
  void reportImpression();

  QmlConfig config_;
  QmlBannerAd ad_;
  QPointer<CustomWindow> customWindow_;
  bool videoPlaying_ = false;
  AdAppearance* appearance_;
};

}  // namespace tavik::quick
