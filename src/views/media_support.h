#pragma once

// Qt-side helpers every view shares: the screen limits, creative images served to QML
// through the SDK's transport, and the QML singleton `TavikMedia` that wires both into
// an engine.

#include <QtQml/qqmlregistration.h>
#include <QImage>
#include <QObject>
#include <QPointF>
#include <QQuickAsyncImageProvider>
#include <QString>
#include <string>

#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

class QQmlEngine;
class QJSEngine;

namespace tavik::quick {

/// The process-wide limits, computed from the primary screen at the first read and
/// never refreshed (a rotation or a screen change later does not move them). Without a
/// screen nothing is capped.
const ScreenLimits& screenLimits();

/// Name of the image provider: "image://tavik/<address, base64url>".
inline constexpr const char* kImageProviderId = "tavik";

/// Serves `image://tavik/...` from the SDK's transport. Decoding runs on Qt's thread
/// pool, never on the transport thread or the UI thread.
class CreativeImageProvider : public QQuickAsyncImageProvider {
 public:
  QQuickImageResponse* requestImageResponse(const QString& id, const QSize& requestedSize) override;
};

namespace detail {
/// The creative address in an image provider's id (the address as base64url).
std::string creativeAddress(const QString& id);
/// Decodes an image creative, scaled down into `requestedSize` (aspect kept) when that
/// is valid; null when the bytes are no image.
QImage decodeCreative(const std::string& bytes, const QSize& requestedSize);
}  // namespace detail

/// The source an `Image` loads the creative at `address` from ("" for an empty address):
/// `image://tavikready/...` while a decoded preload of it waits (served at once, so the
/// view draws it in its first frame), else `image://tavik/...`.
QString creativeImageSource(const QString& address);
/// Whether `source` is served at once (a waiting preload): load it synchronously.
bool isReadyImageSource(const QString& source);

/// The configuration record the views share: the same `QmlConfig` (one record, shared)
/// for as long as `config` is equal to the last one asked for, so a view holds a pointer
/// and not a copy of every endpoint. UI thread only.
QmlConfig sharedConfig(const Config& config);
/// The installed SDK's configuration as `sharedConfig` gives it; the empty value without
/// an SDK installed.
QmlConfig installedConfig();

/// Installs the image providers on `engine` unless it has them already.
void installImageProvider(QQmlEngine* engine);

/// QML helpers of the module: `TavikMedia.imageSource(address)` gives the source an
/// `Image` loads a creative from ("" for an empty address, which draws nothing).
/// Creating the singleton installs the image provider on its engine.
class TavikMedia : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON
  Q_PROPERTY(qreal maxAdWidth READ maxAdWidth CONSTANT)
  Q_PROPERTY(qreal maxAdHeight READ maxAdHeight CONSTANT)

 public:
  static TavikMedia* create(QQmlEngine* engine, QJSEngine*);

  Q_INVOKABLE QString imageSource(const QString& address) const;
  Q_INVOKABLE QString closeSymbol() const { return symbol(kCloseSymbol); }
  Q_INVOKABLE QString fullScreenSymbol(bool isFullScreen) const {
    return symbol(quick::fullScreenSymbol(isFullScreen));
  }
  Q_INVOKABLE QString muteSymbol(bool isMuted) const { return symbol(quick::muteSymbol(isMuted)); }
  /// Where a label of `width` × `height` goes in a frame of `frameWidth` × `frameHeight`
  /// at `alignment` (Qt alignment flags).
  Q_INVOKABLE QPointF labelPosition(qreal frameWidth, qreal frameHeight, qreal width, qreal height,
                                    int alignment) const;
  qreal maxAdWidth() const { return screenLimits().maxAdWidth; }
  qreal maxAdHeight() const { return screenLimits().maxAdHeight; }

 private:
  TavikMedia() = default;
  static QString symbol(std::string_view name) {
    return QString::fromLatin1(name.data(), static_cast<qsizetype>(name.size()));
  }
};

}  // namespace tavik::quick
