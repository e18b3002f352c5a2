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
  /// The load state of the media.
  enum class Status { unknown, readyToPlay, failed };
  Q_ENUM(Status)

  /// A player owned by `parent`.
  explicit MediaPlayer(QObject* parent = nullptr) : QObject(parent) {}

  /// Loads `url`; the status follows through `statusChanged`.
  virtual void setSource(const QUrl& url) = 0;
  /// The address being played.
  virtual QUrl source() const = 0;

  /// Turns the sound off or on; `mutedChanged` follows.
  virtual void setMuted(bool muted) = 0;
  /// Whether the sound is off.
  virtual bool isMuted() const = 0;

  /// Starts or resumes playback; before the media is loaded, playback starts once it is.
  virtual void play() = 0;
  /// Pauses at the current position.
  virtual void pause() = 0;
  /// Moves the position back to the start.
  virtual void seekToZero() = 0;
  /// Whether the video is playing.
  virtual bool isPlaying() const = 0;

  /// The current position in seconds.
  virtual double position() const = 0;
  /// The duration in seconds; nullopt while unknown, and for media without an end.
  virtual std::optional<double> duration() const = 0;

  /// The current load state.
  virtual Status status() const = 0;
  /// The error text once the status is `failed`, else empty.
  virtual QString errorString() const = 0;

  /// Where frames are drawn: a QML `VideoOutput` item, or nullptr to draw nowhere.
  Q_INVOKABLE virtual void setVideoOutput(QObject* output) = 0;

 Q_SIGNALS:
  /// The status changed; `error` is the text for `failed`, else empty.
  void statusChanged(tavik::MediaPlayer::Status status, const QString& error);
  /// The playback position is now `seconds`.
  void positionChanged(double seconds);
  /// Playback started (`playing` true) or stopped.
  void playingChanged(bool playing);
  /// The sound was turned off (`muted` true) or on.
  void mutedChanged(bool muted);
  /// The video played to its end; the player stands still.
  void endOfMedia();
};

}  // namespace tavik
