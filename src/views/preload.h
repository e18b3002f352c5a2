#pragma once

// Creatives loaded ahead of showing (`preloadCreative`): each preload holds its creative
// until a view takes it over or the host drops it. A completed image preload keeps the
// decoded picture, which `image://tavikready/<address, base64url>` serves synchronously,
// so that an image view made afterwards draws it in its first frame.

#include <QImage>
#include <QQuickImageProvider>
#include <string>

namespace tavik::quick::detail {

inline constexpr const char* kReadyImageProviderId = "tavikready";

/// A view now holds `url` itself: one preload of it, if any, is given up.
void takeOverPreload(const std::string& url);
/// Whether a completed preload of the image at `url` waits for a view.
bool hasPreloadedImage(const std::string& url);
/// The picture of a completed preload of `url`, taking that preload over; null if none.
QImage takePreloadedImage(const std::string& url);

/// Serves `image://tavikready/...` on the calling thread: the preloaded picture, or one
/// decoded from the in-memory cache when a later load of the same view asks again.
class PreloadedImageProvider : public QQuickImageProvider {
 public:
  PreloadedImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
  QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

}  // namespace tavik::quick::detail
