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
  if (manager_) {
    // The manager (and its player) goes before the frames' item does. The pipeline is
    // taken down to its null state (no source) before its video sink is detached: a sink
    // let go while the pipeline is only paused is left undisposed, and GStreamer says so.
    manager_->player()->setSource(QUrl());
    delete videoOutput_.data();
    delete manager_;
    manager_ = nullptr;
  }
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
  // Without an SDK configuration the video still plays; its events have nowhere to go
  // and are dropped by the registrar.
  manager_ = new VideoPlayerManager(config_.config().value_or(Config{}), cliUbid_.toStdString(),
                                    uclid_.toStdString(), url_.toStdString(),
                                    progressTrackInterval_, nullptr, this);
  if (videoOutput_) manager_->player()->setVideoOutput(videoOutput_);
  connect(manager_->player(), &MediaPlayer::playingChanged, this, &VideoAdViewBase::playingChanged);
  Q_EMIT videoManagerChanged();

  appearance_ = new AdAppearance(this);
  appearance_->setVideo(true);
  appearance_->setReady();
  connect(appearance_, &AdAppearance::appeared, this, &VideoAdViewBase::appear);
  connect(appearance_, &AdAppearance::disappeared, this, [this] { disappear(); });
  setOnScreen(appearance_->onScreen());
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
  if (active_ || !manager_) return;
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
