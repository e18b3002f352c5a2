#include "views/preload.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include "tavik/views/banner_ad_view.h"
#include "tavik/views/carousel_ad_view.h"
#include "tavik/views/creatives.h"
#include "tavik/views/overlay_ad_view.h"
#include "tavik/views/qt_bridge.h"
#include "video/qt_media_player.h"
#include "views/creative_disk_cache.h"
#include "views/creative_store.h"
#include "views/media_support.h"
#include "views/view_logic.h"

namespace tavik::quick {

namespace detail {

namespace {

// One preload: its hold on the creative and, once an image is decoded, its picture.
struct Preload {
  CreativeHold<Bytes> bytes;
  CreativeHold<std::string> file;
  QImage image;
  // A video's first picture, when the preload asked for it and a player could give it.
  QImage videoPicture;
  bool ready = false;
};

// The preloads waiting for a view, by creative address, oldest first.
class Preloads {
 public:
  static Preloads& instance() {
    static auto* preloads = new Preloads();  // never destroyed: holds outlive main()
    return *preloads;
  }

  void add(const std::string& url, const std::shared_ptr<Preload>& preload) {
    std::lock_guard lock(mutex_);
    byAddress_[url].push_back(preload);
  }

  // Takes one preload of `url` out (a ready one first); the caller drops it outside the
  // lock, since dropping a hold may cancel a download.
  std::shared_ptr<Preload> take(const std::string& url, bool readyImageOnly = false) {
    std::lock_guard lock(mutex_);
    auto it = byAddress_.find(url);
    if (it == byAddress_.end()) return nullptr;
    auto& queue = it->second;
    auto chosen = queue.end();
    for (auto p = queue.begin(); p != queue.end(); ++p) {
      if ((*p)->ready && !(*p)->image.isNull()) {
        chosen = p;
        break;
      }
    }
    if (chosen == queue.end()) {
      if (readyImageOnly) return nullptr;
      chosen = queue.begin();
    }
    auto taken = *chosen;
    queue.erase(chosen);
    if (queue.empty()) byAddress_.erase(it);
    return taken;
  }

  bool hasReadyImage(const std::string& url) {
    std::lock_guard lock(mutex_);
    auto it = byAddress_.find(url);
    if (it == byAddress_.end()) return false;
    for (const auto& p : it->second) {
      if (p->ready && !p->image.isNull()) return true;
    }
    return false;
  }

  QImage videoPicture(const std::string& url) {
    std::lock_guard lock(mutex_);
    auto it = byAddress_.find(url);
    if (it == byAddress_.end()) return {};
    for (const auto& p : it->second) {
      if (!p->videoPicture.isNull()) return p->videoPicture;
    }
    return {};
  }

  void setVideoPicture(const std::shared_ptr<Preload>& preload, QImage picture) {
    std::lock_guard lock(mutex_);
    preload->videoPicture = std::move(picture);
  }

  void markReady(const std::shared_ptr<Preload>& preload, QImage image) {
    std::lock_guard lock(mutex_);
    preload->image = std::move(image);
    preload->ready = true;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::deque<std::shared_ptr<Preload>>> byAddress_;
};

template <class T>
void settle(const std::shared_ptr<Promise<bool>>& promise, const Future<T>& ready) {
  try {
    ready.get();
    promise->set_value(true);
  } catch (...) {
    promise->set_exception(std::current_exception());
  }
}

}  // namespace

void takeOverPreload(const std::string& url) {
  auto taken = Preloads::instance().take(url);
  // `taken` goes here, outside the lock.
}

bool hasPreloadedImage(const std::string& url) {
  return Preloads::instance().hasReadyImage(url);
}

QImage takePreloadedImage(const std::string& url) {
  auto taken = Preloads::instance().take(url, true);
  return taken ? taken->image : QImage();
}

QImage preloadedVideoPicture(const std::string& url) {
  return Preloads::instance().videoPicture(url);
}

QImage PreloadedImageProvider::requestImage(const QString& id, QSize* size,
                                            const QSize& requestedSize) {
  const std::string url = creativeAddress(id);
  QImage image = takePreloadedImage(url);
  if (image.isNull()) {
    // The view loads again (a new size): from memory if the bytes are still there.
    if (const Bytes bytes = cachedCreativeBytes(url)) image = decodeCreative(*bytes, requestedSize);
  }
  if (size) *size = image.size();
  return image;
}

}  // namespace detail

Future<bool> detail::preload(const BannerAd& ad, bool firstVideoPicture) {
  const CreativeKind kind = creativeKind(ad);
  if (kind == CreativeKind::none || ad.elements.value.empty()) return Future<bool>::ready(false);
  // The decoded picture is handed over only while the application is watched, which the
  // first view starts; a preload may come before any view, so it starts it too when it
  // is called on the application's thread.
  QCoreApplication* app = QCoreApplication::instance();
  const bool onApplicationThread = app && QThread::currentThread() == app->thread();
  if (onApplicationThread) applicationExecutor();
  const std::string url = ad.elements.value;
  auto preload = std::make_shared<detail::Preload>();
  auto promise = std::make_shared<Promise<bool>>();
  Future<bool> result = promise->get_future();
  // Registered before the download can complete, so that it counts as wanted from the
  // start; the preload itself is reached weakly, as a view may take it over meanwhile.
  std::weak_ptr<detail::Preload> weak = preload;
  if (kind == CreativeKind::video) {
    preload->file = detail::holdCreativeFile(url, detail::HoldFor::preload);
    const Future<std::string> file = preload->file.future();
    detail::Preloads::instance().add(url, preload);
    if (!firstVideoPicture || !onApplicationThread) {
      file.whenReady([promise, weak](const Future<std::string>& ready) {
        if (auto alive = weak.lock()) detail::Preloads::instance().markReady(alive, {});
        detail::settle(promise, ready);
      });
      return result;
    }
    // Once the file is on disk, an idle pooled player that already has its output plays
    // it muted up to its first picture, which the preload keeps; complete when it has it
    // (or when no such player is idle: then the file alone is ready, as for any video).
    file.whenReady(applicationExecutor(), [promise, weak](const Future<std::string>& ready) {
      std::string path;
      try {
        path = ready.get();
      } catch (...) {
        promise->set_exception(std::current_exception());
        return;
      }
      auto alive = weak.lock();
      if (!alive) {  // a view took it over, or the host dropped it, meanwhile
        promise->set_value(true);
        return;
      }
      detail::Preloads::instance().markReady(alive, {});
      alive.reset();
      QtMediaPlayer::grabFirstPicture(QUrl::fromLocalFile(QString::fromStdString(path)),
                                      [promise, weak](const QImage& picture) {
                                        if (auto still = weak.lock(); still && !picture.isNull())
                                          detail::Preloads::instance().setVideoPicture(still,
                                                                                       picture);
                                        promise->set_value(true);
                                      });
    });
    return result;
  }
  preload->bytes = detail::holdCreativeBytes(url, detail::HoldFor::preload);
  const Future<detail::Bytes> bytes = preload->bytes.future();
  detail::Preloads::instance().add(url, preload);
  bytes.whenReady([promise, weak](const Future<detail::Bytes>& ready) {
    detail::Bytes body;
    try {
      body = ready.get();
    } catch (...) {
      promise->set_exception(std::current_exception());
      return;
    }
    // A view took the preload over meanwhile and decodes for itself.
    if (weak.expired()) {
      promise->set_value(true);
      return;
    }
    // Decoding is real work: on Qt's thread pool, never on the transport thread.
    const bool started = detail::whileApplicationAlive([&] {
      QThreadPool::globalInstance()->start([promise, weak, body] {
        QImage image = detail::decodeCreative(*body, QSize());
        if (image.isNull()) {
          promise->set_exception(
              std::make_exception_ptr(std::runtime_error("the creative is not an image")));
          return;
        }
        if (auto alive = weak.lock()) detail::Preloads::instance().markReady(alive, image);
        promise->set_value(true);
      });
    });
    if (!started) promise->abandon();
  });
  return result;
}

Future<bool> preloadCreative(const BannerAd& ad) {
  return detail::preload(ad, /*firstVideoPicture=*/false);
}

void dropPreloadedCreative(const BannerAd& ad) {
  if (ad.elements.value.empty()) return;
  detail::takeOverPreload(ad.elements.value);
}

void configureCreativeCache(const CreativeCacheSettings& settings) {
  detail::CreativeDiskCache::instance().configure(settings.folder, settings.maxDiskBytes);
}

CreativeCacheSettings creativeCacheSettings() {
  auto& cache = detail::CreativeDiskCache::instance();
  CreativeCacheSettings settings;
  settings.folder = cache.folder();
  settings.maxDiskBytes = cache.maxBytes();
  return settings;
}

}  // namespace tavik::quick

namespace tavik {

namespace {

// One future for several preloads: true once every one is ready, false when none had a
// creative to load, the first error otherwise.
Future<bool> allPreloaded(const std::vector<Future<bool>>& preloads) {
  if (preloads.empty()) return Future<bool>::ready(false);
  struct State {
    std::mutex mutex;
    std::size_t left = 0;
    bool loaded = false;
    Promise<bool> promise;
  };
  auto state = std::make_shared<State>();
  state->left = preloads.size();
  Future<bool> result = state->promise.get_future();
  for (const Future<bool>& preload : preloads) {
    preload.whenReady([state](const Future<bool>& ready) {
      std::exception_ptr error;
      bool loaded = false;
      try {
        loaded = ready.get();
      } catch (...) {
        error = std::current_exception();
      }
      std::lock_guard lock(state->mutex);
      if (error) {
        state->promise.set_exception(error);  // the first error wins; later ones are dropped
        return;
      }
      state->loaded = state->loaded || loaded;
      if (--state->left == 0) state->promise.set_value(state->loaded);
    });
  }
  return result;
}

// A carousel card's creative, as the ad a single view of it would show.
BannerAd cardCreative(const CarouselCard& card) {
  BannerAd ad;
  ad.crt = std::string(card.media.type == "VIDEO" ? kVideoTemplatePrefix : kImageTemplatePrefix);
  ad.elements.value = card.media.value;
  ad.elements.type = card.media.type;
  ad.elements.width = card.media.width;
  ad.elements.height = card.media.height;
  return ad;
}

}  // namespace

Future<bool> CarouselAdViewProtocol::preload(const CarouselAd& ad) {
  std::vector<Future<bool>> preloads;
  for (const CarouselCard& card : ad.elements.carouselCards)
    preloads.push_back(quick::preloadCreative(cardCreative(card)));
  return allPreloaded(preloads);
}
void CarouselAdViewProtocol::dropPreload(const CarouselAd& ad) {
  for (const CarouselCard& card : ad.elements.carouselCards)
    quick::dropPreloadedCreative(cardCreative(card));
}
Future<bool> MultiAdCarouselViewProtocol::preload(const std::vector<BannerAd>& ads) {
  std::vector<Future<bool>> preloads;
  for (const BannerAd& ad : ads) preloads.push_back(quick::preloadCreative(ad));
  return allPreloaded(preloads);
}
void MultiAdCarouselViewProtocol::dropPreload(const std::vector<BannerAd>& ads) {
  for (const BannerAd& ad : ads) quick::dropPreloadedCreative(ad);
}

// Every manager preloads the same way: the creative is the ad's, whoever shows it.
Future<bool> BannerAdViewProtocol::preload(const BannerAd& ad) {
  return quick::preloadCreative(ad);
}
void BannerAdViewProtocol::dropPreload(const BannerAd& ad) {
  quick::dropPreloadedCreative(ad);
}
Future<bool> InterstitialAdViewProtocol::preload(const BannerAd& ad) {
  return quick::preloadCreative(ad);
}
void InterstitialAdViewProtocol::dropPreload(const BannerAd& ad) {
  quick::dropPreloadedCreative(ad);
}
Future<bool> PIPAdViewProtocol::preload(const BannerAd& ad) {
  // The picture in picture shows video only.
  if (!isVideoCreative(ad.crt)) return Future<bool>::ready(false);
  // With the video's first picture, so that the panel shows it in its first frame.
  return quick::detail::preload(ad, /*firstVideoPicture=*/true);
}
void PIPAdViewProtocol::dropPreload(const BannerAd& ad) {
  quick::dropPreloadedCreative(ad);
}

}  // namespace tavik
