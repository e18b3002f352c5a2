#include "video/video_ad_view.h"

#include "tavik/core/tavik.h"
#include "tavik/video/media_player.h"
#include "views/appearance.h"

namespace tavik::quick {

namespace {

QmlConfig installedConfig() {
  const TAVIK* sdk = TAVIK::installed();
  return QmlConfig(sdk ? sdk->config() : std::nullopt);
}

}  // namespace

VideoAdViewBase::VideoAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), config_(installedConfig()) {}

VideoAdViewBase::~VideoAdViewBase() {
  // The appearance must not report to a half-destroyed view while the item dies.
  delete appearance_;
  appearance_ = nullptr;
  disappear(/*notify=*/false);
  releasePlayer();
}

void VideoAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  Q_EMIT configChanged();
}

void VideoAdViewBase::setCliUbid(const QString& cliUbid) {
  if (cliUbid == cliUbid_) return;
  cliUbid_ = cliUbid;
  Q_EMIT cliUbidChanged();
}

void VideoAdViewBase::setUclid(const QString& uclid) {
  if (uclid == uclid_) return;
  uclid_ = uclid;
  Q_EMIT uclidChanged();
}

void VideoAdViewBase::setUrl(const QString& url) {
  if (url == url_) return;
  url_ = url;
  Q_EMIT urlChanged();
}

void VideoAdViewBase::setProgressTrackInterval(int seconds) {
  if (seconds == progressTrackInterval_) return;
  progressTrackInterval_ = seconds;
  Q_EMIT progressTrackIntervalChanged();
}

void VideoAdViewBase::setVideoOutput(QObject* output) {
  if (output == videoOutput_) return;
  videoOutput_ = output;
  if (manager_) manager_->player()->setVideoOutput(output);
  Q_EMIT videoOutputChanged();
}

void VideoAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  appearance_ = new AdAppearance(this);
  appearance_->setVideo(true);
  appearance_->setReady();
  connect(appearance_, &AdAppearance::appeared, this, &VideoAdViewBase::appear);
  connect(appearance_, &AdAppearance::disappeared, this, [this] { disappear(); });
  setOnScreen(appearance_->onScreen());
}

void VideoAdViewBase::makeManager() {
  // Without an SDK configuration the video still plays; its events have nowhere to go
  // and are dropped by the registrar.
  manager_ = new VideoPlayerManager(config_.config().value_or(Config{}), cliUbid_.toStdString(),
                                    uclid_.toStdString(), url_.toStdString(),
                                    progressTrackInterval_, nullptr, this);
  if (videoOutput_) manager_->player()->setVideoOutput(videoOutput_);
  connect(manager_->player(), &MediaPlayer::playingChanged, this, &VideoAdViewBase::playingChanged);
  Q_EMIT videoManagerChanged();
}

void VideoAdViewBase::releasePlayer() {
  if (!manager_) return;
  // In this order: the pipeline down to its null state (no source); then the frames'
  // output, which detaches its sink from the pipeline as it goes, after any last change of
  // its renderer, so the sink ends in the null state too; then the manager, which gives
  // its player back. A sink detached first and changed afterwards (the output leaving its
  // window swaps its renderer) is left in its ready state, and GStreamer complains when it
  // is disposed there.
  MediaPlayer* player = manager_->player();
  QObject::disconnect(player, nullptr, this, nullptr);
  player->pause();
  player->setSource(QUrl());
  delete videoOutput_.data();
  delete manager_;
  manager_ = nullptr;
}

bool VideoAdViewBase::playing() const {
  return manager_ && manager_->player()->isPlaying();
}

void VideoAdViewBase::setOnScreen(bool onScreen) {
  if (onScreen) {
    appear();
  } else {
    disappear();
  }
}

void VideoAdViewBase::appear() {
  if (active_) return;
  // The player is made the first time the view is on screen: a view made off screen
  // (a card in a list's cache buffer) builds no media pipeline until it is seen.
  if (!manager_) makeManager();
  active_ = true;
  manager_->startProgressTracking();
  manager_->observePlaybackEnd();
  manager_->player()->play();
  Q_EMIT activeChanged();
}

void VideoAdViewBase::disappear(bool notify) {
  if (!active_ || !manager_) return;
  active_ = false;
  manager_->player()->pause();
  manager_->cleanup();
  if (notify) Q_EMIT activeChanged();
}

}  // namespace tavik::quick
