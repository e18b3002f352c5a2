#pragma once

// A MediaPlayer whose clock the test drives: nothing plays by itself, `playFor` moves
// the position in fixed steps and reaches the end of the media like a real player
// (position at the end, playback stopped, then the end signal), so the manager's loop
// can pick it up. Positions are kept in whole milliseconds, as Qt reports them.

#include <QPointer>
#include <QUrl>
#include <optional>

#include "tavik/video/media_player.h"

namespace tavik::test {

class ScriptedMediaPlayer : public MediaPlayer {
  Q_OBJECT

 public:
  explicit ScriptedMediaPlayer(std::optional<double> duration = 10.0, QObject* parent = nullptr);

  /// Makes every VideoPlayerManager made from now on (views included) use a scripted
  /// player of `duration`; `last()` is the newest of them. `uninstall()` restores Qt's.
  static void installForEveryManager(std::optional<double> duration = 10.0);
  static void uninstall();
  static ScriptedMediaPlayer* last();

  // ---- MediaPlayer
  void setSource(const QUrl& url) override { source_ = url; }
  QUrl source() const override { return source_; }
  void setMuted(bool muted) override;
  bool isMuted() const override { return muted_; }
  void play() override;
  void pause() override;
  void seekToZero() override;
  bool isPlaying() const override { return playing_; }
  double position() const override { return positionMs_ / 1000.0; }
  std::optional<double> duration() const override { return duration_; }
  Status status() const override { return status_; }
  QString errorString() const override { return error_; }
  void setVideoOutput(QObject* output) override { videoOutput_ = output; }

  // ---- the script
  /// Plays `seconds` of playback time in steps of `stepMs`, reporting each position.
  /// Stops early when playback stops (paused, or the end with nobody restarting it).
  void playFor(double seconds, int stepMs = 100);
  /// A seek by someone else (a scrubber, the platform).
  void jumpTo(double seconds);
  void setDuration(std::optional<double> duration) { duration_ = duration; }
  void becomeReady();
  void failWith(const QString& error);

  // ---- what the player was asked
  int playCalls = 0;
  int pauseCalls = 0;
  int seekToZeroCalls = 0;
  QObject* videoOutput() const { return videoOutput_; }

 private:
  void setPlaying(bool playing);
  void setPositionMs(long long ms);

  std::optional<double> duration_;
  QUrl source_;
  bool muted_ = false;
  bool playing_ = false;
  long long positionMs_ = 0;
  Status status_ = Status::unknown;
  QString error_;
  QPointer<QObject> videoOutput_;
};

}  // namespace tavik::test
