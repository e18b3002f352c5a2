#pragma once

#include <QtQml/qqmlregistration.h>
#include <QMetaObject>
#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>
#include <string>

#include "tavik/core/config.h"
#include "tavik/video/media_player.h"

namespace tavik {

namespace quick {
class ProgressClock;
}

/// The state of one video ad's player, published to the views, and the video's events.
///
/// - Made with the SDK configuration, the shopper id, the ad's id, the video's address
///   and the period of the progress events. An address that does not parse becomes
///   "data:,", a player that plays nothing. The player is made at once, muted.
/// - `startProgressTracking()` installs the progress observer (once): it fires when
///   playback starts, at least once per `progressTrackInterval` seconds of playback and
///   when the position jumps back (a seek, the loop). Each time it stores the position
///   in `videoPlayTime` and reports a progress event with the position and the duration.
///   A non-positive interval installs nothing.
/// - `observePlaybackEnd()` makes the video loop: at its end it goes back to zero and
///   plays on.
/// - `toggleMute()` flips the sound and reports "mute" or "unmute" with `videoPlayTime`
///   (the position at the last progress tick, not the exact position now). The event is
///   built and sent just after the call returns, so a tap stays short.
/// - `cleanup()` pauses, removes both observers, stops following the player's status and
///   sets `videoPlayTime` to 0. The player stays: tracking can start again. Destroying the
///   manager cleans up first; a Qt Multimedia player is then stopped, emptied, detached
///   from its output and kept for the next manager (a small pool) rather than destroyed.
///
/// Lives on the application thread; events are sent without waiting for them, each
/// with its own registrar, and no failure of theirs is reported.
class VideoPlayerManager : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("Made by VideoAdView")
  Q_PROPERTY(bool isMuted READ isMuted NOTIFY isMutedChanged)
  Q_PROPERTY(PlayerStatus playerStatus READ playerStatus NOTIFY playerStatusChanged)
  Q_PROPERTY(QString playerError READ playerError NOTIFY playerErrorChanged)
  Q_PROPERTY(float videoPlayTime READ videoPlayTime NOTIFY videoPlayTimeChanged)
  Q_PROPERTY(tavik::MediaPlayer* player READ player CONSTANT)
  Q_PROPERTY(QString cliUbid READ cliUbidProperty CONSTANT)
  Q_PROPERTY(QString uclid READ uclidProperty CONSTANT)
  Q_PROPERTY(QUrl url READ url CONSTANT)
  Q_PROPERTY(int progressTrackInterval READ progressTrackInterval CONSTANT)

 public:
  /// The player's status. Capitalised so that QML can name the values
  /// (`VideoPlayerManager.Failed`).
  enum PlayerStatus { Unknown, ReadyToPlay, Failed };
  Q_ENUM(PlayerStatus)

  /// Makes the player of a manager given none of its own.
  using MediaPlayerFactory = std::function<std::unique_ptr<MediaPlayer>()>;

  /// `player` replaces the Qt Multimedia player (nullptr: the factory's, or Qt's).
  VideoPlayerManager(Config config, std::string cliUbid, std::string uclid, const std::string& url,
                     int progressTrackInterval, std::unique_ptr<MediaPlayer> player = nullptr,
                     QObject* parent = nullptr);
  ~VideoPlayerManager() override;

  /// Process-wide: the player every later manager made without one of its own gets.
  /// An empty function restores the Qt Multimedia player. For tests; set it before any
  /// view is made.
  static void setMediaPlayerFactory(MediaPlayerFactory factory);

  /// The SDK configuration the video's events are sent with.
  const Config& config() const { return config_; }
  /// The shopper id the video's events carry.
  const std::string& cliUbid() const { return cliUbid_; }
  /// The ad's id the video's events carry.
  const std::string& uclid() const { return uclid_; }
  /// The video's address ("data:," when the given one did not parse).
  const QUrl& url() const { return url_; }
  /// Seconds of playback between progress events; non-positive means no progress events.
  int progressTrackInterval() const { return progressTrackInterval_; }
  /// The player, owned by the manager; never null.
  MediaPlayer* player() const { return player_; }

  /// Whether the sound is off; true from the start.
  bool isMuted() const { return isMuted_; }
  /// The player's status: `Unknown` until the media loaded or failed.
  PlayerStatus playerStatus() const { return playerStatus_; }
  /// The player's error once its status is `Failed`; empty before.
  QString playerError() const { return playerError_; }
  /// Seconds: the position at the last progress tick, 0 after `cleanup()`.
  float videoPlayTime() const { return videoPlayTime_; }

  /// Whether the progress observer / the end observer is installed.
  bool isTrackingProgress() const { return progressClock_ != nullptr; }
  /// Whether the end observer (the loop) is installed.
  bool isObservingPlaybackEnd() const { return static_cast<bool>(endConnection_); }

  /// Flips the sound and reports "mute" or "unmute" at `videoPlayTime`.
  Q_INVOKABLE void toggleMute();
  /// Installs the progress observer, once; see the class.
  Q_INVOKABLE void startProgressTracking();
  /// Makes the video loop: at its end it goes back to zero and plays on.
  Q_INVOKABLE void observePlaybackEnd();
  /// Pauses, removes both observers and resets `videoPlayTime`; see the class.
  Q_INVOKABLE void cleanup();
  /// The video's duration in seconds; 0 while unknown and for a video without an end.
  Q_INVOKABLE float videoDuration() const;

 Q_SIGNALS:
  /// `isMuted` changed.
  void isMutedChanged();
  /// `playerStatus` changed.
  void playerStatusChanged();
  /// `playerError` changed.
  void playerErrorChanged();
  /// `videoPlayTime` changed.
  void videoPlayTimeChanged();

 private:
  void onPlayerStatus(MediaPlayer::Status status, const QString& error);
  void onProgressTick(double seconds);
  void setVideoPlayTime(float seconds);
  QString cliUbidProperty() const { return QString::fromStdString(cliUbid_); }
  QString uclidProperty() const { return QString::fromStdString(uclid_); }

  Config config_;
  std::string cliUbid_;
  std::string uclid_;
  QUrl url_;
  int progressTrackInterval_;
  MediaPlayer* player_ = nullptr;  // a child of the manager
  bool isMuted_ = true;
  PlayerStatus playerStatus_ = Unknown;
  QString playerError_;
  float videoPlayTime_ = 0;

  std::unique_ptr<quick::ProgressClock> progressClock_;
  QMetaObject::Connection positionConnection_;
  QMetaObject::Connection playingConnection_;
  QMetaObject::Connection endConnection_;
  QMetaObject::Connection statusConnection_;
};

}  // namespace tavik
