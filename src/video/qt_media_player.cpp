#include "video/qt_media_player.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMetaObject>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QThread>
#include <QThreadPool>
#include <QVideoFrame>
#include <QVideoSink>
#include <algorithm>
#include <atomic>
#include <exception>
#include <string>
#include <vector>

#include "tavik/views/qt_bridge.h"
#include "views/creative_store.h"
#include "views/logging.h"

namespace tavik::quick {

namespace {

QString describe(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return QString::fromStdString(e.what());
  } catch (...) {
    return QStringLiteral("unknown error");
  }
}

// "data:," and the like: an inline resource with nothing after the comma.
bool isEmptyInlineResource(const QUrl& url) {
  if (url.scheme() != QLatin1String("data")) return false;
  const QString path = url.path();
  const qsizetype comma = path.indexOf(QLatin1Char(','));
  return comma < 0 || comma == path.size() - 1;
}

}  // namespace

namespace {

// The idle players; destroyed with the application, before Qt Multimedia goes. The
// output items are made by an engine of the pool's own, so that they do not depend on
// the engine of the view that first borrowed them.
struct Pool {
  std::vector<QtMediaPlayer*> idle;
  // Given back while their media loaded; idle once it has settled.
  std::vector<QtMediaPlayer*> settling;
  // Lent to `grabFirstPicture`.
  std::vector<QtMediaPlayer*> grabbing;
  int created = 0;
  int outputs = 0;
  bool cleanupRegistered = false;
  QQmlEngine* engine = nullptr;
  QQmlComponent* output = nullptr;
};

Pool& pool() {
  static Pool instance;
  return instance;
}

void destroyIdlePlayers() {
  Pool& p = pool();
  std::vector<QtMediaPlayer*> idle;
  idle.swap(p.idle);
  idle.insert(idle.end(), p.settling.begin(), p.settling.end());
  idle.insert(idle.end(), p.grabbing.begin(), p.grabbing.end());
  p.settling.clear();
  p.grabbing.clear();
  for (QtMediaPlayer* player : idle) delete player;
  // Output items still borrowed outlive the engine; they have no bindings that need it.
  delete p.engine;
  p.engine = nullptr;
  p.output = nullptr;
}

void registerCleanup() {
  Pool& p = pool();
  if (p.cleanupRegistered) return;
  p.cleanupRegistered = true;
  qAddPostRoutine(destroyIdlePlayers);
}

// A new `VideoOutput`, the frames fitted without distortion; null if Qt Multimedia's QML
// module cannot be loaded.
QQuickItem* makeOutputItem() {
  Pool& p = pool();
  if (!p.engine) {
    registerCleanup();
    p.engine = new QQmlEngine;
    p.output = new QQmlComponent(p.engine, p.engine);
    p.output->setData(
        "import QtMultimedia\nVideoOutput { fillMode: VideoOutput.PreserveAspectFit }\n",
        QUrl(QStringLiteral("qrc:/tavik/video/PooledVideoOutput.qml")));
  }
  QObject* object = p.output->create();
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) {
    qWarning("tavik: cannot make a video output: %s", qPrintable(p.output->errorString()));
    delete object;
    return nullptr;
  }
  QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
  item->setObjectName(QStringLiteral("videoOutput"));
  ++p.outputs;
  return item;
}

// A hidden item in `window` where idle output items wait. An output that stays in its
// window keeps its renderer: taken into the next view in the same window, it switches
// nothing. Each change of window makes Qt's sink build a new renderer, and a renderer
// that could not start (its start waits for this thread, which may be busy) is what
// GStreamer finds in its ready state when it is disposed.
QQuickItem* parkingIn(QQuickWindow* window) {
  QQuickItem* content = window->contentItem();
  const QString name = QStringLiteral("tavikIdleVideoOutputs");
  if (auto* found = content->findChild<QQuickItem*>(name, Qt::FindDirectChildrenOnly)) {
    return found;
  }
  auto* parking = new QQuickItem(content);
  parking->setObjectName(name);
  parking->setVisible(false);
  return parking;
}

bool removeFrom(std::vector<QtMediaPlayer*>& list, QtMediaPlayer* player) {
  const auto it = std::find(list.begin(), list.end(), player);
  if (it == list.end()) return false;
  list.erase(it);
  return true;
}

}  // namespace

std::unique_ptr<QtMediaPlayer> QtMediaPlayer::take() {
  Pool& p = pool();
  if (!p.idle.empty()) {
    QtMediaPlayer* player = p.idle.back();
    p.idle.pop_back();
    return std::unique_ptr<QtMediaPlayer>(player);
  }
  ++p.created;
  return std::make_unique<QtMediaPlayer>();
}

void QtMediaPlayer::giveBack(QtMediaPlayer* player) {
  if (!player) return;
  Pool& p = pool();
  player->setParent(nullptr);
  // Whoever listened to this player is done with it.
  QObject::disconnect(player, nullptr, nullptr, nullptr);
  player->audio_.setMuted(true);
  if (QCoreApplication::instance() && player->player_.mediaStatus() == QMediaPlayer::LoadingMedia) {
    // The decoder may still be adding its pads on a streaming thread: a new source now
    // (the empty one included) could deadlock this thread against it. The player waits,
    // silent, until Qt reports the media loaded or failed, and is brought down after
    // that report has been handled.
    player->letGo();
    registerCleanup();
    p.settling.push_back(player);
    // Heard on the application object: `keep` may destroy the player.
    player->settleWatch_ = connect(
        &player->player_, &QMediaPlayer::mediaStatusChanged, QCoreApplication::instance(),
        [watched = QPointer<QtMediaPlayer>(player)](QMediaPlayer::MediaStatus status) {
          if (!watched || status == QMediaPlayer::LoadingMedia) return;
          QObject::disconnect(watched->settleWatch_);
          // A report queued before the first one was handled finds it gone.
          if (!removeFrom(pool().settling, watched.data())) return;
          keep(watched.data());
        },
        Qt::QueuedConnection);
    return;
  }
  keep(player);
}

void QtMediaPlayer::keep(QtMediaPlayer* player) {
  Pool& p = pool();
  player->bringDown();
  player->audio_.setMuted(true);
  if (!QCoreApplication::instance() || int(p.idle.size()) >= kPoolSize) {
    delete player;
    return;
  }
  registerCleanup();
  p.idle.push_back(player);
}

int QtMediaPlayer::idleCount() {
  return int(pool().idle.size());
}

int QtMediaPlayer::settlingCount() {
  return int(pool().settling.size());
}

int QtMediaPlayer::grabbingCount() {
  return int(pool().grabbing.size());
}

void QtMediaPlayer::grabFirstPicture(const QUrl& file, std::function<void(const QImage&)> done) {
  Pool& p = pool();
  const auto found = std::find_if(p.idle.begin(), p.idle.end(),
                                  [](QtMediaPlayer* idle) { return idle->hasOutputItem(); });
  QVideoSink* sink = found == p.idle.end()
                         ? nullptr
                         : (*found)->output_.item->property("videoSink").value<QVideoSink*>();
  if (!sink || file.isEmpty()) {
    if (done) done(QImage());
    return;
  }
  QtMediaPlayer* player = *found;
  p.idle.erase(found);
  p.grabbing.push_back(player);
  player->grabDone_ = std::move(done);
  // The output stays where it waits, hidden: its sink gets the pictures all the same,
  // and it changes no window. The sink reports on the pipeline's thread, where only the
  // first picture is taken; a picture in memory is copied on Qt's thread pool, one held
  // in a texture on this thread, which converting it needs.
  auto taken = std::make_shared<std::atomic_bool>(false);
  player->grabWatch_ << connect(
      sink, &QVideoSink::videoFrameChanged, player,
      [taken, target = QPointer<QtMediaPlayer>(player)](const QVideoFrame& frame) {
        if (!frame.isValid() || taken->exchange(true)) return;
        auto copy = [frame, target] {
          QElapsedTimer copying;
          copying.start();
          const QImage picture = frame.toImage();
          qCDebug(lcViews, "first picture of a preloaded video: %dx%d, copied in %.2f ms on %s",
                  picture.width(), picture.height(), double(copying.nsecsElapsed()) / 1e6,
                  QThread::currentThread() == QCoreApplication::instance()->thread()
                      ? "the application thread"
                      : "a worker thread");
          return picture;
        };
        auto deliver = [target](const QImage& picture) {
          detail::whileApplicationAlive([&] {
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [target, picture] {
                  if (target) target->endGrab(picture);
                },
                Qt::QueuedConnection);
          });
        };
        if (frame.handleType() == QVideoFrame::NoHandle) {
          QThreadPool::globalInstance()->start([copy, deliver] { deliver(copy()); });
        } else {
          detail::whileApplicationAlive([&] {
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [copy, target] {
                  if (target) target->endGrab(copy());
                },
                Qt::QueuedConnection);
          });
        }
      },
      Qt::DirectConnection);
  player->grabWatch_ << connect(player, &MediaPlayer::statusChanged, player, [player](Status s) {
    if (s == Status::failed) player->endGrab(QImage());
  });
  player->grabTimer_ = std::make_unique<QTimer>();
  player->grabTimer_->setSingleShot(true);
  connect(player->grabTimer_.get(), &QTimer::timeout, player,
          [player] { player->endGrab(QImage()); });
  player->grabTimer_->start(kFirstPictureTimeoutMs);
  player->setSource(file);
  player->play();
}

void QtMediaPlayer::endGrab(const QImage& picture) {
  if (!grabDone_) return;
  for (const auto& connection : grabWatch_) disconnect(connection);
  grabWatch_.clear();
  if (grabTimer_) grabTimer_->stop();
  auto done = std::move(grabDone_);
  grabDone_ = nullptr;
  // Given back once this call (a slot of this player or its timer) has returned: a full
  // pool destroys it.
  QMetaObject::invokeMethod(
      QCoreApplication::instance(),
      [player = QPointer<QtMediaPlayer>(this)] {
        if (!player || !removeFrom(pool().grabbing, player.data())) return;
        player->grabTimer_.reset();
        giveBack(player.data());
      },
      Qt::QueuedConnection);
  done(picture);
}

int QtMediaPlayer::createdCount() {
  return pool().created;
}

int QtMediaPlayer::outputsCreatedCount() {
  return pool().outputs;
}

QtMediaPlayer::OwnedItem::~OwnedItem() {
  delete item.data();
}

QtMediaPlayer::QtMediaPlayer(QObject* parent) : MediaPlayer(parent) {
  player_.setAudioOutput(&audio_);
  connect(&player_, &QMediaPlayer::mediaStatusChanged, this, &QtMediaPlayer::onMediaStatus);
  connect(&player_, &QMediaPlayer::errorOccurred, this,
          [this](QMediaPlayer::Error, const QString& text) { onPlayerError(text); });
  connect(&player_, &QMediaPlayer::positionChanged, this,
          [this](qint64 ms) { Q_EMIT positionChanged(static_cast<double>(ms) / 1000.0); });
  connect(&player_, &QMediaPlayer::playbackStateChanged, this, &QtMediaPlayer::updatePlaying);
  connect(&audio_, &QAudioOutput::mutedChanged, this, &MediaPlayer::mutedChanged);
}

QtMediaPlayer::~QtMediaPlayer() {
  // Whatever the pipeline still reports on its way down is of no interest any more.
  QObject::disconnect(&player_, nullptr, this, nullptr);
  QObject::disconnect(&audio_, nullptr, this, nullptr);
  bringDown();
  // Then `player_` goes, taking every element of its pipeline to the null state (the
  // video sink too, whichever state its last renderer change left it in), and only then
  // the output item with its sink.
}

void QtMediaPlayer::bringDown() {
  // A download still under way, or a queued reload, finds a newer generation and stops.
  ++generation_;
  // A player going back to the pool no longer wants its creative: the download is
  // cancelled unless another view still holds it.
  download_.reset();
  source_.clear();
  local_.clear();
  mediaLoaded_ = false;
  wantsToPlay_ = false;
  reloaded_ = false;
  reloading_ = false;
  error_.clear();
  player_.stop();
  player_.setSource(QUrl());
  // The pipeline is in its null state: the output item may leave its view now, hidden in
  // the same window (or in none, if its view had none). Its sink stays attached; an
  // output lent by someone else is given back to them.
  if (player_.videoOutput() != output_.item.data()) player_.setVideoOutput(output_.item.data());
  if (QQuickItem* item = output_.item) {
    QQuickWindow* window = item->window();
    item->setParentItem(window ? parkingIn(window) : nullptr);
  }
  // Nobody listens any more: the state is reset without a word.
  status_ = Status::unknown;
  playing_ = false;
}

void QtMediaPlayer::letGo() {
  ++generation_;
  download_.reset();
  source_.clear();
  wantsToPlay_ = false;
  reloading_ = false;
  // In the same window the renderer stays as it is; hidden, the output draws nothing.
  if (QQuickItem* item = output_.item) {
    QQuickWindow* window = item->window();
    item->setParentItem(window ? parkingIn(window) : nullptr);
  }
  status_ = Status::unknown;
  playing_ = false;
}

void QtMediaPlayer::setSource(const QUrl& url) {
  ++generation_;
  download_.reset();
  source_ = url;
  local_.clear();
  mediaLoaded_ = false;
  reloaded_ = false;
  reloading_ = false;
  error_.clear();
  setStatus(Status::unknown);
  player_.setSource(QUrl());

  if (url.isEmpty() || isEmptyInlineResource(url)) return;
  if (url.isLocalFile() || url.scheme() == QLatin1String("qrc") ||
      url.scheme() == QLatin1String("data")) {
    load(url);
    return;
  }
  if (url.scheme() != QLatin1String("https")) {
    fail(QStringLiteral("cannot play a video from %1: only https addresses are loaded")
             .arg(url.toDisplayString()));
    return;
  }
  // The download completes on the transport thread; the file is handed to the player
  // on this thread, and only if this player still exists and still wants this source.
  const std::uint64_t generation = generation_;
  download_ = detail::holdCreativeFile(url.toString(QUrl::FullyEncoded).toStdString());
  continueOn(this, download_.future(), [this, generation](const Future<std::string>& ready) {
    if (generation != generation_) return;
    try {
      load(QUrl::fromLocalFile(QString::fromStdString(ready.get())));
    } catch (...) {
      fail(QStringLiteral("the video could not be downloaded: %1")
               .arg(describe(std::current_exception())));
    }
  });
}

void QtMediaPlayer::load(const QUrl& local) {
  // Playback starts once the media is loaded (onMediaStatus): asked to play while it
  // still prerolls into a video output, GStreamer now and then never leaves its paused
  // state.
  local_ = local;
  mediaLoaded_ = false;
  player_.setSource(local);
}

void QtMediaPlayer::setMuted(bool muted) {
  audio_.setMuted(muted);
}

void QtMediaPlayer::play() {
  wantsToPlay_ = true;
  if (mediaLoaded_) player_.play();
}

void QtMediaPlayer::pause() {
  wantsToPlay_ = false;
  if (mediaLoaded_) player_.pause();
}

void QtMediaPlayer::seekToZero() {
  if (mediaLoaded_) player_.setPosition(0);
}

bool QtMediaPlayer::isPlaying() const {
  return playing_;
}

void QtMediaPlayer::updatePlaying() {
  // Qt enters its playing state as soon as it is asked to, before it knows whether the
  // media can be played at all; playback has only started once the media is loaded.
  const bool now = player_.playbackState() == QMediaPlayer::PlayingState && mediaLoaded_ &&
                   status_ == Status::readyToPlay;
  if (now == playing_) return;
  playing_ = now;
  Q_EMIT playingChanged(now);
}

double QtMediaPlayer::position() const {
  return static_cast<double>(player_.position()) / 1000.0;
}

std::optional<double> QtMediaPlayer::duration() const {
  // Qt reports 0 while the duration is unknown and for streams without an end.
  const qint64 ms = player_.duration();
  if (ms <= 0) return std::nullopt;
  return static_cast<double>(ms) / 1000.0;
}

void QtMediaPlayer::setVideoOutput(QObject* output) {
  player_.setVideoOutput(output ? output : output_.item.data());
}

QQuickItem* QtMediaPlayer::outputItem() {
  if (!output_.item) {
    output_.item = makeOutputItem();
    if (output_.item) player_.setVideoOutput(output_.item.data());
  }
  return output_.item;
}

void QtMediaPlayer::onMediaStatus(QMediaPlayer::MediaStatus status) {
  switch (status) {
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferingMedia:
    case QMediaPlayer::BufferedMedia:
    case QMediaPlayer::StalledMedia:
      if (reloading_ || status_ == Status::failed) break;
      mediaLoaded_ = true;
      setStatus(Status::readyToPlay);
      if (wantsToPlay_ && player_.playbackState() != QMediaPlayer::PlayingState) player_.play();
      updatePlaying();
      break;
    case QMediaPlayer::EndOfMedia:
      // Playback stopped by itself; whoever wants more asks again.
      wantsToPlay_ = false;
      Q_EMIT endOfMedia();
      break;
    case QMediaPlayer::InvalidMedia:
      onPlayerError(player_.errorString());
      break;
    case QMediaPlayer::NoMedia:
    case QMediaPlayer::LoadingMedia:
      break;
  }
}

void QtMediaPlayer::onPlayerError(const QString& text) {
  if (reloading_) return;
  if (!reloaded_ && !local_.isEmpty() && status_ != Status::failed) {
    // Qt 6.4's GStreamer pipeline now and then loses a race while it links the decoder
    // of a freshly loaded file ("Internal data stream error", the demuxer's stream "not
    // linked"); loading the same file again plays it. Once per source: a file that is
    // really broken fails the second time too. Queued, because the pipeline is still
    // reporting from inside this call.
    reloaded_ = true;
    reloading_ = true;
    mediaLoaded_ = false;
    const std::uint64_t generation = generation_;
    QMetaObject::invokeMethod(
        this,
        [this, generation] {
          if (generation != generation_) return;
          reloading_ = false;
          player_.setSource(QUrl());
          load(local_);
        },
        Qt::QueuedConnection);
    return;
  }
  fail(text.isEmpty() ? QStringLiteral("the video cannot be played") : text);
}

void QtMediaPlayer::fail(const QString& error) {
  // GStreamer tends to follow the first, telling error with generic ones; keep the first.
  if (status_ == Status::failed) return;
  error_ = error;
  wantsToPlay_ = false;
  mediaLoaded_ = false;
  setStatus(Status::failed);
}

void QtMediaPlayer::setStatus(Status status) {
  if (status == status_) return;
  status_ = status;
  Q_EMIT statusChanged(status_, error_);
  updatePlaying();
}

}  // namespace tavik::quick
