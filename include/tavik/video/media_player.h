#pragma once

// The media layer under the video player manager: the little the manager needs of a
// player, so that Qt Multimedia can be swapped for a scripted player in tests.

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QString>
#include <QUrl>
#include <optional>

namespace tavik {

/// One video player. Lives on the application thread and emits its signals there.
///
/// - `statusChanged` reports the item's status: `readyToPlay` once the media is loaded,
///   `failed` (with a text) when it cannot be played. A source the player cannot play
///   leaves it silent and idle; nothing is thrown.
/// - `positionChanged` reports the playback position in seconds, repeatedly while the
///   video plays (a fraction of a second apart) and after a seek.
/// - `playingChanged` follows play / pause / stop; `endOfMedia` is emitted when the
///   video has played to its end (the player then stands still).
class MediaPlayer : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("Players are made by VideoPlayerManager")
  Q_PROPERTY(bool muted READ isMuted NOTIFY mutedChanged)
  Q_PROPERTY(bool playing READ isPlaying NOTIFY playingChanged)

 public:
  enum class Status { unknown, readyToPlay, failed };
  Q_ENUM(Status)

  explicit MediaPlayer(QObject* parent = nullptr) : QObject(parent) {}

  virtual void setSource(const QUrl& url) = 0;
  virtual QUrl source() const = 0;

  virtual void setMuted(bool muted) = 0;
  virtual bool isMuted() const = 0;

  /// Starts or resumes playback; before the media is loaded, playback starts once it is.
  virtual void play() = 0;
  virtual void pause() = 0;
  virtual void seekToZero() = 0;
  virtual bool isPlaying() const = 0;

  /// The current position in seconds.
  virtual double position() const = 0;
  /// The duration in seconds; nullopt while unknown, and for media without an end.
  virtual std::optional<double> duration() const = 0;

  virtual Status status() const = 0;
  /// The error text once the status is `failed`, else empty.
  virtual QString errorString() const = 0;

  /// Where frames are drawn: a QML `VideoOutput` item, or nullptr to draw nowhere.
  Q_INVOKABLE virtual void setVideoOutput(QObject* output) = 0;

 Q_SIGNALS:
  void statusChanged(tavik::MediaPlayer::Status status, const QString& error);
  void positionChanged(double seconds);
  void playingChanged(bool playing);
  void mutedChanged(bool muted);
  void endOfMedia();
};

}  // namespace tavik
