#include "video/video_ad_view.h"

#include <QImage>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QVideoFrame>
#include <QVideoSink>

#include "tavik/core/tavik.h"
#include "tavik/video/media_player.h"
#include "video/qt_media_player.h"
#include "views/appearance.h"
#include "views/media_support.h"
#include "views/preload.h"

namespace tavik::quick {

namespace {

// A still picture fitted and centred in the item, as the video output places its frames.
class StillPicture final : public QQuickItem {
 public:
  StillPicture(QImage picture, QQuickItem* parent)
      : QQuickItem(parent), picture_(std::move(picture)) {
    setFlag(ItemHasContents);
    setObjectName(QStringLiteral("preloadedVideoPicture"));
  }

 protected:
  QSGNode* updatePaintNode(QSGNode* old, UpdatePaintNodeData*) override {
    auto* node = static_cast<QSGImageNode*>(old);
    if (picture_.isNull() || width() <= 0 || height() <= 0) {
      delete node;
      return nullptr;
    }
    if (!node) {
      node = window()->createImageNode();
      node->setTexture(window()->createTextureFromImage(picture_));
      node->setOwnsTexture(true);
      node->setFiltering(QSGTexture::Linear);
    }
    const QSizeF fitted = QSizeF(picture_.size()).scaled(size(), Qt::KeepAspectRatio);
    node->setRect(
        QRectF(QPointF((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted));
    node->setSourceRect(QRectF(QPointF(0, 0), picture_.size()));
    return node;
  }

 private:
  const QImage picture_;
};

}  // namespace

VideoAdViewBase::VideoAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), config_(installedConfig()) {}

VideoAdViewBase::~VideoAdViewBase() {
  // The appearance must not report to a half-destroyed view while the item dies.
  delete appearance_;
  appearance_ = nullptr;
  disappear(/*notify=*/false);
  releasePlayer(/*notify=*/false);
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

void VideoAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  appearance_ = new AdAppearance(this);
  appearance_->setVideo(true);
  appearance_->setReady();
  connect(appearance_, &AdAppearance::appeared, this, &VideoAdViewBase::appear);
  connect(appearance_, &AdAppearance::disappeared, this, [this] { disappear(); });
  // A preload's first picture of this video, drawn from the first frame on; read before
  // the player (made on screen) takes the preload over.
  if (const QImage picture = detail::preloadedVideoPicture(url_.toStdString()); !picture.isNull()) {
    picture_ = new StillPicture(picture, this);
    picture_->setSize(size());
    Q_EMIT showsPreloadedPictureChanged();
  }
  setOnScreen(appearance_->onScreen());
}

void VideoAdViewBase::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickItem::geometryChange(newGeometry, oldGeometry);
  if (videoOutput_) videoOutput_->setSize(newGeometry.size());
  if (picture_) picture_->setSize(newGeometry.size());
}

void VideoAdViewBase::itemChange(ItemChange change, const ItemChangeData& value) {
  QQuickItem::itemChange(change, value);
  // Out of its window (an overlay dismissed, a view taken out of the scene), the view
  // can show nothing: its player goes back now rather than when the view is deleted,
  // which may be much later. A view shown again makes a new one.
  if (change == ItemSceneChange && !value.window && manager_) {
    disappear();
    releasePlayer();
  }
}

void VideoAdViewBase::makeManager() {
  std::unique_ptr<MediaPlayer> player = detail::makeMediaPlayer();
  // The output comes into the view before the manager gives the player its source: it may
  // come from another window (or none), and it never changes window with its pipeline up.
  borrowOutput(player.get());
  // Without an SDK configuration the video still plays; its events have nowhere to go
  // and are dropped by the registrar.
  manager_ = new VideoPlayerManager(
      config_.config() ? *config_.config() : Config{}, cliUbid_.toStdString(), uclid_.toStdString(),
      url_.toStdString(), progressTrackInterval_, std::move(player), this);
  connect(manager_->player(), &MediaPlayer::playingChanged, this, &VideoAdViewBase::playingChanged);
  if (videoOutput_) Q_EMIT videoOutputChanged();
  Q_EMIT videoManagerChanged();
}

void VideoAdViewBase::borrowOutput(MediaPlayer* player) {
  auto* qtPlayer = qobject_cast<QtMediaPlayer*>(player);
  QQuickItem* output = qtPlayer ? qtPlayer->outputItem() : nullptr;
  if (!output) return;
  const QList<QQuickItem*> children = childItems();
  output->setParentItem(this);
  if (!children.isEmpty()) output->stackBefore(children.first());
  output->setPosition(QPointF(0, 0));
  output->setSize(size());
  output->setVisible(true);
  videoOutput_ = output;
  watchFirstPicture();
}

void VideoAdViewBase::watchFirstPicture() {
  if (!picture_ || !videoOutput_) return;
  auto* sink = videoOutput_->property("videoSink").value<QVideoSink*>();
  if (!sink) return;
  // The sink reports from the pipeline's thread; the output draws the picture in the
  // frame after the report reaches this thread, which is when the still one goes.
  firstPictureWatch_ = connect(
      sink, &QVideoSink::videoFrameChanged, this,
      [this](const QVideoFrame& frame) {
        if (frame.isValid()) dropPreloadedPicture();
      },
      Qt::QueuedConnection);
}

void VideoAdViewBase::dropPreloadedPicture() {
  disconnect(firstPictureWatch_);
  if (!picture_) return;
  delete picture_.data();
  Q_EMIT showsPreloadedPictureChanged();
}

void VideoAdViewBase::releasePlayer(bool notify) {
  if (!manager_) return;
  // The manager gives its player back, which brings the pipeline down to its null state
  // (no source) and then takes the output item out of this view. The sink stays attached
  // to its pipeline throughout.
  MediaPlayer* player = manager_->player();
  QObject::disconnect(player, nullptr, this, nullptr);
  // The output goes back to the pool; a picture it gets later is another view's.
  disconnect(firstPictureWatch_);
  player->pause();
  const bool hadOutput = !videoOutput_.isNull();
  delete manager_;
  videoOutput_ = nullptr;
  manager_ = nullptr;
  if (!notify) return;
  if (hadOutput) Q_EMIT videoOutputChanged();
  Q_EMIT videoManagerChanged();
  Q_EMIT playingChanged();
}

void VideoAdViewBase::releasePlayersIn(QQuickItem* root) {
  if (!root) return;
  if (auto* view = qobject_cast<VideoAdViewBase*>(root); view && view->manager_) {
    view->disappear();
    view->releasePlayer();
  }
  const QList<QQuickItem*> children = root->childItems();
  for (QQuickItem* child : children) releasePlayersIn(child);
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
