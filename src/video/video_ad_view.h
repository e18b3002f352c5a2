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
///
/// The frames are drawn by the player's own output item (a `VideoOutput` attached to its
/// pipeline for the player's life, see `QtMediaPlayer`), which the view takes into its
/// tree, filling it, while it has the player. The view builds no output of its own, so
/// making one costs no more than any other item. Destroyed or taken out of its window (an
/// overlay dismissed), the view gives its player up at once: the pipeline is brought
/// down to its null state, the output item leaves the view, and the player with its
/// output returns to a small pool.
///
/// A view of a video whose preload kept its first picture (the picture-in-picture
/// manager's preload does) draws that picture, fitted like the video, from its first
/// frame until its own player's first picture reaches the output; then the picture goes.
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
  Q_PROPERTY(QQuickItem* videoOutput READ videoOutput NOTIFY videoOutputChanged)
  Q_PROPERTY(bool active READ active NOTIFY activeChanged)
  Q_PROPERTY(bool playing READ playing NOTIFY playingChanged)
  Q_PROPERTY(
      bool showsPreloadedPicture READ showsPreloadedPicture NOTIFY showsPreloadedPictureChanged)

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
  /// The item frames are drawn into, a child of the view while it has a Qt Multimedia
  /// player; null before, after and with any other player.
  QQuickItem* videoOutput() const { return videoOutput_; }
  /// True while the view is on screen and its video plays.
  bool active() const { return active_; }
  /// Whether the video is playing now (loaded, not paused).
  bool playing() const;
  /// Whether the view draws a preload's first picture of its video (until the player's
  /// first picture reaches the output).
  bool showsPreloadedPicture() const { return !picture_.isNull(); }

  /// Every video view in `root`'s tree (`root` included) gives its player up now; for an
  /// overlay about to leave its window, so that the players' outputs wait in the window
  /// they drew in. A view shown again makes a new player.
  static void releasePlayersIn(QQuickItem* root);

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
  void showsPreloadedPictureChanged();

 protected:
  void componentComplete() override;
  void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
  void itemChange(ItemChange change, const ItemChangeData& value) override;

 private:
  void setOnScreen(bool onScreen);
  void appear();
  void disappear(bool notify = true);
  void makeManager();
  // Takes `player`'s output item (a Qt player's) into the view, beneath anything else in
  // it.
  void borrowOutput(MediaPlayer* player);
  // Stops the player and gives it up with the manager; its output item leaves the view
  // once the pipeline is down.
  void releasePlayer(bool notify = true);
  // Drops the preloaded picture once `videoOutput_` has been given a picture of its own.
  void watchFirstPicture();
  void dropPreloadedPicture();

  QmlConfig config_;
  QString cliUbid_;
  QString uclid_;
  QString url_;
  int progressTrackInterval_ = kDefaultProgressTrackInterval;
  VideoPlayerManager* manager_ = nullptr;  // a child of the view
  QPointer<QQuickItem> videoOutput_;
  // The preloaded first picture, drawn over the output until it has a picture.
  QPointer<QQuickItem> picture_;
  QMetaObject::Connection firstPictureWatch_;
  AdAppearance* appearance_ = nullptr;
  bool active_ = false;
};

}  // namespace tavik::quick
