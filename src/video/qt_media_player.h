#pragma once

#include <QAudioOutput>
#include <QMediaPlayer>
#include <QString>
#include <QUrl>
#include <cstdint>

#include "tavik/video/media_player.h"
#include "views/creative_store.h"

namespace tavik::quick {

/// `MediaPlayer` on Qt Multimedia (GStreamer on Linux).
///
/// Sources: an https address is downloaded by the SDK's transport into a local file
/// first (GStreamer never goes to the network itself); a local file, a Qt resource or an
/// inline data address plays directly; the empty inline resource "data:," plays nothing
/// and stays `unknown`; any other address, a failed download and undecodable media give
/// `failed`.
class QtMediaPlayer final : public MediaPlayer {
  Q_OBJECT

 public:
  explicit QtMediaPlayer(QObject* parent = nullptr);
  ~QtMediaPlayer() override;

  void setSource(const QUrl& url) override;
  QUrl source() const override { return source_; }
  void setMuted(bool muted) override;
  bool isMuted() const override { return audio_.isMuted(); }
  void play() override;
  void pause() override;
  void seekToZero() override;
  bool isPlaying() const override;
  double position() const override;
  std::optional<double> duration() const override;
  Status status() const override { return status_; }
  QString errorString() const override { return error_; }
  void setVideoOutput(QObject* output) override;

 private:
  void load(const QUrl& local);
  void onMediaStatus(QMediaPlayer::MediaStatus status);
  void onPlayerError(const QString& text);
  void fail(const QString& error);
  void setStatus(Status status);
  void updatePlaying();

  // The audio output goes after the player that refers to it.
  QAudioOutput audio_;
  QMediaPlayer player_;
  QUrl source_;
  // The file or resource in `player_` (an https video once downloaded).
  QUrl local_;
  // The media is loaded: play, pause and seek go to `player_` from now on.
  bool mediaLoaded_ = false;
  // Playing was asked for (and not paused since); applied once the media is loaded.
  bool wantsToPlay_ = false;
  // The one reload after a failure of a freshly loaded file: done / under way.
  bool reloaded_ = false;
  bool reloading_ = false;
  // This player's want of its https video: given up with the source or the player,
  // which cancels a download no other view waits for.
  detail::CreativeHold<std::string> download_;
  // Tells a finished download whether its source is still the current one.
  std::uint64_t generation_ = 0;
  Status status_ = Status::unknown;
  QString error_;
  bool playing_ = false;
};

}  // namespace tavik::quick
