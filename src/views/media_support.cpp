#include "views/media_support.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <QImageReader>
#include <QQmlEngine>
#include <QQuickTextureFactory>
#include <QRunnable>
#include <QScreen>
#include <QThreadPool>
#include <limits>
#include <mutex>

#include "tavik/core/tavik.h"
#include "tavik/views/qt_bridge.h"
#include "views/banner_ad_item.h"
#include "views/creative_store.h"
#include "views/preload.h"

namespace tavik::quick {

const ScreenLimits& screenLimits() {
  static const ScreenLimits limits = [] {
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) {
      constexpr double unlimited = std::numeric_limits<double>::infinity();
      return ScreenLimits{unlimited, unlimited};
    }
    const QSize size = screen->size();
    return limitsForScreen({static_cast<double>(size.width()), static_cast<double>(size.height())});
  }();
  return limits;
}

namespace {

// What a response shares with the work running for it. The response can be deleted by
// the engine only after it has emitted `finished`, so the worker reaches it through this
// state, under the lock, and the response clears it when it goes.
class CreativeImageResponse;
struct ResponseState {
  std::mutex mutex;
  CreativeImageResponse* response = nullptr;
  bool done = false;
  // The image's want of its creative: given up once the response is finished or gone,
  // which cancels a download no other view waits for.
  detail::CreativeHold<detail::Bytes> hold;
};

class CreativeImageResponse : public QQuickImageResponse {
 public:
  CreativeImageResponse() : state_(std::make_shared<ResponseState>()) { state_->response = this; }
  ~CreativeImageResponse() override {
    detail::CreativeHold<detail::Bytes> released;
    std::lock_guard lock(state_->mutex);
    state_->response = nullptr;
    released = std::move(state_->hold);
  }

  std::shared_ptr<ResponseState> state() const { return state_; }

  QQuickTextureFactory* textureFactory() const override {
    return QQuickTextureFactory::textureFactoryForImage(image_);
  }
  QString errorString() const override { return error_; }

  void cancel() override { complete({}, QStringLiteral("cancelled")); }

  // Called under the state's lock or on the response's own thread.
  static void finish(const std::shared_ptr<ResponseState>& state, QImage image, QString error) {
    detail::CreativeHold<detail::Bytes> released;
    std::lock_guard lock(state->mutex);
    released = std::move(state->hold);
    if (state->done || !state->response) return;
    state->done = true;
    state->response->image_ = std::move(image);
    state->response->error_ = std::move(error);
    Q_EMIT state->response->finished();
  }

 private:
  void complete(QImage image, QString error) { finish(state_, std::move(image), std::move(error)); }

  std::shared_ptr<ResponseState> state_;
  QImage image_;
  QString error_;
};

}  // namespace

namespace detail {
std::string creativeAddress(const QString& id) {
  return QByteArray::fromBase64(id.toLatin1(),
                                QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)
      .toStdString();
}

QImage decodeCreative(const std::string& bytes, const QSize& requestedSize) {
  QByteArray data = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
  QBuffer buffer(&data);
  buffer.open(QIODevice::ReadOnly);
  QImageReader reader(&buffer);
  if (requestedSize.isValid()) {
    QSize size = reader.size();
    if (size.isValid()) reader.setScaledSize(size.scaled(requestedSize, Qt::KeepAspectRatio));
  }
  return reader.read();
}
}  // namespace detail

QQuickImageResponse* CreativeImageProvider::requestImageResponse(const QString& id,
                                                                 const QSize& requestedSize) {
  auto* response = new CreativeImageResponse();
  auto state = response->state();
  auto hold = detail::holdCreativeBytes(detail::creativeAddress(id));
  Future<detail::Bytes> bytes = hold.future();
  {
    std::lock_guard lock(state->mutex);
    state->hold = std::move(hold);
  }
  bytes.whenReady([state, requestedSize](const Future<detail::Bytes>& ready) {
    detail::Bytes bytes;
    try {
      bytes = ready.get();
    } catch (const std::exception& e) {
      CreativeImageResponse::finish(state, {}, QString::fromUtf8(e.what()));
      return;
    }
    // Decoding is real work: keep it off the transport thread. Nothing is started
    // once the response is gone or the application is shutting down (the pool
    // goes with it).
    {
      std::lock_guard lock(state->mutex);
      if (state->done || !state->response) return;
    }
    detail::whileApplicationAlive([&] {
      QThreadPool::globalInstance()->start([state, bytes, requestedSize] {
        {
          std::lock_guard lock(state->mutex);
          if (state->done || !state->response) return;  // cancelled meanwhile
        }
        QImage image = detail::decodeCreative(*bytes, requestedSize);
        CreativeImageResponse::finish(state, image,
                                      image.isNull() ? QStringLiteral("not an image") : QString());
      });
    });
  });
  return response;
}

void installImageProvider(QQmlEngine* engine) {
  applicationExecutor();  // starts watching the application object, from its thread
  if (engine && !engine->imageProvider(QLatin1String(kImageProviderId))) {
    engine->addImageProvider(QLatin1String(kImageProviderId), new CreativeImageProvider());
  }
  if (engine && !engine->imageProvider(QLatin1String(detail::kReadyImageProviderId))) {
    engine->addImageProvider(QLatin1String(detail::kReadyImageProviderId),
                             new detail::PreloadedImageProvider());
  }
}

TavikMedia* TavikMedia::create(QQmlEngine* engine, QJSEngine*) {
  installImageProvider(engine);
  return new TavikMedia();
}

QPointF TavikMedia::labelPosition(qreal frameWidth, qreal frameHeight, qreal width, qreal height,
                                  int alignment) const {
  const RectF r = placeLabel({frameWidth, frameHeight}, {width, height},
                             labelAlignmentFrom(Qt::Alignment(alignment)));
  return {r.x, r.y};
}

QString TavikMedia::imageSource(const QString& address) const {
  return creativeImageSource(address);
}

bool isReadyImageSource(const QString& source) {
  return source.startsWith(QStringLiteral("image://") +
                           QLatin1String(detail::kReadyImageProviderId) + QLatin1Char('/'));
}

QmlConfig sharedConfig(const Config& config) {
  // The views are made on the UI thread; one record serves all of them until the
  // configuration they are given changes.
  static QmlConfig last;
  if (!last.config() || !(*last.config() == config)) last = QmlConfig(config);
  return last;
}

QmlConfig installedConfig() {
  const TAVIK* sdk = TAVIK::installed();
  return sdk && sdk->config() ? sharedConfig(*sdk->config()) : QmlConfig();
}

QString creativeImageSource(const QString& address) {
  if (address.trimmed().isEmpty()) return {};
  // A preloaded picture is served at once, so the view draws it in its first frame.
  const QString provider = detail::hasPreloadedImage(address.toStdString())
                               ? QLatin1String(detail::kReadyImageProviderId)
                               : QLatin1String(kImageProviderId);
  return QStringLiteral("image://") + provider + QLatin1Char('/') +
         QString::fromLatin1(address.toUtf8().toBase64(QByteArray::Base64UrlEncoding |
                                                       QByteArray::OmitTrailingEquals));
}

}  // namespace tavik::quick
