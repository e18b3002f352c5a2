#include "tavik/video/video_player_manager.h"

#include <QCoreApplication>
#include <cmath>
#include <utility>

#include "tavik/events/register_event.h"
#include "video/progress_clock.h"
#include "video/qt_media_player.h"
#include "views/view_events.h"

namespace tavik {

namespace {

VideoPlayerManager::MediaPlayerFactory& playerFactory() {
  static VideoPlayerManager::MediaPlayerFactory factory;
  return factory;
}

std::unique_ptr<MediaPlayer> makePlayer() {
  if (const auto& factory = playerFactory()) {
    if (auto player = factory()) return player;
  }
  return quick::QtMediaPlayer::take();
}

// The video's address, or the empty inline resource when the text is no address at all.
QUrl parseVideoUrl(const std::string& text) {
  QUrl url(QString::fromStdString(text), QUrl::StrictMode);
  if (text.empty() || !url.isValid()) return QUrl(QStringLiteral("data:,"));
  return url;
}

VideoPlayerManager::PlayerStatus published(MediaPlayer::Status status) {
  switch (status) {
    case MediaPlayer::Status::readyToPlay:
      return VideoPlayerManager::ReadyToPlay;
    case MediaPlayer::Status::failed:
      return VideoPlayerManager::Failed;
    case MediaPlayer::Status::unknown:
      break;
  }
  return VideoPlayerManager::Unknown;
}

}  // namespace

namespace quick::detail {

std::unique_ptr<MediaPlayer> makeMediaPlayer() {
  return makePlayer();
}

}  // namespace quick::detail

VideoPlayerManager::VideoPlayerManager(Config config, std::string cliUbid, std::string uclid,
                                       const std::string& url, int progressTrackInterval,
                                       std::unique_ptr<MediaPlayer> player, QObject* parent)
    : QObject(parent),
      config_(std::move(config)),
      cliUbid_(std::move(cliUbid)),
      uclid_(std::move(uclid)),
      url_(parseVideoUrl(url)),
      progressTrackInterval_(progressTrackInterval) {
  if (!player) player = makePlayer();
  player_ = player.release();
  player_->setParent(this);
  player_->setMuted(isMuted_);
  statusConnection_ =
      connect(player_, &MediaPlayer::statusChanged, this, &VideoPlayerManager::onPlayerStatus);
  player_->setSource(url_);
  // A player that settled while the source was being set (a local file that cannot be
  // opened) has already spoken; take its status as it stands.
  onPlayerStatus(player_->status(), player_->errorString());
}

VideoPlayerManager::~VideoPlayerManager() {
  cleanup();
  // A Qt Multimedia player goes back to the pool, brought down to its null state and
  // detached from its output; any other player goes with the manager.
  if (auto* qtPlayer = qobject_cast<quick::QtMediaPlayer*>(player_)) {
    player_ = nullptr;
    quick::QtMediaPlayer::giveBack(qtPlayer);
  }
}

void VideoPlayerManager::setMediaPlayerFactory(MediaPlayerFactory factory) {
  playerFactory() = std::move(factory);
}

void VideoPlayerManager::toggleMute() {
  isMuted_ = !isMuted_;
  if (player_) player_->setMuted(isMuted_);
  Q_EMIT isMutedChanged();
  // The event is built and handed to the transport after the tap has returned, with the
  // values of the tap; it is sent even if the view goes in between.
  const TavikVideoActionType action =
      isMuted_ ? TavikVideoActionType::mute : TavikVideoActionType::unmute;
  QMetaObject::invokeMethod(
      QCoreApplication::instance(),
      [config = config_, cliUbid = cliUbid_, uclid = uclid_, at = videoPlayTime_, action] {
        quick::detail::withRegistrar(config, [&](RegisterEventProtocol& registrar) {
          registrar.registerVideoActionEvent(cliUbid, uclid, at, action);
        });
      },
      Qt::QueuedConnection);
}

void VideoPlayerManager::startProgressTracking() {
  if (progressClock_ || !player_ || progressTrackInterval_ <= 0) return;
  progressClock_ = std::make_unique<quick::ProgressClock>(progressTrackInterval_);
  positionConnection_ = connect(player_, &MediaPlayer::positionChanged, this, [this](double at) {
    if (auto tick = progressClock_->moved(at)) onProgressTick(*tick);
  });
  playingConnection_ = connect(player_, &MediaPlayer::playingChanged, this, [this](bool playing) {
    if (!playing) return;
    if (auto tick = progressClock_->started(player_->position())) onProgressTick(*tick);
  });
  // Installed on a video that already plays: the observer's first call is now.
  if (player_->isPlaying()) {
    if (auto tick = progressClock_->started(player_->position())) onProgressTick(*tick);
  }
}

void VideoPlayerManager::observePlaybackEnd() {
  if (endConnection_ || !player_) return;
  endConnection_ = connect(player_, &MediaPlayer::endOfMedia, this, [this] {
    player_->seekToZero();
    player_->play();
  });
}

void VideoPlayerManager::cleanup() {
  if (player_) player_->pause();
  disconnect(positionConnection_);
  disconnect(playingConnection_);
  progressClock_.reset();
  disconnect(endConnection_);
  endConnection_ = {};
  disconnect(statusConnection_);
  setVideoPlayTime(0);
}

float VideoPlayerManager::videoDuration() const {
  if (!player_) return 0;
  const std::optional<double> seconds = player_->duration();
  if (!seconds || !std::isfinite(*seconds) || *seconds < 0) return 0;
  return static_cast<float>(*seconds);
}

void VideoPlayerManager::onPlayerStatus(MediaPlayer::Status status, const QString& error) {
  const PlayerStatus now = published(status);
  if (now == Failed && playerError_ != error) {
    playerError_ = error;
    Q_EMIT playerErrorChanged();
  }
  if (now != playerStatus_) {
    playerStatus_ = now;
    Q_EMIT playerStatusChanged();
  }
}

void VideoPlayerManager::onProgressTick(double seconds) {
  const float videoViewSec = static_cast<float>(seconds);
  const float videoDurationSec = videoDuration();
  setVideoPlayTime(videoViewSec);
  quick::detail::withRegistrar(config_, [&](RegisterEventProtocol& registrar) {
    registrar.registerVideoProgressEvent(cliUbid_, uclid_, videoViewSec, videoDurationSec);
  });
}

void VideoPlayerManager::setVideoPlayTime(float seconds) {
  if (seconds == videoPlayTime_) return;
  videoPlayTime_ = seconds;
  Q_EMIT videoPlayTimeChanged();
}

}  // namespace tavik
