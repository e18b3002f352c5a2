#include "support/scripted_media_player.h"

#include <algorithm>
#include <cmath>

#include "tavik/video/video_player_manager.h"

namespace tavik::test {

namespace {
QPointer<ScriptedMediaPlayer>& newest() {
  static QPointer<ScriptedMediaPlayer> player;
  return player;
}
}  // namespace

ScriptedMediaPlayer::ScriptedMediaPlayer(std::optional<double> duration, QObject* parent)
    : MediaPlayer(parent), duration_(duration) {
  newest() = this;
}

void ScriptedMediaPlayer::installForEveryManager(std::optional<double> duration) {
  VideoPlayerManager::setMediaPlayerFactory(
      [duration] { return std::make_unique<ScriptedMediaPlayer>(duration); });
}

void ScriptedMediaPlayer::uninstall() {
  VideoPlayerManager::setMediaPlayerFactory({});
}

ScriptedMediaPlayer* ScriptedMediaPlayer::last() {
  return newest();
}

void ScriptedMediaPlayer::setMuted(bool muted) {
  if (muted == muted_) return;
  muted_ = muted;
  Q_EMIT mutedChanged(muted);
}

void ScriptedMediaPlayer::play() {
  ++playCalls;
  if (status_ == Status::failed) return;
  setPlaying(true);
}

void ScriptedMediaPlayer::pause() {
  ++pauseCalls;
  setPlaying(false);
}

void ScriptedMediaPlayer::seekToZero() {
  ++seekToZeroCalls;
  setPositionMs(0);
}

void ScriptedMediaPlayer::playFor(double seconds, int stepMs) {
  long long left = std::llround(seconds * 1000);
  while (left > 0 && playing_) {
    const long long step = std::min<long long>(stepMs, left);
    left -= step;
    const long long endMs = duration_ ? std::llround(*duration_ * 1000) : -1;
    if (endMs >= 0 && positionMs_ + step >= endMs) {
      // The last frame: position at the end, playback stops, then the end is announced.
      setPositionMs(endMs);
      setPlaying(false);
      Q_EMIT endOfMedia();
    } else {
      setPositionMs(positionMs_ + step);
    }
  }
}

void ScriptedMediaPlayer::jumpTo(double seconds) {
  setPositionMs(std::llround(seconds * 1000));
}

void ScriptedMediaPlayer::becomeReady() {
  status_ = Status::readyToPlay;
  Q_EMIT statusChanged(status_, error_);
}

void ScriptedMediaPlayer::failWith(const QString& error) {
  status_ = Status::failed;
  error_ = error;
  setPlaying(false);
  Q_EMIT statusChanged(status_, error_);
}

void ScriptedMediaPlayer::setPlaying(bool playing) {
  if (playing == playing_) return;
  playing_ = playing;
  Q_EMIT playingChanged(playing);
}

void ScriptedMediaPlayer::setPositionMs(long long ms) {
  positionMs_ = ms;
  Q_EMIT positionChanged(static_cast<double>(ms) / 1000.0);
}

}  // namespace tavik::test
