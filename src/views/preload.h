#pragma once

// Creatives loaded ahead of showing (`preloadCreative`): each preload holds its creative
// until a view takes it over or the host drops it. A completed image preload keeps the
// decoded picture, which `image://tavikready/<address, base64url>` serves synchronously,
// so that an image view made afterwards draws it in its first frame. A video preload
// that asked for it keeps the video's first picture, which a video view made afterwards
// draws until its own player's first picture reaches its output.

#include <QImage>
#include <QQuickImageProvider>
#include <string>

#include "tavik/ads/ad_models.h"
#include "tavik/core/future.h"

namespace tavik::quick::detail {

/// `preloadCreative`, and for a video creative preloaded on the application thread with
/// `firstVideoPicture`, its first picture as well (`QtMediaPlayer::grabFirstPicture`):
/// the future then completes once the picture is kept, or once the file is on disk when
/// no idle pooled player has an output to play it on.
Future<bool> preload(const BannerAd& ad, bool firstVideoPicture);

inline constexpr const char* kReadyImageProviderId = "tavikready";

/// A view now holds `url` itself: one preload of it, if any, is given up.
void takeOverPreload(const std::string& url);
/// Whether a completed preload of the image at `url` waits for a view.
bool hasPreloadedImage(const std::string& url);
/// The picture of a completed preload of `url`, taking that preload over; null if none.
QImage takePreloadedImage(const std::string& url);
/// The first picture of the video at `url` kept by a completed preload that still waits
/// for a view (the preload is not taken over); null if none.
QImage preloadedVideoPicture(const std::string& url);

/// Serves `image://tavikready/...` on the calling thread: the preloaded picture, or one
/// decoded from the in-memory cache when a later load of the same view asks again.
class PreloadedImageProvider : public QQuickImageProvider {
 public:
  PreloadedImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
  QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

}  // namespace tavik::quick::detail
