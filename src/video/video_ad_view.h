#pragma once

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QString>

#include "tavik/video/video_player_manager.h"
#include "tavik/views/qml_records.h"

namespace tavik::quick {

class AdAppearance;

/// The logic of `VideoAdView` (VideoAdView.qml draws it): one video ad, played through
/// a `VideoPlayerManager` that the view makes the first time it is on screen, from the
/// `config`, `cliUbid`, `uclid`, `url` and `progressTrackInterval` set by then (later
/// changes do not remake it). A view never seen makes no player at all.
///
/// Each time the view comes on screen it starts progress tracking and looping and plays;
/// each time it leaves the screen (hidden, scrolled away, its window hidden, or
/// destroyed) it pauses and cleans the manager up. The video starts muted and loops.
/// Destroyed, the view brings its player down (no source) before the frames' output item
/// goes, and the output before the player; the player returns to a small pool.
class VideoAdViewBase : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tavik::quick::QmlConfig config READ config WRITE setConfig NOTIFY configChanged)
  Q_PROPERTY(QString cliUbid READ cliUbid WRITE setCliUbid NOTIFY cliUbidChanged)
  Q_PROPERTY(QString uclid READ uclid WRITE setUclid NOTIFY uclidChanged)
  Q_PROPERTY(QString url READ url WRITE setUrl NOTIFY urlChanged)
  Q_PROPERTY(int progressTrackInterval READ progressTrackInterval WRITE setProgressTrackInterval
                 NOTIFY progressTrackIntervalChanged)
  Q_PROPERTY(tavik::VideoPlayerManager* videoManager READ videoManager NOTIFY videoManagerChanged)
  Q_PROPERTY(QObject* videoOutput READ videoOutput WRITE setVideoOutput NOTIFY videoOutputChanged)
  Q_PROPERTY(bool active READ active NOTIFY activeChanged)
  Q_PROPERTY(bool playing READ playing NOTIFY playingChanged)

 public:
  /// The period of progress events when none is given.
  static constexpr int kDefaultProgressTrackInterval = 3;

  explicit VideoAdViewBase(QQuickItem* parent = nullptr);
  ~VideoAdViewBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  QString cliUbid() const { return cliUbid_; }
  void setCliUbid(const QString& cliUbid);
  QString uclid() const { return uclid_; }
  void setUclid(const QString& uclid);
  QString url() const { return url_; }
  void setUrl(const QString& url);
  int progressTrackInterval() const { return progressTrackInterval_; }
  void setProgressTrackInterval(int seconds);

  /// Null until the view has first been on screen.
  VideoPlayerManager* videoManager() const { return manager_; }
  /// The item frames are drawn into (the QML `VideoOutput`).
  QObject* videoOutput() const { return videoOutput_; }
  void setVideoOutput(QObject* output);
  /// True while the view is on screen and its video plays.
  bool active() const { return active_; }
  /// Whether the video is playing now (loaded, not paused).
  bool playing() const;

 Q_SIGNALS:
  void configChanged();
  void cliUbidChanged();
  void uclidChanged();
  void urlChanged();
  void progressTrackIntervalChanged();
  void videoManagerChanged();
  void videoOutputChanged();
  void activeChanged();
  void playingChanged();

 protected:
  void componentComplete() override;

 private:
  void setOnScreen(bool onScreen);
  void appear();
  void disappear(bool notify = true);
  void makeManager();
  // Stops the player, destroys the frames' output and gives the player up with the
  // manager.
  void releasePlayer();

  QmlConfig config_;
  QString cliUbid_;
  QString uclid_;
  QString url_;
  int progressTrackInterval_ = kDefaultProgressTrackInterval;
  VideoPlayerManager* manager_ = nullptr;  // a child of the view
  QPointer<QObject> videoOutput_;
  AdAppearance* appearance_ = nullptr;
  bool active_ = false;
};

}  // namespace tavik::quick
